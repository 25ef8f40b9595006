#!/usr/bin/env python3
"""Turns the benchmark program's JSON into a table on the terminal, performance.md and performance.svg."""

import argparse
import html
import json
import math
import os
import re
import statistics
import sys

MARKER = "<!-- Written by hand from here on; scripts/bench keeps it. -->"
FORMS = ("reused", "fresh")
GENERIC_PEERS = ("protobuf DynamicMessage", "msgpack", "libbson", "rapidjson", "hand-written map")
SUBJECTS = (
    "mInt", "IterMap", "MsgT", "mInt from the factory", "C interface", "bare loop", "protobuf",
    "protobuf on an arena", "protobuf DynamicMessage", "flatbuffers in place", "flatbuffers copy and verify",
    "capnproto", "msgpack", "libbson", "rapidjson", "hand-written map")
WORK_NAMES = {"W1": "W1 build", "W2": "W2 read all", "W3": "W3 read two", "W4": "W4 update", "W5": "W5 read 200"}
# W6: the parts of the name behind the work, and what it is.
THREAD_WORKS = (
    ("Q/fresh/mInt", "build and read, fresh"), ("Q/reused/mInt", "build and read, reused"),
    ("Q/1 alive/mInt", "1 message alive, fresh"), ("Q/2 alive/mInt", "2 messages alive, fresh"),
    ("Q/3 alive/mInt", "3 messages alive, fresh"), ("Q/8 alive/mInt", "8 messages alive, fresh"),
    ("Q/64 alive/mInt", "64 messages alive, fresh"),
    ("Q/2 alive, build, parse and read/mInt", "2 messages alive, build, parse and read"),
    ("Q/1 alive/mInt from the factory", "1 message of the factory alive"),
    ("Q/8 alive/mInt from the factory", "8 messages of the factory alive"),
    ("Q/64 alive/mInt from the factory", "64 messages of the factory alive"),
    ("Q/hand-over/mInt from the factory", "producer to consumer"),
    ("Q/hand-over/bare blocks", "floor: producer to consumer, bare blocks"),
    ("-/-/arithmetic", "control: arithmetic alone"))
# Work, message and form of the columns and panels that compare subjects.
CORE = [(work, "B" if work == "W5" else "Q", form) for work in WORK_NAMES for form in FORMS
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
        """Half the repetitions of a benchmark lie within this part of its median; one number per benchmark."""
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
    name = f"{WORK_NAMES[work]}, {form}" if work != "W4" else WORK_NAMES[work]
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
    for name, title in THREAD_WORKS:
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
    load, bare = "load/{} rows/-/dictionary", "load/{} rows/-/bare loop into a set"
    rows.append(Row("dictionary of 60,000 rows: load", "bare loop into a set", 1.5,
                    pair(load.format(60000), bare.format(60000))))
    rows.append(Row("dictionary: growth from 6,000 to 60,000 rows", "the bare loop's growth", 1.25, lambda run: divided(
        divided(run.median(load.format(60000)), run.median(load.format(6000))),
        divided(run.median(bare.format(60000)), run.median(bare.format(6000))))))
    return rows


def generic_rows():
    return [row(work, message, form, "mInt", peer, 0.5 if (work, peer) == ("W3", "libbson") else 0.25)
            for peer in GENERIC_PEERS for work, message, form in CORE]


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


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    lines += ["| " + " | ".join(str(cell) for cell in cells) + " |" for cells in rows]
    return "\n".join(lines)


def target_table(rows, run, before):
    head = ["work", "against", "ratio", "target", "met"]
    if before:
        head.insert(2, "before")
    cells = []
    for each in rows:
        ratio = each.value(run)
        line = [each.work, each.against, number(ratio), each.limit(), each.met(ratio)]
        if before:
            line.insert(2, number(each.value(before)))
        cells.append(line)
    return table(head, cells)


def subject_rows(run, instructions):
    head = ["subject"] + [f"{WORK_NAMES[w]}{'' if w == 'W4' else ', ' + f}" for w, _, f in CORE]
    times, allocations, counts = [], [], []
    for subject in SUBJECTS:
        names = [f"{w}/{m}/{f}/{subject}" for w, m, f in CORE]
        if not any((name, 1) in run.times for name in names):
            continue
        times.append([subject] + [time_text(run.median(name)) for name in names])
        allocations.append([subject] + [
            "-" if (name, 1) not in run.allocs else f"{statistics.median(run.allocs[name, 1]):.3g}" for name in names])
        if instructions:
            counts.append([subject] + [f"{instructions[n]:.0f}" if n in instructions else "-" for n in names])
    return head, times, allocations, counts


THREADS_TITLE = """### Two threads: ns per operation over all threads, best repetitions

*Alive*: so many messages are created one after the other, then all are destroyed; through the own class two fields are added to each, from
the factory each is parsed and two fields are read. *Hand-over*: one thread creates messages from received bytes, the other reads all fields
and destroys them; an operation is half of this, and a single thread does both. *Bare blocks* do the same without the library: 64-bit
copies in recycled memory.

"""
THREADS_HEAD = ["subject", "form", "1 thread", "2 threads", "speed-up"]


def thread_rows(run):
    names = sorted({name for name, _ in run.times if name.startswith("W6/")},
                   key=lambda name: (name.endswith("arithmetic"), "hand-over" in name, name.split("/")[3], name))
    lines = []
    for name in names:
        one, two = run.best(name, 1), run.best(name, 2)
        lines.append([name.split("/")[3], name.split("/")[2], time_text(one), time_text(two), number(divided(one, two))])
    return lines


def other_works(run):
    parts = []
    messages = (("X", "quotes over the large dictionary"), ("R", "recorded ticks"))
    for message, title in messages:
        lines = []
        for subject in SUBJECTS:
            values = [time_text(run.median(f"{w}/{message}/{f}/{subject}")) for w in ("W1", "W2") for f in FORMS]
            if set(values) != {"-"}:
                lines.append([subject] + values)
        if lines:
            head = ["subject"] + [f"{WORK_NAMES[w]}, {f}" for w in ("W1", "W2") for f in FORMS]
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
        parts.append("### Parsing garbage, GB per second\n\n" + table(
            ["bytes", "encoding", *sizes, "time per byte, 4 MiB / 64 KiB"], lines))

    lines = [[name.split("/")[3], time_text(run.median(name))] for name, _ in sorted(run.times) if
             name.startswith("floor/")]
    if lines:
        parts.append("### What the machine charges, ns\n\n" + table(["operation", "time"], lines))

    lines = [[name.split("/")[1], name.split("/")[3], time_text(run.median(name)),
              f"{statistics.median(run.allocs[name, 1]):.0f}"] for name, _ in sorted(run.times) if
             name.startswith("load/")]
    if lines:
        parts.append("### Loading a text dictionary\n\n" + table(["definitions", "by", "time", "allocations"], lines))
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
        text.append(f"- Left out: {context['left_out']}.")
    return "\n".join(text)


def document(run, before, instructions, command):
    spreads = run.spreads()
    head, times, allocations, counts = subject_rows(run, instructions)
    spread = "" if not spreads else (
        f"half of a benchmark's repetitions lie within {statistics.median(spreads):.1%} of its median for half of the "
        f"benchmarks, within {spreads[int(len(spreads) * 0.9)]:.1%} for nine of ten")
    parts = [f"""# Performance

Made by `{command}`.

![Medians of the works as bars](performance.svg)

## Method

One process runs every subject on the same data. Before a subject's clock starts, its answers for all messages are
compared with the source values; a wrong answer ends the run. Each benchmark is repeated {run.repetitions()} times,
repetitions of all benchmarks interleaved in random order; times are medians of processor time, for works in threads of
real time. Only ratios within one run are compared. A second thread is alive throughout, so that locks and atomic counts
cost what they cost in servers. Allocations are counted by a replaced `malloc`, instructions by callgrind.

Messages: **Q**, a quote of 16 fields (4 double prices, 6 integers that are small, large and negative, 1 64-bit integer,
1 character, texts of 8 and 12 characters, 1 time in nanoseconds, 1 date-time), 64 different ones in turn; **B**, 200
fields of all types; **R**, recorded quotes and trades; **X**, Q's fields spread over a real dictionary of 6,066 fields.

Works: **W1** fills a message and takes its bytes; **W2** takes received bytes and reads all fields; **W3** the same with
two fields; **W4** replaces four numbers of a live message and takes its bytes; **W5** is W2 on B. *Fresh* messages are
made and destroyed in each operation, *reused* ones live on.

Subjects: the library's three encodings through their own classes, `mInt` as the factory hands it out, and the C
interface by the functions of `md_message_c.h` alone (which hand out a message's size, not its bytes, and tell of a date-time
only that it can be read); a bare loop over `mInt`'s very bytes that tests nothing, in static memory; and peers, each used as its documentation advises for
speed. What a peer cannot do in place it does by its own means: protobuf, msgpack and JSON serialise again after an update.
FlatBuffers in place and Cap'n Proto read received bytes where they lie; the former without any check. The
JSON, BSON and MessagePack documents name fields by number, which is the shortest, and are read in one walk.

{machine(run)}
- Spread: {spread}.

## Targets

Ratios of medians of `mInt` to what stands in the second column, unless that names both.

{target_table(headline_rows(), run, before)}

### Against what reads any message by description or by name

{target_table(generic_rows(), run, before)}

### The other two encodings

{target_table(encoding_rows(), run, before)}

## Times, ns

{table(head, times)}

### Allocations per operation

{table(head, allocations)}"""]
    if counts:
        parts.append("### Instructions per operation\n\n" + table(head, counts))
    parts.append("## Other works\n\n" + other_works(run))
    return "\n\n".join(parts) + "\n"


def chart(run):
    """Horizontal bars on a logarithmic axis, a panel per work."""
    left, width, bar, gap, title = 210, 560, 14, 4, 34
    panels = []
    for work, message, form in CORE:
        if form == "reused":
            values = [(s, run.median(f"{work}/{message}/reused/{s}")) for s in SUBJECTS]
            panels.append((f"{WORK_NAMES[work]} (reused), ns", sorted((v, s) for s, v in values if v)))
    height = 30 + sum(title + len(p[1]) * (bar + gap) + 12 for p in panels)
    ours = {"mInt", "IterMap", "MsgT", "mInt from the factory", "C interface"}
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{left + width + 90}" height="{height}" '
           f'font-family="sans-serif" font-size="12">',
           f'<rect width="100%" height="100%" fill="#ffffff"/>',
           f'<text x="10" y="20" fill="#444444">Time per operation, logarithmic scale, shorter is better</text>']
    y = 30
    for name, bars in panels:
        if not bars:
            continue
        low = 10 ** math.floor(math.log10(bars[0][0]))
        high = 10 ** math.ceil(math.log10(bars[-1][0] * 1.01))
        out.append(f'<text x="10" y="{y + 20}" font-weight="bold">{html.escape(name)}</text>')
        y += title
        bottom = y + len(bars) * (bar + gap)
        tick = low
        while tick <= high * 1.001:
            x = left + width * math.log(tick / low) / math.log(high / low)
            out.append(f'<line x1="{x:.1f}" y1="{y - 4}" x2="{x:.1f}" y2="{bottom}" stroke="#dddddd"/>')
            out.append(f'<text x="{x:.1f}" y="{y - 7}" text-anchor="middle" fill="#888888" font-size="10">'
                       f'{tick:g}</text>')
            tick *= 10
        for value, subject in bars:
            length = max(2.0, width * math.log(value / low) / math.log(high / low))
            colour = "#1f6fb2" if subject in ours else "#7a9a4f" if subject == "bare loop" else "#b0b0b0"
            out.append(f'<text x="{left - 8}" y="{y + bar - 3}" text-anchor="end">{html.escape(subject)}</text>')
            out.append(f'<rect x="{left}" y="{y}" width="{length:.1f}" height="{bar}" fill="{colour}"/>')
            out.append(f'<text x="{left + length + 5:.1f}" y="{y + bar - 3}" fill="#444444" font-size="11">'
                       f'{time_text(value)}</text>')
            y += bar + gap
        y += 12
    out.append("</svg>\n")
    return "\n".join(out)


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
    parser.add_argument("--output", required=True, help="the folder for performance.md and performance.svg")
    parser.add_argument("--command", default="scripts/bench", help="how this run was started")
    options = parser.parse_args()

    run = Run(options.results)
    before = Run(options.before) if options.before else None
    instructions = read_instructions(options.callgrind, options.operations) if options.callgrind else {}
    page = os.path.join(options.output, "performance.md")
    notes = ""
    if os.path.exists(page):
        with open(page, encoding="utf-8") as file:
            kept = file.read().split(MARKER, 1)
            notes = kept[1] if len(kept) == 2 else ""
    os.makedirs(options.output, exist_ok=True)
    with open(page, "w", encoding="utf-8") as file:
        file.write(document(run, before, instructions, options.command) + "\n" + MARKER + (notes or "\n"))
    with open(os.path.join(options.output, "performance.svg"), "w", encoding="utf-8") as file:
        file.write(chart(run))
    print_summary(run, before)
    print(f"written: {page} and performance.svg beside it")
    return 0


if __name__ == "__main__":
    sys.exit(main())
