"""qav inspect, end to end: what it says of streams whose frames are taken apart here once more."""

import base64
import csv
import html.parser
import io
import itertools
import json
import math
import os
import re
import struct
import sys
import unittest

from cli_support import CliTest, data, frames_of

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "report"))
import layer2  # noqa: E402

STEREO = data("l2_stereo_44k_192_crc.mp2")
JOINT = data("l2_joint_48k_64_crc.mp2")
DUAL = data("l2_dual_48k_256.mp2")
LSF = data("l2_mono_lsf_22k_56.mp2")
STREAMS = {"stereo": STEREO, "joint": JOINT, "dual": DUAL, "lsf": LSF}
# One frame of 32 kbit/s, one channel, 48000 Hz: nothing is coded.
TINY = b"\xff\xfd\x14\xc0" + bytes(92)


def nested(array, key=()):
    """The element of an array object at the indexes of `key`."""
    at = 0
    for index, size in zip(key, array["shape"]):
        at = at * size + index
    return array["data"][at]


class InspectTest(CliTest):
    def inspect(self, stream, *arguments, status=0):
        self.put("a.mp2", stream)
        result = self.qav("inspect", "--json", "a.mp2", *arguments)
        self.assertEqual((result.status, result.err), (status, ""))
        report = json.loads(result.out)
        self.assertEqual((report["format"], report["version"]), ("qav-inspect", 1))
        return report


class Data(InspectTest):
    def test_every_field_of_every_frame(self):
        for name, stream in STREAMS.items():
            with self.subTest(name):
                report = self.inspect(stream)
                details, frames = report["details"], list(layer2.frames(stream))
                self.assertEqual((details["every"], details["count"]), (1, len(frames)))
                self.assertGreater(len(frames), 10)
                for i, frame in enumerate(frames):
                    bits = [nested(details["bits"], (i, part)) for part in range(7)]
                    self.assertEqual(bits, frame.bits)
                    self.assertEqual(details["offset"][i], frame.offset)
                    self.assertEqual(bytes.fromhex(details["data"][i]), stream[frame.offset :][: frame.bytes])
                    self.assertEqual(details["bound"]["data"][i], frame.bound)
                    table = report["tables"][details["table"]["data"][i]]
                    for ch, sb in itertools.product(range(frame.channels), range(frame.sblimit)):
                        index = nested(details["allocation"], (i, ch, sb))
                        self.assertEqual(index, frame.allocation[ch][sb])
                        self.assertEqual(table["levels"][sb][index], frame.levels[ch][sb])
                        self.assertEqual(nested(details["selection"], (i, ch, sb)), frame.selection.get((sb, ch)))
                        self.assertEqual(
                            [nested(details["scaleFactor"], (i, ch, third, sb)) for third in range(3)],
                            frame.scaleFactor.get((sb, ch), [None] * 3),
                        )

    def test_lanes_and_maps_are_those_of_the_frames(self):
        for name, stream in STREAMS.items():
            with self.subTest(name):
                report = self.inspect(stream)
                frames = list(layer2.frames(stream))
                columns, lanes, maps = report["columns"], report["lanes"], report["maps"]
                self.assertEqual((columns["count"], columns["framesPerColumn"]), (len(frames), 1))
                self.assertEqual((columns["channels"], columns["subbands"]), (frames[0].channels, frames[0].sblimit))
                self.assertEqual(lanes["frames"]["data"], [1] * len(frames))
                self.assertEqual(lanes["lost"]["data"], [0] * len(frames))
                for i, frame in enumerate(frames):
                    self.assertEqual(lanes["bitsHeader"]["data"][i], sum(frame.bits[:2]))
                    names = ("bitsAllocation", "bitsSelection", "bitsScaleFactors", "bitsSamples", "bitsUnused")
                    self.assertEqual([lanes[lane]["data"][i] for lane in names], frame.bits[2:])
                    kinds = list(frame.selection.values())
                    self.assertEqual(
                        [nested(lanes["selection"], (kind, i)) for kind in range(4)], [kinds.count(k) for k in range(4)]
                    )
                    self.assertEqual(lanes["bound"]["data"][i], frame.bound if frame.mode == 1 else None)
                    spent = 0
                    for ch, sb in itertools.product(range(frame.channels), range(frame.sblimit)):
                        factors = frame.scaleFactor.get((sb, ch))
                        level = nested(maps["scale"], (ch, i, sb))
                        if factors:
                            self.assertAlmostEqual(level, 6.0206 * (1 - min(factors) / 3), delta=0.51)
                        else:
                            self.assertIsNone(level)
                        spent += nested(maps["bits"], (ch, i, sb))
                    # The map counts in threes.
                    self.assertAlmostEqual(spent, sum(frame.bits[2:6]), delta=1.5 * frame.channels * frame.sblimit)

    def test_distributions_count_every_frame(self):
        report = self.inspect(STEREO)
        frames = list(layer2.frames(STEREO))
        spread = report["distributions"]
        self.assertEqual(spread["kbps"], [[192, len(frames)]])
        self.assertEqual(spread["modes"], [[0, len(frames)]])
        for ch, sb in itertools.product(range(2), range(frames[0].sblimit)):
            for index in range(16):
                self.assertEqual(
                    nested(spread["allocation"], (ch, sb, index)), sum(f.allocation[ch][sb] == index for f in frames)
                )
            for index in range(64):
                self.assertEqual(
                    nested(spread["scaleFactors"], (ch, sb, index)),
                    sum(f.scaleFactor.get((sb, ch), []).count(index) for f in frames),
                )
        self.assertAlmostEqual(sum(spread["bits"]["data"]) * len(frames), sum(sum(f.bits[2:6]) for f in frames), 0)

    def test_the_head(self):
        head = self.inspect(STEREO)["head"]
        self.assertEqual(head["formatText"], "MPEG-1 Layer II, 44100 Hz, 2 channels")
        self.assertEqual((head["bytes"], head["bitrateText"], head["checkText"]), (len(STEREO), "192 kbit/s", "in every frame"))
        frames = list(layer2.frames(STEREO))
        self.assertEqual(head["padding"]["padded"], sum(f.padding for f in frames))
        self.assertEqual(head["unused"]["bits"], sum(f.bits[6] for f in frames))
        self.assertEqual(self.inspect(TINY * 9)["head"]["padding"]["pattern"], "none, and none is needed")

    def test_levels_are_those_of_the_decoded_samples(self):
        report = self.inspect(STEREO)
        self.qav("decode", "--raw", "-f", "a.mp2")
        pcm = struct.unpack("<%dh" % (len(self.get("a.s16")) // 2), self.get("a.s16"))
        for i, ch in itertools.product(range(30), range(2)):
            samples = pcm[i * 2304 + ch : (i + 1) * 2304 : 2]
            peak = 20 * math.log10(max(map(abs, samples)) / 32768)
            self.assertAlmostEqual(nested(report["wave"]["peak"], (ch, i)), peak, delta=0.26)
            energy = sum(x * x for x in samples) / len(samples)
            self.assertAlmostEqual(nested(report["wave"]["rms"], (ch, i)), 10 * math.log10(energy / 2**30), delta=0.26)
            for point in range(8):
                part = samples[point * 144 : (point + 1) * 144]
                self.assertAlmostEqual(nested(report["wave"]["max"], (ch, i * 8 + point)), max(part) / 32768, delta=0.005)
                self.assertAlmostEqual(nested(report["wave"]["min"], (ch, i * 8 + point)), min(part) / 32768, delta=0.005)

    def test_silence_has_no_loudness_and_no_noise(self):
        report = self.inspect(TINY * 30)
        self.assertIsNone(report["head"]["loudness"]["integratedLufs"])
        self.assertEqual(report["head"]["clipped"], {"samples": 0, "frames": 0})
        self.assertEqual(set(report["lanes"]["nmrMax"]["data"]), {None})

    def test_the_model_is_an_estimate_of_layer_2_of_mpeg_1(self):
        report = self.inspect(STEREO)
        self.assertEqual(report["model"]["kind"], "estimate")
        frames = list(layer2.frames(STEREO))
        snr = {3: 7, 5: 11, 7: 16, 9: 20.84, 15: 25.28, 31: 31.59, 63: 37.75}
        compared = 0
        for i, (ch, sb) in itertools.product(range(30), itertools.product(range(2), range(frames[0].sblimit))):
            smr = nested(report["details"]["smr"], (i, ch, sb))
            nmr = nested(report["details"]["nmr"], (i, ch, sb))
            levels = frames[i].levels[ch][sb]
            if levels == 0:
                self.assertIsNone(nmr)
            elif levels in snr and smr is not None and abs(nmr) < 60:
                self.assertAlmostEqual(nmr, smr - snr[levels], delta=0.8)
                compared += 1
        self.assertGreater(compared, 500)
        for stream in (LSF, data("l1_stereo_32k_320.mp1")):
            report = self.inspect(stream)
            self.assertIsNone(report["model"])
            self.assertIsNone(report["maps"]["nmr"])

    def test_layer_1(self):
        report = self.inspect(data("l1_joint_44k_192_crc.mp1"))
        self.assertEqual(report["tables"][0]["name"], "Layer I")
        self.assertEqual(report["columns"]["subbands"], 32)
        self.assertIsNone(report["lanes"]["selection"])
        lanes = [report["lanes"][lane]["data"] for lane in report["lanes"] if lane.startswith("bits")]
        self.assertEqual([sum(parts) for parts in zip(*lanes)], [8 * b for b in report["details"]["bytes"]["data"]])


class Damage(InspectTest):
    def test_each_fault_stands_where_it_was_planted(self):
        frames = frames_of(STEREO)
        ends = [0, *itertools.accumulate(map(len, frames))]
        wrong = bytearray(STEREO)
        wrong[ends[7] + 6] ^= 0x10  # allocation of frame 7
        wrong[ends[12] : ends[14]] = bytes(ends[14] - ends[12])
        report = self.inspect(bytes(wrong[:-10]), status=3)
        self.assertEqual(
            [(f["kind"], f["frame"], f["offset"]) for f in report["findings"]],
            [("check word", 7, ends[7]), ("lost sync", 12, ends[12]), ("truncated", 29, ends[29])],
        )
        self.assertEqual(report["findings"][1]["lostFrames"], 2)
        for finding in report["findings"]:
            start = finding["offset"] - 16
            self.assertEqual(finding["hex"]["offset"], start)
            self.assertEqual(bytes.fromhex(finding["hex"]["data"]), bytes(wrong[:-10])[start : start + 64])
        lost = [i for i, n in enumerate(report["lanes"]["lost"]["data"]) if n]
        self.assertEqual(lost, [7, 12, 13, 29])
        self.assertEqual(report["lanes"]["check"]["data"][6:9], [1, 3, 1])
        self.assertEqual(report["details"]["status"]["data"][7], 1)
        self.assertNotEqual(report["details"]["checkGiven"]["data"][7], report["details"]["checkComputed"]["data"][7])
        self.assertEqual(report["details"]["frame"]["data"][11:14], [11, 14, 15])
        self.assertIn("Damaged: 3 findings, 3 frames lost", report["head"]["verdictText"])
        for series in ("bitsSamples", "kbps"):
            self.assertEqual(report["lanes"][series]["data"][12], 0)

    def test_joined_streams(self):
        report = self.inspect(STEREO + LSF, status=3)
        self.assertEqual(report["findings"][0]["kind"], "format change")
        self.assertEqual([t["subbands"] for t in report["tables"]], [30, 30])
        first = 30 * 1152 / 44100
        self.assertAlmostEqual(report["columns"]["seconds"]["data"][31], first + 1152 / 22050, 5)
        self.assertIsNotNone(nested(report["details"]["smr"], (29, 0, 0)))
        self.assertIsNone(nested(report["details"]["smr"], (31, 0, 0)))
        # The second part has no second channel.
        for series in ("rms", "peak"):
            self.assertIsNotNone(nested(report["wave"][series], (0, 31)))
            self.assertIsNotNone(nested(report["wave"][series], (1, 29)))
            self.assertIsNone(nested(report["wave"][series], (1, 31)))

    def test_threads_change_nothing(self):
        damaged = bytearray(STEREO * 4)
        damaged[9000:9005] = b"\xff\xff\xff\xff\xff"
        del damaged[30000:30100]
        for stream in (STEREO, bytes(damaged), STEREO + LSF + JOINT + STEREO[:5000], STEREO[:3000] + b"TAG" * 700 + DUAL):
            self.put("a.mp2", stream)
            one, two = (self.qav("inspect", "--json", "-j", threads, "a.mp2").out for threads in ("1", "2"))
            self.assertEqual(one, two)

    def test_a_pipe_has_no_bytes_to_go_back_to(self):
        result = self.qav("inspect", "--json", "-", input=STEREO + b"\0")
        self.assertEqual(result.status, 3)
        report = json.loads(result.out)
        self.assertIsNone(report["findings"][0]["hex"])
        self.assertIsNone(report["head"]["bytes"])


class Long(InspectTest):
    def test_seconds_share_columns_and_a_part_has_its_own(self):
        count = 12345
        stream = TINY * count
        report = self.inspect(stream)
        columns = report["columns"]
        self.assertEqual((columns["framesPerColumn"], columns["unit"]), (42, "second"))
        self.assertEqual(columns["count"], math.ceil(count / 42))
        self.assertEqual(sum(report["lanes"]["frames"]["data"]), count)
        self.assertEqual(report["lanes"]["frames"]["data"][0], 42)
        self.assertEqual(report["distributions"]["kbps"], [[32, count]])
        self.assertEqual(report["details"]["every"], 4)
        self.assertEqual(report["details"]["frame"]["data"][:3], [0, 4, 8])
        part = self.inspect(stream, "--from", "1:00", "--to", "62.4")
        self.assertEqual((part["columns"]["framesPerColumn"], part["details"]["every"]), (1, 1))
        self.assertEqual((part["range"]["firstFrame"], part["range"]["endFrame"]), (2500, 2600))
        self.assertEqual(part["stream"]["frames"], count)
        self.assertFalse(part["range"]["whole"])

    def test_frames_near_findings_are_always_there(self):
        stream = bytearray(TINY * 9000)
        stream[96 * 4321 : 96 * 4321 + 4] = bytes(4)
        report = self.inspect(bytes(stream), status=3)
        self.assertEqual(report["details"]["every"], 4)
        shown = set(report["details"]["frame"]["data"])
        self.assertLessEqual({4320, 4322}, shown)
        self.assertNotIn(4326, shown)

    def test_a_part_without_frames(self):
        self.put("a.mp2", STEREO)
        self.refused(2, "holds no frame between --from and --to", "inspect", "--from", "2", "a.mp2")
        self.assertEqual(self.names(), [b"a.mp2"])


class Table(InspectTest):
    def test_a_line_for_each_frame(self):
        name = 'an "odd", name.mp2'
        self.put(name, STEREO)
        result = self.good("inspect", "--csv", name)
        rows = list(csv.DictReader(io.StringIO(result.out.decode())))
        frames = list(layer2.frames(STEREO))
        self.assertEqual(len(rows), len(frames))
        parts = ("header", "check", "allocation", "selection", "scaleFactor", "sample", "unused")
        for row, frame in zip(rows, frames):
            self.assertEqual(row["file"], name)
            self.assertEqual([int(row[part + "Bits"]) for part in parts], frame.bits)
            self.assertEqual(int(row["offset"]), frame.offset)
            self.assertEqual((row["status"], row["mode"], row["checkGiven"]), ("good", "stereo", row["checkComputed"]))
            self.assertIsNotNone(float(row["smrMaxDb"]))
        self.assertEqual(self.names(), [os.fsencode(name)])

    def test_a_refused_frame_has_its_line(self):
        wrong = bytearray(STEREO)
        wrong[6] ^= 0x10
        self.put("a.mp2", wrong)
        result = self.qav("inspect", "--csv", "a.mp2", "--to", "0.1")
        self.assertEqual(result.status, 3)
        rows = list(csv.DictReader(io.StringIO(result.out.decode())))
        self.assertEqual([row["status"] for row in rows], ["check word", "good", "good", "good"])
        self.assertEqual(rows[0]["peakDbfs"], "")


class Against(InspectTest):
    def against(self, a, b, status=0):
        self.put("b.mp2", b)
        return self.inspect(a, "--against", "b.mp2", status=status)["against"]

    def test_a_stream_is_like_itself(self):
        against = self.against(STEREO, STEREO)
        self.assertEqual((against["framesCompared"], against["framesDiffering"]), (30, 0))
        self.assertIsNone(against["first"])
        self.assertEqual(against["lanes"]["differs"]["data"], [0] * 30)
        self.assertEqual(set(against["lanes"]["snr"]["data"]), {None})
        text = self.good("inspect", "a.mp2", "--against", "b.mp2").out.decode()
        self.assertEqual(text, "a.mp2 against b.mp2: 30 frames compared, none differs\n")

    def test_planted_differences(self):
        frames = list(layer2.frames(DUAL))
        other = bytearray(DUAL)
        other[frames[5].offset + 2] ^= 1  # the private bit
        other[frames[9].offset + frames[9].bytes - frames[9].bits[6] // 8 - 20] ^= 0x55  # samples
        against = self.against(DUAL, bytes(other))
        self.assertEqual((against["framesCompared"], against["framesDiffering"]), (len(frames), 2))
        first = against["first"]
        self.assertEqual((first["frame"], first["offsetA"], first["offsetB"]), (5, frames[5].offset, frames[5].offset))
        self.assertEqual(first["fields"], [{"field": "private bit", "a": "0", "b": "1"}])
        at = {lane: [i for i, n in enumerate(values["data"]) if n] for lane, values in against["lanes"].items()}
        self.assertEqual((at["differs"], at["header"], at["samples"]), ([5, 9], [5], [9]))
        self.assertEqual(at["allocation"] + at["selection"] + at["scaleFactors"] + at["unused"] + at["bits"], [])
        self.assertLessEqual({9}, set(at["snr"]))
        self.assertNotIn(5, at["snr"])

    def test_fields_that_cannot_hide(self):
        frames = frames_of(STEREO)
        backwards = b"".join(reversed(frames))
        against = self.against(STEREO, backwards)
        self.assertEqual((against["framesCompared"], against["framesDiffering"]), (30, 30))
        a, *_, b = layer2.frames(STEREO)
        fields = {f["field"]: (f["a"], f["b"]) for f in against["first"]["fields"]}
        for ch, sb in itertools.product(range(2), range(30)):
            name = "allocation, subband %d, channel %d" % (sb, ch)
            self.assertEqual(name in fields, a.levels[ch][sb] != b.levels[ch][sb])
            texts = tuple("%d levels" % f.levels[ch][sb] if f.levels[ch][sb] else "nothing" for f in (a, b))
            self.assertEqual(fields.get(name, texts), texts)

    def test_a_cut_copy_is_found_again(self):
        frames = frames_of(STEREO)
        whole, cut = STEREO, bytearray(b"".join(frames[7:]))
        cut[len(b"".join(frames[7:20])) + 3] ^= 0x04  # the original bit of frame 20
        # A changed bit is damage too where there are check words.
        later = self.against(whole, bytes(cut), status=3)
        names = ("frameShift", "framesCompared", "onlyInA", "onlyInB")
        self.assertEqual([later[name] for name in names], [7, 23, 7, 0])
        first = later["first"]
        self.assertEqual((first["frame"], first["frameB"]), (20, 13))
        self.assertEqual(first["offsetA"] - first["offsetB"], len(b"".join(frames[:7])))
        self.assertEqual([i for i, n in enumerate(later["lanes"]["differs"]["data"]) if n], [20])
        text = self.qav("inspect", "a.mp2", "--against", "b.mp2").out.decode()
        self.assertIn("the second begins 7 frames later; 23 frames compared, 1 differs, 7 missing from the second", text)
        sooner = self.against(bytes(cut), whole, status=3)
        self.assertEqual([sooner[name] for name in names], [-7, 23, 0, 7])
        self.assertEqual((sooner["first"]["frame"], sooner["first"]["frameB"]), (13, 20))
        # A part of it.
        self.put("b.mp2", bytes(cut))
        part = self.inspect(whole, "--against", "b.mp2", "--to", "0.2", status=3)["against"]
        self.assertEqual([part[name] for name in names], [7, 1, 7, 0])

    def test_what_agrees_as_numbered_is_not_shifted(self):
        frames = frames_of(STEREO)
        # The same programme again and again, the other one without its first frames' flags.
        other = bytearray(STEREO * 3)
        for i in range(2):
            other[len(b"".join(frames[:i])) + 3] ^= 0x04
        self.assertEqual(self.against(STEREO * 3, bytes(other), status=3)["frameShift"], 0)
        # Silence is everywhere.
        quiet = self.against(TINY * 20 + JOINT, TINY * 50 + JOINT, status=3)
        self.assertEqual((quiet["frameShift"], quiet["onlyInB"]), (-30, 30))
        self.assertEqual(self.against(TINY * 30, TINY * 40)["frameShift"], 0)

    def test_a_pipe_is_compared_from_its_start(self):
        self.put("b.mp2", b"".join(frames_of(STEREO)[5:]))
        result = self.qav("inspect", "--json", "-", "--against", "b.mp2", input=STEREO)
        self.assertEqual(json.loads(result.out)["against"]["frameShift"], 0)

    def test_two_bitrates_of_one_programme(self):
        pcm = data("enc_stereo_44k_192_crc.s16")
        self.put("x.s16", pcm)
        for kbps in (128, 192):
            self.good("encode", "-b", str(kbps), "--raw", "s16le,44100,2", "x.s16", "-o", "%d.mp2" % kbps)
        against = self.against(self.get("128.mp2"), self.get("192.mp2"))
        self.assertEqual(against["framesDiffering"], against["framesCompared"])
        self.assertEqual(against["first"]["fields"][0], {"field": "bitrate", "a": "128 kbit/s", "b": "192 kbit/s"})
        for bits in against["lanes"]["bits"]["data"]:
            self.assertAlmostEqual(bits, 64000 * 1152 / 44100, delta=8)
        columns = len(against["lanes"]["bits"]["data"])
        spent = sum(against["maps"]["bits"]["data"]) / columns
        self.assertAlmostEqual(spent, 64000 * 1152 / 44100, delta=200)
        self.assertEqual(against["head"]["bitrateText"], "192 kbit/s")

    def test_damage_of_either_counts(self):
        self.assertEqual(self.against(STEREO, STEREO[:-1], status=3)["stream"]["verdict"], "truncated")

    def test_usage(self):
        self.put("a.mp2", STEREO)
        self.refused(1, "compares one input", "inspect", "a.mp2", "a.mp2", "--against", "a.mp2")
        self.refused(2, "--against b.mp2: cannot be opened", "inspect", "a.mp2", "--against", "b.mp2")


class Scripts(html.parser.HTMLParser):
    """The scripts of a page, and everything it asks for from elsewhere."""

    def __init__(self, page):
        super().__init__(convert_charrefs=False)
        self.data, self.foreign, self.inside = "", [], None
        self.feed(page)

    def handle_starttag(self, tag, attributes):
        attributes = dict(attributes)
        self.inside = attributes.get("id") if tag == "script" else None
        self.foreign += [v for k, v in attributes.items() if k in ("src", "href") and not v.startswith("#")]

    def handle_endtag(self, tag):
        self.inside = None

    def handle_data(self, text):
        if self.inside == "data":
            self.data += text


class Explain(InspectTest):
    def explain(self, pcm, *arguments):
        self.put("x.s16", pcm)
        self.good("encode", "--raw", "s16le,44100,2", "x.s16", "--explain", "why.html", *arguments)
        return json.loads(Scripts(self.get("why.html").decode()).data)

    def is_what_inspecting_says(self, report, name):
        """But for the model."""
        self.good("inspect", name, "-o", "inspected.html")
        inspected = json.loads(Scripts(self.get("inspected.html").decode()).data)
        for part in ("stream", "head", "range", "findings", "columns", "wave", "tables"):
            self.assertEqual(report[part], inspected[part], part)
        return inspected

    def test_the_stream_is_the_one_that_is_written(self):
        report = self.explain(data("enc_stereo_44k_192_crc.s16"))
        stream = self.get("x.mp2")
        self.assertEqual(base64.b64decode(report["details"]["data"]), stream)
        self.assertEqual((report["model"]["kind"], report["stream"]["file"]), ("true", "x.mp2"))
        self.good("encode", "--raw", "s16le,44100,2", "x.s16", "-o", "plain.mp2")
        self.assertEqual(self.get("plain.mp2"), stream)
        inspected = self.is_what_inspecting_says(report, "x.mp2")
        for lane, values in inspected["lanes"].items():
            self.assertTrue(lane in ("smrMax", "nmrMax", "nmrOver") or report["lanes"][lane] == values, lane)

    def test_a_wave_file_around_the_stream(self):
        report = self.explain(data("enc_stereo_44k_192_crc.s16"), "--wrap", "-o", "x.wav")
        wave = self.get("x.wav")
        self.assertEqual(report["stream"]["container"], "wav")
        self.assertEqual([chunk["kind"] for chunk in report["head"]["chunks"]], ["RIFF/WAVE head"])
        self.assertEqual(report["head"]["bytes"], len(wave))
        self.is_what_inspecting_says(report, "x.wav")
        self.assertGreater(report["details"]["count"], 2)
        first, second = report["details"]["offset"][:2]
        self.assertEqual(wave[first:second], base64.b64decode(report["details"]["data"])[: second - first])
        self.assertEqual(wave.index(b"data") + 8, first)

    def test_what_is_left_out_is_noise_as_loud_as_the_signal(self):
        # Noise at a bitrate that cannot carry its upper subbands.
        noise = bytes(range(256)) * 600
        report = self.explain(noise, "-q", "-b", "112")

        def values(array, letter):
            raw = struct.unpack("<%d%s" % (math.prod(array["shape"]), letter), base64.b64decode(array["data"]))
            return [None if value == array.get("none") else value * array.get("scale", 1) for value in raw]

        details = report["details"]
        allocation = values(details["allocation"], "B")
        smr, nmr = values(details["smr"], "b"), values(details["nmr"], "b")
        left = [i for i, index in enumerate(allocation) if index == 0 and smr[i] is not None and abs(smr[i]) < 60]
        self.assertGreater(len(left), 20)
        for i in left:
            self.assertAlmostEqual(nmr[i], smr[i], delta=0.76)

    def test_usage(self):
        self.put("x.s16", bytes(4000))
        arguments = ("encode", "--raw", "s16le,44100,2", "x.s16")
        self.refused(1, "--explain -", *arguments, "--explain", "-")
        self.put("why.html", b"mine")
        self.refused(2, "exists", *arguments, "--explain", "why.html")
        self.assertEqual(self.names(), [b"why.html", b"x.s16"])


class Page(InspectTest):
    def test_the_page_holds_the_data_and_needs_nothing_else(self):
        self.put("a.mp2", STEREO)
        self.good("inspect", "a.mp2")
        page = self.get("a.html").decode()
        scripts = Scripts(page)
        self.assertEqual(scripts.foreign, [])
        self.assertNotRegex(page, r"https?://(?!www\.w3\.org/)")
        packed, plain = json.loads(scripts.data), self.inspect(STEREO)
        formats = {"u8": "B", "i8": "b", "u16": "H", "i16": "h", "u32": "I", "f32": "f"}
        arrays = 0

        def compare(a, b, where):
            nonlocal arrays
            if isinstance(a, dict) and "type" in a:
                arrays += 1
                raw = base64.b64decode(a["data"])
                letter = formats[a["type"]]
                count = math.prod(a["shape"])
                values = struct.unpack("<%d%s" % (count, letter), raw)
                self.assertEqual((a["shape"], count), (b["shape"], len(b["data"])), where)
                for value, expected in zip(values, b["data"]):
                    if value == a.get("none"):
                        self.assertIsNone(expected, where)
                    else:
                        value = value * a.get("scale", 1) + a.get("offset", 0)
                        self.assertAlmostEqual(value, expected, 5, where)
            elif isinstance(a, dict):
                for key in a:
                    if key != "data":
                        compare(a[key], b[key], where + "." + key)
            else:
                self.assertEqual(a, b, where)

        compare(packed, plain, "")
        self.assertGreater(arrays, 40)
        self.assertEqual(base64.b64decode(packed["details"]["data"]), STEREO)

    def test_names_cannot_end_the_data(self):
        self.put("<!-- x.mp2", STEREO)
        self.good("inspect", "<!-- x.mp2", "-o", "page.html")
        data_text = Scripts(self.get("page.html").decode()).data
        self.assertNotIn("<", data_text)
        self.assertEqual(json.loads(data_text)["stream"]["file"], "<!-- x.mp2")

    def test_many_inputs_and_their_pages(self):
        self.put("a.mp2", STEREO)
        self.put("b.mp2", JOINT)
        os.mkdir(self.path("pages"))
        self.good("inspect", "a.mp2", "b.mp2", "-o", "pages")
        self.assertEqual(sorted(os.listdir(self.path("pages"))), [b"a.html", b"b.html"])
        self.refused(2, "exists", "inspect", "a.mp2", "-o", "pages")
        self.good("inspect", "-f", "a.mp2", "-o", "pages")

    def test_a_damaged_stream_has_its_page(self):
        self.put("a.mp2", STEREO[:-5])
        self.assertEqual(self.qav("inspect", "a.mp2").status, 3)
        self.assertIn(b"Truncated", self.get("a.html"))

    def test_usage(self):
        self.put("a.mp2", STEREO)
        self.refused(1, "--to lies before --from", "inspect", "a.mp2", "--from", "3", "--to", "2")
        self.refused(1, "no time", "inspect", "a.mp2", "--from", "x")
        self.refused(1, "both go to standard output", "inspect", "a.mp2", "--json", "--csv")
        self.refused(1, "both go to standard output", "inspect", "a.mp2", "--json", "-o", "-")
        self.put("text", b"words")
        self.refused(2, "is no MPEG audio", "inspect", "text")
        self.assertEqual(self.names(), [b"a.mp2", b"text"])

    def test_an_hour_stays_below_8_megabytes(self):
        # The busiest frames there are: 5 minutes of them hold as many columns and details as ever.
        frames = frames_of(DUAL)
        self.put("a.mp2", b"".join(itertools.islice(itertools.cycle(frames), 9999)))
        self.good("inspect", "a.mp2")
        self.assertLess(os.path.getsize(self.path("a.html")), 8e6)
        columns = re.search(rb'"framesPerColumn":(\d+)', self.get("a.html"))
        self.assertEqual(columns[1], b"1")


if __name__ == "__main__":
    unittest.main()
