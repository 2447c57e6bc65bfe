"""The demo's own look at sound files (16-bit WAV), apart from the tool that it shows.

  sound.py join OUTPUT INPUT...         play one after the other, a quarter of a second between
  sound.py compare ORIGINAL DECODED     how much of the original is left, past the delay of encoder and decoder
"""

import array
import math
import sys
import wave

DELAY = 481  # sample frames by which the encoder's and the decoder's filterbank together are late


def read(path):
    with wave.open(path) as file:
        assert file.getsampwidth() == 2, f"{path}: not 16-bit"
        return file.getparams(), array.array("h", file.readframes(file.getnframes()))


def join(output, inputs):
    with wave.open(output, "wb") as joined:
        for path in inputs:
            params, samples = read(path)
            if joined.getnframes() == 0:
                joined.setparams(params)
            joined.writeframes(samples.tobytes() + bytes(params.framerate // 4 * 2 * params.nchannels))


def compare(original, decoded):
    params, wanted = read(original)
    other, heard = read(decoded)
    assert (params.framerate, params.nchannels) == (other.framerate, other.nchannels), "rate or channels differ"
    heard = heard[DELAY * params.nchannels:]
    assert len(heard) >= len(wanted), "the decoded file is shorter than the original"
    noise = sum((a - b) ** 2 for a, b in zip(wanted, heard))
    signal = sum(a * a for a in wanted)
    print(f"{10 * math.log10(signal / max(noise, 1)):.1f}")


if sys.argv[1] == "join":
    join(sys.argv[2], sys.argv[3:])
else:
    compare(*sys.argv[2:])
