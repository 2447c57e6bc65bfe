"""The recipes of the README do what it says: each is taken from there and run as it stands."""

import math
import os
import re
import struct
import subprocess
import unittest

from cli_support import CliTest, QAV, data, restore_signals, wav_chunks

STREAM = data("l2_stereo_44k_192_crc.mp2")


def recipes():
    with open(os.path.join(os.environ["QAV_SOURCES"], "README.md"), encoding="utf-8") as f:
        section = f.read().split("\n## Recipes\n")[1].split("\n## ")[0]
    return [re.sub("^    ", "", block, flags=re.M) for block in re.findall(r"\n\n((?:    .+\n)+)", section)]


def wav(frames):
    samples = struct.pack("<%dh" % (2 * frames), *(round(9000 * math.sin(i / 20)) for i in range(2 * frames)))
    return struct.pack("<4sI4s4sIHHIIHH4sI", b"RIFF", 36 + len(samples), b"WAVE", b"fmt ", 16, 1, 2, 48000, 192000, 4,
                       16, b"data", len(samples)) + samples


class Recipes(CliTest):
    def setUp(self):
        super().setUp()
        sound = wav(50001)
        for name in ("masters/a.wav", "masters/below/b.wav", "concert.wav", "speech.wav"):
            self.put(name, sound)
        for name in ("archive/a.mp2", "archive/below/b.mp2", "side-a.mp2", "side-b.mp2", "song.mp2"):
            self.put(name, STREAM)
        self.put("concert.mp2", STREAM * (1 + int(250 / self.seconds("song.mp2"))))
        self.put("damaged.mp2", STREAM[:5000] + STREAM[5100:])
        self.put("capture.raw", sound[44:])

    def seconds(self, name):
        lines = self.good("info", name).out.decode()
        minutes, seconds = re.search(r"duration +(\d+):([\d.]+)", lines).groups()
        return 60 * int(minutes) + float(seconds)

    def run_recipe(self, word):
        """The one recipe with this word, run by a shell; returns its text."""
        matching = [recipe for recipe in recipes() if word in recipe]
        self.assertEqual(len(matching), 1, word)
        environment = dict(os.environ, PATH=os.path.dirname(QAV) + os.pathsep + os.environ["PATH"])
        result = subprocess.run(["bash", "-e", "-o", "pipefail", "-c", matching[0]], cwd=self.folder, env=environment,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, preexec_fn=restore_signals, timeout=120)
        self.assertEqual(result.returncode, 0, result.stderr)
        return result

    def test_there_are_ten(self):
        self.assertEqual(len(recipes()), 10)

    def test_a_folder(self):
        self.run_recipe("--recursive masters")
        for name in ("streams/a.mp2", "streams/below/b.mp2"):
            self.assertIn(b"256 kbit/s", self.good("info", self.path(name)).out)

    def test_dvd(self):
        self.run_recipe("--for dvd")
        self.assertIn(b"48000 Hz", self.good("info", "dvd.mp2").out)

    def test_loudness(self):
        self.run_recipe("--normalize")
        self.good("decode", "air.mp2", "-o", "air.wav")
        told = self.good("encode", "air.wav", "-o", "again.mp2", "--loudness").out.decode()
        lufs = float(re.search(r"loudness (-[\d.]+) LUFS", told)[1])
        self.assertAlmostEqual(lufs, -23, delta=0.6)

    def test_the_same_length(self):
        self.run_recipe("--trim")
        lengths = [len(dict(wav_chunks(self.get(name)))[b"data"]) for name in ("concert.wav", "same-length.wav")]
        self.assertEqual(lengths[0], lengths[1])

    def test_an_archive(self):
        self.run_recipe("--report check.jsonl")
        self.assertEqual(len(self.get("check.jsonl").splitlines()), 2)

    def test_a_damaged_stream(self):
        self.assertEqual(self.qav("decode", "damaged.mp2", "-o", "x.wav").status, 3)
        self.run_recipe("--lenient")
        self.assertEqual(self.get("saved.wav"), self.get("x.wav"))

    def test_a_part(self):
        os.remove(self.path("song.mp2"))
        self.run_recipe("qav cut")
        self.assertAlmostEqual(self.seconds("song.mp2"), 155.5, delta=0.03)

    def test_parts(self):
        self.run_recipe("qav join")
        self.assertEqual(self.get("record.mp2"), STREAM * 2)

    def test_pipes(self):
        self.run_recipe("capture.raw")
        self.assertGreaterEqual(len(dict(wav_chunks(self.get("copy.wav")))[b"data"]), 4 * 50001)

    def test_a_page(self):
        self.run_recipe("qav inspect")
        self.assertIn(b"<html", self.get("song.html"))


if __name__ == "__main__":
    unittest.main()
