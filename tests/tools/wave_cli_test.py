"""WAVE files with MPEG audio inside, end to end: wrapped, unwrapped, decoded, encoded into; read by a reader of their own."""

import array
import json
import math
import os
import random
import struct
import subprocess
import unittest

from cli_support import CliTest, data, frames_of, wav_chunks

STEREO = data("l2_stereo_44k_192_crc.mp2")  # 30 frames with check words
FRAMES = frames_of(STEREO)
UNKNOWN = 0xFFFFFFFF


class Riff:
    """A RIFF or RF64 file taken apart, every length checked against what is there."""

    def __init__(self, content, piped=False):
        self.form = content[:4]
        assert self.form in (b"RIFF", b"RF64"), self.form
        assert content[8:12] == b"WAVE"
        riff_size = struct.unpack_from("<I", content, 4)[0]
        self.chunks = []
        data_size = None
        at = 12
        while at < len(content):
            name, size = struct.unpack_from("<4sI", content, at)
            if name == b"ds64":
                assert self.form == b"RF64" and at == 12 and riff_size == UNKNOWN
                riff_size, data_size, self.samples = struct.unpack_from("<QQQ", content, at + 8)
            if name == b"data" and size == UNKNOWN:
                size = len(content) - at - 8 if piped else data_size
            body = content[at + 8 : at + 8 + size]
            assert len(body) == size, (name, size)
            self.chunks.append((name, body))
            at += 8 + size
            if size % 2 and not (piped and name == b"data"):
                assert content[at : at + 1] == b"\0", "padding"
                at += 1
        assert at == len(content)
        assert riff_size == (UNKNOWN if piped else len(content) - 8), (riff_size, len(content))
        self.names = [name for name, _ in self.chunks]

    def __getitem__(self, name):
        bodies = [body for other, body in self.chunks if other == name]
        assert len(bodies) == 1, (name, len(bodies))
        return bodies[0]

    def format(self):
        """The fields of WAVEFORMATEX and MPEG1WAVEFORMAT."""
        names = (
            "tag channels rate bytesPerSecond align bits extra layer bitrate mode modeExt emphasis flags ptsLow ptsHigh"
        ).split()
        return dict(zip(names, struct.unpack("<HHIIHHHHIHHHHII", self[b"fmt "])))


def riff(*chunks, form=b"RIFF", size=None):
    body = b"WAVE"
    for name, content in chunks:
        body += name + struct.pack("<I", len(content)) + content + b"\0" * (len(content) % 2)
    return form + struct.pack("<I", len(body) if size is None else size) + body


def pcm_format(rate=48000, channels=2, bits=16):
    return struct.pack("<HHIIHH", 1, channels, rate, rate * channels * bits // 8, channels * bits // 8, bits)


def bext(version=1, history=b"A=PCM,F=48000,W=16,M=stereo\r\n"):
    return b"A recording".ljust(256, b"\0") + bytes(90) + struct.pack("<H", version) + bytes(range(64)) + bytes(190) + history


BEFORE = [
    (b"bext", bext()),
    (b"cart", b"0101" + b"Title".ljust(64, b"\0") + bytes(1980)),
    (b"mext", bytes(range(12))),
    (b"iXML", b"<?xml version=\"1.0\"?><BWFXML/>\n"),  # of odd length
    (b"\x01\xff?\0", bytes(range(256))),  # not even letters
    (b"JUNK", b"a filler"),
    (b"zero", b""),
]
BEHIND = [
    (b"LIST", b"INFOINAM\x06\0\0\0Title\0"),
    (b"cue ", struct.pack("<II4sIIII", 1, 7, b"data", 0, 0, 0, 0) + b"\0\0\0\0"),
    (b"odd ", b"x"),
]


def other_chunks(wave):
    """What is neither of the samples nor the place for a ds64 chunk."""
    chunks = wave.chunks[1:] if wave.names[0] == b"JUNK" else wave.chunks
    return [chunk for chunk in chunks if chunk[0] not in (b"fmt ", b"fact", b"data")]


class Wrap(CliTest):
    def wrapped(self, stream, *arguments):
        self.put("a.mp2", stream)
        self.good("wrap", "-f", "a.mp2", "-o", "a.wav", *arguments)
        return Riff(self.get("a.wav"))

    def test_every_field_of_the_format(self):
        # channels, rate, bytes per second, layer, bitrate, mode
        for name, expected in {
            "l2_stereo_44k_192_crc.mp2": (2, 44100, 24000, 2, 192000, 1),
            "l2_joint_44k_128.mp2": (2, 44100, 16000, 2, 128000, 2),
            "l2_joint_48k_64_crc.mp2": (2, 48000, 8000, 2, 64000, 2),
            "l2_mono_lsf_22k_56.mp2": (1, 22050, 7000, 2, 56000, 8),
            "l2_dual_48k_256.mp2": (2, 48000, 32000, 2, 256000, 4),
            "l1_stereo_32k_320.mp1": (2, 32000, 40000, 1, 320000, 1),
            "l1_joint_44k_192_crc.mp1": (2, 44100, 24000, 1, 192000, 2),
        }.items():
            with self.subTest(name):
                stream = data(name)
                wave = self.wrapped(stream)
                self.assertEqual(wave.names, [b"fmt ", b"fact", b"data"])
                self.assertEqual(wave[b"data"], stream)
                form = wave.format()
                self.assertEqual((form["tag"], form["bits"], form["extra"]), (0x50, 0, 22))
                said = [form[k] for k in "channels rate bytesPerSecond layer bitrate mode".split()]
                self.assertEqual(tuple(said), expected)
                self.assertEqual(form["align"], 1)  # these have frames with padding, and frames without
                self.assertEqual((form["ptsLow"], form["ptsHigh"]), (0, 0))
                # By the bits of the headers themselves.
                headers = self.headers(stream, form)
                self.assertEqual(form["emphasis"], 1 + (headers[0][3] & 3))
                flags, extensions = 0, 0
                for header in headers:
                    flags |= header[2] & 1 | header[3] >> 2 & 2 | header[3] & 4 | header[1] << 3 & 8 | header[1] << 1 & 16
                    if header[3] >> 6 == 1:
                        extensions |= 1 << (header[3] >> 4 & 3)
                self.assertEqual(form["flags"], flags)
                self.assertEqual(form["modeExt"], extensions)
                samples = len(headers) * (384 if form["layer"] == 1 else 1152)
                self.assertEqual(struct.unpack("<I", wave[b"fact"])[0], samples)
                self.assertEqual(len(data(name[:-4] + ".s16")), samples * form["channels"] * 2)

    def headers(self, stream, form):
        """Headers at the places that the mean frame length leads to."""
        if form["layer"] == 1:
            slots = 12 * form["bitrate"] // form["rate"]
            length = lambda padding: 4 * (slots + padding)
        else:
            length = lambda padding: 144 * form["bitrate"] // form["rate"] + padding
        at, headers = 0, []
        while at < len(stream):
            headers.append(stream[at : at + 4])
            at += length(stream[at + 2] >> 1 & 1)
        self.assertEqual(at, len(stream))
        return headers

    def test_changing_bitrates_have_none(self):
        other = data("l2_joint_44k_128.mp2")
        wave = self.wrapped(STEREO + other)
        form = wave.format()
        self.assertEqual((form["bitrate"], form["align"], form["mode"]), (0, 1, 3))
        seconds = 60 * 1152 / 44100
        self.assertLessEqual(abs(form["bytesPerSecond"] - len(STEREO + other) / seconds), 1)

    def test_out_again_as_it_was(self):
        for name in ("l2_stereo_44k_192_crc.mp2", "l1_joint_44k_192_crc.mp1", "l2_mono_lsf_22k_56.mp2"):
            self.wrapped(data(name))
            self.good("check", "a.wav")
            self.good("unwrap", "-f", "a.wav", "-o", "b.mp2")
            self.assertEqual(self.get("b.mp2"), data(name))

    def test_names(self):
        self.put("a b.mp2", STEREO)
        self.good("wrap", "a b.mp2")
        os.rename(self.path("a b.wav"), self.path("c.wav"))
        self.good("unwrap", "c.wav")
        self.assertEqual(self.names(), [b"a b.mp2", b"c.mp2", b"c.wav"])
        self.refused(1, "is also an input", "wrap", "c.wav")

    def test_chunks_are_kept_in_their_places(self):
        content = riff((b"fmt ", Riff(self.wrapped_bytes()).chunks[0][1]), *BEFORE, (b"data", STEREO), *BEHIND)
        self.put("in.wav", content)
        self.good("wrap", "in.wav", "-o", "out.wav")
        wave = Riff(self.get("out.wav"))
        at = wave.names.index(b"data")
        self.assertEqual(wave.chunks[2:at], BEFORE)
        self.assertEqual(wave.chunks[at + 1 :], BEHIND)
        self.assertEqual(wave[b"data"], STEREO)

    def wrapped_bytes(self):
        self.wrapped(STEREO)
        return self.get("a.wav")

    def test_wrapping_again_changes_nothing(self):
        content = riff((b"fmt ", self.wrapped(STEREO)[b"fmt "]), (b"fact", struct.pack("<I", 34000)), *BEFORE, (b"data", STEREO), *BEHIND)
        self.put("in.wav", content)
        self.good("wrap", "in.wav", "-o", "out.wav")
        self.assertEqual(self.get("out.wav"), content)

    def test_large_chunks_take_no_memory(self):
        if "QAV_SANITIZED" in os.environ:
            self.skipTest("sanitizers take memory of their own")
        size = 50 << 20
        form = self.wrapped(STEREO)[b"fmt "]
        with open(self.path("in.wav"), "wb") as f:
            f.write(riff((b"fmt ", form), size=2 * size + len(STEREO) + 60) + b"larg" + struct.pack("<I", size) + b"head")
            f.seek(size - 8, os.SEEK_CUR)
            f.write(b"foot" + b"data" + struct.pack("<I", len(STEREO)) + STEREO + b"tail" + struct.pack("<I", size))
            f.truncate(f.tell() + size)
        process = self.start("wrap", "in.wav", "-o", "out.wav", stdout=None, stderr=None)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = status
        self.assertEqual(status, 0)
        self.assertLess(usage.ru_maxrss, 16 * 1024)
        wave = Riff(self.get("out.wav"))
        self.assertEqual(wave.names, [b"fmt ", b"fact", b"larg", b"data", b"tail"])
        self.assertTrue(wave[b"larg"] == b"head" + bytes(size - 8) + b"foot" and wave[b"tail"] == bytes(size))

    def test_through_pipes(self):
        out = self.good("wrap", "-", input=STEREO).out
        wave = Riff(out, piped=True)
        self.assertEqual(wave.names, [b"fmt ", b"fact", b"data"])
        self.assertEqual(wave[b"fact"], b"\xff" * 4)
        self.assertEqual(wave[b"data"], STEREO)
        self.assertEqual(wave.format()["bitrate"], 192000)
        self.assertEqual(self.good("unwrap", "-", input=out).out, STEREO)
        self.assertEqual(self.good("wrap", "-", input=out).out, out)

    def test_a_pipe_has_no_place_behind_the_data(self):
        content = riff((b"fmt ", self.wrapped(STEREO)[b"fmt "]), *BEFORE, (b"data", STEREO), *BEHIND)
        result = self.qav("wrap", "-", input=content)
        self.assertEqual(result.status, 0)
        self.assertIn("the chunks behind the data", result.lines[0])
        self.assertEqual(Riff(result.out, piped=True).chunks[2:-1], BEFORE)

    def test_standard_output_redirected_to_a_file_gets_everything(self):
        whole = self.wrapped_bytes()
        with open(self.path("redirected"), "wb") as out:
            self.good("wrap", "a.mp2", "-o", "-", stdout=out)
        self.assertEqual(self.get("redirected"), whole)

    def test_tags_are_left_out_and_named(self):
        self.put("a.mp2", b"ID3\4\0\0\0\0\0\x10" + bytes(16) + STEREO + b"TAG" + bytes(125))
        result = self.qav("wrap", "a.mp2")
        self.assertEqual(result.status, 0)
        self.assertEqual(len(result.lines), 1)
        self.assertRegex(result.lines[0], r"tags are left out: ID3v2 at byte 0 \(26 bytes\), ID3v1 at byte")
        self.assertEqual(Riff(self.get("a.wav"))[b"data"], STEREO)
        self.good("wrap", "-q", "-f", "a.mp2")

    def test_damage(self):
        bad = bytearray(FRAMES[3])
        bad[5] ^= 1
        self.put("a.mp2", b"garbage" + b"".join(FRAMES[:3]) + bytes(bad) + b"".join(FRAMES[4:])[:-1])
        result = self.qav("wrap", "a.mp2")
        self.assertEqual(result.status, 3)
        self.assertRegex(result.lines[0], "lost sync.*; left out")
        self.assertRegex(result.lines[1], "check word.*; taken over as it is")
        self.assertRegex(result.lines[2], "truncated.*; left out")
        wave = Riff(self.get("a.wav"))
        self.assertEqual(wave[b"data"], b"".join(FRAMES[:3]) + bytes(bad) + b"".join(FRAMES[4:-1]))
        self.assertEqual(struct.unpack("<I", wave[b"fact"])[0], 29 * 1152)

    def test_a_cut_chunk_is_kept_as_far_as_it_goes(self):
        content = riff((b"fmt ", self.wrapped(STEREO)[b"fmt "]), (b"data", STEREO), (b"LIST", b"INFO" + bytes(100)))
        self.put("in.wav", content[:-37])
        result = self.qav("wrap", "in.wav", "-o", "out.wav")
        self.assertEqual(result.status, 3)
        self.assertIn("the last chunk of the RIFF file is cut", result.err)
        self.assertEqual(Riff(self.get("out.wav"))[b"LIST"], b"INFO" + bytes(63))

    def test_json(self):
        self.put("a.mp2", STEREO)
        said = json.loads(self.good("wrap", "--json", "a.mp2").out)
        self.assertEqual((said["status"], said["output"], said["sampleFrames"]), (0, "a.wav", 30 * 1152))
        said = json.loads(self.good("unwrap", "--json", "a.wav", "-o", "b.mp2").out)
        self.assertEqual((said["status"], said["output"], said["container"]), (0, "b.mp2", "wav"))

    def test_refusals(self):
        self.put("a.mp2", STEREO)
        self.put("pcm.wav", riff((b"fmt ", pcm_format()), (b"data", bytes(4000))))
        self.put("text", b"text")
        self.refused(2, "is no WAVE file", "unwrap", "a.mp2", "-o", "b.mp2")
        self.refused(2, "is a WAV file of PCM", "unwrap", "pcm.wav")
        self.refused(2, "is a WAV file of PCM", "wrap", "pcm.wav", "-o", "b.wav")
        self.refused(2, "is no MPEG audio", "wrap", "text")
        self.refused(1, "both go to standard output", "wrap", "--json", "a.mp2", "-o", "-")
        self.assertEqual(self.names(), [b"a.mp2", b"pcm.wav", b"text"])


class Decode(CliTest):
    def test_chunks_are_kept_in_their_places(self):
        self.put("a.mp2", STEREO)
        self.good("decode", "a.mp2", "-o", "plain.wav")
        self.good("wrap", "a.mp2", "-o", "bare.wav")
        form = Riff(self.get("bare.wav"))[b"fmt "]
        self.put("in.wav", riff((b"fmt ", form), *BEFORE, (b"data", STEREO), *BEHIND))
        self.good("decode", "in.wav", "-o", "out.wav")
        wave = Riff(self.get("out.wav"))
        self.assertEqual([wave.chunks[0]] + wave.chunks[8:9], wav_chunks(self.get("plain.wav")))
        self.assertEqual(wave.chunks[1:8], BEFORE)
        self.assertEqual(wave.chunks[9:], BEHIND)
        self.good("decode", "--raw", "in.wav", "-o", "out.s16")
        self.assertEqual(self.get("out.s16"), wave[b"data"])
        result = self.qav("decode", "in.wav", "-o", "-")
        self.assertEqual(result.status, 0)
        self.assertIn("the chunks behind the data", result.lines[0])
        self.assertEqual(Riff(result.out, piped=True).chunks[1:8], BEFORE)

    def test_chunks_of_a_stream_that_is_split(self):
        mono = data("l2_mono_lsf_22k_56.mp2")
        self.put("a.mp2", STEREO + mono)
        self.assertEqual(self.qav("wrap", "a.mp2", "-o", "bare.wav").status, 3)
        form = Riff(self.get("bare.wav"))[b"fmt "]
        self.put("in.wav", riff((b"fmt ", form), *BEFORE, (b"data", STEREO + mono), *BEHIND))
        self.assertEqual(self.qav("decode", "--split", "in.wav", "-o", "out.wav").status, 3)
        first, second = Riff(self.get("out.wav")), Riff(self.get("out.2.wav"))
        self.assertEqual(other_chunks(first), BEFORE)
        self.assertEqual(other_chunks(second), BEFORE + BEHIND)
        # Each stretch has a delay of its own; the length in the fact chunk is that of neither.
        self.assertEqual(self.qav("decode", "--split", "--trim", "-f", "in.wav", "-o", "out.wav").status, 3)
        for name, whole in (("out.wav", first), ("out.2.wav", second)):
            channels = struct.unpack_from("<H", whole[b"fmt "], 2)[0]
            self.assertEqual(Riff(self.get(name))[b"data"], whole[b"data"][481 * channels * 2 :])


def music(frames, channels, rate, seed=1):
    """Two tones and some noise a channel, interleaved, as the bytes of 16-bit samples."""
    noise = random.Random(seed)
    out = array.array("h")
    for i in range(frames):
        for c in range(channels):
            tone = 6000 * math.sin(2 * math.pi * 440 * (c + 1) * i / rate + c) + 2000 * math.sin(2 * math.pi * 3011 * i / rate)
            out.append(int(tone + noise.gauss(0, 200)))
    return out.tobytes()


def snr(reference, decoded):
    """Signal to noise in dB of samples that must be aligned already."""
    a, b = array.array("h", reference), array.array("h", decoded)
    return 10 * math.log10(sum(x * x for x in a) / sum((x - y) ** 2 for x, y in zip(a, b)))


class Trim(CliTest):
    def encode(self, rate, channels, samples, *arguments):
        self.put("x.wav", riff((b"fmt ", pcm_format(rate, channels)), (b"data", samples)))
        self.good("encode", "-f", "--wrap", "-b", "192", "x.wav", "-o", "w.wav", *arguments)
        return Riff(self.get("w.wav"))

    def trimmed(self, *arguments):
        self.good("decode", "-f", "--trim", "w.wav", "-o", "y.wav", *arguments)
        return Riff(self.get("y.wav"))[b"data"]

    def test_the_length_survives_and_nothing_moves(self):
        for rate, channels in ((48000, 2), (44100, 1), (32000, 2)):
            for count in (1, 670, 671, 672, 1152, 1823, 1824, 5000):
                with self.subTest(rate=rate, channels=channels, count=count):
                    given = music(count, channels, rate)
                    wave = self.encode(rate, channels, given)
                    self.assertEqual(struct.unpack("<I", wave[b"fact"])[0], count)
                    decoded = self.trimmed()
                    self.assertEqual(len(decoded), len(given))
                    self.assertGreater(snr(given, decoded), 10 if count > 1 else 5)
                    self.good("decode", "-f", "w.wav", "-o", "whole.wav")
                    whole = Riff(self.get("whole.wav"))[b"data"]
                    self.assertEqual(len(whole), len(frames_of(wave[b"data"])) * 1152 * channels * 2)
                    self.assertEqual(whole[481 * channels * 2 :][: len(given)], decoded)

    def test_wrapping_again_keeps_the_length(self):
        self.encode(48000, 2, music(5000, 2, 48000))
        expected = self.trimmed()
        os.rename(self.path("w.wav"), self.path("v.wav"))
        self.good("wrap", "v.wav", "-o", "w.wav")
        self.assertEqual(self.trimmed(), expected)

    def test_a_bare_stream_has_no_known_length(self):
        self.put("a.mp2", STEREO)
        self.good("decode", "--raw", "a.mp2", "-o", "whole.s16")
        self.good("decode", "--raw", "--trim", "a.mp2", "-o", "trimmed.s16")
        self.assertEqual(self.get("trimmed.s16"), self.get("whole.s16")[481 * 4 :])
        said = json.loads(self.good("decode", "--raw", "--trim", "--json", "-f", "a.mp2", "-o", "trimmed.s16").out)
        self.assertEqual(said["trimmed"], {"delay": 481, "padding": 0})

    def test_after_conversion_it_is_the_new_length(self):
        wave = self.encode(48000, 2, music(9600, 2, 48000), "-r", "32000")
        length = struct.unpack("<I", wave[b"fact"])[0]
        self.assertEqual(length, 6400)
        self.assertEqual(len(self.trimmed()), 6400 * 4)

    def test_a_false_fact_is_obeyed_and_said(self):
        self.put("a.mp2", STEREO)
        self.good("wrap", "a.mp2", "-o", "a.wav")
        form = Riff(self.get("a.wav"))[b"fmt "]
        for fact, length, said in ((0, 34560 - 481, 0), (34560, 34560 - 481, 0), (33000, 33000, 0), (1000, 1000, 1)):
            self.put("w.wav", riff((b"fmt ", form), (b"fact", struct.pack("<I", fact)), (b"data", STEREO)))
            result = self.qav("decode", "-f", "--trim", "w.wav", "-o", "y.wav")
            self.assertEqual((result.status, len(result.lines)), (0, said), result.err)
            self.assertEqual(len(Riff(self.get("y.wav"))[b"data"]), length * 4)
        self.assertIn("its fact chunk says 1000 samples", result.err)

    def test_damage_keeps_the_length(self):
        given = music(20000, 2, 48000)
        wave = self.encode(48000, 2, given)
        stream = bytearray(wave[b"data"])
        stream[5 * 576 + 10] ^= 0xFF
        self.put("w.wav", self.get("w.wav").replace(wave[b"data"], bytes(stream)))
        result = self.qav("decode", "--trim", "w.wav", "-o", "y.wav")
        self.assertEqual(result.status, 3)
        self.assertEqual(len(Riff(self.get("y.wav"))[b"data"]), len(given))

    def test_through_pipes(self):
        given = music(5000, 2, 48000)
        source = riff((b"fmt ", pcm_format()), (b"data", given))
        self.put("x.wav", source)
        piped = self.good("encode", "--wrap", "x.wav", "-o", "-").out
        self.assertEqual(struct.unpack("<I", Riff(piped, piped=True)[b"fact"])[0], 5000)
        wav = self.good("decode", "--trim", "-", input=piped).out
        self.assertEqual(len(Riff(wav, piped=True)[b"data"]), len(given))


class Encode(CliTest):
    def encode(self, content, *arguments):
        self.put("x.wav", content)
        self.good("encode", "-f", "--wrap", "x.wav", "-o", "w.wav", *arguments)
        return Riff(self.get("w.wav"))

    def test_chunks_are_kept_in_their_places(self):
        content = riff(*BEFORE[:3], (b"fmt ", pcm_format()), *BEFORE[3:], (b"data", music(5000, 2, 48000)), *BEHIND)
        for arguments in ([], ["-r", "44100"], ["--normalize", "-20"], ["-j", "4"]):
            wave = self.encode(content, *arguments)
            at = wave.names.index(b"data")
            self.assertEqual(wave.names[:2], [b"fmt ", b"fact"])
            self.assertEqual(wave.chunks[2:at], BEFORE)
            self.assertEqual(wave.chunks[at + 1 :], BEHIND)
        self.good("decode", "-f", "w.wav", "-o", "y.wav")
        self.assertEqual(other_chunks(Riff(self.get("y.wav"))), BEFORE + BEHIND)

    def test_chunks_around_samples_of_odd_length(self):
        samples = bytes(range(100, 151)) * 51  # 8 bits, one channel
        wave = self.encode(riff((b"fmt ", pcm_format(48000, 1, 8)), *BEFORE, (b"data", samples), *BEHIND))
        self.assertEqual(other_chunks(wave), BEFORE + BEHIND)
        self.assertEqual(struct.unpack("<I", wave[b"fact"])[0], 51 * 51)

    def test_chunks_of_compressed_samples(self):
        form = struct.pack("<HHIIHHH", 7, 1, 32000, 32000, 1, 8, 0)  # u-law
        fact = struct.pack("<I", 3001)
        wave = self.encode(riff((b"fmt ", form), (b"fact", fact), *BEFORE[:4], (b"data", b"\x7e" * 3001), *BEHIND))
        self.assertEqual(other_chunks(wave), BEFORE[:4] + BEHIND)
        self.assertEqual(struct.unpack("<I", wave[b"fact"])[0], 3001)

    def test_chunks_from_a_pipe(self):
        content = riff((b"fmt ", pcm_format()), *BEFORE, (b"data", music(5000, 2, 48000)), *BEHIND)
        self.good("encode", "--wrap", "-", "-o", "w.wav", input=content)
        self.assertEqual(other_chunks(Riff(self.get("w.wav"))), BEFORE + BEHIND)

    def test_the_format_of_equal_frames(self):
        wave = self.encode(riff((b"fmt ", pcm_format()), (b"data", music(5000, 2, 48000))), "-b", "192", "--copyright", "--no-crc")
        form = wave.format()
        self.assertEqual((form["align"], form["bitrate"], form["flags"]), (576, 192000, 0x1E))
        self.put("w.mp2", wave[b"data"])
        self.good("encode", "-b", "192", "--copyright", "--no-crc", "x.wav")
        self.assertEqual(self.get("x.mp2"), wave[b"data"])

    def test_names(self):
        self.put("x.wav", riff((b"fmt ", pcm_format()), (b"data", bytes(4000))))
        self.put("y", riff((b"fmt ", pcm_format()), (b"data", bytes(4000))))
        os.mkdir(self.path("to"))
        self.good("encode", "--wrap", "x.wav", "y")
        self.assertEqual(self.names(), [b"to", b"x.mp2.wav", b"x.wav", b"y", b"y.wav"])
        self.good("encode", "--wrap", "x.wav", "y", "-o", "to")
        self.assertEqual(sorted(os.listdir(self.path("to"))), [b"x.wav", b"y.wav"])

    def levels(self, content):
        return struct.unpack("<5h", content[412:422])

    def test_loudness_in_a_new_bext_chunk(self):
        content = riff((b"fmt ", pcm_format()), (b"data", music(48000 * 4, 2, 48000)))
        wave = self.encode(content, "--bext-loudness")
        self.assertEqual(wave.names, [b"fmt ", b"fact", b"bext", b"data"])
        own = wave[b"bext"]
        self.assertEqual(len(own), 602)
        self.assertEqual(struct.unpack_from("<H", own, 346)[0], 2)
        loudness = json.loads(self.good("encode", "-f", "--json", "--loudness", "x.wav", "-o", "x.mp2").out)["loudness"]
        integrated, spread, peak, momentary, short_term = (level / 100 for level in self.levels(own))
        self.assertAlmostEqual(integrated, loudness["integratedLufs"], delta=0.051)
        self.assertAlmostEqual(spread, loudness["rangeLu"], delta=0.051)
        self.assertAlmostEqual(peak, loudness["truePeakDbtp"], delta=0.051)
        # Of a steady sound all are equal but for the noise in it.
        self.assertAlmostEqual(momentary, integrated, delta=0.1)
        self.assertAlmostEqual(short_term, integrated, delta=0.1)
        self.assertEqual(own[:346] + own[348:412] + own[422:], bytes(602 - 12))

    def test_loudness_changes_nothing_else_of_a_bext_chunk(self):
        old = bext()
        content = riff((b"bext", old), (b"fmt ", pcm_format()), (b"odd ", b"x"), (b"data", music(48000, 2, 48000)), *BEHIND)
        wave = self.encode(content, "--bext-loudness")
        own = wave[b"bext"]
        self.assertEqual(wave.names[2:], [b"bext", b"odd ", b"data"] + [name for name, _ in BEHIND])
        self.assertEqual(struct.unpack_from("<H", own, 346)[0], 2)
        self.assertEqual(own[:346] + own[348:412] + own[422:], old[:346] + old[348:412] + old[422:])
        levels = self.levels(own)
        self.assertTrue(-3000 < levels[0] < -1000, levels)
        self.assertEqual(levels[4], 0x7FFF)  # no three seconds

    def test_refusals(self):
        sound = (b"data", bytes(4000))
        self.put("x.wav", riff((b"fmt ", pcm_format()), sound))
        self.put("short.wav", riff((b"fmt ", pcm_format()), (b"bext", bytes(601)), sound))
        self.refused(1, "is about a WAVE file", "encode", "x.wav", "--bext-loudness")
        self.refused(2, "bext chunk too short", "encode", "short.wav", "--wrap", "--bext-loudness", "-o", "y.wav")
        self.refused(2, "cannot be filled in on a pipe", "encode", "x.wav", "--wrap", "--bext-loudness", "-o", "-")
        self.assertEqual(self.names(), [b"short.wav", b"x.wav"])


@unittest.skipUnless("QAV_TEST_FULL" in os.environ, "takes long, and 5 GB of disk")
class BeyondFourGigabytes(CliTest):
    def test_written_and_read(self):
        block = STEREO * 1000
        with open(self.path("out.wav"), "wb") as out:
            process = self.start("wrap", "-", "-o", "-", stdin=subprocess.PIPE, stdout=out)
            blocks = (4 << 30) // len(block) + 1
            for _ in range(blocks):
                process.stdin.write(block)
            _, err = process.communicate()
        self.assertEqual((process.returncode, err), (0, b""))
        size = blocks * len(block)
        with open(self.path("out.wav"), "rb") as f:
            head = f.read(200)
            self.assertEqual(os.fstat(f.fileno()).st_size, 8 + 4 + 36 + 48 + 12 + 8 + size + size % 2)
        self.assertEqual(head[:8] + head[8:16], b"RF64\xff\xff\xff\xffWAVEds64")
        riff_size, data_size, samples = struct.unpack_from("<QQQ", head, 20)
        self.assertEqual((riff_size, data_size), (os.path.getsize(self.path("out.wav")) - 8, size))
        self.assertEqual(samples, blocks * 30000 * 1152)
        said = json.loads(self.good("info", "--json", "out.wav").out)
        self.assertEqual((said["frames"], said["verdict"]), (blocks * 30000, "good"))

    def test_sparse(self):
        hole = (4 << 30) + 4096
        form = struct.pack("<HHIIHHHHIHHHHII", 0x50, 2, 44100, 24000, 1, 0, 22, 2, 192000, 1, 0, 1, 16, 0, 0)
        data_size = 2 * len(STEREO) + hole
        head = b"RF64\xff\xff\xff\xffWAVEds64" + struct.pack("<IQQQI", 28, data_size + 200, data_size, 0, 0)
        head += b"fmt " + struct.pack("<I", len(form)) + form + b"data\xff\xff\xff\xff"
        with open(self.path("in.wav"), "wb") as f:
            f.write(head + STEREO)
            f.seek(hole, os.SEEK_CUR)
            f.write(STEREO + b"\0" * (data_size % 2) + b"LIST\4\0\0\0INFO")
        result = self.qav("wrap", "in.wav", "-o", "out.wav")
        self.assertEqual(result.status, 3)
        self.assertIn("lost sync", result.err)
        wave = Riff(self.get("out.wav"))
        self.assertEqual(wave[b"LIST"], b"INFO")
        self.assertEqual(wave[b"data"], STEREO + STEREO)


if __name__ == "__main__":
    unittest.main()
