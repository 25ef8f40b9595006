#!/usr/bin/env python3
"""Turns the benchmark program's JSON into a table on the terminal and RESULTS.md."""

import argparse
import json
import os
import re
import statistics
import sys

MARKER = "<!-- Written by hand from here on; scripts/bench keeps it. -->"
FORMS = ("reused", "fresh")
GENERIC_LIBRARIES = ("protobuf DynamicMessage", "msgpack", "libbson", "rapidjson", "hand-written map")
SUBJECTS = (
    "mInt", "IterMap", "MsgT", "mInt from the factory", "C interface", "bare loop", "protobuf",
    "protobuf on an arena", "protobuf DynamicMessage", "flatbuffers in place", "flatbuffers copy and verify",
    "capnproto", "msgpack", "libbson", "rapidjson", "hand-written map")
WORKLOAD_NAMES = {"W1": "W1 build", "W2": "W2 read all", "W3": "W3 read two", "W4": "W4 update", "W5": "W5 read 200"}
# W6: the rest of the benchmark's name after the workload, and its title.
THREAD_WORKLOADS = (
    ("Q/fresh/mInt", "build and read, fresh"), ("Q/reused/mInt", "build and read, reused"),
    ("Q/1 alive/mInt", "1 message alive, fresh"), ("Q/2 alive/mInt", "2 messages alive, fresh"),
    ("Q/3 alive/mInt", "3 messages alive, fresh"), ("Q/8 alive/mInt", "8 messages alive, fresh"),
    ("Q/64 alive/mInt", "64 messages alive, fresh"),
    ("Q/2 alive, build, parse and read/mInt", "2 messages alive, build, parse and read"),
    ("Q/1 alive/mInt from the factory", "1 message of the factory alive"),
    ("Q/8 alive/mInt from the factory", "8 messages of the factory alive"),
    ("Q/64 alive/mInt from the factory", "64 messages of the factory alive"),
    ("Q/hand-over/mInt from the factory", "producer to consumer"),
    ("Q/hand-over/bare blocks", "lower bound: producer to consumer, memory blocks alone"),
    ("-/-/arithmetic", "control: arithmetic alone"))
# Workload, message and form of the columns that compare implementations.
CORE = [(work, "B" if work == "W5" else "Q", form) for work in WORKLOAD_NAMES for form in FORMS
        if (work, form) != ("W4", "fresh")]


class Run:
    """One run of the benchmark program: times in ns, by name and number of threads."""

    def __init__(self, path):
        with open(path, encoding="utf-8") as file:
            data = json.load(file)
        self.context = data["context"]
        self.times = {}
        self.allocs = {}
        self.bytes = {}
        for entry in data["benchmarks"]:
            if entry.get("run_type") != "iteration" or entry.get("error_occurred"):
                continue
            match = re.fullmatch(r"(.*?)(/real_time/threads:(\d+))?", entry["run_name"])
            key = (match[1], int(match[3] or 1))
            scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[entry["time_unit"]]
            time = entry["real_time" if match[2] else "cpu_time"] * scale
            self.times.setdefault(key, []).append(time)
            self.allocs.setdefault(key, []).append(entry.get("allocs", 0))
            if entry.get("bytes_per_second"):
                self.bytes[key] = entry["bytes_per_second"] * time / 1e9

    def median(self, name, threads=1):
        times = self.times.get((name, threads))
        return statistics.median(times) if times else None

    def best(self, name, threads):
        times = self.times.get((name, threads))
        return min(times) if times else None

    def repetitions(self):
        return max((len(times) for times in self.times.values()), default=0)

    def spreads(self):
        """Half the repetitions of a benchmark are within this part of its median; one number per benchmark."""
        found = []
        for times in self.times.values():
            if len(times) >= 4:
                low, _, high = statistics.quantiles(times, n=4)
                found.append((high - low) / statistics.median(times))
            elif len(times) > 1:
                found.append((max(times) - min(times)) / statistics.median(times))
        return sorted(found)


class Row:
    """One line of the table of targets. `value(run)` gives the ratio, None where something was not measured."""

    def __init__(self, work, against, target, value, at_least=False):
        self.work, self.against, self.target, self.value, self.at_least = work, against, target, value, at_least

    def limit(self):
        return f"{'≥' if self.at_least else '≤'} {self.target:.2f}"

    def met(self, ratio):
        if ratio is None:
            return "-"
        return "yes" if (ratio >= self.target if self.at_least else ratio <= self.target) else "no"


def divided(a, b):
    return a / b if a is not None and b else None


def pair(ours, theirs):
    return lambda run: divided(run.median(ours), run.median(theirs))


def row(work, message, form, subject, other, target, other_message=None, against=None):
    name = f"{WORKLOAD_NAMES[work]}, {form}" if work != "W4" else WORKLOAD_NAMES[work]
    return Row(name, against or other, target,
               pair(f"{work}/{message}/{form}/{subject}", f"{work}/{other_message or message}/{form}/{other}"))


def headline_rows():
    rows = [
        row("W1", "Q", "reused", "mInt", "protobuf", 0.65),
        row("W1", "Q", "reused", "mInt", "bare loop", 2.2),
        row("W1", "Q", "fresh", "mInt", "protobuf", 0.80),
        row("W2", "Q", "reused", "mInt", "protobuf", 0.60),
        row("W2", "Q", "reused", "mInt", "bare loop", 1.35),
        row("W2", "Q", "fresh", "mInt", "protobuf", 0.65),
        row("W3", "Q", "reused", "mInt", "protobuf", 0.45),
        row("W4", "Q", "reused", "mInt", "protobuf", 0.30),
        row("W5", "B", "reused", "mInt", "protobuf", 0.70),
        row("W5", "B", "reused", "mInt", "bare loop", 1.4),
    ]
    for name, title in THREAD_WORKLOADS:
        rows.append(Row(f"W6 {title}, two threads", "one thread (best repetitions)", 1.85, lambda run, name="W6/" + name:
                        divided(run.best(name, 1), run.best(name, 2)), at_least=True))
    for work in ("W1", "W2"):
        rows.append(row(work, "Q", "reused", "C interface", "mInt", 1.15, against="C interface / mInt"))
        rows.append(row(work, "Q", "fresh", "C interface", "mInt from the factory", 1.15,
                        against="C interface / mInt from the factory"))
    for form in FORMS:
        made = row("W2", "X", form, "mInt", "mInt", 1.5, other_message="Q", against="X / Q")
        made.work += ", large dictionary"
        rows.append(made)
    load, baseline = "load/{} rows/-/dictionary", "load/{} rows/-/bare loop into a set"
    rows.append(Row("dictionary of 60,000 entries: load", "hand-written baseline", 1.5,
                    pair(load.format(60000), baseline.format(60000))))
    rows.append(Row("dictionary: growth from 6,000 to 60,000 entries", "growth of the hand-written baseline", 1.25, lambda run: divided(
        divided(run.median(load.format(60000)), run.median(load.format(6000))),
        divided(run.median(baseline.format(60000)), run.median(baseline.format(6000))))))
    return rows


def generic_rows():
    return [row(work, message, form, "mInt", library, 0.5 if (work, library) == ("W3", "libbson") else 0.25)
            for library in GENERIC_LIBRARIES for work, message, form in CORE]


def encoding_rows():
    return [row(work, message, form, encoding, "mInt", 1.15, against=f"{encoding} / mInt")
            for encoding in ("IterMap", "MsgT") for work, message, form in CORE]


def number(value, digits=2):
    return "-" if value is None else f"{value:.{digits}f}"


def time_text(nanoseconds):
    if nanoseconds is None:
        return "-"
    if nanoseconds >= 1e6:
        return f"{nanoseconds / 1e6:.1f} ms"
    if nanoseconds >= 100:
        return f"{nanoseconds:.0f}"
    return f"{nanoseconds:.1f}"


def shown(subject):
    """An implementation's name in the document; benchmarks have shorter ones."""
    return (subject.replace("bare loop into a set", "hand-written baseline").replace("bare loop", "hand-written baseline")
            .replace("bare blocks", "memory blocks alone").replace("C interface", "C API"))


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    lines += ["| " + " | ".join(str(cell) for cell in cells) + " |" for cells in rows]
    return "\n".join(lines)


def target_table(rows, run, before):
    head = ["workload", "against", "ratio", "target", "met"]
    if before:
        head.insert(2, "previous run")
    cells = []
    for each in rows:
        ratio = each.value(run)
        line = [each.work, shown(each.against), number(ratio), each.limit(), each.met(ratio)]
        if before:
            line.insert(2, number(each.value(before)))
        cells.append(line)
    return table(head, cells)


def subject_rows(run, instructions):
    head = ["implementation"] + [f"{WORKLOAD_NAMES[w]}{'' if w == 'W4' else ', ' + f}" for w, _, f in CORE]
    times, allocations, counts = [], [], []
    for subject in SUBJECTS:
        names = [f"{w}/{m}/{f}/{subject}" for w, m, f in CORE]
        if not any((name, 1) in run.times for name in names):
            continue
        times.append([shown(subject)] + [time_text(run.median(name)) for name in names])
        allocations.append([shown(subject)] + [
            "-" if (name, 1) not in run.allocs else f"{statistics.median(run.allocs[name, 1]):.3g}" for name in names])
        if instructions:
            counts.append([shown(subject)] + [f"{instructions[n]:.0f}" if n in instructions else "-" for n in names])
    return head, times, allocations, counts


THREADS_TITLE = """### Two threads: ns per operation over all threads, best repetitions

*Alive*: the benchmark creates this number of messages one after another, then destroys all of them. Through the message's own class, two
fields are added to each; from the factory, each message is parsed and two fields are read. *Producer to consumer*: one thread creates
messages from received bytes, the other reads all fields and destroys them. An operation is one half of this, and a single thread does both
halves. *Memory blocks alone* does the same without the library: 64-bit copies in recycled memory.

"""
THREADS_HEAD = ["implementation", "form", "1 thread", "2 threads", "speed-up"]


def thread_rows(run):
    names = sorted({name for name, _ in run.times if name.startswith("W6/")},
                   key=lambda name: (name.endswith("arithmetic"), "hand-over" in name, name.split("/")[3], name))
    lines = []
    for name in names:
        one, two = run.best(name, 1), run.best(name, 2)
        lines.append([shown(name.split("/")[3]), name.split("/")[2].replace("hand-over", "producer to consumer"), time_text(one), time_text(two), number(divided(one, two))])
    return lines


def other_workloads(run):
    parts = []
    messages = (("X", "quotes over the large dictionary"), ("R", "recorded ticks"))
    for message, title in messages:
        lines = []
        for subject in SUBJECTS:
            values = [time_text(run.median(f"{w}/{message}/{f}/{subject}")) for w in ("W1", "W2") for f in FORMS]
            if set(values) != {"-"}:
                lines.append([shown(subject)] + values)
        if lines:
            head = ["implementation"] + [f"{WORKLOAD_NAMES[w]}, {f}" for w in ("W1", "W2") for f in FORMS]
            parts.append(f"### {message}: {title}, ns\n\n" + table(head, lines))

    lines = thread_rows(run)
    if lines:
        parts.append(THREADS_TITLE + table(THREADS_HEAD, lines))

    lines = []
    for subject in ("mInt", "IterMap", "MsgT"):
        parse, erase = run.median(f"W7/Q/parse only/{subject}"), run.median(f"W7/Q/parse and erase 4/{subject}")
        if parse and erase:
            lines.append([subject, time_text(parse), time_text(erase), time_text(erase - parse)])
    if lines:
        parts.append("### Erasing 4 of 16 fields in one call, ns\n\n" + table(
            ["encoding", "parse", "parse and erase", "difference"], lines))

    lines = [[a, b, time_text(run.median(f"W8/Q/to {b}/{a}"))]
             for a in SUBJECTS[:3] for b in SUBJECTS[:3] if run.median(f"W8/Q/to {b}/{a}")]
    if lines:
        parts.append("### Copying a quote between encodings, ns\n\n" + table(["from", "to", "clear and copy"], lines))

    sizes = ("64 KiB", "1 MiB", "4 MiB")
    kinds = (("random", "random bytes"), ("shortest", "shortest unknown records"),
             ("between", "unknown records between quotes"))
    lines = []
    for kind, title in kinds:
        for subject in SUBJECTS[:3]:
            per_byte = []
            for size in sizes:
                name = f"W9/{size}/{kind}/{subject}"
                per_byte.append(divided(run.median(name), run.bytes.get((name, 1))))
            if per_byte[0]:
                lines.append([title, subject] + [number(1 / v if v else None) for v in per_byte] +
                             [number(divided(per_byte[2], per_byte[0]))])
    if lines:
        parts.append("### Parsing garbage, GB/s\n\n" + table(
            ["bytes", "encoding", *sizes, "time per byte, 4 MiB / 64 KiB"], lines))

    lines = [[name.split("/")[3], time_text(run.median(name))] for name, _ in sorted(run.times) if
             name.startswith("floor/")]
    if lines:
        parts.append("### Baseline costs on this machine, ns\n\n" + table(["operation", "time"], lines))

    lines = [[name.split("/")[1].replace("rows", "entries"), shown(name.split("/")[3]), time_text(run.median(name)),
              f"{statistics.median(run.allocs[name, 1]):.0f}"] for name, _ in sorted(run.times) if
             name.startswith("load/")]
    if lines:
        parts.append("### Loading a text dictionary\n\n" + table(["dictionary", "loaded by", "time", "allocations"], lines))
    return "\n\n".join(parts)


def machine(run):
    model = "unknown processor"
    try:
        with open("/proc/cpuinfo", encoding="utf-8") as file:
            model = next((line.split(":", 1)[1].strip() for line in file if line.startswith("model name")), model)
    except OSError:
        pass
    context = run.context
    caches = ", ".join(f"L{c['level']} {c['type']} {c['size'] // 1024} KiB" for c in context.get("caches", []))
    load = context.get("load_avg", [])
    text = [f"- Machine: {model}, {context['num_cpus']} CPUs; {caches}.",
            f"- System: {os.uname().sysname} {os.uname().release}, {context['date']}" +
            (f", load average at the start {load[0]:.2f}." if load else "."),
            f"- Compiler: {context.get('compiler', '?')}; {context.get('flags', '?')}."]
    if context.get("left_out"):
        text.append(f"- Not measured: {context['left_out']}.")
    return "\n".join(text)


def document(run, before, instructions, command):
    spreads = run.spreads()
    head, times, allocations, counts = subject_rows(run, instructions)
    spread = "" if not spreads else (
        f"half of a benchmark's repetitions are within {statistics.median(spreads):.1%} of its median for half of the "
        f"benchmarks, within {spreads[int(len(spreads) * 0.9)]:.1%} for nine of ten")
    parts = [f"""# Benchmark results

Generated by `{command}`. `docs/performance.md` is the summary for users.

## Method

One process runs all implementations on the same data. Before the clock starts, the benchmark compares the answers of the implementation
for all messages with the source values; a wrong answer ends the run. Each benchmark is repeated {run.repetitions()} times, with the repetitions of
all benchmarks interleaved in random order. Times are medians of CPU time, for workloads in threads of wall-clock time. Ratios are only
formed within one run. A second thread is alive throughout, so that locks and atomic counters cost what they cost in servers.
Allocations are counted by a replaced `malloc`, instructions by callgrind.

Messages:

- **Q**: a quote of 16 fields (4 double prices; 6 integers that are small, large and negative; one 64-bit integer; one character;
  texts of 8 and 12 characters; one nanosecond timestamp; one date-time). 64 different quotes are used in turn.
- **B**: 200 fields of all types.
- **R**: recorded quotes and trades.
- **X**: the fields of Q spread over a real dictionary of 6,066 fields.

Workloads:

- **W1** fills a message and reads its bytes.
- **W2** parses received bytes and reads all fields.
- **W3** parses received bytes and reads two fields.
- **W4** replaces four numbers of an existing message and reads its bytes.
- **W5** is W2 on B.

*Fresh* messages are created and destroyed in each operation; *reused* messages are kept.

Implementations:

- The three encodings of the library through their own classes, and `mInt` as the factory returns it.
- The C API through the functions of `md_message_c.h` alone. These return the size of a message but not its bytes, and only report whether
  a date-time is readable.
- A hand-written baseline: the bytes of an `mInt` in static memory, without any checks.
- Other libraries, each used as its documentation advises for speed. Operations that a library cannot do in place use its recommended
  alternative: protobuf, msgpack and JSON serialise again after an update. FlatBuffers in place and Cap'n Proto read received bytes without
  a copy; FlatBuffers in place does so without any check. The JSON, BSON and MessagePack documents name fields by number, which is the
  shortest form, and are read in a single pass.

{machine(run)}
- Spread: {spread}.

## Targets

Median time of `mInt` divided by that of the column "against", or of the two implementations named there. Lower is better; targets with ≥ are
speed-ups. [Missed targets and why](#missed-targets-and-why) gives the reasons for "no".

{target_table(headline_rows(), run, before)}

### Versus schema-at-runtime and name-based formats

{target_table(generic_rows(), run, before)}

### The other two encodings

{target_table(encoding_rows(), run, before)}

## Times, ns

{table(head, times)}

### Allocations per operation

{table(head, allocations)}"""]
    if counts:
        parts.append("### Instructions per operation\n\n" + table(head, counts))
    parts.append("## Other workloads\n\n" + other_workloads(run))
    return "\n\n".join(parts) + "\n"


def read_instructions(prefix, operations):
    """Counts per operation from the dumps that callgrind left beside `prefix`."""
    counts = {}
    folder, base = os.path.split(prefix)
    for name in os.listdir(folder or "."):
        if not name.startswith(base + "."):
            continue
        label, total = None, None
        with open(os.path.join(folder, name), encoding="utf-8", errors="replace") as file:
            for line in file:
                if line.startswith("desc: Trigger: Client Request: "):
                    label = line.split(": ", 3)[3].strip()
                elif line.startswith(("summary:", "totals:")):
                    total = int(line.split()[1])
        if label and total:
            counts[label] = total / operations
    return counts


def print_summary(run, before):
    print()
    for title, rows in (("targets", headline_rows()), ("any message by description or by name", generic_rows()),
                        ("the other two encodings", encoding_rows())):
        met = [each.met(each.value(run)) for each in rows]
        print(f"{title}: {met.count('yes')} met, {met.count('no')} missed, {met.count('-')} not measured")
        for each, verdict in zip(rows, met):
            was = f"  before {number(each.value(before)):>7}" if before else ""
            print(f"  {each.work:<46} {each.against:<38}{was} {number(each.value(run)):>7}  {each.limit():>7}  {verdict}")
    spreads = run.spreads()
    if spreads:
        print(f"spread: median {statistics.median(spreads):.1%}, nine of ten below "
              f"{spreads[int(len(spreads) * 0.9)]:.1%}, most {spreads[-1]:.1%}")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("results", help="the program's JSON")
    parser.add_argument("--before", help="the JSON of an earlier run, for a column of its ratios")
    parser.add_argument("--callgrind", help="the path that callgrind's dumps begin with")
    parser.add_argument("--operations", type=int, default=1024, help="operations in each of those dumps")
    parser.add_argument("--output", required=True, help="the folder for RESULTS.md")
    parser.add_argument("--command", default="scripts/bench", help="how this run was started")
    options = parser.parse_args()

    run = Run(options.results)
    before = Run(options.before) if options.before else None
    instructions = read_instructions(options.callgrind, options.operations) if options.callgrind else {}
    page = os.path.join(options.output, "RESULTS.md")
    notes = ""
    if os.path.exists(page):
        with open(page, encoding="utf-8") as file:
            kept = file.read().split(MARKER, 1)
            notes = kept[1] if len(kept) == 2 else ""
    os.makedirs(options.output, exist_ok=True)
    with open(page, "w", encoding="utf-8") as file:
        file.write(document(run, before, instructions, options.command) + "\n" + MARKER + (notes or "\n"))
    print_summary(run, before)
    print(f"written: {page}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
