"""Measures the Python package with a file of mInt messages, length-prefixed by u32le. Prints a Markdown table.

    python.py FEED MDMSG      run by scripts/bench-python
"""
import json
import statistics
import subprocess
import sys
import time

FEED, MDMSG = sys.argv[1:]
REPETITIONS = 5
FIELDS = ["SYMBOL", "BID", "ASK"]

IMPORT = "import time; start = time.perf_counter(); import md_message; print(time.perf_counter() - start)"
# The growth of the peak of the process, and the bytes of the columns: a bit of validity and a value per row, and for text
# an offset and the characters.
MEMORY = """
import re, sys, md_message

def peak():
    return int(re.search(r"VmHWM:\\s+(\\d+)", open("/proc/self/status").read())[1])

md_message.read_columns(b"", ["BID"])
before = peak()
columns = md_message.read_columns(sys.argv[1], ["BID", "ASK", "SEQ"], framing="u32le")
after = peak()
print((after - before) * 1024 / (columns.rows * 3 * (8 + 1 / 8)))
"""


def best(function):
    """The lowest of several times, in seconds."""
    times = []
    for _ in range(REPETITIONS):
        start = time.perf_counter()
        function()
        times.append(time.perf_counter() - start)
    return min(times)


def row(what, figure, target, unit):
    print(f"| {what} | {figure:.2f} {unit} | {target} |")


def child(script, *arguments):
    return float(subprocess.run([sys.executable, "-c", script, *arguments], check=True, capture_output=True, text=True).stdout)


def main():
    imports = statistics.median(child(IMPORT) for _ in range(REPETITIONS))
    import md_message

    count = md_message.read_columns(FEED, ["SEQ"], framing="u32le").rows
    read = best(lambda: md_message.read_columns(FEED, FIELDS, framing="u32le"))
    lines = subprocess.run([MDMSG, "decode", "--framing", "u32le", "--format", "json", FEED], check=True,
                           capture_output=True, text=True).stdout.splitlines()[:100_000]
    expected = [json.loads(line) for line in lines]
    columns = md_message.read_columns(FEED, FIELDS, framing="u32le", limit=len(lines))
    assert all(columns[name].to_list() == [fields.get(name) for fields in expected] for name in FIELDS)
    loads = best(lambda: [json.loads(line) for line in lines])

    def iterate():
        for _ in md_message.open(FEED, framing="u32le"):
            pass

    message = next(md_message.open(FEED, framing="u32le", where="BID > 0"))

    def subscript():
        for _ in range(200_000):
            message["SYMBOL"], message["BID"], message["ASK"]

    twelve = md_message.Message("mInt", message, LAST=1.5)
    assert len(twelve) == 12

    def to_dict():
        for _ in range(100_000):
            twelve.to_dict()

    print("| operation | result | target |\n|---|---|---|")
    row("`read_columns` of 3 fields", count / read / 1e6, "10", "million messages/s")
    row("the same, compared with `json.loads` of the output of `mdmsg decode`", (count / read) / (len(lines) / loads), "30", "times")
    row("`m[\"X\"]` three times in a loop", 200_000 / best(subscript) / 1e6, "1.5", "million messages/s")
    row("`to_dict()` of 12 fields", 100_000 / best(to_dict) / 1e6, "0.45", "million messages/s")
    row("iteration with `open()`", count / best(iterate) / 1e6, "1", "million messages/s")
    row("`import md_message`", imports * 1000, "at most 50", "ms")
    row("peak memory of `read_columns`", child(MEMORY, FEED), "at most 1.3", "times the columns")


if __name__ == "__main__":
    main()
