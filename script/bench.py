#!/usr/bin/env python3
"""Runs the benchmark programs and prints one table; script/bench calls it.

usage: bench.py PROGRAMS [BENCHMARK-ARGUMENT...]
"""
import json
import pathlib
import platform
import statistics
import subprocess
import sys
import tempfile

REPETITIONS = 9

# Each row has a title, the benchmark, the floor's benchmark or none, and the goal: at most so many
# times the floor, or at least so many a second.
ROWS = (
    ("Steady tick, journal on", "ThousandSteadyTicks/real_time", "BarePlatformCallsOfATick", None),
    ("Verified SMC write, value unchanged", "VerifiedWriteUnchanged", "BareCalls/1", None),
    ("Verified SMC write, value changing", "VerifiedWriteChanging", "BareCalls/3", None),
    ("Store write, durable and verified", "StoreWrite", "PlainSystemCallsOfAStoreWrite", 1.15),
    ("Round trip `ping`", "RoundTrip/ping/real_time", "BarePingPong/real_time", 1.5),
    ("Round trip `getState`", "RoundTrip/getState/real_time", "BarePingPong/real_time", 1.5),
    ("Start to first answer", "StartToFirstAnswer/iterations:20/manual_time",
     "EmptyProgramToFirstByte/iterations:20/manual_time", 2.5),
)
RATE = ("Virtual ticks a second", "ThousandSteadyTicks/real_time", "items_per_second", 250_000)
MEMORY = ("Resident memory", "ResidentMemory/iterations:1", "helperKiB", "emptyKiB", 1.5)
PRIVATE = ("Private memory", "ResidentMemory/iterations:1", "helperPrivateKiB", "emptyPrivateKiB",
           None)

NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
# One iteration of this benchmark does its work many times.
WORK_PER_ITERATION = {"ThousandSteadyTicks/real_time": 1000}


# The scheduler's placement of two processes that wait for each other matters more than their work,
# so these are measured again with everything on one core.
ON_ONE_CORE = ("taskset", "--cpu-list", "0")
ONE_CORE_FILTER = "--benchmark_filter=RoundTrip|BarePingPong"


def run(program, arguments):
    """One program's measurements: name -> list of entries, one a repetition."""
    with tempfile.TemporaryDirectory() as directory:
        out = pathlib.Path(directory) / "out.json"
        done = subprocess.run(
            [*program, f"--benchmark_out={out}", "--benchmark_out_format=json",
             "--benchmark_enable_random_interleaving=true",
             f"--benchmark_repetitions={REPETITIONS}", *arguments],
            check=False, capture_output=True, text=True)
        if done.returncode != 0:
            sys.exit(f"{' '.join(program)}: status {done.returncode}\n{done.stdout}{done.stderr}".rstrip())
        measured = {}
        # A program writes nothing at all when no benchmark matches the filter.
        text = out.read_text(encoding="utf-8") if out.exists() else ""
        for entry in json.loads(text)["benchmarks"] if text.strip() else ():
            if entry.get("error_occurred"):
                sys.exit(f"{entry['name']}: {entry['error_message']}")
            if entry["run_type"] == "iteration":
                measured.setdefault(entry["run_name"], []).append(entry)
        return measured


def times(measured, name):
    return [entry["real_time"] * NANOSECONDS[entry["time_unit"]] / WORK_PER_ITERATION.get(name, 1)
            for entry in measured[name]]


def counters(measured, name, counter):
    return [entry[counter] for entry in measured[name]]


def duration(nanoseconds):
    for unit, factor in (("ms", 1e6), ("µs", 1e3), ("ns", 1)):
        if nanoseconds >= factor:
            break
    return f"{nanoseconds / factor:.3g} {unit}"


def mebibytes(kibibytes):
    return f"{kibibytes / 1024:.2f} MiB"


def cell(values, show):
    """Median and, in brackets, the smallest and the largest."""
    return f"{show(statistics.median(values))} ({show(min(values))} … {show(max(values))})"


def verdict(goal, met):
    return f"{goal}, {'met' if met else 'missed'}"


def compared(label, values, floor, goal, show):
    ratio = statistics.median(values) / statistics.median(floor)
    told = "–" if goal is None else verdict(f"≤ {goal}", ratio <= goal)
    return [label, cell(values, show), cell(floor, show), f"{ratio:.3g}", told]


def timed_rows(measured, where=""):
    return [compared(label + where, times(measured, name), times(measured, floor), goal, duration)
            for label, name, floor, goal in ROWS if name in measured and floor in measured]


def table(measured, on_one_core):
    rows = [["What", "Measured", "Floor", "Ratio", "Goal"]]
    rows += timed_rows(measured) + timed_rows(on_one_core, ", on one core")
    label, name, counter, goal = RATE
    if name in measured:
        values = counters(measured, name, counter)
        rows.append([label, cell(values, lambda value: f"{value:,.0f}"), "–", "–",
                     verdict(f"≥ {goal:,}", statistics.median(values) >= goal)])
    for label, name, counter, floor, goal in (MEMORY, PRIVATE):
        if name in measured:
            rows.append(compared(label, counters(measured, name, counter),
                                 counters(measured, name, floor), goal, mebibytes))
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    rows.insert(1, ["-" * width for width in widths])
    return "\n".join("| " + " | ".join(text.ljust(width) for text, width in zip(row, widths)) + " |"
                     for row in rows)


def machine():
    model = "unknown processor"
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    load = pathlib.Path("/proc/loadavg").read_text().split()[0]
    cores = pathlib.Path("/proc/cpuinfo").read_text().count("processor\t")
    return f"{model}, {cores} cores, Linux {platform.release()}, load {load} before the start"


def main():
    if len(sys.argv) < 2:
        print(__doc__.strip().splitlines()[-1], file=sys.stderr)
        sys.exit(2)
    directory = pathlib.Path(sys.argv[1])
    where = machine()
    measured = {}
    for name in ("korvel_benchmarks", "korvel_process_benchmarks"):
        print(f"{name}: {REPETITIONS} repetitions, interleaved …", flush=True)
        measured.update(run([str(directory / name)], sys.argv[2:]))
    print("korvel_process_benchmarks once more, all on one core …", flush=True)
    # The last filter counts, so the caller's replaces this one.
    on_one_core = run([*ON_ONE_CORE, str(directory / "korvel_process_benchmarks")],
                      [ONE_CORE_FILTER, *sys.argv[2:]])
    if not measured:
        sys.exit("no benchmark was run")
    print(f"\n{where}\nmedian (smallest … largest) of {REPETITIONS} repetitions\n")
    print(table(measured, on_one_core))


if __name__ == "__main__":
    main()
