"""Many files at once: folders, lists, reports, resuming, progress, interruption."""

import json
import os
import pty
import re
import signal
import struct
import time
import unittest

from cli_support import CliTest, data, frames_of, wait_until

STEREO = data("l2_stereo_44k_192_crc.mp2")
SECONDS = 60 if "QAV_SANITIZED" in os.environ else 1200  # of audio that takes long enough to be watched


def wav(frames, rate=48000):
    samples = struct.pack("<%dh" % frames, *(i * 37 % 20000 - 10000 for i in range(frames)))
    body = b"WAVEfmt " + struct.pack("<IHHIIHH", 16, 1, 1, rate, rate * 2, 2, 16)
    body += b"data" + struct.pack("<I", len(samples)) + samples
    return b"RIFF" + struct.pack("<I", len(body)) + body


class Inputs(CliTest):
    def tree(self):
        found = []
        for folder, _, names in os.walk(self.folder):
            found += [os.path.relpath(os.path.join(folder, name), self.folder) for name in names]
        return sorted(found)

    def test_folders_are_gone_through_and_made_again(self):
        for name in ("in/a.WAV", "in/x/b.wav", "in/x/y/c.wav", "in/x/notes.txt", "in/z/d.flac.txt"):
            self.put(name, wav(2000))
        os.symlink("..", self.path("in/x/loop"))
        self.good("encode", "--recursive", "in", "-o", "out")
        self.assertEqual([n for n in self.tree() if n.startswith("out")], ["out/a.mp2", "out/x/b.mp2", "out/x/y/c.mp2"])
        # Without -o each goes beside its input.
        self.good("encode", "--recursive", "in/x/y")
        self.assertIn("in/x/y/c.mp2", self.tree())

    def test_a_folder_is_refused_otherwise_with_the_remedy(self):
        os.mkdir(self.path("in"))
        self.refused(2, "--recursive", "encode", "in")
        self.refused(2, "in holds no files ending in .wav", "encode", "--recursive", "in")

    def test_output_comes_in_the_order_of_the_inputs(self):
        for i in range(30):
            self.put("in/%02d.mp2" % i, b"".join(frames_of(STEREO)[: 3 + (i * 7) % 25]))
        out = self.good("info", "--json", "--recursive", "in", "-j", "7").out
        self.assertEqual([json.loads(line)["file"] for line in out.splitlines()], ["in/%02d.mp2" % i for i in range(30)])

    def test_lists_of_names(self):
        names = [b"a.mp2", b"with space.mp2", b"-dash.mp2", b"\xff\xfe.mp2"]
        for name in names:
            self.put(name, STEREO)
        listed = b"\n".join(names) + b"\n"
        self.put("list", listed)
        expected = len(self.good("check", "--files-from", "list").out.splitlines())
        self.assertEqual(expected, 4)
        self.assertEqual(len(self.good("check", "--files-from", "-", input=listed).out.splitlines()), 4)
        names.append(b"new\nline.mp2")
        self.put(names[-1], STEREO)
        zero = b"\0".join(names)
        out = self.good("decode", "--files-from", "-", "--null", "-o", "wav", input=zero).out
        self.assertEqual(out, b"")
        self.assertEqual(
            sorted(os.listdir(self.path("wav"))), sorted(name.replace(b".mp2", b".wav") for name in names)
        )

    def test_lists_that_cannot_be(self):
        self.put("empty", b"\n\n")
        self.refused(2, "names no files", "check", "--files-from", "empty")
        self.refused(2, "none cannot be opened", "check", "--files-from", "none")
        self.refused(1, "give both", "check", "--null", "a.mp2")
        self.refused(1, "no INPUT is given", "check")
        self.refused(1, "cannot be the list and an input", "check", "-", "--files-from", "-", input=b"a.mp2\n")


class Reports(CliTest):
    def lines(self, name):
        return [json.loads(line) for line in self.get(name).splitlines()]

    def test_a_report_holds_what_json_says(self):
        self.put("a.mp2", STEREO)
        self.put("b.mp2", STEREO[:-5])
        self.put("c.mp2", b"words")
        result = self.qav("check", "a.mp2", "b.mp2", "c.mp2", "--report", "r", "--json", "-j", "1")
        self.assertEqual(result.status, 2)
        self.assertEqual(self.lines("r"), [json.loads(line) for line in result.out.splitlines()])
        self.assertEqual([line["status"] for line in self.lines("r")], [0, 3, 2])
        for line in self.lines("r"):
            self.assertEqual(line["command"], "check")
            self.assertEqual(line["size"], os.path.getsize(self.path(line["file"])))
        # The usual output stays where a report is wanted.
        self.assertIn(b"a.mp2: good", self.qav("check", "a.mp2", "--report", "s").out)

    def test_an_existing_report_is_not_overwritten(self):
        self.put("a.mp2", STEREO)
        self.put("r", b"precious\n")
        self.refused(2, "continue it with --resume", "check", "a.mp2", "--report", "r")
        self.assertEqual(self.get("r"), b"precious\n")
        self.assertEqual(self.qav("check", "-f", "a.mp2", "--report", "r").status, 1)  # nothing is written by check
        self.refused(2, "is no report", "check", "a.mp2", "--resume", "r")

    def test_a_report_is_no_input_and_can_be_written(self):
        self.put("a.mp2", STEREO)
        self.put("b.mp2", STEREO)
        self.refused(1, "is also an input", "decode", "a.mp2", "--report", "./a.mp2", "-f")
        self.assertEqual(self.get("a.mp2"), STEREO)
        self.refused(2, "cannot be written", "check", "a.mp2", "--report", "no/such")
        # The batch ends with the report: what it does not tell is not done.
        result = self.qav("check", "a.mp2", "b.mp2", "--report", "/dev/full", "-j", "2")
        self.refused(2, "is no file", "check", "a.mp2", "--resume", "/dev/full")
        self.assertEqual((result.status, result.lines[-1].count("No space left")), (2, 1), result.err)

    def test_resuming_does_what_is_new_changed_or_failed(self):
        for name in "abcd":
            self.put(name + ".wav", wav(3000))
        self.put("e.wav", b"no sound at all")
        names = [name + ".wav" for name in "abcde"]
        first = self.qav("encode", *names, "--report", "r", "--resume", "r")
        self.assertEqual(first.status, 2)
        self.assertEqual(sorted(line["file"] for line in self.lines("r")), names)
        before = {name: os.stat(self.path(name + ".mp2")).st_mtime_ns for name in "abcd"}

        self.put("b.wav", wav(9000))
        os.unlink(self.path("c.mp2"))
        self.put("e.wav", wav(1000))
        self.put("f.wav", wav(1000))
        names.append("f.wav")
        second = self.qav("encode", *names, "--report", "r", "--resume", "r", "--json", "-f")
        self.assertEqual((second.status, second.err), (0, ""))
        done = {json.loads(line)["file"]: json.loads(line).get("done") for line in second.out.splitlines()}
        self.assertEqual(
            done, {"a.wav": "earlier", "b.wav": None, "c.wav": None, "d.wav": "earlier", "e.wav": None, "f.wav": None}
        )
        for name in "ad":
            self.assertEqual(os.stat(self.path(name + ".mp2")).st_mtime_ns, before[name])
        self.assertEqual(len(self.lines("r")), 9)
        third = self.good("encode", *names, "--report", "r", "--resume", "r", "--json")
        self.assertEqual({json.loads(line).get("done") for line in third.out.splitlines()}, {"earlier"})

    def test_an_earlier_status_still_counts(self):
        self.put("b.mp2", STEREO[:-5])
        self.assertEqual(self.qav("check", "b.mp2", "--report", "r").status, 3)
        again = self.qav("check", "b.mp2", "--resume", "r")
        self.refused(2, "none cannot be opened", "check", "b.mp2", "--resume", "none")
        self.assertEqual((again.status, again.out), (3, b""))

    def test_a_report_cut_in_its_last_line_is_continued(self):
        self.put("a.mp2", STEREO)
        self.put("b.mp2", STEREO)
        self.good("check", "a.mp2", "b.mp2", "--report", "r", "-j", "1")
        whole = self.get("r")
        self.put("r", whole[:-20])
        self.good("check", "a.mp2", "b.mp2", "--report", "r", "--resume", "r")
        self.assertEqual(self.get("r"), whole)

    def test_another_command_cannot_be_resumed(self):
        self.put("a.mp2", STEREO)
        self.good("check", "a.mp2", "--report", "r")
        self.refused(2, "is one of 'qav check'", "info", "a.mp2", "--resume", "r")

    def test_names_that_are_not_utf8_are_resumed_too(self):
        self.put(b"\xff.mp2", STEREO)
        self.good("check", b"\xff.mp2", "--report", "r")
        self.assertEqual(self.good("check", b"\xff.mp2", "--resume", "r").out, b"")


class Interruption(CliTest):
    def test_a_batch_that_is_stopped_can_be_resumed(self):
        count = 40
        for i in range(count):
            self.put("in/%02d.wav" % i, wav(400000))
        for number in (signal.SIGINT, signal.SIGTERM):
            process = self.start("encode", "--recursive", "in", "-o", "out", "--report", "r", "--resume", "r", "-j", "2")
            lines = lambda: self.get("r").count(b"\n") if os.path.exists(self.path("r")) else 0
            before = lines()
            wait_until(lambda: lines() > before + 2 or process.poll() is not None)
            process.send_signal(number)
            start = time.monotonic()
            _, err = process.communicate(timeout=20)
            if process.returncode == 0:
                break  # too fast to be stopped
            self.assertEqual(process.returncode, -number, err)
            self.assertLess(time.monotonic() - start, 1.5)
            self.assertEqual(err, b"")
            finished = {json.loads(line)["output"] for line in self.get("r").splitlines()}
            self.assertEqual({"out/" + name for name in os.listdir(self.path("out").decode())}, finished)
        self.good("encode", "--recursive", "in", "-o", "out", "--report", "r", "--resume", "r")
        self.assertEqual(len(os.listdir(self.path("out"))), count)
        self.assertEqual(len({json.loads(line)["file"] for line in self.get("r").splitlines()}), count)


class Terminal(CliTest):
    """The bar, as a terminal sees it."""

    def on_terminal(self, *arguments, environment=None):
        leader, follower = pty.openpty()
        env = {**os.environ, "TERM": "xterm", **(environment or {})}
        process = self.start(*arguments, stderr=follower, env=env)
        os.close(follower)
        seen = b""
        while True:
            try:
                piece = os.read(leader, 65536)
            except OSError:
                break
            if not piece:
                break
            seen += piece
        out = process.stdout.read()
        process.stdout.close()
        os.close(leader)
        self.assertEqual(process.wait(), 0)
        return seen.decode(), out

    def setUp(self):
        super().setUp()
        with open(self.path("long.raw"), "wb") as f:
            f.truncate(SECONDS * 48000 * 4)
        self.command = ["encode", "long.raw", "--raw", "s16le,48000,2", "-o", os.devnull]

    def test_percent_speed_and_time_left(self):
        # The time left is told from half a second on, so this one must last longer, whatever the machine.
        os.truncate(self.path("long.raw"), 6 * SECONDS * 48000 * 4)
        seen, _ = self.on_terminal(*self.command, "-j", "1")
        bars = seen.split("\r\x1b[K")
        shown = [bar for bar in bars if bar]
        self.assertGreater(len(shown), 2)
        for bar in shown:
            self.assertRegex(bar, r"^\[=*>? *\] +\d+ %, [\d:]+ of audio, \d+ x real time(, [\d:]+ left)?$")
            self.assertLess(len(bar), 80)
        self.assertTrue(any(" left" in bar for bar in shown), shown)
        percents = [int(re.search(r"(\d+) %", bar)[1]) for bar in shown]
        self.assertEqual(percents, sorted(percents))
        self.assertEqual(bars[-1], "")  # taken away in the end

    def test_silent_where_it_shall_be(self):
        self.assertEqual(self.on_terminal(*self.command, "-q")[0], "")
        self.assertEqual(self.on_terminal(*self.command, environment={"TERM": "dumb"})[0], "")
        self.assertEqual(self.good(*self.command).err, "")

    def test_a_batch_has_one_bar(self):
        for i in range(3):
            os.link(self.path("long.raw"), self.path("%d.raw" % i))
        arguments = ["encode", "0.raw", "1.raw", "2.raw", *self.command[2:], "-j", "2"]
        seen, _ = self.on_terminal(*arguments)
        self.assertRegex(seen, r"\d+ %, \d of 3 files, ")

    def test_messages_do_not_mix_with_the_bar(self):
        self.put("bad.raw", b"abc")
        seen, _ = self.on_terminal("check", "--recursive", ".", "-j", "1", "--files-from", self.listed())
        for line in seen.replace("\r\x1b[K", "\n").splitlines():
            self.assertNotRegex(line, r"left.*qav:")

    def listed(self):
        self.put("a.mp2", STEREO)
        self.put("list", b"a.mp2\n")
        return "list"

    def test_progress_for_programs(self):
        result = self.qav(*self.command, "--progress", "json")
        self.assertEqual(result.status, 0)
        lines = [json.loads(line) for line in result.lines]
        self.assertGreater(len(lines), 0)
        last = lines[-1]
        self.assertEqual(last["fraction"], 1.0)
        self.assertEqual(last["filesDone"], 1)
        self.assertEqual(last["audioSeconds"], SECONDS)
        self.assertGreater(last["timesRealTime"], 1)
        self.refused(1, "--progress", *self.command, "--progress", "yes")

    def test_decoding_has_one_too(self):
        self.put("long.mp2", STEREO * 3000)
        seen, _ = self.on_terminal("check", "long.mp2")
        self.assertRegex(seen, r"\d+ %, [\d:]+ of audio, \d+ x real time")


if __name__ == "__main__":
    unittest.main()
