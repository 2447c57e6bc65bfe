"""What the end-to-end tests share: the real binary, streams made from the test data, a scratch folder per test."""

import os
import resource
import shutil
import signal
import struct
import subprocess
import tempfile
import time
import unittest

QAV = os.environ["QAV"]
DATA = os.environ["QAV_TEST_DATA"]

# Seconds until a run counts as endless. Files beyond 4 GiB take minutes on a busy machine.
PATIENCE = 1200 if "QAV_TEST_FULL" in os.environ else 120


def data(name):
    with open(os.path.join(DATA, name), "rb") as f:
        return f.read()


def frames_of(stream):
    """The frames of a whole Layer II stream of MPEG-1, by the standard's own formula."""
    kbps = (0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384)
    rates = (44100, 48000, 32000)
    frames = []
    at = 0
    while at < len(stream):
        assert stream[at] == 0xFF and stream[at + 1] & 0xFE == 0xFC, at
        length = 144000 * kbps[stream[at + 2] >> 4] // rates[stream[at + 2] >> 2 & 3] + (stream[at + 2] >> 1 & 1)
        frames.append(stream[at : at + length])
        at += length
    return frames


def restore_signals():
    """A shell that starts the tests in the background makes them ignore SIGINT; the tool would inherit that."""
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGPIPE):
        signal.signal(number, signal.SIG_DFL)


class Result:
    def __init__(self, process, out, err):
        self.status = process.returncode
        self.out = out
        self.err = err.decode("utf-8")  # messages are UTF-8 whatever the names are
        self.lines = self.err.splitlines()


class CliTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="qav-test-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def path(self, name):
        return os.path.join(os.fsencode(self.folder), os.fsencode(name))

    def put(self, name, content):
        path = self.path(name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as f:
            f.write(content)
        return path

    def get(self, name):
        with open(self.path(name), "rb") as f:
            return f.read()

    def names(self):
        """Everything in the scratch folder, as bytes, sorted."""
        return sorted(os.listdir(os.fsencode(self.folder)))

    def start(self, *arguments, **options):
        options.setdefault("stdin", subprocess.DEVNULL)
        options.setdefault("stdout", subprocess.PIPE)
        options.setdefault("stderr", subprocess.PIPE)
        options.setdefault("preexec_fn", restore_signals)
        return subprocess.Popen([QAV, *arguments], cwd=self.folder, **options)

    def qav(self, *arguments, input=None, **options):
        if input is not None:
            options["stdin"] = subprocess.PIPE
        process = self.start(*arguments, **options)
        out, err = process.communicate(input, timeout=PATIENCE)
        return Result(process, out or b"", err or b"")

    def good(self, *arguments, **options):
        result = self.qav(*arguments, **options)
        self.assertEqual((result.status, result.err), (0, ""))
        return result

    def refused(self, status, text, *arguments, **options):
        """Exit with this status and one line on standard error that holds the text and a remedy."""
        result = self.qav(*arguments, **options)
        self.assertEqual(result.status, status, result.err)
        self.assertEqual(len(result.lines), 1, result.err)
        self.assertRegex(result.lines[0], r"^qav: .*; ")
        self.assertIn(text, result.lines[0])
        return result

    def assertSamePcm(self, actual, expected):
        """Equal but for the order of sums: off by one in a few samples per ten thousand."""
        self.assertEqual(len(actual), len(expected))
        count = len(actual) // 2
        a = struct.unpack("<%dh" % count, actual)
        b = struct.unpack("<%dh" % count, expected)
        off = [abs(x - y) for x, y in zip(a, b) if x != y]
        self.assertLessEqual(max(off, default=0), 1)
        self.assertLessEqual(len(off), max(1, count // 1000))


def wav_chunks(wav):
    """Read a WAV file chunk by chunk: a list of (id, content)."""
    assert wav[:4] == b"RIFF" and wav[8:12] == b"WAVE", wav[:12]
    chunks = []
    at = 12
    while at + 8 <= len(wav):
        size = struct.unpack_from("<I", wav, at + 4)[0]
        chunks.append((wav[at : at + 4], wav[at + 8 : at + 8 + size]))
        at += 8 + size + (size & 1)
    return chunks


def wait_until(condition, seconds=20):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("nothing happened in %d seconds" % seconds)
        time.sleep(0.01)


def limit_file_size(size):
    def apply():
        restore_signals()
        resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))

    return apply
