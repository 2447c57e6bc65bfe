"""Manual pages and completions know every option that the tool knows, and no other."""

import os
import re
import shutil
import subprocess
import unittest

from help_cli_test import HelpTest, options_in

MANUAL = os.path.join(os.environ["QAV_SOURCES"], "docs", "man")
MAN_PAGE = os.path.join(os.environ["QAV_SOURCES"], "scripts", "man-page")
COMPLETIONS = os.environ["QAV_DOCUMENTS"]


def manual(name):
    """A page's source, put together."""
    page = os.path.join(MANUAL, name + ".1.scd")
    return subprocess.run([MAN_PAGE, page, "1.2.3"], check=True, stdout=subprocess.PIPE, text=True).stdout


def options_on(page):
    """The options that a page's OPTIONS describe."""
    section = re.search(r"^# OPTIONS\n(.*?)^# ", page, re.M | re.S)[1]
    heads = [line for line in section.splitlines() if line.startswith("*-")]
    return {name for head in heads for name in re.findall(r"(?:^|, )\*(--?[\w-]+)\*", head)}


class ManualPages(HelpTest):
    def test_there_is_one_for_each_subcommand(self):
        pages = {name.removesuffix(".1.scd") for name in os.listdir(MANUAL) if name.endswith(".1.scd")}
        self.assertEqual(pages, {"qav"} | {"qav-" + name for name in self.subcommands()})

    def test_options_are_those_of_the_help(self):
        for name in self.subcommands():
            with self.subTest(name, remedy="write what is missing into docs/man/qav-%s.1.scd" % name):
                self.assertEqual(sorted(options_on(manual("qav-" + name))), sorted(options_in(self.help(name))))

    def test_sections(self):
        for name in ["qav"] + ["qav-" + name for name in self.subcommands()]:
            with self.subTest(name):
                page = manual(name)
                self.assertTrue(page.startswith('%s(1) "qav 1.2.3"\n' % name))
                sections = re.findall(r"^# (.*)$", page, re.M)
                for section in ("NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS", "EXAMPLES", "SEE ALSO"):
                    self.assertEqual(sections.count(section), 1, section)
                self.assertNotRegex(page, "@[A-Z_]+@")

    def test_the_page_of_the_tool_names_the_others(self):
        page = manual("qav")
        for name in self.subcommands():
            self.assertIn("*qav-%s*(1)\n\t" % name, page)

    def test_examples_are_command_lines_of_today(self):
        """The options in the examples exist."""
        for name in self.subcommands():
            examples = manual("qav-" + name).split("# EXAMPLES")[1].split("# SEE ALSO")[0]
            known = options_in(self.help(name))
            used = re.findall(r"(?<!\S)(--?[a-z][\w-]*)", " ".join(re.findall(r"qav %s ([^|\n]*)" % name, examples)))
            with self.subTest(name):
                self.assertLessEqual(set(used), set(known))
                self.assertIn("qav %s " % name, examples)


class Completions(HelpTest):
    def expected(self):
        return {name: set(options_in(self.help(name))) for name in self.subcommands()}

    def run_shell(self, *command):
        if shutil.which(command[0]) is None:
            self.skipTest("without " + command[0])
        result = subprocess.run(command, cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout.splitlines()

    def bash(self, *words):
        script = 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _qav; printf "%s\\n" "${COMPREPLY[@]}"'
        found = self.run_shell("bash", "-c", script, "bash", os.path.join(COMPLETIONS, "bash/qav"), "qav", *words)
        return [word for word in found if word]

    def test_bash(self):
        for name, options in self.expected().items():
            self.assertEqual(set(self.bash(name, "-")), options, name)
        self.assertLessEqual(set(self.subcommands()), set(self.bash("")))
        self.assertEqual(self.bash("dec"), ["decode"])
        self.assertEqual(self.bash("help", "dec"), ["decode"])
        self.assertEqual(self.bash("decode", "--gaps", ""), ["silence", "skip"])
        self.assertEqual(self.bash("decode", "--gaps", "=", "sk"), ["skip"])
        self.assertEqual(self.bash("encode", "-b", ""), [])
        self.assertEqual(self.bash("encode", "--report", ""), [])  # files

    def zsh(self, *words):
        """What the completion asks of zsh's own functions, line by line."""
        script = ('compdef() {}; _describe() { print -rl -- $subcommands }; _arguments() { print -rl -- "$@" }; '
                  'source "$1"; shift; words=("$@"); CURRENT=$#; _qav')
        return self.run_shell("zsh", "-f", "-c", script, "zsh", os.path.join(COMPLETIONS, "zsh/_qav"), "qav", *words)

    def test_zsh(self):
        for name, options in self.expected().items():
            specifications = self.zsh(name, "-")
            found = re.findall(r"^\([^)]*\)(--?[\w-]+)[=+]?\[", "\n".join(specifications), re.M)
            self.assertEqual(set(found), options, name)
            self.assertIn("*:INPUT:_files", specifications)
        self.assertEqual([line.split(":")[0] for line in self.zsh("")], self.subcommands() + ["help"])
        self.assertTrue(any(line.endswith(":(silence skip)") for line in self.zsh("decode", "-")))

    def fish(self, line):
        found = self.run_shell("fish", "--no-config", "-c", 'source "$argv[1]"; complete -C "$argv[2]"',
                               os.path.join(COMPLETIONS, "fish/qav.fish"), line)
        return {line.split("\t")[0] for line in found}

    def test_fish(self):
        for name, options in self.expected().items():
            long = {option for option in options if option.startswith("--")}
            self.assertEqual(self.fish("qav %s --" % name), long, name)
            self.assertEqual({name for name in self.fish("qav %s -" % name) if len(name) == 2}, options - long, name)
        self.assertLessEqual(set(self.subcommands()), self.fish("qav "))
        self.assertEqual(self.fish("qav decode --gaps "), {"silence", "skip"})
        self.assertEqual(self.fish("qav help dec"), {"decode"})


if __name__ == "__main__":
    unittest.main()
