#!/usr/bin/env python3
"""Runs the benchmark programs and prints their tables; script/bench calls it.

usage: bench.py PROGRAMS [--growth | --ends COUNT | --picture FILE] [BENCHMARK-ARGUMENT...]
"""
import datetime
import pathlib
import platform
import statistics
import subprocess
import sys

import bench_growth
import bench_instructions
import bench_picture
from bench_table import REPETITIONS, cell, counters, drawn, duration, mebibytes, run, times, verdict

HOP, PING_PONG = "BareWorkerHop/real_time", "BarePingPong/real_time"

# Each row has a title, the benchmark, the floor's benchmarks, which are added up, and the goal: at
# most so many times the floor.
ROWS = (
    ("Steady tick of the core", "SteadyTickOfTheCore", ("BarePlatformCallsOfATick",), 1.5),
    ("Steady tick in virtual time, invariants on", "ThousandSteadyTicks/real_time", ("BarePlatformCallsOfATick",), None),
    ("Verified SMC write, value unchanged", "VerifiedWriteUnchanged", ("BareCalls/1",), None),
    ("Verified SMC write, value changing", "VerifiedWriteChanging", ("BareCalls/3",), None),
    ("Store write, durable and verified", "StoreWrite", ("PlainSystemCallsOfAStoreWrite",), 1.15),
    ("Round trip `ping`", "RoundTrip/ping/real_time", (PING_PONG,), 2),
    ("Round trip `getState`", "RoundTrip/getState/real_time", (PING_PONG,), 2),
    ("Hop to the queue's thread and back", "QueueHop/real_time", (HOP,), None),
    ("Queued request, `cancelTopUp`", "QueuedRequest/real_time", (HOP, PING_PONG), None),
    ("`setChargeLimit`, durable", "DurableLimit/real_time", ("BareStoreWrite/real_time", HOP, PING_PONG), 1.3),
    ("Start to first answer", "StartToFirstAnswer/iterations:20/manual_time",
     ("BareStartToFirstByte/iterations:20/manual_time",), 2),
    ("Start to first answer, empty program", "StartToFirstAnswer/iterations:20/manual_time",
     ("EmptyProgramToFirstByte/iterations:20/manual_time",), None),
)
# Goals of rows that have none while the scheduler may place the processes.
ONE_CORE_GOALS = {"QueuedRequest/real_time": 1.5}
RATE = ("Virtual ticks a second, all invariants on", "ThousandSteadyTicks/real_time", "items_per_second", 250_000)
HUNG = ("End while the hardware hangs", "EndWhileHardwareHangs/iterations:1/manual_time", 0.50e9, 0.55e9)
WHILE_HUNG = ("`ping` while the hardware hangs, 99 of 100 within", "PingWhileHardwareHangs/iterations:1", 2)
GALLERY = ("Gallery/real_time", 2e9)
FOOTPRINTS = (("Resident memory", "residentKiB", None), ("Private memory", "privateKiB", 1.5))
FOOTPRINT, EMPTY_FOOTPRINT = "Footprint/iterations:1", "EmptyFootprint/iterations:1"

# The helper beside two services. Each row has a title, three measurements, how they are shown, and
# the goal: at most so much of the first service's figure (a ratio), or at most so much at all.
PEERS = ("upowerd", "power-profiles-daemon")
STARTS = ("StartToFirstAnswer/iterations:20/manual_time", "PeerStart/upowerd/iterations:20/manual_time",
          "PeerStart/powerProfiles/iterations:20/manual_time")
READS = ("RoundTrip/ping/real_time", "PropertyRead/upowerd/real_time", "PropertyRead/powerProfiles/real_time")
PRINTS = (FOOTPRINT, "PeerFootprint/upowerd/iterations:1", "PeerFootprint/powerProfiles/iterations:1")
QUIET = "ThreeQuietMinutes/iterations:1"
QUIET_TICKS = 36
TICK_WAKEUPS = 7  # One of the tick, and one of each call that it waits for.
ALONE = "--benchmark_filter=ThreeQuietMinutes"

# The scheduler's placement of two processes that wait for each other matters more than their work,
# so these are measured again with everything on one core.
ON_ONE_CORE = ("taskset", "--cpu-list", "0")
ONE_CORE_FILTER = ("--benchmark_filter=RoundTrip/(ping|getState)|BarePingPong|PropertyRead|Hop|QueuedRequest"
                   "|DurableLimit|BareStoreWrite|PingWhileHardwareHangs")


def compared(label, values, floor, goal, show):
    ratio = statistics.median(values) / statistics.median(floor)
    told = "–" if goal is None else verdict(f"≤ {goal}", ratio <= goal)
    return [label, cell(values, show), cell(floor, show), f"{ratio:.3g}", told]


def added_up(measured, floors):
    return [sum(each) for each in zip(*(times(measured, floor) for floor in floors))]


def timed_rows(measured, where="", goals=None):
    rows = []
    for label, name, floors, goal in ROWS:
        if all(each in measured for each in (name, *floors)):
            rows.append(compared(label + where, times(measured, name), added_up(measured, floors),
                                 (goals or {}).get(name, goal), duration))
    label, name, goal = WHILE_HUNG
    if name in measured:
        rows.append(compared(label + where, counters(measured, name, "hungMost"),
                             counters(measured, name, "usualMost"), goal, duration))
    return rows


def gallery_row(measured):
    name, most = GALLERY
    values = times(measured, name)
    stories, days = (counters(measured, name, each)[0] for each in ("stories", "virtualDays"))
    return [f"The gallery: {stories:.0f} stories, {days:.1f} virtual days", cell(values, duration), "–", "–",
            verdict(f"≤ {duration(most)}", statistics.median(values) <= most)]


def holding_rows(measured):
    """A helper that holds a limit beside a program that wakes as often and computes nothing."""
    def quiet(name):
        return counters(measured, QUIET, name)
    wakeups = compared("Wakeups in 180 s, holding a limit", quiet("enforcingWakeups"), quiet("floorWakeups"), None,
                       "{:.0f}".format)
    wakeups[-1] = verdict(f"≤ {TICK_WAKEUPS} a tick", quiet("enforcingWakeups")[0] <= TICK_WAKEUPS * QUIET_TICKS)
    return [wakeups, compared("Processor time a minute, holding a limit", *(
        [1e6 * value for value in quiet(name)] for name in (
            "enforcingMillisecondsAMinute", "floorMillisecondsAMinute")), None, duration)]


def table(measured, on_one_core):
    rows = [["What", "Measured", "Floor", "Ratio", "Goal"]]
    rows += timed_rows(measured) + timed_rows(on_one_core, ", on one core", ONE_CORE_GOALS)
    label, name, counter, goal = RATE
    if name in measured:
        values = counters(measured, name, counter)
        rows.append([label, cell(values, lambda value: f"{value:,.0f}"), "–", "–",
                     verdict(f"≥ {goal:,}", statistics.median(values) >= goal)])
    if GALLERY[0] in measured:
        rows.append(gallery_row(measured))
    label, name, least, most = HUNG
    if name in measured:
        values = times(measured, name)
        rows.append([label, cell(values, duration), "–", "–", verdict(
            f"{duration(least)} to {duration(most)}", least <= min(values) and max(values) <= most)])
    if QUIET in measured:
        rows += holding_rows(measured)
    for label, counter, goal in FOOTPRINTS:
        if FOOTPRINT in measured and EMPTY_FOOTPRINT in measured:
            rows.append(compared(label, counters(measured, FOOTPRINT, counter),
                                 counters(measured, EMPTY_FOOTPRINT, counter), goal, mebibytes))
    return drawn(rows)


def beside_peers(measured, on_one_core):
    """Rows of the helper and the services; a row whose measurements were not made is left out."""
    def row(label, values, show, ratio_goal=None, goal=None):
        medians = [statistics.median(each) for each in values]
        ratio = medians[0] / medians[1] if medians[1] else 0
        told = "–"
        if ratio_goal is not None:
            told = verdict(f"≤ {ratio_goal} × {PEERS[0]}", ratio <= ratio_goal)
        elif goal is not None:
            told = verdict(f"≤ {show(goal)}", medians[0] <= goal)
        return [label, *(cell(each, show) for each in values), f"{ratio:.3g}", told]

    def made(names, figures):
        return all(name in figures for name in names)

    rows = [["What", "KorvelHelper", *PEERS, f"of {PEERS[0]}", "Goal"]]
    if made(STARTS, measured):
        rows.append(row("Start to first answer", [times(measured, each) for each in STARTS], duration, 0.45))
        rows.append(row("End", [[1e6 * value for value in counters(measured, each, "endMilliseconds")]
                                for each in STARTS], duration, goal=2e6))
    if made(READS, on_one_core):
        rows.append(row("A small request, on one core", [times(on_one_core, each) for each in READS],
                        duration, 0.1))
    if made(PRINTS, measured):
        for label, counter, show, ratio_goal, goal in (
                ("Resident memory", "residentKiB", mebibytes, 0.55, None),
                ("Private memory", "privateKiB", mebibytes, None, None),
                ("Threads with one client", "threads", "{:.0f}".format, None, 4)):
            rows.append(row(label, [counters(measured, each, counter) for each in PRINTS], show, ratio_goal, goal))
    if QUIET in measured:
        def quiet(*names):
            return [counters(measured, QUIET, name) for name in names]
        rows.append(row("Wakeups in 180 s, idle", quiet("idleWakeups", "upowerdWakeups", "powerProfilesWakeups"),
                        "{:.0f}".format, goal=0))
        rows.append(row("Wakeups in 180 s, holding a limit",
                        quiet("enforcingWakeups", "upowerdWakeups", "powerProfilesWakeups"), "{:.0f}".format))
        rows.append(row("Processor time a minute, holding a limit",
                        [[1e6 * value for value in each] for each in quiet(
                            "enforcingMillisecondsAMinute", "upowerdMillisecondsAMinute",
                            "powerProfilesMillisecondsAMinute")], duration, goal=2e6))
    return drawn(rows) if len(rows) > 1 else ""


def machine():
    model = "unknown processor"
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    load = pathlib.Path("/proc/loadavg").read_text().split()[0]
    cores = pathlib.Path("/proc/cpuinfo").read_text().count("processor\t")
    return f"{model}, {cores} cores, Linux {platform.release()}, load {load} before the start"


def versions():
    """The peers, as Debian names their versions."""
    told = subprocess.run(["dpkg-query", "-W", "-f=${Package} ${Version}\n", "upower", PEERS[1], "umockdev",
                           "dbus"], capture_output=True, text=True, check=False).stdout
    return ", ".join(told.splitlines())


def picture(measured, on_one_core):
    """The three rows that tell most."""
    def medians(names, figures, take):
        return [statistics.median(take(figures, name)) for name in names]

    groups = [("From the first connection to the first answer", medians(STARTS, measured, times), duration),
              ("A small request and its answer, on one core", medians(READS, on_one_core, times), duration),
              ("Resident memory", medians(PRINTS, measured, lambda figures, name: counters(
                  figures, name, "residentKiB")), mebibytes)]
    return bench_picture.drawn(groups, ("KorvelHelper", *PEERS),
                               f"Shorter is better. Measured on {datetime.date.today()}.")


def taken(arguments, option, takes):
    """Takes an option and its value out of the arguments; none: it is not among them."""
    if option not in arguments:
        return None
    place = arguments.index(option)
    if place + 1 == len(arguments):
        sys.exit(f"{option} takes {takes}")
    value = arguments[place + 1]
    del arguments[place:place + 2]
    return value


def many_ends(program, count, arguments):
    """How many of so many ends came in time, each of a helper on a machine of its own."""
    if not count.isdigit() or int(count) == 0:
        sys.exit("--ends takes a number of ends")
    label, name, least, most = HUNG
    print(f"{count} ends while the hardware hangs, one after the other …", flush=True)
    values = times(run([program], [f"--benchmark_filter={name.split('/')[0]}", *arguments], int(count)), name)
    within = sum(least <= value <= most for value in values)

    def exact(value):
        return f"{value / 1e6:.1f} ms"

    head = ["What", "Shortest", "Median", "Longest", f"Within {duration(least)} to {duration(most)}", "Goal"]
    told = [label, exact(min(values)), exact(statistics.median(values)), exact(max(values)),
            f"{within} of {len(values)}", verdict("all", within == len(values))]
    print(f"\n{drawn([head, told])}")


def usual(directory, drawing, arguments):
    measured = {}
    processes = str(directory / "korvel_process_benchmarks")
    asked = any(word.startswith("--benchmark_filter") for word in arguments)
    for name in ("korvel_benchmarks", "korvel_process_benchmarks"):
        print(f"{name}: {REPETITIONS} repetitions, interleaved …", flush=True)
        without = [] if asked else ["--benchmark_filter=-ThreeQuietMinutes"]
        measured.update(run([str(directory / name)], [*without, *arguments]))
    print("korvel_process_benchmarks once more, all on one core …", flush=True)
    # The last filter counts, so the caller's replaces this one.
    on_one_core = run([*ON_ONE_CORE, processes], [ONE_CORE_FILTER, *arguments])
    if not asked:
        print("three quiet minutes …", flush=True)
        measured.update(run([processes], [ALONE, *arguments], repetitions=1))
    if not measured:
        sys.exit("no benchmark was run")
    print(f"\nmedian (smallest … largest) of {REPETITIONS} repetitions\n")
    print(table(measured, on_one_core))
    print(f"\n{beside_peers(measured, on_one_core)}")
    if not asked:
        print("\nCounting instructions …", flush=True)
        counted = bench_instructions.rows((directory.parent / "bin").resolve())
        print(drawn([["The helper's instructions", "Count"], *([what, f"{count:,}"] for what, count in counted)]))
    print(f"\n{versions()}")
    if drawing:
        pathlib.Path(drawing).write_text(picture(measured, on_one_core), encoding="utf-8")


def main():
    arguments = sys.argv[1:]
    if not arguments:
        print(__doc__.strip().splitlines()[-1], file=sys.stderr)
        sys.exit(2)
    directory = pathlib.Path(arguments.pop(0))
    print(f"{datetime.date.today()}: {machine()}", flush=True)
    ends = taken(arguments, "--ends", "a number of ends")
    drawing = taken(arguments, "--picture", "a file")
    if ends is not None:
        many_ends(str(directory / "korvel_process_benchmarks"), ends, arguments)
    elif "--growth" in arguments:
        arguments.remove("--growth")
        bench_growth.tables([str(directory / "korvel_growth_benchmarks")], arguments)
    else:
        usual(directory, drawing, arguments)


if __name__ == "__main__":
    main()
