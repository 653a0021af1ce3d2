"""Runs tavo_bench and compares the sides of each operation. Called by scripts/bench."""

import argparse
import json
import os
import re
import statistics
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

import bench_page

PROGRAM = "build/bench/bench/tavo_bench"
CURVE = "build/bench/bench/tavo_fork_curve"
FIGURES = "build/bench-figures.json"
LIBRARY, FLOOR = "libtavo", "floor"
LIMIT = 1.05
ROUNDS = 7
# Functions are bound when the program is loaded. With lazy binding, the first caller of a function
# would be charged for it.
COUNTING = {"TAVO_BENCH_COUNT": "1", "LD_BIND_NOW": "1"}
STARTS_PROCESS = re.compile("^execute")
# Operations in which other processes or threads work. For the rest the calling thread's processor
# time is taken, which a busy machine hardly changes.
WAITS = re.compile("^(execute|MQTT|log lines by 8 threads)")

# Operations that may take more than the limit, with the reason that the contract gives.
EXCEPTIONS = {}


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


def time_of(operation):
    """Median seconds of each side; the rounds of all sides are mixed."""
    clock = "real_time" if WAITS.search(operation) else "cpu_time"
    with tempfile.NamedTemporaryFile(suffix=".json") as results:
        run([f"--benchmark_filter={exactly([operation])}", f"--benchmark_repetitions={ROUNDS}",
             "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.005"], results.name)
        rounds = {}
        for entry in json.load(open(results.name))["benchmarks"]:
            if entry["run_type"] == "iteration":
                rounds.setdefault(entry["run_name"].split("/")[1], []).append(entry[clock] * 1e-9)
    return {side: statistics.median(times) for side, times in rounds.items()}


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
    """Instructions of each side of each operation.

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
    return {operation: counted[operation] for operation in found}


def ratios(sides):
    """The library's part of the floor, then the peers'."""
    peers = [side for side in sides if side not in (LIBRARY, FLOOR)]
    return {side: sides[side] / sides[FLOOR] for side in [LIBRARY, *peers]}


def show(operation, sides):
    parts = ratios(sides)
    peers = ", ".join(f"{side} {part:.2f}" for side, part in parts.items() if side != LIBRARY)
    print(f"{operation:40}{parts[LIBRARY]:8.2f}   {peers}", flush=True)


def check(counted):
    """Exit status: 1 when an operation without a reason is above the limit."""
    above = 0
    for operation, sides in counted.items():
        part = ratios(sides)[LIBRARY]
        if part > LIMIT and operation not in EXCEPTIONS:
            print(f"over the limit: {operation}: {part:.3f} times the instructions of its floor", file=sys.stderr)
            above += 1
    print(f"{len(counted)} operations counted, {above} above {LIMIT} times the instructions of their floors")
    return 1 if above else 0


def fork_curve():
    """Milliseconds by MiB in use, for each way to start a program."""
    printed = subprocess.run([CURVE], check=True, capture_output=True, text=True).stdout
    return json.loads(printed)


def main():
    parser = argparse.ArgumentParser(prog="scripts/bench")
    parser.add_argument("--instructions", action="store_true")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--plot", action="store_true")
    parser.add_argument("pattern", nargs="?", default="")
    options = parser.parse_args()
    if options.check and not options.instructions:
        parser.error("--check requires --instructions")

    found = operations(options.pattern)
    without_processes = {name: sides for name, sides in found.items() if not STARTS_PROCESS.search(name)}
    if options.plot:
        figures = {"counted": instructions(without_processes, peers=True), "forks": fork_curve(), "timed": {}}
        for operation in found:
            figures["timed"][operation] = time_of(operation)
            show(operation, figures["timed"][operation])
            with open(FIGURES, "w") as file:
                json.dump(figures, file, indent=1)
        bench_page.write(figures["timed"], figures["counted"], figures["forks"], EXCEPTIONS)
        return 0

    print(f"{'operation':40}{'libtavo':>8}   times the floor")
    if options.instructions:
        counted = instructions(without_processes, peers=not options.check)
        for operation, sides in counted.items():
            show(operation, sides)
        return check(counted) if options.check else 0
    for operation in found:
        show(operation, time_of(operation))
    return 0


if __name__ == "__main__":
    sys.exit(main())
