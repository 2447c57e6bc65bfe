"""Run the programs of the manual, the README and examples/ on sound made here, and look at what they put out."""

import argparse
import array
import math
import pathlib
import subprocess

RATE, CHANNELS, KBPS = 44100, 2, 192
DELAY = 481  # sample frames by which encoder and decoder together are late
FRAME_SAMPLES = 1152


def run(program, data, *arguments):
    words = [str(program), *map(str, arguments)]
    return subprocess.run(words, input=data, stdout=subprocess.PIPE, check=True, timeout=120).stdout


def tones(frames):
    """A chord on the left, a rising tone on the right."""
    samples = array.array("h")
    for i in range(frames):
        t = i / RATE
        chord = sum(math.sin(2 * math.pi * hz * t) for hz in (440, 554.37, 659.25, 3000))
        samples.append(round(6000 * chord))
        samples.append(round(12000 * math.sin(2 * math.pi * (200 + 1500 * t) * t)))
    return samples


def snr_db(expected, heard):
    noise = sum((a - b) ** 2 for a, b in zip(expected, heard))
    return 10 * math.log10(sum(a * a for a in expected) / max(noise, 1))


def check_decoded(sound, pcm):
    heard = array.array("h", pcm)[DELAY * CHANNELS:]
    ratio = snr_db(sound[:len(heard)], heard)
    assert ratio > 20, f"signal-to-noise ratio {ratio:.1f} dB"
    return len(heard) // CHANNELS


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("manual", "readme", "frames", "encode", "resample"):
        parser.add_argument("--" + name, type=pathlib.Path, required=True)
    args = parser.parse_args()

    frames = RATE + 100  # no multiple of a frame
    sound = tones(frames)

    # The program of the README encodes, that of the manual decodes. The last frame is padded, what the delay holds is lost.
    stream = run(args.readme, sound.tobytes())
    pcm = run(args.manual, stream)
    units = -(-frames // FRAME_SAMPLES)
    assert len(pcm) == units * FRAME_SAMPLES * CHANNELS * 2, len(pcm)
    check_decoded(sound, pcm)

    # The example pushes the last samples out.
    stream = run(args.encode, sound.tobytes(), RATE, CHANNELS, KBPS)
    assert check_decoded(sound, run(args.manual, stream)) >= frames

    lines = run(args.frames, stream).decode().splitlines()
    assert len(lines) == -(-(frames + DELAY) // FRAME_SAMPLES), len(lines)
    assert all(line.endswith(f"{RATE} Hz, {CHANNELS} channel(s), {KBPS} kbit/s") for line in lines), lines[0]
    # Three bytes in front are no frame.
    shifted = run(args.frames, b"\xff\xfd\xff" + stream).decode().splitlines()
    assert len(shifted) == len(lines) and " at byte 3: " in shifted[0], shifted[0]

    # Doubling the rate of a ramp puts the middle between any two samples.
    ramp = array.array("h", range(-10000, 10000, 4))
    doubled = array.array("h", run(args.resample, ramp.tobytes(), 22050, 44100, 1))
    assert list(doubled) == list(range(-10000, -10000 + 2 * len(doubled), 2)), doubled[:8]
    assert len(doubled) >= 2 * len(ramp) - 2, len(doubled)


main()
