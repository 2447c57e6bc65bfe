"""qav encode and qav resample, end to end."""

import array
import json
import math
import os
import random
import struct
import unittest

from cli_support import CliTest, frames_of, limit_file_size, wav_chunks

DELAY = 481
FRAME = 1152


def wav(rate, channels, samples, bits=16, tag=1, extra=b""):
    width = bits // 8
    form = struct.pack("<HHIIHH", tag, channels, rate, rate * channels * width, channels * width, bits)
    body = b"WAVEfmt " + struct.pack("<I", 16) + form + extra + b"data" + struct.pack("<I", len(samples)) + samples
    return b"RIFF" + struct.pack("<I", len(body)) + body


def pcm(samples):
    return array.array("h", samples).tobytes()


def music(frames, channels, rate=48000, seed=1):
    """Two tones and some noise a channel, interleaved."""
    noise = random.Random(seed)
    out = []
    for i in range(frames):
        for c in range(channels):
            tone = 6000 * math.sin(2 * math.pi * 440 * (c + 1) * i / rate + c) + 2000 * math.sin(2 * math.pi * 3011 * i / rate)
            out.append(int(tone + noise.gauss(0, 200)))
    return out


def samples_of(wav_file):
    return array.array("h", dict(wav_chunks(wav_file))[b"data"])


def snr(reference, decoded, channels, delay=DELAY):
    """Signal to noise in dB of what was decoded, with the codec's delay taken out."""
    aligned = decoded[delay * channels : delay * channels + len(reference)]
    assert len(aligned) == len(reference), (len(aligned), len(reference))
    signal_power = sum(a * a for a in reference)
    noise_power = sum((a - b) ** 2 for a, b in zip(reference, aligned))
    return 10 * math.log10(signal_power / noise_power)


class EncodeTest(CliTest):
    def encoded(self, content, *arguments, name="x.wav"):
        self.put(name, content)
        self.good("encode", "-f", name, "-o", "x.mp2", *arguments)
        return self.get("x.mp2")

    def decoded(self, stream):
        self.put("y.mp2", stream)
        self.good("decode", "-f", "y.mp2")
        return samples_of(self.get("y.wav"))


class Encode(EncodeTest):
    def test_the_output_goes_beside_the_input(self):
        self.put("a b.wav", wav(48000, 2, pcm(music(3000, 2))))
        self.good("encode", "a b.wav")
        self.assertEqual(self.names(), [b"a b.mp2", b"a b.wav"])

    def test_every_sample_comes_out_of_a_decoder(self):
        for channels in (1, 2):
            for frames in (1, 670, 671, 672, 1152, 1823, 1824, 5000):
                with self.subTest(channels=channels, frames=frames):
                    given = music(frames, channels)
                    stream = self.encoded(wav(48000, channels, pcm(given)), "-b", "192")
                    self.assertEqual(len(frames_of(stream)), math.ceil((frames + DELAY) / FRAME))
                    decoded = self.decoded(stream)
                    self.assertGreater(snr(given, decoded, channels), 10 if frames > 1 else 5)

    def test_the_header_says_what_was_asked_for(self):
        def header(*arguments, channels=2, rate=48000):
            stream = self.encoded(wav(rate, channels, pcm(music(3000, channels, rate))), *arguments)
            h = struct.unpack(">I", stream[:4])[0]
            self.assertEqual(h >> 17, 0xFFFC >> 1)  # MPEG-1 Layer II
            return {
                "crc": not h >> 16 & 1,
                "kbps": (0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384)[h >> 12 & 15],
                "rate": (44100, 48000, 32000)[h >> 10 & 3],
                "mode": h >> 6 & 3,
                "copyright": h >> 3 & 1,
                "original": h >> 2 & 1,
                "emphasis": h & 3,
            }

        plain = {"crc": True, "kbps": 192, "rate": 48000, "mode": 0, "copyright": 0, "original": 1, "emphasis": 0}
        self.assertEqual(header(), plain)
        self.assertEqual(header(channels=1), {**plain, "kbps": 96, "mode": 3})
        self.assertEqual(header(rate=44100), {**plain, "rate": 44100})
        self.assertEqual(header(rate=22050), {**plain, "rate": 32000})
        self.assertEqual(header(rate=96000), {**plain, "rate": 48000})
        self.assertEqual(header("-b", "384"), {**plain, "kbps": 384})
        self.assertEqual(header("-r", "32000"), {**plain, "rate": 32000})
        self.assertEqual(header("--channels", "1"), {**plain, "mode": 3, "kbps": 96})
        self.assertEqual(header("--no-crc"), {**plain, "crc": False})
        self.assertEqual(header("--emphasis", "50/15"), {**plain, "emphasis": 1})
        self.assertEqual(header("--emphasis", "j17"), {**plain, "emphasis": 3})
        self.assertEqual(header("--copyright", "--copy"), {**plain, "copyright": 1, "original": 0})
        self.assertEqual(header("--original"), plain)

    def test_the_same_samples_give_the_same_stream_whatever_holds_them(self):
        given = pcm(music(20000, 2))
        stream = self.encoded(wav(48000, 2, given))
        swapped = array.array("h", given)
        swapped.byteswap()
        self.assertEqual(self.encoded(given, "--raw", "s16le,48000,2"), stream)
        self.assertEqual(self.encoded(swapped.tobytes(), "--raw", "s16be,48000,2"), stream)
        deep = b"".join(b"\0" + given[i : i + 2] for i in range(0, len(given), 2))
        self.assertEqual(self.encoded(deep, "--raw", "s24le,48000,2"), stream)
        self.assertEqual(self.encoded(wav(48000, 2, deep, bits=24)), stream)
        floating = array.array("f", (s / 32768 for s in array.array("h", given))).tobytes()
        self.assertEqual(self.encoded(wav(48000, 2, floating, bits=32, tag=3)), stream)
        aiff = b"AIFFCOMM" + struct.pack(">IhIh", 18, 2, 20000, 16) + b"\x40\x0e\xbb\x80" + bytes(6)
        aiff += b"SSND" + struct.pack(">III", len(given) + 8, 0, 0) + swapped.tobytes()
        self.assertEqual(self.encoded(b"FORM" + struct.pack(">I", len(aiff)) + aiff), stream)
        self.assertEqual(self.good("encode", "-", input=wav(48000, 2, given)).out, stream)
        self.assertEqual(self.good("encode", "-", "-o", "-", "--raw", "s16le,48000,2", input=given).out, stream)

    def test_one_channel_is_spread_and_two_are_averaged(self):
        mono = music(5000, 1)
        spread = [s for s in mono for _ in range(2)]
        self.assertEqual(
            self.encoded(wav(48000, 1, pcm(mono)), "--channels", "2"), self.encoded(wav(48000, 2, pcm(spread)))
        )
        self.assertEqual(
            self.encoded(wav(48000, 2, pcm(spread)), "--channels", "1"), self.encoded(wav(48000, 1, pcm(mono)))
        )

    def test_through_pipes_to_the_other_end(self):
        given = music(30000, 2)
        self.put("x.wav", wav(48000, 2, pcm(given)))
        encode = self.start("encode", "x.wav", "-o", "-")
        self.good("decode", "-", "-o", "y.wav", stdin=encode.stdout)
        encode.stdout.close()
        encode.stderr.close()
        self.assertEqual(encode.wait(), 0)
        self.assertGreater(snr(given, samples_of(self.get("y.wav")), 2), 20)

    def test_lying_headers_are_read_to_the_real_end_and_named_once(self):
        given = pcm(music(10000, 2))
        honest = wav(48000, 2, given)
        stream = self.encoded(honest)
        for length in (0, 0x7FFFFFFF, 0xFFFFFFFF):
            with self.subTest(length):
                lying = honest[:4] + struct.pack("<I", length) + honest[8:40] + struct.pack("<I", length) + honest[44:]
                for arguments, options in ((["x.wav"], {}), (["-"], {"input": lying})):
                    self.put("x.wav", lying)
                    result = self.qav("encode", "-f", "-o", "l.mp2", *arguments, **options)
                    self.assertEqual(result.status, 0)
                    self.assertEqual(len(result.lines), 1, result.err)
                    self.assertIn("its header gives no length; read to the real end, 40000 bytes", result.err)
                    self.assertEqual(self.get("l.mp2"), stream)
                    self.assertEqual(self.qav("encode", "-f", "-q", "-o", "l.mp2", *arguments, **options).err, "")

    def test_a_cut_input_is_encoded_and_named(self):
        self.put("x.wav", wav(48000, 2, pcm(music(10000, 2)))[:-2001])
        result = self.qav("encode", "x.wav")
        self.assertEqual(result.status, 3)
        self.assertIn("is cut off: 40000 bytes of samples are promised, 37999 are there", result.lines[0])
        self.assertGreater(len(self.get("x.mp2")), 4000)

    def test_what_is_no_number_becomes_silence_and_is_counted(self):
        values = array.array("f", [0.25, math.nan, math.inf, -math.inf] + [0.0] * 2000).tobytes()
        self.put("x.wav", wav(48000, 1, values, bits=32, tag=3))
        result = self.qav("encode", "x.wav")
        self.assertEqual(result.status, 3)
        self.assertEqual(len(result.lines), 1)
        self.assertIn("3 samples were no number (infinite or NaN) and became silence", result.err)

    def test_extreme_inputs_decode(self):
        full_scale = [32767 if i // 24 % 2 else -32768 for i in range(20000)]
        for given in ([0] * 20000, full_scale):
            stream = self.encoded(wav(48000, 2, pcm(given)))
            self.assertEqual(len(self.decoded(stream)), len(frames_of(stream)) * FRAME * 2)

    def test_several_files_by_any_number_of_jobs(self):
        for i in range(6):
            self.put("%d.wav" % i, wav(44100, 1 + i % 2, pcm(music(2000 * i + 500, 1 + i % 2, seed=i))))
        names = ["%d.wav" % i for i in range(6)]
        self.good("encode", *names, "-o", "one/", "-j", "1")
        self.good("encode", *names, "-o", "many/", "-j", "5")
        for i in range(6):
            self.assertEqual(self.get("one/%d.mp2" % i), self.get("many/%d.mp2" % i))

    def test_json_describes_the_conversion(self):
        self.put("x.wav", wav(96000, 2, pcm(music(96000, 2))))
        one = json.loads(self.good("encode", "--json", "x.wav", "-b", "256").out)
        self.assertEqual(one["file"], "x.wav")
        self.assertEqual(one["output"], "x.mp2")
        self.assertEqual(one["status"], 0)
        self.assertEqual(one["input"]["freqHz"], 96000)
        self.assertEqual(one["input"]["sampleFrames"], 96000)
        self.assertEqual(one["resampler"], "soxr")
        self.assertTrue(one["dithered"])
        stream = self.get("x.mp2")
        self.assertEqual(
            one["stream"],
            {
                "layer": 2,
                "freqHz": 48000,
                "channels": 2,
                "kbps": 256,
                "checkWords": True,
                "frames": len(frames_of(stream)),
                "bytes": len(stream),
                "sampleFrames": 48000,
            },
        )
        plain = json.loads(self.good("encode", "-f", "--json", "x.wav", "--resampler", "linear").out)
        self.assertEqual(plain["resampler"], "linear")
        self.assertFalse(plain["dithered"])


class Refusals(EncodeTest):
    def test_illegal_requests_are_refused_before_anything_is_read(self):
        for arguments, text in (
            (["-b", "40"], "choose 32, 48, 56, 64"),
            (["-b", "32", "--channels", "2"], "choose 64, 96, 112"),
            (["-b", "224", "--channels", "1"], "choose 32, 48"),
            (["-r", "22050"], "choose 32000, 44100, 48000 Hz"),
            (["--for", "vcd", "-b", "192"], "choose 224 kbit/s"),
            (["--for", "vcd", "--channels", "1"], "choose --channels 2"),
            (["--for", "dvd", "-r", "44100"], "choose 48000 Hz"),
            (["--for", "dvb", "--no-crc"], "leave --no-crc out"),
            (["--for", "contribution", "-b", "128"], "ITU-R BS.1115"),
            (["--for", "cassette"], "--for"),
            (["--channels", "3"], "--channels"),
            (["--emphasis", "some"], "--emphasis"),
            (["--original", "--copy"], "--original"),
            (["--gain", "3", "--normalize", "-23"], "give one of them"),
            (["--raw", "s12le,44100,2"], "formats: s8 u8 s16le"),
            (["--raw", "s16le,44100,2", "--lowpass", "3"], "leave --lowpass out"),
            (["--lowpass", "8"], "--lowpass"),
        ):
            with self.subTest(arguments):
                self.refused(1, text, "encode", "no such file.wav", *arguments)
        self.refused(1, "standard input can be read once", "encode", "-", "--normalize", "-23")
        self.assertEqual(self.names(), [])

    def test_what_only_the_input_shows_to_be_impossible(self):
        self.put("mono.wav", wav(48000, 1, pcm(music(3000, 1))))
        self.put("six.wav", wav(48000, 6, pcm([0] * 6000)))
        self.put("empty.wav", wav(48000, 2, b""))
        self.put("text.wav", b"This is no sound at all, but some words in a file.\n")
        self.put("zero", b"")
        self.put("slow.wav", wav(100, 1, pcm([0] * 600)))
        self.refused(2, "for one channel; choose 32, 48", "encode", "mono.wav", "-b", "256")
        self.refused(2, "--channels 2", "encode", "mono.wav", "--for", "vcd")
        self.refused(2, "has 6 channels, Layer II takes 1 or 2; mix it down", "encode", "six.wav")
        self.refused(2, "holds no samples", "encode", "empty.wav")
        self.refused(2, "is no sound file that is known", "encode", "text.wav")
        self.refused(2, "is empty", "encode", "zero")
        self.refused(2, "No such file", "encode", "none.wav")
        self.refused(2, "is a directory", "encode", ".")
        self.refused(2, "sampling rate of 100 Hz", "encode", "slow.wav")
        self.refused(2, "samples of 16 bits, --lowpass is for 8-bit", "encode", "mono.wav", "--lowpass", "2")
        self.assertEqual([name for name in self.names() if name.endswith(b"mp2")], [])

    def test_mpeg_audio_is_not_decoded_behind_our_back(self):
        stream = self.encoded(wav(48000, 2, pcm(music(9000, 2))))
        self.put("a.mp2", stream)
        self.refused(2, "decode it with 'qav decode' first", "encode", "a.mp2", "-o", "b.mp2")
        self.refused(2, "decode it with 'qav decode' first", "encode", "-", input=stream)
        wrapped = wav(48000, 2, stream, tag=0x50)
        self.put("w.wav", wrapped)
        self.refused(2, "decode it with 'qav decode' first", "encode", "w.wav")

    def test_several_inputs_the_worst_status_and_the_others_done(self):
        self.put("good.wav", wav(48000, 2, pcm(music(3000, 2))))
        self.put("cut.wav", wav(48000, 2, pcm(music(3000, 2)))[:-100])
        self.assertEqual(self.qav("encode", "cut.wav", "good.wav").status, 3)
        self.assertEqual(self.qav("encode", "-f", "cut.wav", "none.wav", "good.wav").status, 2)
        self.assertEqual(self.names(), [b"cut.mp2", b"cut.wav", b"good.mp2", b"good.wav"])

    def test_a_full_disk_leaves_nothing(self):
        self.put("x.wav", wav(48000, 2, pcm(music(48000, 2))))
        self.refused(2, "File too large", "encode", "x.wav", preexec_fn=limit_file_size(10000))
        self.assertEqual(self.names(), [b"x.wav"])

    def test_outputs_that_would_mix_on_standard_output(self):
        self.put("x.wav", wav(48000, 2, pcm(music(3000, 2))))
        self.refused(1, "--json", "encode", "x.wav", "-o", "-", "--json")
        self.refused(1, "--json", "resample", "x.wav", "-r", "44100", "-o", "-", "--json")


class Levels(EncodeTest):
    def tone(self, amplitude, seconds=5, rate=48000):
        return [amplitude * math.sin(2 * math.pi * 997 * i / rate) for i in range(rate * seconds)]

    def floats(self, values):
        return wav(48000, 1, array.array("f", values).tobytes(), bits=32, tag=3)

    def test_dither_where_bits_are_lost(self):
        quiet = self.floats([v / 32768 for v in self.tone(0.4, 1)])
        # Less than half a step: gone without dither, kept with it.
        self.put("x.wav", quiet)
        self.good("resample", "x.wav", "-r", "48000", "--no-dither", "-o", "n.wav")
        self.good("resample", "x.wav", "-r", "48000", "-o", "d.wav")
        self.assertEqual(set(samples_of(self.get("n.wav"))), {0})
        dithered = samples_of(self.get("d.wav"))
        kept = sum(s * math.sin(2 * math.pi * 997 * i / 48000) for i, s in enumerate(dithered)) * 2 / len(dithered)
        self.assertAlmostEqual(kept, 0.4, delta=0.03)
        self.good("resample", "-f", "x.wav", "-r", "48000", "-o", "e.wav")
        self.assertEqual(self.get("d.wav"), self.get("e.wav"))

    def test_clipped_samples_are_counted(self):
        self.put("x.wav", self.floats([0.5, 1.5, -1.5, 0.99] + [0.0] * 3000))
        result = self.qav("encode", "-q", "x.wav")
        self.assertEqual(result.status, 0)
        self.assertIn("2 samples were clipped; lower the level with --gain", result.err)
        one = json.loads(self.qav("encode", "-f", "--json", "x.wav").out)
        self.assertEqual(one["clippedSamples"], 2)
        self.assertEqual(self.good("encode", "-f", "x.wav", "--gain", "-6").err, "")

    def test_gain(self):
        self.put("x.wav", wav(48000, 1, pcm(range(-1000, 1000))))
        self.good("resample", "x.wav", "-r", "48000", "--gain", "20", "--no-dither", "-o", "y.wav")
        self.assertEqual(list(samples_of(self.get("y.wav"))), list(range(-10000, 10000, 10)))

    def test_loudness_is_measured_and_changes_nothing(self):
        # By definition: 997 Hz at -20 dBFS in one channel is -23 LUFS.
        self.put("x.wav", self.floats(self.tone(0.1)))
        self.good("encode", "x.wav", "-o", "plain.mp2")
        one = json.loads(self.good("encode", "--json", "--loudness", "x.wav", "-o", "measured.mp2").out)
        self.assertAlmostEqual(one["loudness"]["integratedLufs"], -23.0, delta=0.11)
        self.assertAlmostEqual(one["loudness"]["truePeakDbtp"], -20.0, delta=0.11)
        self.assertAlmostEqual(one["loudness"]["rangeLu"], 0.0, delta=0.11)
        self.assertEqual(self.get("plain.mp2"), self.get("measured.mp2"))
        text = self.good("encode", "-f", "--loudness", "x.wav").out.decode()
        self.assertRegex(text, r"loudness -23\.0 LUFS, range 0\.0 LU, true peak -20\.0 dBTP")

    def test_normalize(self):
        self.put("x.wav", self.floats(self.tone(0.02)))
        one = json.loads(self.good("encode", "--json", "--loudness", "--normalize", "-16", "x.wav").out)
        self.assertAlmostEqual(one["loudness"]["integratedLufs"], -16.0, delta=0.2)
        self.assertAlmostEqual(one["gainDb"], 20.98, delta=0.2)

    def test_verify_tells_what_a_decoder_hears(self):
        for channels, rate in ((1, 44100), (2, 48000)):
            given = music(40000, channels, rate)
            self.put("x.wav", wav(rate, channels, pcm(given)))
            one = json.loads(self.good("encode", "-f", "--json", "--verify", "-b", "128", "x.wav").out)
            decoded = self.decoded(self.get("x.mp2"))
            self.assertAlmostEqual(one["verify"]["snrDb"], snr(given, decoded, channels), delta=0.02)
            for c in range(channels):
                own = snr(given[c::channels], decoded[c::channels], 1)
                self.assertAlmostEqual(one["verify"]["channelSnrDb"][c], own, delta=0.02)
            self.assertEqual(len(one["verify"]["noiseToMaskDb"]), 32)
        text = self.good("encode", "-f", "--verify", "x.wav").out.decode()
        self.assertRegex(text, r"^x.wav: signal to noise [\d.]+ dB; noise to mask by subband")

    def test_eight_bit_samples_through_the_low_pass(self):
        noise = random.Random(3)
        given = bytes(noise.randrange(64, 192) for _ in range(40000))
        self.put("x.u8", given)
        self.good("resample", "x.u8", "--raw", "u8,32000,1", "-r", "32000", "-o", "plain.wav")
        self.good("resample", "x.u8", "--raw", "u8,32000,1", "-r", "32000", "--lowpass", "5", "-o", "soft.wav")
        plain, soft = samples_of(self.get("plain.wav")), samples_of(self.get("soft.wav"))
        self.assertEqual(list(plain), [(b - 128) * 256 for b in given])
        self.assertEqual(len(soft), len(plain))

        def filtered(i):
            total = 0.0
            for n in range(-15, 16):
                weight = 0.3 if n == 0 else math.sin(0.3 * math.pi * n) / (math.pi * n) * (0.54 + 0.46 * math.cos(math.pi * n / 15))
                total += plain[i + n] * weight
            return total

        for i in range(15, 39000, 371):
            self.assertAlmostEqual(soft[i], filtered(i), delta=1.5)


class Resample(EncodeTest):
    def test_length_name_and_format(self):
        self.put("x.wav", wav(44100, 2, pcm(music(44100, 2, 44100))))
        for rate in (8000, 32000, 48000, 96000):
            self.good("resample", "x.wav", "-r", str(rate))
            chunks = wav_chunks(self.get("x.%d.wav" % rate))
            form = dict(chunks)[b"fmt "]
            self.assertEqual(struct.unpack("<HHIIHH", form), (1, 2, rate, rate * 4, 4, 16))
            self.assertEqual(len(samples_of(self.get("x.%d.wav" % rate))), rate * 2)

    def test_a_tone_stays_where_and_what_it_is(self):
        tone = [int(round(16000 * math.sin(2 * math.pi * 1000 * i / 44100))) for i in range(44100)]
        self.put("x.wav", wav(44100, 1, pcm(tone)))
        noise = {}
        for kind in ("soxr", "linear"):
            self.good("resample", "-f", "x.wav", "-r", "48000", "--resampler", kind, "--no-dither", "-o", "y.wav")
            out = samples_of(self.get("y.wav"))
            ideal = [16000 * math.sin(2 * math.pi * 1000 * i / 48000) for i in range(48000)]
            middle = range(4000, 44000)
            power = sum((out[i] - ideal[i]) ** 2 for i in middle) / len(middle)
            noise[kind] = 10 * math.log10(16000**2 / 2 / power)
        self.assertGreater(noise["soxr"], 88)  # what 16 bits allow at this level
        self.assertGreater(noise["linear"], 45)
        self.assertLess(noise["linear"], 75)

    def test_equal_rates_copy(self):
        given = pcm(music(5000, 2))
        self.put("x.wav", wav(48000, 2, given))
        self.good("resample", "x.wav", "-r", "48000", "-o", "y.wav")
        self.assertEqual(samples_of(self.get("y.wav")).tobytes(), given)

    def test_to_a_pipe(self):
        given = pcm(music(5000, 2))
        out = self.good("resample", "-", "-r", "48000", input=wav(48000, 2, given)).out
        self.assertEqual(struct.unpack_from("<I", out, 40)[0], 0xFFFFFFFF)
        self.assertEqual(out[44:], given)

    def test_the_rate_must_be_named_and_possible(self):
        self.put("x.wav", wav(48000, 2, pcm(music(5000, 2))))
        for arguments in ([], ["-r", "0"], ["-r", "999"], ["-r", "1000000"], ["-r", "fast"]):
            self.refused(1, "--rate", "resample", "x.wav", *arguments)


class Big(EncodeTest):
    def test_memory_stays_small(self):
        seconds = 60 if "QAV_SANITIZED" in os.environ else 1200
        with open(self.path("x.raw"), "wb") as f:
            f.truncate(seconds * 48000 * 4)
        for arguments in (["encode"], ["encode", "-r", "44100"], ["resample", "-r", "32000"]):
            process = self.start(*arguments, "x.raw", "--raw", "s16le,48000,2", "-j", "1", "-o", os.devnull, "-f")
            _, status, usage = os.wait4(process.pid, 0)
            process.returncode = status
            process.stdout.close()
            process.stderr.close()
            self.assertEqual(status, 0)
            if "QAV_SANITIZED" not in os.environ:
                self.assertLess(usage.ru_maxrss, 16 * 1024)

    @unittest.skipUnless("QAV_TEST_FULL" in os.environ, "takes long")
    def test_a_file_beyond_four_gigabytes(self):
        # Few samples in many bytes: double precision at the highest rate.
        data_bytes = (4 << 30) + 64000
        head = b"RF64\xff\xff\xff\xffWAVEds64" + struct.pack("<IQQQI", 28, data_bytes + 72, data_bytes, 0, 0)
        head += b"fmt " + struct.pack("<IHHIIHH", 16, 3, 2, 768000, 768000 * 16, 16, 64)
        head += b"data\xff\xff\xff\xff"
        with open(self.path("x.wav"), "wb") as f:
            f.write(head)
            f.truncate(len(head) + data_bytes)
        one = json.loads(self.good("encode", "--json", "x.wav", "--resampler", "linear", "--no-dither").out)
        self.assertEqual(one["input"]["sampleFrames"], data_bytes // 16)
        self.assertEqual(one["input"]["container"], "RF64")
        self.assertEqual(one["stream"]["sampleFrames"], round(data_bytes / 16 / 16))


if __name__ == "__main__":
    unittest.main()
