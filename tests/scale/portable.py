#!/usr/bin/env python3
"""Portable runs give the same bytes on every x86-64 processor.

    portable.py --vorn VORN --home HOME

Runs jobs with all modules that transform, interpolate or scale traces: as `vorn run --portable` on this
machine, and on processors that qemu emulates, an old one without AVX and a newer one with AVX2 and fused
operations. Traces and messages must be equal. Exit code 77: skipped.
"""
import argparse
import os
import pathlib
import platform
import re
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77
PATIENCE = 300  # seconds for one run
PROCESSORS = ["Nehalem", "Haswell"]

# What --portable sets before it starts the program again: an emulator would not emulate that one.
PORTABLE = {"VORN_PORTABLE": "1",
            "GLIBC_TUNABLES": "glibc.cpu.hwcaps=-AVX,-AVX2,-AVX512F,-FMA,-FMA4"}

# 500 samples are transformed by the project's own loops, 501 by FFTW.
SOURCE = "{name: made, module: synthetic, shots: 2, channels: 24, samples: %d, interval: 4 ms}"
CHAINS = {
    "filters": ["module: bandpass, low: 5.3 Hz, high: 61 Hz", "module: agc, window: 0.3 s",
                "module: spectrum"],
    "corners": ["module: bandpass, corners: [3 Hz, 7 Hz, 41 Hz, 59 Hz]",
                "module: agc, window: 0.3 s, mode: mean"],
    "fk": ["module: fk, filter: reject, velocities: [0 m/s, 1200 m/s]"],
    "autocorrelation": ["module: autocorrelation"],
    "spectrogram": ["module: spectrogram"],
    "resample": ["module: resample, interval: 3 ms"],
    "shift": ["module: shift, time: 1.7 ms"],
    "stack": ["module: stack, key: fldr"],
}


def job_text(samples, steps):
    lines = ["job: portable", "modules:", "  - " + SOURCE % samples]
    before = "made"
    for number, step in enumerate(steps):
        lines.append(f"  - {{name: step{number}, {step}, input: {before}}}")
        before = f"step{number}"
    lines.append(f"  - {{name: write, module: segy_out, input: {before}, file: out.sgy,"
                 " format: ieee}")
    return "\n".join(lines) + "\n"


def run(options, directory, samples, steps, processor):
    """The traces and the messages of a job; processor None is that of this machine."""
    (directory / "job.yaml").write_text(job_text(samples, steps))
    out = directory / "out.sgy"
    out.unlink(missing_ok=True)
    environment = dict(os.environ, VORN_HOME=str(options.home), LC_ALL="C")
    command = [options.vorn, "run", "job.yaml"]
    if processor is None:
        command.append("--portable")
    else:
        environment.update(PORTABLE)
        command = ["qemu-x86_64", "-cpu", processor] + command
    done = subprocess.run(command, cwd=directory, env=environment, stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True, timeout=PATIENCE, check=False)
    if done.returncode != 0:
        sys.exit(f"{command} has failed with code {done.returncode}:\n{done.stderr}")
    messages = [line for line in done.stderr.splitlines() if re.match(r"\d\d:\d\d:\d\d ", line)]
    # qemu names instructions that it leaves out; messages begin with the time.
    return out.read_bytes(), [line.split(" ", 1)[1] for line in messages]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--vorn", type=pathlib.Path, required=True)
    parser.add_argument("--home", type=pathlib.Path, required=True)
    options = parser.parse_args()
    if platform.machine() != "x86_64":
        print("skipped: the processors that are compared are x86-64")
        return SKIPPED
    if shutil.which("qemu-x86_64") is None:
        print("skipped: qemu-x86_64 is not installed (Debian: qemu-user)")
        return SKIPPED
    different = []
    with tempfile.TemporaryDirectory() as folder:
        directory = pathlib.Path(folder)
        for name, steps in CHAINS.items():
            for samples in (500, 501):
                expected = run(options, directory, samples, steps, None)
                if not expected[1]:
                    sys.exit(f"{name} has no messages")
                for processor in PROCESSORS:
                    result = run(options, directory, samples, steps, processor)
                    for what, ours, theirs in zip(("traces", "messages"), expected, result):
                        if ours != theirs:
                            different.append(f"{name}, {samples} samples: {what} on {processor}")
    for line in different:
        print(f"different from this machine: {line}")
    return 1 if different else 0


if __name__ == "__main__":
    sys.exit(main())
