"""qav cut and qav join, end to end."""

import json
import os
import unittest

from cli_support import CliTest, data, frames_of

STEREO = data("l2_stereo_44k_192_crc.mp2")  # 30 frames with check words
FRAMES = frames_of(STEREO)
FRAME_SECONDS = 1152 / 44100


def joined(frames):
    return b"".join(frames)


class Cut(CliTest):
    def cut(self, stream, *arguments, status=0):
        self.put("a.mp2", stream)
        result = self.qav("cut", "-f", "a.mp2", "-o", "out.mp2", *arguments)
        self.assertEqual(result.status, status, result.err)
        self.result = result
        return self.get("out.mp2") if status in (0, 3) else None

    def test_frames_are_taken_over_as_they_are(self):
        for first, behind in ((0, 30), (0, 1), (3, 17), (29, 30), (7, 8)):
            arguments = ["--from", "%.3f" % (first * FRAME_SECONDS), "--to", "%.3f" % (behind * FRAME_SECONDS)]
            self.assertEqual(self.cut(STEREO, *arguments), joined(FRAMES[first:behind]), arguments)

    def test_the_nearest_boundary_counts(self):
        boundary = 10 * FRAME_SECONDS
        for off, frame in ((-0.6, 9), (-0.4, 10), (0.4, 10), (0.6, 11)):
            time = "%.6f" % (boundary + off * FRAME_SECONDS)
            self.assertEqual(self.cut(STEREO, "--to", time), joined(FRAMES[:frame]))
            self.assertEqual(self.cut(STEREO, "--from", time), joined(FRAMES[frame:]))

    def test_the_times_of_the_frames_are_said(self):
        self.cut(STEREO, "--from", "0.3", "--to", "0.5")
        self.assertEqual(
            self.result.lines, ["qav: a.mp2: cut from 0:00.287 to 0:00.496: frames 11 to 18, %d bytes" % len(self.get("out.mp2"))]
        )
        self.cut(STEREO, "--from", "0.3", "-q")
        self.assertEqual(self.result.err, "")
        self.cut(STEREO, "--from", "0.3", "--to", "0.5", "--json")
        said = json.loads(self.result.out)
        self.assertEqual((said["status"], said["output"], said["frames"]), (0, "out.mp2", 30))
        self.assertEqual((said["cut"]["firstFrame"], said["cut"]["lastFrame"], said["cut"]["frames"]), (11, 18, 8))
        self.assertAlmostEqual(said["cut"]["from"], 11 * FRAME_SECONDS)
        self.assertAlmostEqual(said["cut"]["to"], 19 * FRAME_SECONDS)

    def test_hours_and_minutes(self):
        long = STEREO * 160  # 125 seconds
        self.put("long.mp2", long)
        for written, seconds in (("1:30", 90), ("0:01:30.5", 90.5), ("90.5", 90.5), ("2:5", 125)):
            self.good("cut", "-q", "-f", "long.mp2", "--to", written, "-o", "out.mp2")
            self.assertEqual(len(frames_of(self.get("out.mp2"))), round(seconds / FRAME_SECONDS), written)

    def test_every_layer_and_rate(self):
        for name, rate, samples in (
            ("l1_stereo_32k_320.mp1", 32000, 384),
            ("l2_mono_lsf_22k_56.mp2", 22050, 1152),
            ("l2_joint_48k_64_crc.mp2", 48000, 1152),
        ):
            stream = data(name)
            time = "%.4f" % (5 * samples / rate)
            head, tail = self.cut(stream, "--to", time), self.cut(stream, "--from", time)
            self.assertEqual(head + tail, stream)
            self.put("head.mp2", head)
            self.assertEqual(json.loads(self.qav("info", "--json", "head.mp2").out)["frames"], 5)

    def test_the_name_beside_the_input(self):
        self.put("a b.mp2", STEREO)
        self.put("c.wav", STEREO)
        self.put("d.mp1", data("l1_stereo_32k_320.mp1"))
        self.good("cut", "-q", "--to", "0.1", "a b.mp2", "c.wav", "d.mp1")
        self.assertEqual(self.names(), [b"a b.cut.mp2", b"a b.mp2", b"c.cut.mp2", b"c.wav", b"d.cut.mp1", b"d.mp1"])
        self.good("cut", "-q", "--to", "0.1", "a b.mp2", "d.mp1", "-o", "parts")
        self.assertEqual(sorted(os.listdir(self.path("parts"))), [b"a b.mp2", b"d.mp1"])

    def test_through_pipes(self):
        result = self.qav("cut", "-", "--from", "0.3", "-q", input=STEREO)
        self.assertEqual((result.status, result.out), (0, joined(FRAMES[11:])))

    def test_tags_stay_behind(self):
        tagged = b"ID3\4\0\0\0\0\0\x10" + bytes(16) + STEREO + b"TAG" + bytes(125)
        self.assertEqual(self.cut(tagged, "--to", "9"), STEREO)

    def test_damage_inside_the_part(self):
        bad = bytearray(FRAMES[10])
        bad[5] ^= 1
        stream = joined(FRAMES[:10]) + bytes(bad) + joined(FRAMES[11:])
        self.assertEqual(self.cut(stream, "--from", "0.2", "--to", "0.5", status=3), joined(FRAMES[8:10] + FRAMES[11:19]))
        self.assertIn("frame 10, ", self.result.lines[0])
        self.assertRegex(self.result.lines[0], "check word.*left out")
        stream = joined(FRAMES[:10]) + b"x" * 1000 + joined(FRAMES[10:])
        self.assertEqual(self.cut(stream, "--to", "0.5", status=3), joined(FRAMES[:19]))
        self.assertIn("lost sync", self.result.lines[0])

    def test_lost_frames_take_their_time(self):
        stream = joined(FRAMES[:10]) + bytes(len(FRAMES[10])) + joined(FRAMES[11:])
        self.assertEqual(self.cut(stream, "--from", "0.3", status=3), joined(FRAMES[11:]))

    def test_damage_outside_of_the_part(self):
        self.assertEqual(self.cut(STEREO[:-1], "--to", "0.3", status=3), joined(FRAMES[:11]))
        self.assertIn("truncated", self.result.lines[0])
        self.assertEqual(self.cut(b"\0" + STEREO, "--from", "0.3", status=3), joined(FRAMES[11:]))

    def test_refusals(self):
        self.put("a.mp2", STEREO)
        self.put("text.mp2", b"text")
        self.refused(1, "no time is given", "cut", "a.mp2")
        self.refused(1, "ends before it begins", "cut", "a.mp2", "--from", "2", "--to", "2")
        for time in ("", "x", "-1", "1:60", "1:2:3:4", "1.5:30", ".5", "1.", "1e3", "nan", "99999999999"):
            self.refused(1, "--from", "cut", "a.mp2", "--from=" + time)
        self.refused(2, "holds no good frame", "cut", "a.mp2", "--from", "5")
        self.refused(2, "is no MPEG audio", "cut", "text.mp2", "--from", "5")
        self.refused(1, "both go to standard output", "cut", "a.mp2", "--to", "1", "--json", "-o", "-")
        self.assertEqual(self.names(), [b"a.mp2", b"text.mp2"])


class Join(CliTest):
    def test_what_was_cut_is_joined_again(self):
        self.put("a.mp2", STEREO)
        self.good("cut", "-q", "a.mp2", "--to", "0.25", "-o", "1.mp2")
        self.good("cut", "-q", "a.mp2", "--from", "0.25", "-o", "2.mp2")
        self.good("join", "-q", "1.mp2", "2.mp2", "-o", "b.mp2")
        self.assertEqual(self.get("b.mp2"), STEREO)

    def test_inputs_stand_in_their_order(self):
        parts = [joined(FRAMES[i : i + 3]) for i in range(0, 30, 3)]
        for i, part in enumerate(parts):
            self.put("%d.mp2" % i, part)
        order = [3, 1, 4, 0, 5, 9, 2, 6]
        self.good("join", "-q", "-j4", *("%d.mp2" % i for i in order), "-o", "out.mp2")
        self.assertEqual(self.get("out.mp2"), b"".join(parts[i] for i in order))

    def test_the_times_are_said(self):
        self.put("a.mp2", joined(FRAMES[:10]))
        self.put("b.mp2", joined(FRAMES[10:]))
        result = self.qav("join", "a.mp2", "b.mp2", "-o", "c.mp2")
        self.assertEqual(
            (result.status, result.lines),
            (
                0,
                [
                    "qav: a.mp2: joined from 0:00.000 to 0:00.261: 10 frames from frame 0 on",
                    "qav: b.mp2: joined from 0:00.261 to 0:00.784: 20 frames from frame 10 on",
                ],
            ),
        )
        said = [json.loads(line) for line in self.good("join", "--json", "-f", "a.mp2", "b.mp2", "-o", "c.mp2").out.splitlines()]
        self.assertEqual([one["output"] for one in said], ["c.mp2", "c.mp2"])
        self.assertEqual((said[1]["join"]["firstFrame"], said[1]["join"]["frames"]), (10, 20))
        self.assertAlmostEqual(said[1]["join"]["to"], 30 * FRAME_SECONDS)

    def test_bitrate_and_check_words_may_differ(self):
        other = data("l2_joint_44k_128.mp2")
        self.put("a.mp2", STEREO)
        self.put("b.mp2", other)
        self.good("join", "-q", "a.mp2", "b.mp2", "-o", "c.mp2")
        self.assertEqual(self.get("c.mp2"), STEREO + other)
        self.good("check", "c.mp2")

    def test_other_formats_are_refused_by_name(self):
        dual = bytearray(joined(frames_of(data("l2_joint_44k_128.mp2"))[:4]))
        for frame in range(0, len(dual)):
            if dual[frame : frame + 2] == b"\xff\xfd":
                dual[frame + 3] = dual[frame + 3] & 0x0F | 0x80
        self.put("a.mp2", STEREO)
        for stream, what in (
            (data("l2_joint_48k_64_crc.mp2"), "is 48000 Hz, not 44100 Hz as a.mp2"),
            (data("l1_joint_44k_192_crc.mp1"), "is Layer I, not Layer II as a.mp2"),
            (data("l2_mono_lsf_22k_56.mp2"), "is MPEG-2, not MPEG-1 as a.mp2"),
            (bytes(dual), "is dual channel, not stereo as a.mp2"),
        ):
            self.put("b.mp2", stream)
            for output in ("out.mp2", "-"):
                result = self.refused(2, "b.mp2: " + what, "join", "a.mp2", "b.mp2", "-o", output)
                self.assertEqual(result.out, b"")
        self.assertEqual(self.names(), [b"a.mp2", b"b.mp2"])

    def test_a_format_change_inside_is_refused_too(self):
        self.put("a.mp2", STEREO + data("l2_joint_48k_64_crc.mp2"))
        result = self.qav("join", "a.mp2", "-o", "out.mp2")
        self.assertEqual(result.status, 2)
        self.assertIn("frame 30, byte %d " % len(STEREO), result.lines[-1])
        self.assertIn("is 48000 Hz, not 44100 Hz", result.lines[-1])
        self.assertEqual(self.names(), [b"a.mp2"])

    def test_through_pipes(self):
        self.put("a.mp2", joined(FRAMES[:10]))
        result = self.good("join", "-q", "a.mp2", "-", "-o", "-", input=joined(FRAMES[10:]))
        self.assertEqual(result.out, STEREO)
        self.refused(2, "standard input: is 48000 Hz", "join", "-q", "a.mp2", "-", "-o", "x", input=data("l2_joint_48k_64_crc.mp2"))

    def test_damage(self):
        self.put("a.mp2", joined(FRAMES[:10])[:-1])
        self.put("b.mp2", joined(FRAMES[10:20]) + b"\0" + joined(FRAMES[20:]))
        result = self.qav("join", "-q", "a.mp2", "b.mp2", "-o", "c.mp2")
        self.assertEqual(result.status, 3)
        self.assertEqual(len(result.lines), 2)
        self.assertRegex(result.lines[0], "a.mp2: frame 9, .*truncated")
        self.assertRegex(result.lines[1], "b.mp2: frame 10, .*lost sync")
        self.assertEqual(self.get("c.mp2"), joined(FRAMES[:9] + FRAMES[10:]))

    def test_one_unreadable_input_and_nothing_is_written(self):
        self.put("a.mp2", STEREO)
        self.put("b.mp2", b"text")
        self.refused(2, "b.mp2: is no MPEG audio", "join", "a.mp2", "b.mp2", "-o", "c.mp2")
        self.refused(2, "none.mp2: cannot be opened", "join", "a.mp2", "none.mp2", "-o", "c.mp2")
        said = self.qav("join", "--json", "a.mp2", "b.mp2", "-o", "c.mp2").out.splitlines()
        self.assertEqual([json.loads(line)["status"] for line in said], [0, 2])
        self.assertIsNone(json.loads(said[0])["output"])
        self.assertEqual(self.names(), [b"a.mp2", b"b.mp2"])

    def test_refusals(self):
        self.put("a.mp2", STEREO)
        self.refused(1, "no output", "join", "a.mp2")
        self.refused(1, "is also an input", "join", "-f", "a.mp2", "-o", "./a.mp2")
        self.put("c.mp2", b"old")
        self.refused(2, "c.mp2: exists already", "join", "a.mp2", "-o", "c.mp2")
        self.refused(2, "is a directory", "join", "a.mp2", "-o", ".")
        self.assertEqual(self.get("c.mp2"), b"old")


if __name__ == "__main__":
    unittest.main()
