"""The tool when the system lets it down: every open, read, write, close and rename that fails, in turn; calls that do
half of what was asked; a clock that jumps; folders that vanish; signals at random moments, and going on after them.

    tool_faults.py QAV INJECTOR TEST-DATA [--rounds N]

What must hold: a fault that can be repaired leaves the output as it should be and status 0; any other ends with status
2, one line on standard error, no output and nothing temporary. No file with a final name is ever wrong.
"""
import argparse
import json
import os
import pathlib
import random
import shutil
import signal
import struct
import subprocess
import tempfile
import time

parser = argparse.ArgumentParser()
parser.add_argument("qav")
parser.add_argument("injector")
parser.add_argument("data", type=pathlib.Path)
parser.add_argument("--rounds", type=int, default=5)
parser.add_argument("--seed", type=int, default=1)
options = parser.parse_args()
SANITIZED = "QAV_SANITIZED" in os.environ

tried = 0


def expect(condition, what):
    global tried
    tried += 1
    if not condition:
        raise SystemExit(f"does not hold: {what}")


def wav(seconds, hz=44100, channels=2, seed=1):
    noise = random.Random(seed)
    samples = bytearray()
    level = 0
    for i in range(int(seconds * hz)):
        level += (noise.randrange(-8000, 8000) - level) // 8
        samples += struct.pack("<h", max(-32768, min(32767, level * (1 + i % 5)))) * channels
    header = struct.pack("<4sI4s4sIHHIIHH4sI", b"RIFF", 36 + len(samples), b"WAVE", b"fmt ", 16, 1, channels, hz,
                         hz * channels * 2, channels * 2, 16, b"data", len(samples))
    return header + bytes(samples)


def run(arguments, folder, faults=None, counts=None, memory=None, **more):
    environment = dict(os.environ, QAV_FAULT_FOLDER=str(folder), LC_ALL="C")
    if faults or counts or memory:
        environment["LD_PRELOAD"] = options.injector
        environment["ASAN_OPTIONS"] = "verify_asan_link_order=0"  # the injector comes before its runtime, and may
    if faults:
        environment["QAV_FAULTS"] = faults
    if counts:
        environment["QAV_FAULT_COUNTS"] = str(counts)
    if memory:
        environment["QAV_FAULT_MEMORY"] = memory
    return subprocess.run([options.qav, *map(str, arguments)], env=environment, capture_output=True, timeout=60, **more)


def leftovers(folder):
    return sorted(p.name for p in folder.rglob("*") if p.name.endswith(".tmp"))


def undisturbed(folder, name, arguments, source, suffix):
    """A job that reads a copy of `source` and writes one file; that file, what it is to hold, and the number of its calls."""
    shutil.copy(source, folder / source.name)
    target = folder / ("out" + suffix)
    job = [arguments[0], folder / source.name, *arguments[1:], "-j", "1", "-o", target]
    counts = folder / "counts"
    result = run(job, folder, counts=counts)
    expect(result.returncode == 0, f"{name} works: {result.stderr.decode()}")
    good = target.read_bytes()
    target.unlink()
    return job, target, good, {call: int(n) for call, n in (line.split() for line in counts.read_text().splitlines())}


def check_faults(name, arguments, source, suffix):
    """Every call of a job that reads `source` and writes one file goes wrong in turn."""
    with tempfile.TemporaryDirectory() as place:
        folder = pathlib.Path(place).resolve()
        job, target, good, number = undisturbed(folder, name, arguments, source, suffix)
        expect(number["read"] > 1 and number["write"] > 0, f"{name} is watched: {number}")

        def attempt(fault, harmless):
            result = run(job, folder, fault)
            what = f"{name} under {fault}: status {result.returncode}, {result.stderr.decode(errors='replace')!r}"
            if harmless:
                expect(result.returncode == 0 and target.read_bytes() == good, what)
                target.unlink()
            else:
                expect(result.returncode == 2, what)
                expect(not target.exists(), what + ", and an output is there")
                expect(result.stderr.count(b"\n") == 1 and result.stderr.startswith(b"qav: "), what)
            expect(not leftovers(folder), what + f", and {leftovers(folder)} are left")

        for call, faults in {"open": ["EACCES", "EMFILE"], "read": ["EIO"], "write": ["ENOSPC", "EIO", "EDQUOT"],
                             "close": [], "rename": ["ENOENT", "EROFS"]}.items():
            for n in range(1, min(number[call], 60) + 1):
                for fault in faults:
                    attempt(f"{call}:{n}:{fault}", False)
        # A close that fails after writing: the data may not have arrived.
        closed = [run(job, folder, f"close:{n}:EIO") for n in range(1, number["close"] + 1)]
        for result in closed:
            expect(result.returncode in (0, 2), f"{name} when a close fails: {result}")
        expect(any(r.returncode == 2 for r in closed), f"{name} notices that the output's close fails")
        target.unlink(missing_ok=True)
        for call in ("read", "write"):
            attempt(f"{call}:*:short", True)
            for n in range(1, min(number[call], 20) + 1):
                attempt(f"{call}:{n}:EINTR", True)
        print(f"{name}: {', '.join(f'{n} {call}' for call, n in number.items())} calls, each made to fail")


def check_memory(name, arguments, source, suffix):
    """An allocation fails, and then all after it too: the first ones, the last ones, and some between."""
    if SANITIZED:
        return
    with tempfile.TemporaryDirectory() as place:
        folder = pathlib.Path(place).resolve()
        job, target, good, number = undisturbed(folder, name, arguments, source, suffix)
        all_of_them = number["memory"]
        expect(all_of_them > 100, f"{name} allocates: {all_of_them}")
        edge = 6 * options.rounds
        chance = random.Random(options.seed)
        between = chance.sample(range(edge, all_of_them - edge), min(edge, all_of_them - 2 * edge))
        statuses = []
        for n in [*range(1, edge), *sorted(between), *range(all_of_them - edge, all_of_them + 1)]:
            for memory in (f"{n}", f"{n}-"):
                result = run(job, folder, memory=memory)
                what = f"{name} without allocation {memory}: status {result.returncode}, {result.stderr!r}"
                statuses.append(result.returncode)
                if result.returncode == 0:
                    expect(target.read_bytes() == good, what)
                    target.unlink()
                    continue
                # Where there is no memory for an exception either, the language ends the program; before it begins, the
                # linker does. The library that converts rates uses memory that it was not given, that of JSON frees it.
                ends = {2, -signal.SIGABRT, 127} | ({-signal.SIGSEGV} if name in ("resample", "inspect") else set())
                expect(result.returncode in ends, what)
                # Whole, where memory was missing for saying so only.
                expect(not target.exists() or target.read_bytes() == good, what + ", and a wrong output is there")
                target.unlink(missing_ok=True)
                if result.returncode == 2:
                    expect(result.stderr.count(b"\n") == 1 and result.stderr.startswith(b"qav: "), what)
                    expect(not leftovers(folder), what + f", and {leftovers(folder)} are left")
                for left in folder.glob("*.tmp"):
                    left.unlink()
        print(f"{name}: {len(statuses)} ways to be without memory, of {all_of_them} allocations; "
              + ", ".join(f"{statuses.count(s)} ended by {s}" for s in sorted(set(statuses))))


def check_long_output(mp2):
    """What goes to the drive past the cache, on a thread of its own: refused, interrupted, by halves, slow, full."""
    with tempfile.TemporaryDirectory() as place:
        folder = pathlib.Path(place).resolve()
        one, target = mp2.read_bytes(), folder / "out.wav"
        (folder / "long.mp2").write_bytes(one * (6_000_000 // len(one)))
        job = ["decode", folder / "long.mp2", "-j", "1", "-o", target]
        counts = folder / "counts"
        expect(run(job, folder, counts=counts).returncode == 0, "decoding a long stream works")
        good = target.read_bytes()
        target.unlink()
        number = {call: int(n) for call, n in (line.split() for line in counts.read_text().splitlines())}
        # 16 MiB in quarters, then 16 blocks directly; the drive may be found slow then, and others go through the cache.
        direct = range(65, 81)
        expect(number["open"] == 3 and number["write"] > direct[-1] + 10, f"the long output is written directly: {number}")
        for fault in ([f"write:{n}:{error}" for n in (direct[0], direct[3], direct[-1]) for error in ("EINTR", "EINVAL", "short")] +
                      ["write:*:short", "write:*:slow", f"open:{number['open']}:EINVAL"]):
            result = run(job, folder, fault)
            expect(result.returncode == 0 and target.read_bytes() == good, f"a long output under {fault}: {result.stderr}")
            target.unlink()
        for fault in [f"write:{n}:{error}" for n in (direct[0], direct[3], direct[-1]) for error in ("ENOSPC", "EIO")]:
            result = run(job, folder, fault)
            what = f"a long output under {fault}: status {result.returncode}, {result.stderr}"
            expect(result.returncode == 2 and result.stderr.count(b"\n") == 1, what)
            expect(not target.exists() and not leftovers(folder), what)
        print("long output: past the cache, and through it when that does not go")


def check_set_aside(source, wrapped):
    """What cannot be read twice from a pipe is set aside in a temporary file: there is none, or no room in it."""
    with tempfile.TemporaryDirectory() as place:
        folder = pathlib.Path(place).resolve()
        aiff = source.read_bytes()[44:]
        frames = len(aiff) // 4
        common = struct.pack(">hIh", 2, frames, 16) + bytes.fromhex("400eac44000000000000")
        sound = b"SSND" + struct.pack(">III", len(aiff) + 8, 0, 0) + aiff
        aiff = b"FORM" + struct.pack(">I", 4 + 8 + len(common) + len(sound)) + b"AIFFCOMM" + struct.pack(">I", 18) + common + sound
        wave, chunk = wrapped.read_bytes(), b"LIST" + struct.pack("<I", 1 << 20) + bytes(1 << 20)
        wave = wave[:4] + struct.pack("<I", len(wave) - 8 + len(chunk)) + wave[8:12] + chunk + wave[12:]
        jobs = {"a format that needs seeking": (["encode", "-", "-o", "-"], aiff),
                "a long chunk that is kept": (["decode", "-", "-o", "-"], wave)}
        for name, (job, content) in jobs.items():
            good = run(job, folder, counts=folder / "counts", input=content)
            expect(good.returncode == 0 and good.stdout, f"{name} works: {good.stderr}")
            asked = int(dict(line.split() for line in (folder / "counts").read_text().splitlines())["tmpfile"])
            expect(asked > 0, f"{name} is set aside")
            for fault in ("EMFILE", "ENOSPC", "EACCES", "full"):
                result = run(job, folder, f"tmpfile:1:{fault}", input=content)
                expect(result.returncode == 2 and result.stderr.count(b"\n") == 1, f"{name}, {fault}: {result.stderr}")
                expect(result.stderr.startswith(b"qav: "), f"{name}, {fault}: {result.stderr}")
        print("set aside: no temporary file, or a full one")


def check_pipes(mp2):
    """Standard output that is closed or full; standard input that hiccups."""
    with tempfile.TemporaryDirectory() as place:
        folder = pathlib.Path(place).resolve()
        good = run(["decode", mp2, "-o", "-"], folder).stdout
        expect(len(good) > 44, "decode to a pipe works")
        for fault in ("read:*:short", "write:*:short", "read:2:EINTR", "write:1:EINTR", "write:1:EAGAIN"):
            result = run(["decode", "-", "-o", "-"], folder, fault, input=mp2.read_bytes())
            expect(result.returncode == 0 and result.stdout == good, f"decode through pipes under {fault}: {result.stderr}")
        for fault in ("write:1:EPIPE", "write:1:ENOSPC", "write:1:EIO", "read:1:EIO"):
            result = run(["decode", "-", "-o", "-"], folder, fault, input=mp2.read_bytes())
            expect(result.returncode == 2 and result.stderr.count(b"\n") == 1, f"{fault}: {result.stderr}")
        reader = subprocess.Popen([options.qav, "decode", str(mp2), "-o", "-"], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        reader.stdout.close()  # nobody listens
        message = reader.stderr.read()
        expect(reader.wait(30) == 2 and message.count(b"\n") == 1, f"closed pipe: {message}")
        with open("/dev/full", "wb") as full:
            result = subprocess.run([options.qav, "decode", str(mp2), "-o", "-"], stdout=full, stderr=subprocess.PIPE, timeout=60)
        expect(result.returncode == 2 and result.stderr.count(b"\n") == 1, f"/dev/full: {result.stderr}")
        print("pipes: half calls, interrupted calls, closed and full ends")


def check_vanishing(mp2):
    """The folder of the output goes while it is written."""
    with tempfile.TemporaryDirectory() as place:
        folder = pathlib.Path(place).resolve()
        (folder / "out").mkdir()
        feed = subprocess.Popen([options.qav, "decode", "-", "-o", str(folder / "out/x.wav")], stdin=subprocess.PIPE,
                                stderr=subprocess.PIPE)
        feed.stdin.write(mp2.read_bytes())
        feed.stdin.flush()
        deadline = time.time() + 20
        while not os.listdir(folder / "out") and time.time() < deadline:
            time.sleep(0.01)
        expect(os.listdir(folder / "out"), "an output has been begun")
        shutil.rmtree(folder / "out")
        _, message = feed.communicate(timeout=30)
        expect(feed.returncode == 2 and message.count(b"\n") == 1, f"folder removed: {feed.returncode} {message}")
        expect(not (folder / "out").exists(), "a folder that was removed stays removed")
        print("vanishing: the output's folder")
        # Inputs that were there when the batch began: gone, a folder now, shorter now.
        for name, change, status in (("gone", os.unlink, 2), ("a folder", lambda p: (os.unlink(p), os.mkdir(p)), 2),
                                     ("shorter", lambda p: os.truncate(p, os.path.getsize(p) - 100), 3)):
            second = folder / "second.mp2"
            shutil.copy(mp2, second)
            batch = subprocess.Popen([options.qav, "decode", "-j", "1", "-f", "-", str(second), "-o", str(folder / "both")],
                                     stdin=subprocess.PIPE, stderr=subprocess.PIPE)
            batch.stdin.write(mp2.read_bytes())
            batch.stdin.flush()
            deadline = time.time() + 20
            while not (folder / "both").exists() and time.time() < deadline:
                time.sleep(0.01)
            expect((folder / "both").exists(), "the batch has begun")
            change(second)
            _, message = batch.communicate(timeout=30)
            expect(batch.returncode == status, f"an input that is {name}: {batch.returncode} {message}")
            expect(b"second.mp2" in message, f"an input that is {name} is named: {message}")
            outputs = sorted(p.name for p in (folder / "both").iterdir())
            expect(len(outputs) == (1 if status == 2 else 2), f"an input that is {name}: {outputs}")
            shutil.rmtree(folder / "both")
            second.rmdir() if second.is_dir() else second.unlink(missing_ok=True)
        print("vanishing: inputs that go, become folders, or lose their end")


def check_clock(source):
    """A clock that leaps ahead, or back, at every look: only what is told of the progress may mind."""
    with tempfile.TemporaryDirectory() as place:
        folder = pathlib.Path(place).resolve()
        job = ["encode", source, "--progress", "json", "-f", "-o", folder / "out.mp2"]
        expect(run(job, folder).returncode == 0, "encode with progress works")
        good = (folder / "out.mp2").read_bytes()
        for fault in ("ahead", "back"):
            result = run(job, folder, f"clock:*:{fault}", folder / "counts")
            asked = dict(line.split() for line in (folder / "counts").read_text().splitlines())["clock"]
            expect(int(asked) > 2, "the tool asks the clock")
            expect(result.returncode == 0 and (folder / "out.mp2").read_bytes() == good, f"clock {fault}: {result}")
            told = [json.loads(line) for line in result.stderr.splitlines()]
            expect(told[-1]["fraction"] == 1, f"progress when the clock leaps {fault}: {told}")
            expect(fault == "back" or len(told) > 2, f"told at every leap: {told}")
            for state in told:
                expect(state["seconds"] >= 0 and state["timesRealTime"] >= 0 and (state["secondsLeft"] or 0) >= 0, state)
        print(f"clock: leaps at each of {asked} looks")


def check_reports(source):
    """A report that cannot be written: said, and nothing is done that it does not tell."""
    with tempfile.TemporaryDirectory() as place:
        folder = pathlib.Path(place).resolve()
        job = ["check", source, "--report", folder / "r"]
        expect(run(job, folder, counts=folder / "counts").returncode == 0, "check with a report works")
        good = (folder / "r").read_bytes()
        (folder / "r").unlink()
        number = dict(line.split() for line in (folder / "counts").read_text().splitlines())
        for call, faults in {"open": ["EACCES"], "write": ["ENOSPC", "EIO"]}.items():
            expect(int(number[call]) > 0, f"the report's {call} is watched")
            for n in range(1, int(number[call]) + 1):
                for fault in faults:
                    result = run(job, folder, f"{call}:{n}:{fault}")
                    expect(result.returncode == 2 and result.stderr.count(b"\n") == 1, f"report, {fault}: {result}")
                    (folder / "r").unlink(missing_ok=True)
        for fault in ("write:*:short", "write:1:EINTR"):
            expect(run(job, folder, fault).returncode == 0 and (folder / "r").read_bytes() == good, f"report, {fault}")
            (folder / "r").unlink()
        print("reports: cannot be opened, cannot be written, are written by halves")


def check_signals(wave):
    """A batch that is ended at a random moment leaves no file that is taken for a finished one."""
    chance = random.Random(options.seed)
    print(f"signals: seed {options.seed}")
    with tempfile.TemporaryDirectory() as place:
        folder = pathlib.Path(place).resolve()
        inputs = []
        for i in range(12):
            inputs.append(folder / f"{i}.wav")
            inputs[-1].write_bytes(wave)
        (folder / "good").mkdir()
        began = time.time()
        result = subprocess.run([options.qav, "encode", "-q", "-j", "2", *map(str, inputs), "-o", str(folder / "good")],
                                capture_output=True, timeout=120)
        duration = time.time() - began
        expect(result.returncode == 0, f"the batch works: {result.stderr}")
        good = (folder / "good/0.mp2").read_bytes()
        expect(all((folder / f"good/{i}.mp2").read_bytes() == good for i in range(12)), "equal inputs, equal outputs")
        hit = 0
        for number in (signal.SIGKILL, signal.SIGTERM, signal.SIGINT):
            for _ in range(options.rounds):
                out = folder / "out"
                shutil.rmtree(out, ignore_errors=True)
                out.mkdir()
                job = subprocess.Popen([options.qav, "encode", "-q", "-j", "2", *map(str, inputs), "-o", str(out)],
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                time.sleep(chance.uniform(0, duration))
                job.send_signal(number)
                sent = time.time()
                job.wait(30)
                ended = time.time() - sent
                finished = [p for p in out.iterdir() if p.suffix == ".mp2"]
                for path in finished:
                    expect(path.read_bytes() == good, f"{path.name} after {number.name}")
                if job.returncode == -number:
                    hit += 1
                    if number != signal.SIGKILL:
                        expect(not leftovers(out), f"{leftovers(out)} after {number.name}")
                        expect(SANITIZED or ended < 5, f"{number.name} took {ended:.1f} s")
                else:
                    expect(job.returncode == 0 and len(finished) == 12, f"done before {number.name}: {job.returncode}")
                # The next run completes what is missing, over what a killed one left behind.
                missing = [p for p in inputs if not (out / (p.stem + ".mp2")).exists()]
                if missing:
                    result = subprocess.run([options.qav, "encode", "-q", *map(str, missing), "-o", str(out) + "/"],
                                            capture_output=True, timeout=120)
                    expect(result.returncode == 0, f"going on after {number.name}: {result.stderr}")
                expect(all((out / (p.stem + ".mp2")).read_bytes() == good for p in inputs), "complete in the end")
        print(f"signals: {hit} of {3 * options.rounds} batches were ended on their way")
        resume_killed(inputs, good, duration, folder, chance)


def resume_killed(inputs, good, duration, folder, chance):
    """A batch that is killed again and again, and resumed by its report until it is done."""
    kills = earlier = 0
    for turn in range(options.rounds):
        out, report = folder / "resumed", folder / f"report{turn}"
        shutil.rmtree(out, ignore_errors=True)
        job = [options.qav, "encode", "-f", "-j", "2", "--json", "--report", str(report), "--resume", str(report),
               *map(str, inputs), "-o", str(out) + "/"]
        # -f: an output may be whole when its line in the report is not.
        for attempt in range(100):
            batch = subprocess.Popen(job, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            try:
                told, message = batch.communicate(timeout=chance.uniform(0, duration / 2) if attempt < 6 else 120)
            except subprocess.TimeoutExpired:
                batch.kill()
                batch.communicate()
                kills += 1
                for path in out.glob("*.mp2"):
                    expect(path.read_bytes() == good, f"{path.name} after SIGKILL")
                continue
            expect(batch.returncode == 0, f"resuming a killed batch: {message}")
            earlier += sum(json.loads(line).get("done") == "earlier" for line in told.splitlines())
            break
        expect(all((out / (p.stem + ".mp2")).read_bytes() == good for p in inputs), "a resumed batch is complete")
        told = [json.loads(line) for line in report.read_text().splitlines()]
        expect({line["file"] for line in told} == {str(p) for p in inputs}, "the report names each input")
        expect(all(line["status"] == 0 for line in told), "and calls each good")
    expect(kills > 0 and earlier > 0, f"{kills} killed, {earlier} not done again")
    print(f"resuming: {options.rounds} batches killed {kills} times in all, {earlier} files spared the last turn")


mp2 = options.data / "l2_stereo_44k_192_crc.mp2"
with tempfile.TemporaryDirectory() as place:
    source = pathlib.Path(place) / "in.wav"
    source.write_bytes(wav(3))
    check_faults("encode", ["encode"], source, ".mp2")
    check_faults("resample", ["resample", "-r", "48000"], source, ".wav")
    check_faults("decode", ["decode"], mp2, ".wav")
    check_faults("cut", ["cut", "--from", "0.1"], mp2, ".mp2")
    check_faults("join", ["join", "-q"], mp2, ".mp2")
    check_faults("wrap", ["wrap"], mp2, ".wav")
    check_faults("inspect", ["inspect"], mp2, ".html")
    wrapped = pathlib.Path(place) / "wrapped.wav"
    expect(run(["wrap", mp2, "-o", wrapped], place).returncode == 0, "wrap works")
    check_faults("unwrap", ["unwrap"], wrapped, ".mp2")
    for name, arguments, file, suffix in [("encode", ["encode"], source, ".mp2"), ("decode", ["decode"], mp2, ".wav"),
                                          ("resample", ["resample", "-r", "48000"], source, ".wav"),
                                          ("join", ["join", "-q"], mp2, ".mp2"), ("wrap", ["wrap"], mp2, ".wav"),
                                          ("inspect", ["inspect"], mp2, ".html"),
                                          ("unwrap", ["unwrap"], wrapped, ".mp2")]:
        check_memory(name, arguments, file, suffix)
    check_set_aside(source, wrapped)
    check_clock(source)
    check_reports(mp2)
    check_long_output(mp2)
    check_pipes(mp2)
    check_vanishing(mp2)
    check_signals(wav(4))
print(f"{tried} expectations hold")
