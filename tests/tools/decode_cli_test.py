"""qav decode, end to end."""

import json
import os
import signal
import struct
import subprocess
import time
import unittest

from cli_support import CliTest, data, frames_of, limit_file_size, wait_until, wav_chunks

VECTORS = {
    "l2_stereo_44k_192_crc.mp2": (44100, 2),
    "l2_joint_44k_128.mp2": (44100, 2),
    "l2_joint_48k_64_crc.mp2": (48000, 2),
    "l2_mono_lsf_22k_56.mp2": (22050, 1),
    "l2_dual_48k_256.mp2": (48000, 2),
    "l1_stereo_32k_320.mp1": (32000, 2),
    "l1_joint_44k_192_crc.mp1": (44100, 2),
}
STEREO = data("l2_stereo_44k_192_crc.mp2")  # 30 frames with check words
FRAMES = frames_of(STEREO)
FRAME_PCM = 4608


def expected_pcm(name):
    return data(name[:-4] + ".s16")


class Streams(CliTest):
    def test_every_example_decodes_to_its_pcm(self):
        for name, (rate, channels) in VECTORS.items():
            with self.subTest(name):
                self.good("decode", self.put(name, data(name)))
                chunks = wav_chunks(self.get(name[:-4] + ".wav"))
                self.assertEqual([c[0] for c in chunks], [b"fmt ", b"data"])
                self.assertEqual(
                    struct.unpack("<HHIIHH", chunks[0][1]), (1, channels, rate, rate * channels * 2, channels * 2, 16)
                )
                self.assertSamePcm(chunks[1][1], expected_pcm(name))

    def test_raw_is_the_same_samples_bare(self):
        self.put("a.mp2", STEREO)
        self.good("decode", "a.mp2")
        self.good("decode", "--raw", "a.mp2")
        self.assertEqual(self.get("a.s16"), dict(wav_chunks(self.get("a.wav")))[b"data"])

    def test_from_pipe_to_pipe(self):
        self.put("a.mp2", STEREO)
        self.good("decode", "--raw", "a.mp2")
        for arguments in (["-"], ["-", "-o", "-"]):
            self.assertEqual(self.good("decode", "--raw", *arguments, input=STEREO).out, self.get("a.s16"))
        wav = self.good("decode", "-", input=STEREO).out
        self.assertEqual(struct.unpack_from("<I", wav, 4)[0], 0xFFFFFFFF)
        self.assertEqual(struct.unpack_from("<I", wav, 40)[0], 0xFFFFFFFF)
        self.assertEqual(wav[44:], self.get("a.s16"))

    def test_standard_output_redirected_to_a_file_gets_its_length(self):
        self.put("a.mp2", STEREO)
        with open(self.path("redirected"), "wb") as out:
            out.write(b"before")
            out.flush()
            self.good("decode", "a.mp2", "-o", "-", stdout=out)
        self.good("decode", "a.mp2")
        self.assertEqual(self.get("redirected"), b"before" + self.get("a.wav"))

    def test_a_file_of_one_single_frame(self):
        self.put("one.mp2", FRAMES[0])
        self.good("decode", "--raw", "one.mp2")
        self.assertEqual(len(self.get("one.s16")), FRAME_PCM)

    def test_tags_are_stepped_over(self):
        self.put("plain.mp2", STEREO)
        id3v2 = b"ID3\4\0\0\0\0\x10\0" + FRAMES[3] * 2 + bytes(2048 - 2 * len(FRAMES[3]))
        ape = b"APETAGEX" + struct.pack("<IIIIQ", 2000, 32, 0, 0x20000000, 0)
        ape += b"APETAGEX" + struct.pack("<IIIIQ", 2000, 32, 0, 0, 0)
        self.put("tagged.mp2", id3v2 + STEREO + ape + b"TAG" + bytes(125))
        self.good("decode", "plain.mp2", "tagged.mp2")
        self.assertEqual(self.get("plain.wav"), self.get("tagged.wav"))

    def test_inside_a_wav_file(self):
        chunks = b"fmt " + struct.pack("<I", 16) + struct.pack("<HHIIHH", 0x50, 2, 44100, 24000, 1, 0)
        chunks += b"data" + struct.pack("<I", len(STEREO)) + STEREO + b"LIST" + struct.pack("<I", 4) + b"INFO"
        self.put("plain.mp2", STEREO)
        self.put("wrapped.wav", b"RIFF" + struct.pack("<I", len(chunks) + 4) + b"WAVE" + chunks)
        self.good("decode", "plain.mp2", "-o", "plain.out")
        self.good("decode", "wrapped.wav", "-o", "wrapped.out")
        self.assertEqual(wav_chunks(self.get("wrapped.out")), wav_chunks(self.get("plain.out")) + [(b"LIST", b"INFO")])


class Damage(CliTest):
    def decode(self, stream, *arguments, status=3):
        self.put("a.mp2", stream)
        result = self.qav("decode", "--raw", "-f", "a.mp2", *arguments)
        self.assertEqual(result.status, status, result.err)
        return result

    def setUp(self):
        super().setUp()
        self.put("whole.mp2", STEREO)
        self.good("decode", "--raw", "whole.mp2")
        self.whole = self.get("whole.s16")

    def pcm(self):
        return self.get("a.s16")

    def test_a_wrong_check_word(self):
        stream = bytearray(STEREO)
        offset = 10 * len(FRAMES[0]) + sum(len(f) - len(FRAMES[0]) for f in FRAMES[:10])
        stream[offset + 5] ^= 1
        result = self.decode(stream)
        self.assertEqual(len(result.lines), 1)
        self.assertIn("frame 10, byte %d (0x%x), 0:00.261: check word" % (offset, offset), result.lines[0])
        pcm = self.pcm()
        self.assertEqual(len(pcm), len(self.whole))
        self.assertEqual(pcm[: 10 * FRAME_PCM], self.whole[: 10 * FRAME_PCM])
        self.assertEqual(pcm[10 * FRAME_PCM : 11 * FRAME_PCM], bytes(FRAME_PCM))
        # The filterbank needs 480 samples to forget.
        self.assertEqual(pcm[12 * FRAME_PCM :], self.whole[12 * FRAME_PCM :])

    def test_skipping_gaps(self):
        name = "l2_garbage_44k_128_crc.mp2"
        result = self.decode(data(name), "--gaps", "skip")
        self.assertEqual(len(result.lines), 2)
        self.assertIn("frame 0, byte 0 (0x0), 0:00.000: lost sync", result.lines[0])
        self.assertIn("frame 10, ", result.lines[1])
        self.assertSamePcm(self.pcm(), expected_pcm(name))

    def test_a_damaged_header_costs_one_frame_and_no_time(self):
        stream = STEREO.replace(FRAMES[7], b"\0" + FRAMES[7][1:], 1)
        result = self.decode(stream)
        self.assertEqual(len(result.lines), 1)
        self.assertIn("frame 7, ", result.lines[0])
        self.assertIn("lost sync", result.lines[0])
        self.assertEqual(len(self.pcm()), len(self.whole))
        self.assertEqual(self.pcm()[7 * FRAME_PCM : 8 * FRAME_PCM], bytes(FRAME_PCM))

    def test_inserted_bytes_cost_no_time(self):
        at = sum(len(f) for f in FRAMES[:5])
        for garbage in (b"x", b"garbage" * 100):
            result = self.decode(STEREO[:at] + garbage + STEREO[at:])
            self.assertIn("frame 5, byte %d " % at, result.lines[0])
            self.assertEqual(self.pcm(), self.whole)

    def test_one_byte_at_head_or_tail_is_damage(self):
        self.decode(b"\0" + STEREO)
        self.assertEqual(self.pcm(), self.whole)
        self.decode(STEREO + b"\0")
        self.assertEqual(self.pcm(), self.whole)

    def test_a_truncated_last_frame(self):
        for cut in (1, 100, len(FRAMES[-1]) - 1):
            result = self.decode(STEREO[:-cut])
            self.assertEqual(len(result.lines), 1)
            self.assertIn("frame 29, ", result.lines[0])
            self.assertIn("truncated", result.lines[0])
            self.assertEqual(self.pcm(), self.whole[: 29 * FRAME_PCM])

    def test_lenient_exits_with_0(self):
        result = self.decode(STEREO[:-1], "--lenient", status=0)
        self.assertEqual(len(result.lines), 1)

    def test_json_tells_the_same(self):
        self.put("a.mp2", b"\0" + STEREO[:-1])
        result = self.qav("decode", "--json", "a.mp2")
        report = json.loads(result.out)
        self.assertEqual((report["status"], report["verdict"]), (3, "damaged"))
        self.assertEqual([f["kind"] for f in report["findings"]], ["lost sync", "truncated"])
        self.assertEqual(report["frames"], 29)
        self.assertEqual(report["outputs"], ["a.wav"])


class Joined(CliTest):
    def test_later_stretches_are_converted_to_the_first_format(self):
        mono = data("l2_mono_lsf_22k_56.mp2")
        self.put("a.mp2", STEREO + mono)
        result = self.qav("decode", "a.mp2")
        self.assertEqual(result.status, 3)
        self.assertEqual(len(result.lines), 1)
        self.assertIn("frame 30, byte %d " % len(STEREO), result.lines[0])
        self.assertIn("format change", result.lines[0])
        pcm = dict(wav_chunks(self.get("a.wav")))[b"data"]
        # 30 frames of 1152, then 30 of 1152 at half the rate.
        self.assertLessEqual(abs(len(pcm) // 4 - 3 * 30 * 1152), 2)
        tail = struct.unpack("<%dh" % (len(pcm) // 2 - 30 * 2304), pcm[30 * FRAME_PCM :])
        self.assertLessEqual(max(abs(a - b) for a, b in zip(tail[0::2], tail[1::2])), 2, "mono is in both channels")
        self.assertGreater(max(tail), 1000)

    def test_stereo_behind_mono_becomes_mono(self):
        mono = data("l2_mono_lsf_22k_56.mp2")
        self.put("a.mp2", mono + STEREO)
        self.assertEqual(self.qav("decode", "--raw", "a.mp2").status, 3)
        self.assertLessEqual(abs(len(self.get("a.s16")) // 2 - (30 * 1152 + 15 * 1152)), 2)

    def test_split_writes_one_file_a_stretch(self):
        mono = data("l2_mono_lsf_22k_56.mp2")
        self.put("a.mp2", STEREO + mono + STEREO)
        self.put("mono.mp2", mono)
        self.put("stereo.mp2", STEREO)
        self.good("decode", "stereo.mp2", "mono.mp2")
        self.assertEqual(self.qav("decode", "--split", "a.mp2").status, 3)
        for part, whole in (("a.wav", "stereo.wav"), ("a.2.wav", "mono.wav"), ("a.3.wav", "stereo.wav")):
            self.assertEqual(self.get(part), self.get(whole), part)

    def test_split_never_writes_over_another_output(self):
        self.put("a.mp2", STEREO + data("l2_mono_lsf_22k_56.mp2"))
        self.put("a.2.mp2", STEREO)
        result = self.qav("decode", "--split", "-f", "-j1", "a.2.mp2", "a.mp2")
        self.assertEqual(result.status, 2)
        self.assertIn("has been written from another input", result.err)


class Names(CliTest):
    NAMES = (b"with space", b"two\nlines", b"-dash", b"--help", b"not\xffutf8\xc3", b"n" * 246, b"[a,b]", b"'q\"$`", b"\xc3\xa4")

    def test_any_name_works(self):
        for name in self.NAMES:
            with self.subTest(name):
                self.put(name + b".mp2", STEREO)
                self.good("decode", "--", name + b".mp2")
                self.assertIn(name + b".wav", self.names())
        self.assertEqual(len(self.names()), 2 * len(self.NAMES))

    def test_any_output_name_works(self):
        self.put("a.mp2", STEREO)
        for name in self.NAMES:
            with self.subTest(name):
                self.good("decode", b"--output=" + name, "a.mp2")
                self.assertIn(name, self.names())

    def test_messages_are_one_line_whatever_the_name(self):
        for name in self.NAMES:
            with self.subTest(name):
                self.put(name + b".mp2", b"text")
                self.refused(2, "is no MPEG audio", "decode", "--", name + b".mp2")

    def test_a_name_of_255_bytes(self):
        self.put(b"n" * 255, STEREO)
        self.refused(2, "File name too long", "decode", b"n" * 255)
        self.good("decode", b"n" * 255, "-o", "x.wav")

    def test_a_file_named_like_a_subcommand(self):
        self.put("info", STEREO)
        self.good("decode", "info")
        self.assertIn(b"info.wav", self.names())


class Outputs(CliTest):
    def setUp(self):
        super().setUp()
        self.put("a.mp2", STEREO)

    def test_an_existing_file_is_overwritten_only_by_force(self):
        self.put("a.wav", b"old")
        self.refused(2, "qav: a.wav: exists already", "decode", "a.mp2")
        self.assertEqual(self.get("a.wav"), b"old")
        self.good("decode", "-f", "a.mp2")
        self.assertNotEqual(self.get("a.wav"), b"old")

    def test_several_inputs_go_to_a_directory(self):
        self.put("b.mp2", STEREO)
        self.good("decode", "a.mp2", "b.mp2", "-o", "out")
        self.assertEqual(sorted(os.listdir(self.path("out"))), [b"a.wav", b"b.wav"])
        self.good("decode", "a.mp2", "-o", "out/", "-f")
        self.put("file", b"")
        self.refused(1, "several inputs", "decode", "a.mp2", "b.mp2", "-o", "file")
        self.refused(1, "several inputs", "decode", "a.mp2", "b.mp2", "-o", "-")

    def test_two_inputs_never_end_in_one_output(self):
        self.put("a.mp1", data("l1_stereo_32k_320.mp1"))
        self.refused(1, "would both be written to a.wav", "decode", "a.mp2", "a.mp1")
        self.refused(1, "would both be written to", "decode", "a.mp2", "./a.mp2")
        self.assertEqual(self.names(), [b"a.mp1", b"a.mp2"])

    def test_an_input_is_never_overwritten(self):
        self.refused(1, "is also an input", "decode", "a.mp2", "-o", "a.mp2", "-f")
        self.assertEqual(self.get("a.mp2"), STEREO)

    def test_the_worst_status_counts_and_the_others_are_done(self):
        self.put("cut.mp2", STEREO[:-1])
        self.put("text.mp2", b"text\n")
        result = self.qav("decode", "cut.mp2", "text.mp2", "missing.mp2", "a.mp2", "-o", "out")
        self.assertEqual(result.status, 2)
        self.assertEqual(sorted(os.listdir(self.path("out"))), [b"a.wav", b"cut.wav"])
        self.assertEqual([line.split(":")[1] for line in result.lines], [" cut.mp2", " text.mp2", " missing.mp2"])
        self.assertEqual(self.qav("decode", "cut.mp2", "a.mp2", "-o", "out", "-f").status, 3)

    def test_any_number_of_jobs_gives_the_same(self):
        for i in range(20):
            self.put("in/%d.mp2" % i, STEREO[: 5000 + 700 * i])
        inputs = ["in/%d.mp2" % i for i in range(20)]
        first = self.qav("decode", *inputs, "-o", "one", "-j", "1", "--json")
        second = self.qav("decode", *inputs, "-o", "many", "-j", "7", "--json")
        self.assertEqual(first.err, second.err)
        self.assertEqual(first.out.replace(b'"one/', b'"many/'), second.out)
        for i in range(20):
            self.assertEqual(self.get("one/%d.wav" % i), self.get("many/%d.wav" % i))


class Failures(CliTest):
    def test_inputs_that_are_no_streams(self):
        self.put("empty", b"")
        self.put("text", b"Only words.\n" * 100)
        os.mkdir(self.path("folder"))
        self.refused(2, "is empty", "decode", "empty")
        self.refused(2, "is no MPEG audio", "decode", "text")
        self.refused(2, "is a directory", "decode", "folder")
        self.refused(2, "No such file", "decode", "missing")
        self.refused(2, "is empty", "decode", "-", input=b"")
        self.assertEqual(self.names(), [b"empty", b"folder", b"text"])

    def test_layer_three_and_free_format_are_named(self):
        layer3 = (b"\xff\xfb\x90\x00" + b"\x20" * 413) * 5
        self.put("layer3.mp3", layer3)
        self.refused(2, "is MPEG-1 Layer III, which is not decoded", "decode", "layer3.mp3")
        self.put("tagged.mp3", b"ID3\4\0\0\0\0\0\x0a" + bytes(10) + layer3)
        self.refused(2, "is MPEG-1 Layer III", "decode", "tagged.mp3")
        self.put("free.mp2", (b"\xff\xfd\x00\x00" + b"\x20" * 300) * 5)
        self.refused(2, "is free-format MPEG-1 Layer II", "decode", "free.mp2")

    def test_a_wav_of_pcm(self):
        self.put("a.mp2", STEREO)
        self.good("decode", "a.mp2")
        self.refused(2, "is a WAV file of PCM", "decode", "a.wav", "-o", "b.wav")

    def test_outputs_that_cannot_be_written(self):
        self.put("a.mp2", STEREO)
        self.refused(2, "No space left on device", "decode", "a.mp2", "-o", "/dev/full")
        self.refused(2, "No such file or directory", "decode", "a.mp2", "-o", "no/such/a.wav")
        self.refused(2, "File too large", "decode", "a.mp2", preexec_fn=limit_file_size(50000))
        self.assertEqual(self.names(), [b"a.mp2"])
        with open("/dev/full", "wb") as full:
            self.refused(2, "No space left on device", "decode", "a.mp2", "-o", "-", stdout=full)
            self.refused(2, "No space left on device", "info", "a.mp2", stdout=full)

    def test_a_closed_pipe(self):
        self.put("a.mp2", STEREO * 50)
        for arguments in (["decode", "a.mp2", "-o", "-"], ["info", "a.mp2"]):
            reading, writing = os.pipe()
            os.close(reading)
            with open(writing, "wb") as out:
                self.refused(2, "has closed it", *arguments, stdout=out)

    def test_a_read_only_folder(self):
        self.put("a.mp2", STEREO)
        os.mkdir(self.path("closed"), 0o500)
        if os.access(self.path("closed"), os.W_OK):
            self.skipTest("root may write anywhere")
        self.refused(2, "Permission denied", "decode", "a.mp2", "-o", "closed/a.wav")

    def test_closed_standard_streams(self):
        self.put("a.mp2", STEREO)
        result = self.qav("decode", "-", preexec_fn=lambda: os.close(0))
        self.assertEqual(result.status, 2)


class Signals(CliTest):
    def ends_within_a_second(self, process, number):
        time.sleep(0.2)
        self.assertIsNone(process.poll(), "it ended before the signal")
        start = time.monotonic()
        process.send_signal(number)
        process.wait(timeout=20)
        self.assertLess(time.monotonic() - start, 1.0)
        self.assertEqual(process.returncode, -number)
        process.stdout.close()
        process.stderr.close()
        if process.stdin:
            process.stdin.close()

    def test_while_waiting_for_a_silent_pipe(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(number):
                process = self.start("decode", "-", "-o", "out.wav", stdin=subprocess.PIPE)
                process.stdin.write(STEREO)
                process.stdin.flush()
                self.ends_within_a_second(process, number)
                self.assertEqual(self.names(), [])

    def test_in_the_middle_of_writing(self):
        # More than the window holds, so that output has begun.
        process = self.start("decode", "-", "-o", "out.wav", stdin=subprocess.PIPE)
        process.stdin.write(STEREO * 50)
        process.stdin.flush()
        wait_until(lambda: len(self.names()) == 1)
        self.ends_within_a_second(process, signal.SIGINT)
        self.assertEqual(self.names(), [])

    def test_while_a_named_pipe_has_no_writer(self):
        os.mkfifo(self.path("fifo"))
        self.ends_within_a_second(self.start("decode", "fifo", "-o", "out.wav"), signal.SIGTERM)
        self.assertEqual(self.names(), [b"fifo"])

    def test_while_nobody_reads_the_output(self):
        self.put("a.mp2", STEREO * 50)
        self.ends_within_a_second(self.start("decode", "a.mp2", "-o", "-"), signal.SIGINT)

    def test_several_workers(self):
        for i in range(4):
            os.mkfifo(self.path("fifo%d" % i))
        process = self.start("decode", "-j4", "fifo0", "fifo1", "fifo2", "fifo3", "-o", "out")
        writers = [open(self.path("fifo%d" % i), "wb") for i in range(4)]
        for writer in writers:
            writer.write(STEREO * 50)
            writer.flush()
        wait_until(lambda: os.path.isdir(self.path("out")) and len(os.listdir(self.path("out"))) == 4)
        self.ends_within_a_second(process, signal.SIGINT)
        self.assertEqual(os.listdir(self.path("out")), [])
        for writer in writers:
            try:
                writer.close()
            except BrokenPipeError:
                pass


class Usage(CliTest):
    def test_wrong_command_lines(self):
        for arguments in (
            ["frobnicate"],
            ["decode"],
            ["decode", "--frobnicate", "a.mp2"],
            ["decode", "a.mp2", "-j", "0"],
            ["decode", "a.mp2", "-j", "x"],
            ["decode", "a.mp2", "--gaps", "x"],
            ["decode", "a.mp2", "-o"],
            ["decode", ""],
            ["decode", "-", "-"],
            ["decode", "a.mp2", "-o", ""],
            ["decode", "a.mp2", "-o", "-", "--json"],
            ["decode", "a.mp2", "-o", "-", "--split"],
        ):
            with self.subTest(arguments):
                self.refused(1, "", *arguments)

    def test_the_nearest_subcommand_is_suggested(self):
        self.refused(1, "did you mean 'decode'?", "decod", "a.mp2")

    def test_help_and_version(self):
        for subcommand in ("decode", "info", "check"):
            text = self.good(subcommand, "--help").out.decode()
            self.assertEqual(text, self.good(subcommand, "-h").out.decode())
            self.assertGreaterEqual(text.count("qav %s " % subcommand), 2, "examples")
            self.assertLessEqual(len(text.splitlines()), 40)
            self.assertRegex(self.good(subcommand, "--version").out, rb"^qav \d+\.\d+\.\d+\.\d+\n$")
        self.assertIn(b"qav decode concert.mp2", self.good("--help").out)
        self.assertRegex(self.good("--version").out, rb"^qav \d+\.\d+\.\d+\.\d+\n$")


class Memory(CliTest):
    def peak(self, repeats):
        self.put("long.mp2", data("l2_mono_lsf_22k_56.mp2") * repeats)
        process = self.start("decode", "long.mp2", "-o", "/dev/null", stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        self.assertEqual(status, 0)
        return usage.ru_maxrss * 1024

    @unittest.skipIf("QAV_SANITIZED" in os.environ, "sanitizers take memory of their own")
    def test_an_hour_takes_no_more_memory_than_a_minute(self):
        minute, hour = self.peak(38), self.peak(38 * 60)
        self.assertLess(hour, 16e6)
        self.assertLess(hour - minute, 1e6)


if __name__ == "__main__":
    unittest.main()
