"""What the tables of the benchmarks share: running a program, its figures, and their text."""
import json
import pathlib
import statistics
import subprocess
import sys
import tempfile

REPETITIONS = 9

NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
# One iteration of this benchmark does its work many times.
WORK_PER_ITERATION = {"ThousandSteadyTicks/real_time": 1000}


def run(program, arguments, repetitions=REPETITIONS):
    """One program's measurements: name -> list of entries, one a repetition."""
    with tempfile.TemporaryDirectory() as directory:
        out = pathlib.Path(directory) / "out.json"
        done = subprocess.run(
            [*program, f"--benchmark_out={out}", "--benchmark_out_format=json",
             "--benchmark_enable_random_interleaving=true",
             f"--benchmark_repetitions={repetitions}", *arguments],
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
    for unit, factor in (("s", 1e9), ("ms", 1e6), ("µs", 1e3), ("ns", 1)):
        if nanoseconds >= factor:
            break
    return f"{nanoseconds / factor:.3g} {unit}"


def mebibytes(kibibytes):
    return f"{kibibytes / 1024:.2f} MiB"


def whole(value):
    return f"{value:,.0f}"


def cell(values, show):
    """Median and, in brackets, the smallest and the largest; the value alone when there is one."""
    if len(values) == 1:
        return show(values[0])
    return f"{show(statistics.median(values))} ({show(min(values))} … {show(max(values))})"


def verdict(goal, met):
    return f"{goal}, {'met' if met else 'missed'}"


def drawn(rows):
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    rows.insert(1, ["-" * width for width in widths])
    return "\n".join("| " + " | ".join(text.ljust(width) for text, width in zip(row, widths)) + " |"
                     for row in rows)
