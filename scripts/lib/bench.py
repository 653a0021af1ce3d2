"""Runs tavo_bench and compares the sides of each operation. Called by scripts/bench."""

import argparse
import json
import os
import re
import statistics
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor

import bench_page

PROGRAM = "build/bench/bench/tavo_bench"
CURVE = "build/bench/bench/tavo_fork_curve"
FIGURES = "build/bench-figures.json"
LIBRARY, FLOOR = bench_page.LIBRARY, bench_page.FLOOR
LIMIT = bench_page.LIMIT
# A round is a process. It runs each side a few times, in random order. Another process has other
# addresses, which change the time of a short operation by several percent.
ROUNDS = 21
FEWEST_ROUNDS = 5
SECONDS = 8  # for one operation; no round begins later, except for the fewest
RUNS_IN_ROUND = 3
# Functions are bound when the program is loaded. With lazy binding, the first caller of a function
# would be charged for it.
COUNTING = {"TAVO_BENCH_COUNT": "1", "LD_BIND_NOW": "1"}
# --check leaves these out: they run too few instructions of their own for a steady count.
STARTS_PROCESS = re.compile("^execute.*(small output|MiB in use)$")
# Operations in which other processes or threads work. For the rest the calling thread's processor
# time is taken, which a busy machine hardly changes.
WAITS = re.compile("^(execute|MQTT publish, QoS 1|log lines by 8 threads)")
# All others have one processor for the program and the processes that it starts. Otherwise the time
# depends on which processor the kernel wakes a process on.
ON_ALL_PROCESSORS = re.compile("by 8 threads$")


def run(arguments, results, environment=None, prefix=()):
    """Runs the program; what the library prints on standard output is discarded."""
    with tempfile.TemporaryFile() as printed, tempfile.TemporaryFile() as errors:
        command = [*prefix, PROGRAM, *arguments, f"--benchmark_out={results}", "--benchmark_out_format=json"]
        done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=printed, stderr=errors,
                              env={**os.environ, **(environment or {})})
        if done.returncode != 0:
            errors.seek(0)
            sys.exit(f"{' '.join(command)}\n{errors.read().decode(errors='replace')}")


def operations(pattern):
    """Names of the operations that match, each with its sides, in the order of registration."""
    listed = subprocess.run([PROGRAM, "--benchmark_list_tests"], check=True, capture_output=True, text=True).stdout
    found = {}
    for line in listed.splitlines():
        operation, side = line.split("/")[:2]
        if re.search(pattern, operation):
            found.setdefault(operation, []).append(side)
    if not found:
        sys.exit(f"no operation matches '{pattern}'")
    return found


def exactly(names):
    return "^(" + "|".join(re.escape(name).replace("\\ ", " ") for name in names) + ")/"


def ratios(sides):
    """How many times the floor each other side takes: the library, then the peers."""
    peers = [side for side in sides if side not in (LIBRARY, FLOOR)]
    return {side: sides[side] / sides[FLOOR] for side in [LIBRARY, *peers]}


def round_of(operation):
    """Ratios of the sides in one process: each side's time is the median of its runs."""
    clock = "real_time" if WAITS.search(operation) else "cpu_time"
    one_processor = ["taskset", "--cpu-list", str(max(os.sched_getaffinity(0)))]
    prefix = [] if ON_ALL_PROCESSORS.search(operation) else one_processor
    with tempfile.NamedTemporaryFile(suffix=".json") as results:
        run([f"--benchmark_filter={exactly([operation])}", f"--benchmark_repetitions={RUNS_IN_ROUND}",
             "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.005"], results.name, prefix=prefix)
        times = {}
        for entry in json.load(results)["benchmarks"]:
            if entry["run_type"] == "iteration":
                times.setdefault(entry["run_name"].split("/")[1], []).append(entry[clock])
    return ratios({side: statistics.median(taken) for side, taken in times.items()})


def time_of(operation):
    """Quartiles of each side's ratio to the floor, over all rounds; and the number of rounds."""
    begun = time.monotonic()
    rounds = []
    while len(rounds) < ROUNDS and (len(rounds) < FEWEST_ROUNDS or time.monotonic() - begun < SECONDS):
        rounds.append(round_of(operation))
    quartiles = {side: statistics.quantiles([figures[side] for figures in rounds], n=4, method="inclusive")
                 for side in rounds[0]}
    return quartiles, len(rounds)


def counts_of(names, sides):
    """Instructions of one run of each side of the operations, by operation."""
    counts = {}
    with tempfile.TemporaryDirectory() as directory:
        run([f"--benchmark_filter={exactly(names)}{sides}"], directory + "/results.json", COUNTING,
            ["valgrind", "--quiet", "--tool=callgrind", f"--callgrind-out-file={directory}/dump"])
        for name in os.listdir(directory):
            label, total = None, None
            with open(os.path.join(directory, name), errors="replace") as dump:
                for line in dump:
                    if line.startswith("desc: Trigger: Client Request: "):
                        label = line.split("Client Request: ")[1].strip()
                    elif line.startswith("totals:"):
                        total = int(line.split()[1])
            if label and "#" in label and total is not None:
                benchmark, repeats = label.rsplit("#", 1)
                operation, side = benchmark.split("/")[:2]
                counts.setdefault(operation, {})[side] = total / int(repeats)
    return counts


def instructions(found, peers):
    """Ratios of the sides of each operation in instructions.

    Two processes run at a time, one for each family of operations.
    """
    families = {}
    for operation in found:
        families.setdefault(operation.split()[0].rstrip(","), []).append(operation)
    sides = "" if peers else f"({LIBRARY}|{FLOOR})"
    counted = {}
    with ThreadPoolExecutor(max_workers=os.cpu_count()) as pool:
        for counts in pool.map(lambda names: counts_of(names, sides), families.values()):
            counted.update(counts)
    return {operation: ratios(counted[operation]) for operation in found}


def show_counted(operation, sides):
    peers = ", ".join(f"{side} {ratio:.2f}" for side, ratio in sides.items() if side != LIBRARY)
    print(f"{operation:40}{sides[LIBRARY]:8.2f}   {peers}", flush=True)


def show_timed(operation, sides, rounds):
    low, middle, high = sides[LIBRARY]
    peers = ", ".join(f"{side} {quartiles[1]:.2f}" for side, quartiles in sides.items() if side != LIBRARY)
    print(f"{operation:40}{middle:8.2f}   {f'{low:.2f} to {high:.2f}':16}{rounds:6}   {peers}", flush=True)


def check(counted):
    """Exit status: 1 when an operation without a reason is above the limit."""
    reasons = bench_page.reasons()["instructions"]
    above = 0
    for operation, sides in counted.items():
        if sides[LIBRARY] > LIMIT and operation not in reasons:
            print(f"over the limit: {operation}: {sides[LIBRARY]:.3f} times the instructions of its floor", file=sys.stderr)
            above += 1
    print(f"{len(counted)} operations counted, {above} above {LIMIT} times the instructions of their floors")
    return 1 if above else 0


def plot(found):
    """Measures everything, and keeps the figures for --redraw."""
    forks = json.loads(subprocess.run([CURVE], check=True, capture_output=True, text=True).stdout)
    timed, rounds = {}, {}
    for operation in found:
        timed[operation], rounds[operation] = time_of(operation)
        show_timed(operation, timed[operation], rounds[operation])
    machine = bench_page.machine()
    figures = {"timed": timed, "rounds": rounds, "counted": instructions(found, peers=True), "forks": forks,
               "machine": machine}
    with open(FIGURES, "w") as file:
        json.dump(figures, file, indent=1)


def redraw():
    """Exit status: 1 when an operation above the limit has no reason on the page."""
    try:
        with open(FIGURES) as file:
            figures = json.load(file)
    except FileNotFoundError:
        sys.exit(f"there is no {FIGURES}; --plot makes it")
    unexplained = bench_page.write(**figures)
    for line in unexplained:
        print(f"above {LIMIT}, and no reason in {bench_page.REASONS}: {line}", file=sys.stderr)
    return 1 if unexplained else 0


def main():
    # scripts/bench has checked that the options go together.
    parser = argparse.ArgumentParser(prog="scripts/bench")
    parser.add_argument("--instructions", action="store_true")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--plot", action="store_true")
    parser.add_argument("--redraw", action="store_true")
    parser.add_argument("pattern", nargs="?", default="")
    options = parser.parse_args()

    if options.redraw:
        return redraw()
    found = operations(options.pattern)
    if options.plot:
        plot(found)
        return redraw()
    if options.instructions:
        if options.check:
            found = {name: sides for name, sides in found.items() if not STARTS_PROCESS.search(name)}
        print(f"{'operation':40}{LIBRARY:>8}   times the instructions of the floor")
        counted = instructions(found, peers=not options.check)
        for operation, sides in counted.items():
            show_counted(operation, sides)
        return check(counted) if options.check else 0
    print(f"{'operation':40}{LIBRARY:>8}   times the floor's time; quartiles; rounds; peers")
    for operation in found:
        show_timed(operation, *time_of(operation))
    return 0


if __name__ == "__main__":
    sys.exit(main())
