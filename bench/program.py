#!/usr/bin/env python3
"""What the program costs beside its codecs: for JPEG photographs of 1 to 100 megapixels the CPU time of `ko enhance` as a ratio to
that of djpeg and cjpeg on the same file, its peak memory, and where its time goes; beside it programs of another kind: ImageMagick's
-clahe, or -local-contrast where a version has no -clahe, and libvips' hist_local.

    program.py KO FOLDER [RUNS]

KO is the program, FOLDER a place for the photographs, which are made from samples/ and kept for the next run. Times are the least
of RUNS runs, 5 without a number, taken in turn.
"""
import json
import os
import pathlib
import shutil
import subprocess
import sys

PHOTOGRAPHS = pathlib.Path(__file__).resolve().parent / "photographs.py"
LARGEST_FOR_OTHERS = 24  # megapixels; they take minutes and gigabytes
RATIO_MARK, MEMORY_MARK = 2.5, 110  # for 24 megapixels: CPU time to that of the codecs, MB
SEARCH_MARK = 1.0  # for 12 megapixels: the search for red eyes, once the picture is decoded and reduced, to decoding it


def run(command):
    """Runs a command of the shell: (CPU seconds of all its processes, the largest one's peak memory in MB)."""
    process = subprocess.Popen(command, shell=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    if status != 0:
        raise RuntimeError(f"{command} failed")
    return usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def least(runs, *commands):
    """The least of several runs of each command, in turn."""
    results = [[run(command) for command in commands] for _ in range(runs)]
    return [(min(seconds for seconds, _ in column), max(memory for _, memory in column)) for column in zip(*results)]


def imagemagick():
    """The nearest operation that the installed version has, or None."""
    for operation in ("-clahe 12.5x12.5%+128+3", "-local-contrast 10x12"):
        command = f"convert -size 8x8 xc: {operation} null:"
        if subprocess.run(command, shell=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0:
            return operation
    return None


def timings_of(ko, command, path, target):
    line = subprocess.run([ko, command, "--json", path, "-o", target], check=True, capture_output=True, text=True).stdout
    return json.loads(line)["timings"]


def search(ko, path, target, runs):
    """The seconds of the search for red eyes, and their ratio to those of decoding the file."""
    seconds = min(timings_of(ko, "redeye", path, target)["red_eyes"] for _ in range(runs))
    return seconds, seconds / least(runs, f"djpeg {path} > {target}")[0][0]


def stages(ko, path, target):
    timings = timings_of(ko, "enhance", path, target)
    whole = sum(timings.values())
    return ", ".join(f"{stage} {100 * seconds / whole:.0f} %" for stage, seconds in timings.items() if seconds > 0)


def main():
    ko, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    runs = int(sys.argv[3]) if len(sys.argv) > 3 else 5
    # In a process of its own: the peak memory of a program counts that of the process that started it.
    made = subprocess.run([sys.executable, PHOTOGRAPHS, folder], check=True, capture_output=True, text=True).stdout
    photographs = dict(line.split(" ", 1) for line in made.splitlines())
    operation = imagemagick()
    print(f"{'megapixels':>10} {'codecs':>9} {'ko enhance':>11} {'ratio':>6} {'memory':>8} "
          f"{operation.split()[0] if operation else 'convert':>15} {'hist_local':>11}")
    missed = False
    for megapixels, path in photographs.items():
        megapixels, target = int(megapixels), folder / "result.jpg"
        (codecs, _), (enhanced, memory) = least(
            runs, f"djpeg {path} | cjpeg > {target}", f"{ko} enhance --quiet --force {path} -o {target}")
        others, copy = [], folder / "copy.v"  # hist_local takes pixels in any order
        for there, command in ((operation, f"convert {path} {operation} {target}"),
                               (shutil.which("vips"), f"vips copy {path} {copy} && vips hist_local {copy} {target} 64 64 --max-slope 3")):
            measured = there and megapixels <= LARGEST_FOR_OTHERS
            others.append(f"{least(1, command)[0][0] / codecs:.1f}" if measured else "-")
        ratio = enhanced / codecs
        verdict = ""
        if megapixels == 24:
            met = ratio <= RATIO_MARK and memory < MEMORY_MARK
            missed = missed or not met
            verdict = f"  marks {RATIO_MARK} and {MEMORY_MARK} MB: {'met' if met else 'MISSED'}"
        print(f"{megapixels:>10} {codecs:>7.3f} s {enhanced:>9.3f} s {ratio:>6.2f} {memory:>5.0f} MB {others[0]:>15} "
              f"{others[1]:>11}{verdict}")
        print(f"{'':>10} {stages(ko, path, target)}")
        seconds, ratio = search(ko, path, target, runs)
        verdict = ""
        if megapixels == 12:
            missed = missed or ratio > SEARCH_MARK
            verdict = f", mark {SEARCH_MARK:g}: {'met' if ratio <= SEARCH_MARK else 'MISSED'}"
        print(f"{'':>10} red eyes: search {seconds:.3f} s, {ratio:.2f} times djpeg{verdict}", flush=True)
    print("ratios: CPU time to that of djpeg and cjpeg on the same file, in the same run")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
