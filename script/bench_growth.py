"""How the helper and the virtual Mac grow: with clients, requests, ticks, time and faults."""
import statistics

from bench_table import REPETITIONS, cell, counters, drawn, duration, mebibytes, run, verdict, whole

# These take minutes, and are run once.
LONG = "Million|MonthAmongProcesses"
THREADS_GOAL = (64, 5)
# A process may have so much more after ten times the work, and still be called flat.
FLAT_KIB = 64
MONTH_HERE, MONTH_THERE = "MonthInProcess/real_time", "MonthAmongProcesses/iterations:1/real_time"
REQUESTS = "MillionRequests/iterations:1"
TICKS = (("journal dropped", "MillionTicks/iterations:1"),
         ("journal dropped, all invariants on", "MillionTicksWatched/iterations:1"))
KEPT = "MillionTicksKept/iterations:1"


def numbered(measured, beginning):
    """(number, name) of the benchmarks Beginning/NUMBER/…, by number."""
    return sorted((int(name.split("/")[1]), name) for name in measured if name.startswith(beginning + "/"))


def median(measured, name, counter):
    return statistics.median(counters(measured, name, counter))


# ---- clients

CLIENT_COLUMNS = (("One asks, half within", "oneHalf", duration), ("99 of 100", "oneMost", duration),
                  ("By turns, half within", "byTurnsHalf", duration), ("99 of 100", "byTurnsMost", duration),
                  ("Resident", "helperResidentKiB", mebibytes), ("Private", "helperPrivateKiB", mebibytes),
                  ("Descriptors", "helperDescriptors", whole), ("Threads", "helperThreads", whole))


def client_tables(measured):
    found = numbered(measured, "Clients")
    if not found:
        return
    yield drawn([["Clients", *(title for title, _, _ in CLIENT_COLUMNS)],
                 *([whole(count), *(show(median(measured, name, counter)) for _, counter, show in CLIENT_COLUMNS)]
                   for count, name in found)])
    rows = [["What", "Helper", "Machine", "Goal"]]
    (fewest, few), (most, many) = found[0], found[-1]
    if most > fewest:
        def each(counter):
            return [(median(measured, many, who + counter) - median(measured, few, who + counter)) / (most - fewest)
                    for who in ("helper", "machine")]
        rows.append(["Resident memory a client", *(f"{kib:.1f} KiB" for kib in each("ResidentKiB")), "–"])
        rows.append(["Private memory a client", *(f"{kib:.1f} KiB" for kib in each("PrivateKiB")), "–"])
        rows.append(["Descriptors a client", *(f"{count:.2f}" for count in each("Descriptors")), "–"])
    for count, name in found:
        if count in (THREADS_GOAL[0], most):
            values = [counters(measured, name, who + "Threads") for who in ("helper", "machine")]
            goal = verdict(f"≤ {THREADS_GOAL[1]}", max(values[0]) <= THREADS_GOAL[1])
            rows.append([f"Threads with {count:,} clients", *(cell(each, whole) for each in values),
                         goal if count == THREADS_GOAL[0] else "–"])
    yield drawn(rows)


# ---- long runs

def flat_row(label, early, late, show=mebibytes, more=FLAT_KIB):
    goal = "no more" if more == 0 else f"≤ {more} KiB more"
    return [label, show(early), show(late), verdict(goal, late - early <= more)]


def request_table(measured):
    if REQUESTS not in measured:
        return
    rows = [["What", "After 100,000 requests", "After 1,000,000", "Goal"]]
    for who, told in (("helper", "Helper"), ("machine", "Machine")):
        for counter, what, show, more in (("ResidentKiB", "resident memory", mebibytes, FLAT_KIB),
                                          ("PrivateKiB", "private memory", mebibytes, FLAT_KIB),
                                          ("Descriptors", "descriptors", whole, 0)):
            early, late = (median(measured, REQUESTS, who + when + counter) for when in ("Early", ""))
            rows.append(flat_row(f"{told}, {what}", early, late, show, more))
    size = [median(measured, REQUESTS, "journalBytes" + when) for when in ("Early", "")]
    rows.append(["The journal's file", *(f"{value / 1e6:,.1f} MB" for value in size), "–"])
    yield drawn(rows)


def kibibytes(count):
    return f"{count / 1024:,.1f} KiB"


def tick_table(measured):
    def both(name, counter):
        return [median(measured, name, counter + when) for when in ("Early", "")]

    rows = [["Ticks in one process", "After 100,000 ticks", "After 1,000,000", "Goal"]]
    for how, name in TICKS:
        if name in measured:
            rows.append(flat_row(f"Resident memory, {how}", *both(name, "resident")))
            rows.append(flat_row(f"Private memory, {how}", *both(name, "private")))
            rows.append([f"Allocated memory, {how}", *map(kibibytes, both(name, "heap")), "–"])
    if KEPT in measured:
        heap, entries = both(KEPT, "heap"), both(KEPT, "entries")
        each = (heap[1] - heap[0]) / (entries[1] - entries[0])
        rows.append(["Resident memory, journal kept", *map(mebibytes, both(KEPT, "resident")), "–"])
        rows.append([f"Allocated memory, journal kept ({each:.0f} bytes an entry)", *map(kibibytes, heap), "–"])
        rows.append(["Entries of the journal", *map(whole, entries), "–"])
    if len(rows) > 1:
        yield drawn(rows)


def month_tables(measured):
    names = [name for name in (MONTH_HERE, MONTH_THERE) if name in measured]
    if not names:
        return
    titles = {MONTH_HERE: "In this process", MONTH_THERE: "As processes"}
    rows = [["A month", *(titles[name] for name in names)]]
    for what, counter, show in (("Virtual days", "virtualDays", "{:.1f}".format),
                                ("Lines of the journal", "journalLines", whole),
                                ("Bytes of the journal", "journalBytes", whole),
                                ("Bytes of the log in it", "logBytes", whole),
                                ("Bytes of the record", "recordBytes", whole)):
        rows.append([what, *(show(median(measured, name, counter)) for name in names)])
    yield drawn(rows)
    if MONTH_THERE not in measured:
        return
    rows = [["What", "After the first hours", "After the month", "Goal"]]
    for who, told in (("helper", "Helper"), ("machine", "Machine")):
        for counter, what, show, more in (("Resident", "resident memory", mebibytes, FLAT_KIB),
                                          ("Private", "private memory", mebibytes, FLAT_KIB),
                                          ("Descriptors", "descriptors", whole, 0)):
            early, late = (median(measured, MONTH_THERE, who + counter + when) for when in ("Early", ""))
            rows.append(flat_row(f"{told}, {what}", early, late, show, more))
    yield drawn(rows)


# ---- faults

def fault_table(measured):
    ticks = {int(name.split("/")[1]): name for name in measured if name.startswith("TicksWithFaults/")}
    stories = {int(name.split("/")[1]): name for name in measured if name.startswith("StoriesWithFaults/")}
    if not ticks and not stories:
        return

    def rate(names, count):
        return cell(counters(measured, names[count], "items_per_second"), whole) if count in names else "–"

    yield drawn([["Faults", "Virtual ticks a second", "Stories a second"],
                 *([whole(count), rate(ticks, count), rate(stories, count)] for count in sorted({*ticks, *stories}))])


def tables(program, arguments):
    """Runs the program and prints its tables; a caller's filter takes the place of the two here."""
    asked = any(word.startswith("--benchmark_filter") for word in arguments)
    measured = {}
    print(f"korvel_growth_benchmarks: {REPETITIONS} repetitions, interleaved …", flush=True)
    measured.update(run(program, arguments if asked else [f"--benchmark_filter=-{LONG}", *arguments]))
    if not asked:
        print("a million requests, a million ticks, a month …", flush=True)
        measured.update(run(program, [f"--benchmark_filter={LONG}", *arguments], repetitions=1))
    if not measured:
        raise SystemExit("no benchmark was run")
    for make in (client_tables, request_table, tick_table, month_tables, fault_table):
        for table in make(measured):
            print(f"\n{table}")
