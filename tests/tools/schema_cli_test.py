"""Every JSON object the tool writes fits the documented schema."""

import copy
import json
import os
import struct
import unittest

from cli_support import CliTest, data
from json_schema import Invalid, validate

with open(os.environ["QAV_SCHEMA"]) as f:
    SCHEMA = json.load(f)

STEREO = data("l2_stereo_44k_192_crc.mp2")


class Schema(CliTest):
    def setUp(self):
        super().setUp()
        self.put("good.mp2", STEREO)
        self.put("cut.mp2", STEREO[:-1])
        self.put("joined.mp2", b"x" + STEREO + data("l2_mono_lsf_22k_56.mp2") + b"TAG" + bytes(125))
        self.put("text", b"words")
        self.put(b"not\xffutf8.mp2", STEREO)
        reserved = b"\xff\xfd\x14\x02" + bytes(92)
        self.put("odd.mp2", reserved * 3)
        samples = struct.pack("<4000h", *(((i * 7919) % 20011) - 10000 for i in range(4000)))
        header = struct.pack("<4sI4s4sIHHIIHH4sI", b"RIFF", 36 + len(samples), b"WAVE", b"fmt ", 16, 1, 2, 44100,
                             176400, 4, 16, b"data", len(samples))
        self.put("in.wav", header + samples)
        self.put("silent.wav", header + bytes(len(samples)))
        self.put("lying.wav", header + samples[:-1000])

    def results(self, *arguments):
        result = self.qav(*arguments, "--json")
        lines = [json.loads(line) for line in result.out.splitlines()]
        self.assertTrue(lines, result.err)
        for line in lines:
            with self.subTest(arguments, file=line["file"]):
                validate(line, SCHEMA)
        return lines

    def test_streams(self):
        inputs = ["good.mp2", "cut.mp2", "joined.mp2", "odd.mp2", b"not\xffutf8.mp2", "text", "missing"]
        self.assertEqual(len(self.results("info", *inputs)), 7)
        self.assertEqual(len(self.results("check", "--md5", *inputs)), 7)
        self.assertEqual(len(self.results("decode", *inputs, "-o", "out")), 7)

    def test_streams_moved_as_they_are(self):
        self.assertEqual(len(self.results("cut", "good.mp2", "cut.mp2", "joined.mp2", "text", "--to", "0.2", "-o", "c")), 4)
        self.assertEqual(len(self.results("join", "good.mp2", "cut.mp2", "-o", "j.mp2")), 2)
        self.assertEqual(len(self.results("join", "good.mp2", "odd.mp2", "-o", "k.mp2")), 2)

    def test_inspection(self):
        self.assertEqual(len(self.results("inspect", "good.mp2", "cut.mp2", "joined.mp2", "text", "missing")), 5)
        self.assertEqual(len(self.results("inspect", "good.mp2", "--against", "cut.mp2", "--to", "0.5")), 1)
        self.assertEqual(len(self.results("inspect", "good.mp2", "-o", "page.html")), 1)
        self.qav("inspect", "cut.mp2", "joined.mp2", "--report", "r")
        for line in self.get("r").splitlines():
            validate(json.loads(line), SCHEMA)

    def test_encoding_and_resampling(self):
        inputs = ["in.wav", "silent.wav", "lying.wav", "text", "missing"]
        self.assertEqual(len(self.results("encode", *inputs, "-o", "out", "--verify", "--loudness", "-r", "48000")), 5)
        self.assertEqual(len(self.results("encode", "in.wav", "-o", "a.mp2", "--gain", "20", "--explain", "a.html")), 1)
        self.assertEqual(len(self.results("resample", *inputs, "-o", "out", "-r", "48000")), 5)

    def test_wrapping_and_trimming(self):
        inputs = ["good.mp2", "cut.mp2", "joined.mp2", b"not\xffutf8.mp2", "text", "missing"]
        self.assertEqual(len(self.results("wrap", *inputs, "-o", "out")), 6)
        self.assertEqual(len(self.results("unwrap", "out/good.wav", "out/joined.wav", "cut.mp2", "-o", "new")), 3)
        self.assertEqual(len(self.results("decode", "--trim", "out/good.wav", "-o", "c.wav")), 1)
        self.assertEqual(len(self.results("encode", "--wrap", "in.wav", "-o", "d.wav", "--bext-loudness")), 1)

    def test_what_was_done_earlier(self):
        self.good("check", "good.mp2", "--report", "r")
        self.assertEqual(self.results("check", "good.mp2", "--resume", "r")[0]["done"], "earlier")

    def test_the_schema_is_strict(self):
        good = self.results("check", "cut.mp2")[0]
        for spoil in (
            lambda r: r.pop("file"),
            lambda r: r.pop("findings"),
            lambda r: r.update(extra=1),
            lambda r: r.update(status=1),
            lambda r: r.update(verdict="fine"),
            lambda r: r.update(frames=-1),
            lambda r: r.update(frames=1.5),
            lambda r: r.update(md5="xyz"),
            lambda r: r["findings"][0].update(kind="else"),
            lambda r: r["findings"][0].pop("frame"),
            lambda r: r["stretches"].clear(),
            lambda r: r["kbps"].update(mean="192"),
        ):
            bad = copy.deepcopy(good)
            spoil(bad)
            with self.assertRaises(Invalid):
                validate(bad, SCHEMA)


if __name__ == "__main__":
    unittest.main()
