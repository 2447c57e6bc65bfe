"""qav info and qav check, end to end."""

import hashlib
import json
import struct
import unittest

from cli_support import CliTest, data, frames_of

STEREO = data("l2_stereo_44k_192_crc.mp2")
FRAMES = frames_of(STEREO)
LOW = data("l2_joint_48k_64_crc.mp2")


class Info(CliTest):
    def info(self, stream, *arguments, status=0):
        self.put("a.mp2", stream)
        result = self.qav("info", "--json", "a.mp2", *arguments)
        self.assertEqual(result.status, status, result.err)
        return json.loads(result.out)

    def test_what_is_in_a_stream(self):
        report = self.info(STEREO)
        self.assertEqual(report["file"], "a.mp2")
        self.assertEqual(report["verdict"], "good")
        self.assertEqual(report["frames"], 30)
        self.assertAlmostEqual(report["seconds"], 30 * 1152 / 44100, 9)
        self.assertEqual(report["modes"], ["stereo"])
        self.assertEqual(report["kbps"], {"least": 192, "mean": 192, "greatest": 192})
        self.assertEqual(report["checkWords"], {"present": 30, "wrong": 0})
        stretch = report["stretches"][0]
        self.assertEqual(
            [stretch[k] for k in ("mpeg", "layer", "freqHz", "channels", "samples")], [1, 2, 44100, 2, 30 * 1152]
        )

    def test_the_other_examples(self):
        lsf = self.info(data("l2_mono_lsf_22k_56.mp2"))
        self.assertEqual((lsf["stretches"][0]["mpeg"], lsf["modes"]), (2, ["single channel"]))
        self.assertEqual(lsf["checkWords"]["present"], 0)
        layer1 = self.info(data("l1_stereo_32k_320.mp1"))
        self.assertEqual((layer1["stretches"][0]["layer"], layer1["stretches"][0]["samples"]), (1, 40 * 384))

    def test_changing_bitrates(self):
        # The low rate's frames stand 18 times, the high rate's twice: 48000 Hz both.
        low, high = frames_of(LOW), frames_of(data("l2_dual_48k_256.mp2"))
        report = self.info(b"".join(low[:18] + high[:2]))
        self.assertEqual(report["verdict"], "good")
        self.assertEqual((report["kbps"]["least"], report["kbps"]["greatest"]), (64, 256))
        self.assertAlmostEqual(report["kbps"]["mean"], (18 * 64 + 2 * 256) / 20)
        self.assertEqual(report["modes"], ["joint stereo", "dual channel"])

    def test_tags(self):
        report = self.info(b"ID3\3\0\0\0\0\0\x0a" + bytes(10) + STEREO + b"TAG" + bytes(125))
        self.assertEqual(
            report["tags"],
            [
                {"kind": "ID3v2", "offset": 0, "bytes": 20},
                {"kind": "ID3v1", "offset": 20 + len(STEREO), "bytes": 128},
            ],
        )

    def test_damage_is_seen_without_decoding(self):
        stream = bytearray(STEREO)
        stream[5] ^= 1
        report = self.info(stream, status=3)
        self.assertEqual(report["checkWords"], {"present": 30, "wrong": 1})
        self.assertEqual(report["findings"][0]["kind"], "check word")

    def test_as_text(self):
        self.put("a.mp2", STEREO)
        text = self.good("info", "a.mp2").out.decode()
        for part in ("a.mp2:\n", "MPEG-1 Layer II, 44100 Hz, 2 channels", "192 kbit/s", "0:00.784 (34560 samples"):
            self.assertIn(part, text)

    def test_unreadable_files_have_their_object_too(self):
        self.put("text", b"words")
        self.put("a.mp2", STEREO)
        result = self.qav("info", "--json", "missing", "a.mp2", "text", b"not\xffutf8")
        self.assertEqual(result.status, 2)
        reports = [json.loads(line) for line in result.out.splitlines()]
        self.assertEqual([r["status"] for r in reports], [2, 0, 2, 2])
        self.assertIn("No such file", reports[0]["error"]["what"])
        self.assertEqual(reports[3]["file"], "not\ufffdutf8")


class Check(CliTest):
    def check(self, stream, status, *arguments):
        self.put("a.mp2", stream)
        result = self.qav("check", "a.mp2", *arguments)
        self.assertEqual(result.status, status, result.err)
        self.assertEqual(result.err, "")
        return result.out.decode().splitlines()

    def test_verdicts(self):
        self.assertEqual(self.check(STEREO, 0), ["a.mp2: good"])
        damaged = self.check(STEREO + b"\0", 3)
        self.assertEqual(damaged[0], "a.mp2: damaged")
        self.assertEqual(
            damaged[1],
            "  frame 30, byte %d (%#x), 0:00.784: lost sync: bytes that are no MPEG audio (1 byte)"
            % (len(STEREO), len(STEREO)),
        )
        truncated = self.check(STEREO[:-1], 3)
        self.assertEqual(truncated[0], "a.mp2: truncated")
        self.assertIn(": truncated: ", truncated[1])
        joined = self.check(STEREO + LOW, 3)
        self.assertEqual(joined[0], "a.mp2: joined")
        self.assertIn(": format change: MPEG-1 Layer II, 44100 Hz, 2 channels becomes ", joined[1])
        at = sum(map(len, FRAMES[:4]))
        missing = self.check(STEREO[: at + 100] + STEREO[at + 150 :], 3)
        self.assertEqual(missing[0], "a.mp2: damaged")
        self.assertIn("frame 4, byte %d" % at, missing[1])
        self.assertIn(": missing bytes: ", missing[1])

    def test_what_is_no_stream_at_all(self):
        self.put("text", b"words")
        self.assertEqual(self.refused(2, "is no MPEG audio", "check", "text").out, b"text: not MPEG audio\n")
        self.refused(2, "No such file", "check", "missing")

    def test_warnings_count_only_when_strict(self):
        # 32 kbit/s for two channels: not allowed, but it plays.
        frame = b"\xff\xfd\x14\x00" + bytes(92)
        lines = self.check(frame * 3, 0)
        self.assertEqual(lines[0], "a.mp2: good")
        self.assertIn("warning: illegal combination", lines[1])
        self.check(frame * 3, 3, "--strict")
        reserved = b"\xff\xfd\x84\x02" + bytes(380)
        self.assertIn("warning: reserved value", self.check(reserved * 3, 0)[1])

    def test_the_checksum_is_that_of_what_decode_writes(self):
        for stream in (STEREO, b"xx" + STEREO[:5000] + STEREO[6000:-3], STEREO + LOW):
            self.put("a.mp2", stream)
            self.qav("decode", "--raw", "-f", "a.mp2")
            expected = hashlib.md5(self.get("a.s16")).hexdigest()
            self.assertIn("md5 " + expected, self.qav("check", "--md5", "a.mp2").out.decode().splitlines()[0])
            self.assertEqual(json.loads(self.qav("check", "--md5", "--json", "a.mp2").out)["md5"], expected)

    def test_of_many_files_the_worst_counts(self):
        self.put("good.mp2", STEREO)
        self.put("cut.mp2", STEREO[:-1])
        self.put("text", b"words")
        self.assertEqual(self.qav("check", "good.mp2", "cut.mp2").status, 3)
        result = self.qav("check", "good.mp2", "text", "cut.mp2")
        self.assertEqual(result.status, 2)
        self.assertEqual([line for line in result.out.decode().splitlines() if line[0] != " "],
                         ["good.mp2: good", "text: not MPEG audio", "cut.mp2: truncated"])


if __name__ == "__main__":
    unittest.main()
