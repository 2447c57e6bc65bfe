"""qav among people who mean ill: names and contents that would steer a terminal, links planted where it writes, an
environment full of traps."""

import json
import os
import stat
import struct
import unittest

from cli_support import QAV, CliTest, data, restore_signals

STEREO = data("l2_stereo_44k_192_crc.mp2")
# Sets a window's title, clears the screen, and rings; in seven bits, and where it can be, in eight.
ATTACK = b"\x1b]0;owned\x07\x1b[2J\xc2\x9b2J\x7f\xc2\x85\x08\r\xff\xc2"


def wave(*chunks, fmt=struct.pack("<HHIIHH", 1, 1, 8000, 16000, 2, 16)):
    body = b"".join(k + struct.pack("<I", len(v)) + v + bytes(len(v) & 1) for k, v in ((b"fmt ", fmt), *chunks))
    return b"RIFF" + struct.pack("<I", 4 + len(body)) + b"WAVE" + body


class Terminal(CliTest):
    def assertInert(self, output):
        """UTF-8 without a control character but line ends."""
        found = [c for c in output.decode("utf-8") if c != "\n" and (ord(c) < 0x20 or 0x7F <= ord(c) < 0xA0)]
        self.assertEqual(found, [], output)

    def run_inert(self, *arguments, statuses=(0,)):
        result = self.qav(*arguments)
        self.assertIn(result.status, statuses, (arguments, result.err))
        self.assertInert(result.err.encode())
        self.assertInert(result.out)
        return result

    def test_names_of_files(self):
        good, torn, text = ATTACK + b".mp2", ATTACK + b"torn.mp2", ATTACK + b"text.mp2"
        pcm = ATTACK + b".wav"
        self.put(good, STEREO)
        self.put(torn, STEREO[:5000] + bytes(700) + STEREO[5600:])
        self.put(text, b"text")
        self.put(pcm, wave((b"data", bytes(20000))))
        for arguments, status in (
            (["info", "-v", good, torn, text], 2),
            (["check", "-v", good, torn, text], 2),
            (["decode", "-v", good, torn, text, "-o", "decoded/"], 2),
            (["encode", "-v", "-b", "128", pcm, text, "-o", "encoded/"], 2),
            (["resample", "-v", "-r", "16000", pcm, text, "-o", "resampled/"], 2),
            (["inspect", "-v", good, text, "-o", "pages/"], 2),
            (["wrap", good, text, "-o", "wrapped/"], 2),
            (["unwrap", good, torn, "-o", "unwrapped/"], 2),
            (["cut", good, torn, "--from", "9:00", "-o", "parts/"], 2),
            (["cut", good, "--to", "0.2", "-o", "cut.mp2"], 0),
            (["join", good, text, "-o", ATTACK + b"joined.mp2"], 2),
        ):
            with self.subTest(arguments):
                self.run_inert(*arguments, statuses=(status,))
                report = arguments[0].encode() + b"%d" % len(arguments) + ATTACK
                force = ["-f"] if "-o" in arguments else []
                result = self.run_inert(*arguments, *force, "--json", "--report", report, statuses=(status,))
                for line in result.out.splitlines():
                    self.assertIn("\x1b", json.loads(line)["file"], "JSON still tells the name")
                self.assertInert(self.get(report))
        self.run_inert("inspect", "--csv", good)

    def test_names_that_nothing_stands_for(self):
        for arguments in (
            ["info", ATTACK],
            ["decode", ATTACK, "-o", ATTACK],
            [ATTACK],
            ["help", ATTACK],
            ["encode", b"--" + ATTACK],
            ["encode", b"-b", ATTACK, "a.wav"],
            ["encode", b"--gain=" + ATTACK, "a.wav"],
            ["decode", b"--progress", ATTACK, "a.mp2"],
            ["info", "--files-from", ATTACK],
            ["info", "a.mp2", "--resume", ATTACK, "--report", ATTACK + b"2"],
            ["cut", "a.mp2", b"--from", ATTACK],
        ):
            with self.subTest(arguments):
                result = self.run_inert(*arguments, statuses=(1, 2))
                self.assertEqual(len(result.lines), 1, result.err)

    def test_texts_within_files(self):
        id3 = b"ID3\3\0\0\0\0\0\x7f" + (b"TIT2" + struct.pack(">IH", 60, 0) + ATTACK * 9)[:127]
        self.put("tags.mp2", id3 + STEREO + (b"TAG" + ATTACK * 9)[:128])
        self.put("id.wav", wave((ATTACK[:4], ATTACK), (b"LIST", b"INFO" + ATTACK), (b"bext", ATTACK * 30),
                                (b"data", bytes(9000)), (ATTACK[5:9], ATTACK)))
        self.put("noise.mp2", ATTACK * 500)
        self.put("odd.wav", wave((b"data", bytes(100)), fmt=ATTACK[:16]))
        for command in ("info", "check", "decode", "encode", "resample", "inspect", "wrap", "unwrap"):
            rate = ["-r", "16000"] if command == "resample" else []
            for name in ("tags.mp2", "id.wav", "noise.mp2", "odd.wav"):
                for json_too in ([], ["--json"]):
                    with self.subTest(command, name=name):
                        self.run_inert(command, "-v", name, *rate, *json_too, "-f", "-o" + command, statuses=(0, 1, 2, 3))
        self.put("report", b'{"file": "' + b"\\u001b[2J" + b'", "command": "\\u001b[2J\\u009b", "status": 0}\n')
        self.run_inert("info", "tags.mp2", "--resume", "report", statuses=(1, 2))

    def test_a_page_that_a_name_would_break_out_of(self):
        name = b"</script><script>alert(1)</script><!--.mp2"
        self.put(name.replace(b"/", b":"), STEREO)
        self.good("inspect", name.replace(b"/", b":"), "-o", "page.html")
        self.assertNotIn(b"<script>alert", self.get("page.html"))


class Links(CliTest):
    def planted(self, plant):
        """What the process does to its own folder before it becomes the tool: it knows the number that the tool has."""

        def prepare():
            restore_signals()
            for n in range(3):
                plant(os.path.join(self.folder, "out", f".qav-{os.getpid()}-{n}.tmp"))

        return prepare

    def setUp(self):
        super().setUp()
        os.mkdir(self.path("out"))
        self.put("a.mp2", STEREO)
        self.put("victim", b"precious")

    def test_links_under_the_temporary_names_are_not_followed(self):
        for plant in (
            lambda name: os.symlink(os.path.join(self.folder, "victim"), name),
            lambda name: os.symlink(os.path.join(self.folder, "not yet there"), name),
            lambda name: os.link(os.path.join(self.folder, "victim"), name),
            os.mkdir,
            os.mkfifo,
        ):
            result = self.qav("decode", "a.mp2", "-f", "-o", "out/a.wav", preexec_fn=self.planted(plant))
            self.assertEqual((result.status, result.err), (0, ""))
            self.assertEqual(self.get("victim"), b"precious")
            self.assertNotIn(b"not yet there", self.names())
            self.assertTrue(stat.S_ISREG(os.lstat(self.path("out/a.wav")).st_mode))
        self.assertEqual(len(os.listdir(self.path("out"))), 1 + 5 * 3, "what stood there still stands there")

    def test_a_link_under_the_final_name(self):
        os.symlink("../not yet there", self.path("out/a.wav"))
        self.refused(2, "exists already", "decode", "a.mp2", "-o", "out/a.wav")
        self.assertEqual(self.names(), [b"a.mp2", b"out", b"victim"])
        self.assertEqual(os.listdir(self.path("out")), [b"a.wav"])

    def test_a_report_is_not_written_through_a_link(self):
        os.symlink("not yet there", self.path("report"))
        self.refused(2, "exists already", "info", "a.mp2", "--report", "report")
        self.assertEqual(self.names(), [b"a.mp2", b"out", b"report", b"victim"])

    def test_outputs_get_no_more_permissions_than_asked(self):
        def prepare():
            restore_signals()
            os.umask(0o077)

        self.assertEqual(self.qav("decode", "a.mp2", "-o", "out/a.wav", preexec_fn=prepare).status, 0)
        self.assertEqual(stat.S_IMODE(os.lstat(self.path("out/a.wav")).st_mode), 0o600)


class Environment(CliTest):
    def test_what_the_environment_says_changes_nothing(self):
        self.put("a.mp2", STEREO)
        self.good("decode", "a.mp2", "-o", "plain.wav")
        traps = os.path.join(self.folder, "traps")
        os.mkdir(traps)
        for name in ("sh", "bash", "sox", "ffmpeg", "cat", "true"):
            with open(os.path.join(traps, name), "w") as trap:
                trap.write(f"#!/bin/sh\ntouch '{self.folder}/sprung'\n")
            os.chmod(trap.name, 0o755)
        kept = {name: value for name, value in os.environ.items() if "SAN_OPTIONS" in name or name == "LD_LIBRARY_PATH"}
        for environment in (
            {},
            {"PATH": traps, "SHELL": os.path.join(traps, "sh"), "ENV": "/etc/passwd", "IFS": "a", "HOME": "/no/such"},
            {"TMPDIR": "/no/such", "TEMP": traps, "POSIXLY_CORRECT": "1", "COLUMNS": "-1", "LINES": "x", "TERM": "\x1b[2J"},
            {"LC_ALL": "de_DE.UTF-8", "LANGUAGE": "de", "TZ": ":/etc/passwd", "NLSPATH": traps, "LOCPATH": traps},
        ):
            result = self.qav("decode", "-f", "a.mp2", "-o", "a.wav", env={**kept, **environment})
            self.assertEqual((result.status, result.out, result.err), (0, b"", ""))
            self.assertEqual(self.get("a.wav"), self.get("plain.wav"))
            result = self.qav("info", "no such", env={**kept, **environment})
            self.assertEqual((result.status, result.err), (2, "qav: no such: cannot be opened: No such file or directory; "
                                                              "check the name\n"))
        self.assertNotIn(b"sprung", self.names())

    def test_a_name_is_no_command(self):
        for name in ("$(touch sprung)", "`touch sprung`", "; touch sprung", "| touch sprung", "a\ntouch sprung"):
            self.put(name + ".mp2", STEREO)
            self.good("decode", "--", name + ".mp2")
            self.good("inspect", "--", name + ".mp2")
        self.assertNotIn(b"sprung", self.names())


if __name__ == "__main__":
    unittest.main()
