#!/usr/bin/env python3
"""Counts what the chain executes on the device and models the cycles that three processors take.

    arm_instructions.py [--check]

Fills in README.md (clocks), docs/performance.md (music, by stage and combination of stages) and
docs/real-time.md (the worst input and settings). Fails if a figure exceeds its limit below. Also fails
if an instruction loads or stores two words at an address that is no multiple of 8. The processor does
not allow that.

With --check nothing is changed. It is then also an error if a document holds other instructions.
Tables of cycles are not compared, because cycles change by up to 1 % with the place of the data in
memory, which depends on the path of the project. Their limits hold.
"""
import collections
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys
import tempfile

BUILD = pathlib.Path("build/arm-softfloat")
PROGRAM = BUILD / "bench/chain_load"
PLUGIN = BUILD / "count_instructions.so"
PROCESSORS = "ARM926EJ-S", "ARM1136", "Cortex-A8"
# The most per stereo frame. Limits hold for the mean over calls of 1024 frames, unless they name the
# slowest call. The limit of commands is a part of a call of 1024 frames. It holds for a reset, a disable,
# an enable and a change of mode together.
LIMITS = {
    "instructions, music": 4900,
    "instructions, noise": 5250,
    "instructions, silence": 1000,
    "instructions, decay": 4000,
    "instructions, slowest call of 256": 12900,
    "instructions, slowest call of 1024": 7900,
    "commands": 0.02,
    "cycles, ARM926EJ-S": 7215,
    "cycles, ARM1136": 6990,
    "cycles, Cortex-A8": 5140,
    "cycles, ARM926EJ-S, slowest call of 1024": 11500,
    "cycles, ARM1136, slowest call of 1024": 11140,
    "cycles, Cortex-A8, slowest call of 1024": 7540,
}


class Counts:
    """What the plug-in printed for one run. Figures are per frame, except `total`."""

    def __init__(self, text, frames):
        self.total, self.worst, self.functions = 0, 0, collections.Counter()
        self.stages = collections.defaultdict(collections.Counter)  # "" or the processor: by stage
        self.worst_cycles = {}
        for kind, *fields in (line.split("\t") for line in text.splitlines()):
            if kind == "misaligned":
                sys.exit(f"arm_instructions: two words at a misaligned address in {fields[0]}")
            elif kind == "calls":
                self.frames = int(fields[0]) * frames
            elif kind == "worst":
                self.worst = int(fields[0]) / frames
            elif kind == "stage":
                self.stages[""][fields[0]] = 0
            elif kind == "count":
                self.total += int(fields[1])
                self.stages[""][fields[0]] += int(fields[1]) / self.frames
                self.functions[fields[2]] += int(fields[1]) / self.frames
            elif kind == "cycles":
                self.stages[fields[0]][fields[1]] += int(fields[2]) / self.frames
            elif kind == "worst-cycles":
                self.worst_cycles[fields[0]] = int(fields[1]) / frames
        self.mean = self.total / self.frames

    def cycles(self, processor):
        return self.stages[processor].total()


def run(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def count(frames, load, stages="", options=""):
    """Runs chain_load with these arguments and the plug-in with these options."""
    with tempfile.TemporaryDirectory() as work:
        log = pathlib.Path(work, "counts")
        subprocess.run(
            ["qemu-arm", "-plugin", f"{PLUGIN},symbols={PLUGIN}.symbols{options}", "-d", "plugin",
             "-D", log, PROGRAM, str(frames), load, *([stages] if stages else [])],
            # The variables of the environment would move the stack, and with it the cycles.
            check=True, stderr=subprocess.DEVNULL, env={"PATH": os.environ["PATH"]})
        return Counts(log.read_text(encoding="utf-8"), frames)


def kind_of(function):
    """Returns the kind of code. Names without a class are of the compiler and the C library."""
    if re.match(r"__aeabi_[fd]", function):
        if re.search("add|sub", function):
            return "additions and subtractions"
        if "mul" in function:
            return "multiplications"
    if re.search(r"cmp[sd]f2|__aeabi_c?[fd]r?cmp", function):
        return "comparisons"
    if re.search(r"[:(]|^Soft", function):
        return "the library's own code"
    return "other helpers: conversions, divisions, copies"


def table(head, rows):
    lines = [f"| {' | '.join(row)} |" for row in [head, *rows]]
    lines.insert(1, "|---|" + "---:|" * (len(head) - 1))
    return "\n".join(lines)


def whole(values):
    return [f"{value:.0f}" for value in values]


def clock_tables(combinations):
    """`combinations` holds a name and the counts of calls of 1024 and of 256 frames."""
    for processor in PROCESSORS:
        rows = []
        for name, long, short in combinations:
            cycles = (long.cycles(processor), long.worst_cycles[processor],
                      short.worst_cycles[processor])
            rows.append([name, *whole(cycles), *whole(n * 0.0441 for n in cycles),
                         *whole(n * 0.048 for n in cycles)])
        yield table(
            [f"{processor}: on, with the output limiters", "cycles a frame: mean",
             "slowest call of 1024", "of 256", "MHz at 44.1 kHz: mean", "slowest call of 1024",
             "of 256", "MHz at 48 kHz: mean", "slowest call of 1024", "of 256"], rows) + "\n"


def summary(combinations):
    """Returns the README's table: the mean and the slowest call of 1024 frames in MHz."""
    def cell(counts, processor, rate):
        return " / ".join(whole(n * rate for n in (counts.cycles(processor),
                                                   counts.worst_cycles[processor])))
    rates = {"44.1 kHz": 0.0441, "48 kHz": 0.048}
    return table(
        ["MHz: mean / slowest call", *(f"{p}, {name}" for p in PROCESSORS for name in rates)],
        [[name, *(cell(long, p, rate) for p in PROCESSORS for rate in rates.values())]
         for name, long, _ in combinations])


LABELS = {"unit": "unit: lock, copies", "output": "output gain, limiters"}


def stage_rows(columns):
    """Returns a row for each stage. `columns` holds a dictionary by stage for each column."""
    return [[LABELS.get(stage, stage), *whole(column[stage] for column in columns)]
            for stage in columns[0]]


def cycle_table(counts):
    return table(
        ["cycles a stereo frame, calls of 1024 frames", *PROCESSORS],
        [*stage_rows([counts.stages[p] for p in PROCESSORS]),
         ["**whole chain**", *whole(map(counts.cycles, PROCESSORS))],
         ["whole chain, slowest call", *whole(counts.worst_cycles[p] for p in PROCESSORS)],
         ["cycles an instruction", *(f"{counts.cycles(p) / counts.mean:.2f}" for p in PROCESSORS)]])


def instruction_tables(by_size):
    sizes, counts = zip(*by_size.items())
    yield table(
        ["instructions a stereo frame", *(f"{size} frames a call" for size in sizes)],
        [*stage_rows([c.stages[""] for c in counts]),
         ["**whole chain**", *whole(c.mean for c in counts)],
         ["whole chain, slowest call", *whole(c.worst for c in counts)],
         ["millions a second at 44100 Hz", *whole(c.mean * 0.0441 for c in counts)]]) + "\n"
    kinds = collections.Counter()
    for function, instructions in by_size[1024].functions.items():
        kinds[kind_of(function)] += instructions
    yield table(["code, calls of 1024 frames", "instructions a frame", "share"],
                [[kind, f"{n:.0f}", f"{100 * n / kinds.total():.1f} %"]
                 for kind, n in kinds.most_common()])


def main(options):
    os.chdir(pathlib.Path(__file__).parent.parent)
    run("cmake", "--preset", "arm-softfloat", "-DORVANE_BENCH=ON")
    run("cmake", "--build", BUILD, "--target", "chain_load")
    # The plug-in runs inside the emulator, so this machine's compiler builds it.
    run("c++", "-std=c++20", "-O2", "-fPIC", "-shared", "-fvisibility=hidden", "-I.", "-o", PLUGIN,
        "bench/count_instructions.cpp")
    pathlib.Path(f"{PLUGIN}.symbols").write_text(run("arm-linux-gnueabi-nm", "-nC", PROGRAM))
    loads = {
        "noise": "noise",
        "silence": "silence",
        "decay": "silence after a buffer of noise: decay into denormals",
        "least": "noise, every parameter the least int32",
        "largest": "noise, every parameter the largest int32",
    }
    check = "--check" in options
    combinations = [line.split(":") for line in run("qemu-arm", PROGRAM, "stages").splitlines()]
    if check:
        del combinations[:-1]  # everything on
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        modelled = {(stages, frames): pool.submit(count, frames, "music", stages, ",cycles=yes")
                    for stages, _ in reversed(combinations) for frames in (1024, 256)}
        longest = pool.submit(count, 4096, "music")
        worst = {load: pool.submit(count, 1024, load) for load in loads}
        commands = [pool.submit(count, 1024, load, options=",entry=InterfaceCommand")
                    for load in ("noise", "commands")]
    worst = {load: future.result() for load, future in worst.items()}
    combinations = [(name, modelled[stages, 1024].result(), modelled[stages, 256].result())
                    for stages, name in combinations]
    _, long, short = combinations[-1]
    none, four = (future.result().total for future in commands)

    figures = {"commands": (four - none) / worst["noise"].total, "instructions, music": long.mean}
    figures |= {f"instructions, {load}": worst[load].mean for load in ("noise", "silence", "decay")}
    for frames, counts in (256, short), (1024, long):
        figures[f"instructions, slowest call of {frames}"] = counts.worst
    for processor in PROCESSORS:
        figures[f"cycles, {processor}"] = long.cycles(processor)
        figures[f"cycles, {processor}, slowest call of 1024"] = long.worst_cycles[processor]
    exceeded = [f"{name}: {figures[name]:.4g}, at most {most}"
                for name, most in LIMITS.items() if not 0 < figures[name] <= most]

    regions = {
        "instruction-tables": "\n".join(
            instruction_tables({256: short, 1024: long, 4096: longest.result()})),
        "worst-cases": table(
            ["process on the device, calls of 1024 frames", "instructions a frame", "of noise"],
            [[loads[load], f"{c.mean:.0f}", f"{c.mean / worst['noise'].mean:.2f}"]
             for load, c in worst.items()]),
    }
    if not check:
        regions["clock-tables"] = "\n".join(clock_tables(combinations))
        regions["cycle-table"] = cycle_table(long)
        regions["clocks"] = summary(combinations)
    text = "".join(f"generated: {name}\n{region.rstrip()}\nend generated\n"
                   for name, region in regions.items())
    filled = subprocess.run(
        ["scripts/fill_in.py", "--part", *options, "README.md", "docs/performance.md",
         "docs/real-time.md"], input=text, text=True, check=False).returncode
    for line in exceeded:
        print(f"arm_instructions: {line}", file=sys.stderr)
    return 1 if exceeded or filled else 0


sys.exit(main(sys.argv[1:]))
