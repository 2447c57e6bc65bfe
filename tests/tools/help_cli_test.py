"""What the tool says about itself: help on one screen, and what was probably meant by a word that it does not know."""

import re
import unittest

from cli_support import CliTest

ROWS, COLUMNS = 40, 80


def subcommands_in(text):
    """The names listed below "Subcommands:"."""
    block = text.split("\nSubcommands:\n")[1].split("\n\n")[0]
    return [line.split()[0] for line in block.splitlines()]


def options_in(text):
    """The options of a subcommand's help: every name, with the word for its value or None."""
    options = {}
    for line in text.splitlines():
        if not re.match(r"  (-|INPUT)", line) or line.startswith("  INPUT"):
            continue
        names = re.split(r" {2,}", line.strip())[0]
        for option in names.split("; "):
            words = re.fullmatch(r"((?:-\w, )?--[\w-]+)(?: (\S+))?", option)
            assert words, line
            for name in words[1].split(", "):
                options[name] = words[2]
    return options


class HelpTest(CliTest):
    def help(self, *words):
        return self.good(*words, "--help").out.decode()

    def subcommands(self):
        names = subcommands_in(self.help())
        self.assertIn("decode", names)
        return names


class Help(HelpTest):
    def fits(self, text):
        lines = text.split("\n")
        self.assertEqual(lines.pop(), "")
        self.assertLessEqual(len(lines), ROWS, text)
        for line in lines:
            self.assertLessEqual(len(line), COLUMNS, line)
            self.assertEqual(line, line.rstrip(), "blanks at the end")

    def opens_with_examples(self, text, start):
        """A line that says what it is, then two examples, then the usage."""
        head = text.split("\n\n")
        self.assertRegex(head[0], r"\A[A-Z][^\n]+\.\Z")
        examples = head[1].split("\n")
        self.assertEqual(len(examples), 2, head[1])
        for example in examples:
            self.assertTrue(example.startswith("  " + start), example)
        self.assertTrue(head[2].startswith("Usage: " + start), head[2])

    def test_the_tool_alone(self):
        text = self.help()
        self.fits(text)
        self.opens_with_examples(text, "qav ")
        for words in (("-h",), ("help",)):
            self.assertEqual(self.good(*words).out.decode(), text)
        # Without a word: the same, as a mistake.
        result = self.qav()
        self.assertEqual((result.status, result.out, result.err), (1, b"", text))

    def test_every_subcommand(self):
        for name in self.subcommands():
            with self.subTest(name):
                text = self.help(name)
                self.fits(text)
                self.opens_with_examples(text, "qav %s " % name)
                self.assertEqual(self.good(name, "-h").out.decode(), text)
                self.assertEqual(self.good("help", name).out.decode(), text)
                # What the parser adds by itself is not for people.
                self.assertNotRegex(text, r"[{}]|UINT|FLOAT|TEXT|Excludes|REQUIRED|OPTIONS")

    def test_options_are_grouped(self):
        for name in self.subcommands():
            with self.subTest(name):
                groups = re.findall(r"^(\S.*):$", self.help(name), re.M)
                self.assertEqual(groups[0], "Input")
                self.assertEqual(groups[-1], "Running and reporting")
                self.assertEqual(len(groups), len(set(groups)))
                options = options_in(self.help(name))
                for common in ("-h", "--help", "--version", "--json", "-j", "--jobs", "--recursive", "--null"):
                    self.assertIn(common, options)

    def test_the_options_that_are_shown_exist(self):
        """Each one is taken, or refused for what it lacks, but never as unknown."""
        for name in self.subcommands():
            for option, value in options_in(self.help(name)).items():
                with self.subTest(name, option=option):
                    result = self.qav(name, option, *(["x"] if value else []))
                    self.assertNotIn("there is no option", result.err)

    def test_what_a_value_may_be_is_what_the_help_says(self):
        for name in self.subcommands():
            for option, value in options_in(self.help(name)).items():
                words = (value or "").split("|")
                if len(words) < 2 or "FILE" in words:
                    continue
                with self.subTest(name, option=option):
                    for word in words:
                        result = self.qav(name, option, word, "absent")
                        self.assertNotIn(option + ":", result.err)
                    result = self.qav(name, option, "nonsense", "absent")
                    self.assertEqual(result.status, 1)


class Misspelt(HelpTest):
    def test_subcommands(self):
        for word, meant in (("decod", "decode"), ("encdoe", "encode"), ("chekc", "check"), ("resampel", "resample"),
                            ("res", "resample"), ("inf", "info")):
            self.refused(1, "did you mean '%s'?" % meant, word, "a.mp2")
        self.refused(1, "see 'qav --help'", "frobnicate", "a.mp2")
        self.refused(1, "did you mean 'decode'?", "help", "decod")

    def test_options_of_every_subcommand(self):
        for name in self.subcommands():
            for option in options_in(self.help(name)):
                if not option.startswith("--"):
                    continue
                misspelt = option + "z"
                with self.subTest(name, option=misspelt):
                    said = "there is no option %s; did you mean '%s'?" % (misspelt, option)
                    self.refused(1, said, name, misspelt, "a.mp2")

    def test_options(self):
        for words, meant in ((("encode", "--bitrat", "192"), "--bitrate"), (("encode", "--bitrat=192"), "--bitrate"),
                             (("encode", "--norm", "-23"), "--normalize"), (("encode", "-bitrate", "192"), "--bitrate"),
                             (("encode", "--nocrc"), "--no-crc"), (("decode", "--gap", "skip"), "--gaps"),
                             (("decode", "--outptu", "x"), "--output"), (("check", "--recurse"), "--recursive")):
            self.refused(1, "did you mean '%s'?" % meant, *words, "a.wav")
        self.refused(1, "see 'qav check --help'", "check", "--frobnicate", "a.mp2")
        self.refused(1, "see 'qav check --help'", "check", "-Z", "a.mp2")

    def test_behind_two_dashes_it_is_a_file(self):
        self.refused(2, "--hlep", "info", "--", "--hlep")

    def test_values(self):
        self.refused(1, "--bitrate takes a number, not abc", "encode", "-b", "abc", "a.wav")
        self.refused(1, "--gain: Value loud not in range -100 to 100;", "encode", "--gain", "loud", "a.wav")
        self.refused(1, "--rate", "resample", "a.wav")


if __name__ == "__main__":
    unittest.main()
