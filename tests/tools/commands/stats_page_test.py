"""stats --html and --svg: well-formed, every value escaped, nothing outside the page, the figures of --format json.

Usage: stats_page_test.py MDMSG CLASS    a class of tests; those of recorded data need MD_TEST_DATA
"""

import json
import os
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree
from html.parser import HTMLParser

MDMSG = ""
DATA = ""

HOSTILE = [
    "<script>alert(1)</script>",
    "\"><img src=x onerror=alert(1)>",
    "' onmouseover='alert(1)",
    "&lt;b&gt; &amp; &#60;",
    "--><!--",
    "]]>",
    "a\u202eb\u001b[2J",
    "<!--report-->",
]


def mdmsg(arguments, text="", status=0):
    environment = dict(os.environ, CONFIG_PATH="no-configuration")
    result = subprocess.run([MDMSG, *arguments], input=text.encode(), capture_output=True, env=environment, check=False)
    assert result.returncode == status, result
    return result.stdout.decode()


class Outline(HTMLParser):
    """What a browser makes of the page: elements, attributes and texts."""

    def __init__(self, page):
        super().__init__()
        self.names = set()
        self.attributes = []
        self.texts = []
        self.feed(page)
        self.close()

    def handle_starttag(self, tag, attrs):
        self.names.add(tag)
        self.attributes += attrs

    def handle_startendtag(self, tag, attrs):
        self.handle_starttag(tag, attrs)

    def handle_data(self, data):
        self.texts.append(data)


class Page:
    """The page of an input, and the records of the same statistics."""

    def __init__(self, arguments, text="", status=0):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "page.html")
            self.records = [
                json.loads(line)
                for line in mdmsg(["stats", "--format", "json", "--html", path, *arguments], text, status).splitlines()
            ]
            with open(path, encoding="utf-8") as file:
                self.text = file.read()
        self.root = ElementTree.fromstring(self.text)

    def rows(self, table):
        """The cells of a table's body as texts, by its id."""
        found = self.root.find(f".//table[@id='{table}']/tbody")
        return [] if found is None else [["".join(cell.itertext()) for cell in row] for row in found]

    def cards(self, section):
        found = self.root.find(f".//section[@id='{section}']/dl")
        return {} if found is None else {"".join(card[0].itertext()): "".join(card[1].itertext()) for card in found}

    def bars(self, section):
        return [title.text for title in self.root.findall(f".//section[@id='{section}']/svg/rect/title")]

    def of(self, *sections):
        return [record for record in self.records if record["section"] in sections]


class PageTest(unittest.TestCase):
    def expect_figures(self, page):
        total = page.of("total")[0]
        cards = page.cards("overview")
        self.assertEqual(cards["messages"], str(total["count"]))
        self.assertEqual(cards["bytes"], str(total["bytes"]))
        self.assertEqual((cards.get("first"), cards.get("last")), (total.get("first"), total.get("last")))
        self.assertEqual(
            [row[:3] for row in page.rows("encodings")],
            [[r["key"], str(r["count"]), str(r["bytes"])] for r in page.of("encoding")],
        )
        self.assertEqual(page.rows("problems"), [[r["key"], str(r["count"])] for r in page.of("problem")])
        self.assertEqual(page.rows("unknown-ids"), [[r["key"], str(r["count"])] for r in page.of("unknown id")])
        self.assertEqual(page.bars("rate"), [f"{r['key']}: {r['count']}" for r in page.of("time")])
        self.assertEqual(
            sorted((row[0], row[2]) for row in page.rows("fields")),
            sorted((r["key"], str(r["count"])) for r in page.of("field")),
        )
        self.assertEqual(
            [row[1:3] for row in page.rows("by")], [[str(r["count"]), str(r["bytes"])] for r in page.of("group")]
        )
        self.assertEqual(
            [f"{row[0]} to {row[1]}" for row in page.rows("endpoints")], [r["key"] for r in page.of("endpoints")]
        )
        self.assertEqual([row[2] for row in page.rows("endpoints")], [str(r["count"]) for r in page.of("endpoints")])
        sequence = page.cards("sequence")
        for record in page.of("sequence"):
            self.assertEqual(sequence[record["key"]], str(record["count"]))

    def expect_closed(self, page):
        """Nothing is loaded, linked to or sent anywhere."""
        self.assertNotIn("://", page.text)
        self.assertNotIn("@import", page.text)
        self.assertNotIn("url(", page.text)
        outline = Outline(page.text)
        self.assertFalse(outline.names & {"a", "link", "img", "iframe", "object", "embed", "form", "base", "image", "use"})
        for name, value in outline.attributes:
            self.assertNotIn(name, {"src", "href", "xlink:href", "srcset", "action", "data", "style"})
            self.assertFalse(name.startswith("on"), name)
            self.assertNotIn("javascript:", value or "")


class StatsPage(PageTest):
    def test_figures_are_those_of_json(self):
        feed = mdmsg(["generate", "--count", "3000", "--damaged", "10", "--seed", "5"])
        page = Page(["--by", "SYMBOL", "--sequence", "SEQ", "--time-field", "SEND_TIME", "--top", "1000"], feed, 1)
        self.assertGreater(len(page.of("group")), 3)
        self.assertGreater(len(page.of("unknown id")), 0)
        self.expect_figures(page)
        self.expect_closed(page)

    def test_gaps_are_listed(self):
        quotes = mdmsg(["encode", "--encoding", "mInt"], '{"SYMBOL":"AB","SEQ":1}\n{"SYMBOL":"CD","SEQ":4}\n{"SEQ":3}\n')
        page = Page(["--sequence", "SEQ"], quotes)
        self.assertEqual(
            page.rows("events"),
            [["standard input:2", "", "missing 2 to 3"], ["standard input:3", "", "late 3"]],
        )
        self.assertEqual(page.cards("sequence")["missing"], "1")

    def test_values_of_the_input_are_text(self):
        lines = "".join(json.dumps({"SYMBOL": value, "SEQ": number}) + "\n" for number, value in enumerate(HOSTILE))
        quotes = mdmsg(["encode", "--encoding", "mInt"], lines)
        page = Page(["--by", "SYMBOL", "--sequence", "SEQ", "--per", "SYMBOL"], quotes)
        shown = [row[0] for row in page.rows("by")]
        expected = [v.replace("\u202e", "\\u{202e}").replace("\u001b", "\\x1b") for v in HOSTILE]
        self.assertEqual(sorted(shown), sorted(expected))
        outline = Outline(page.text)
        for value in expected:
            self.assertIn(value, outline.texts + ["".join(outline.texts)])
        self.expect_closed(page)
        self.assertEqual(page.text.count("<script>"), 1)
        self.assertEqual(page.text.count("<svg"), 2)

    def test_names_of_the_dictionary_are_text(self):
        with tempfile.TemporaryDirectory() as folder:
            dictionary = os.path.join(folder, "names.txt")
            with open(dictionary, "w", encoding="utf-8") as file:
                file.write("x<b>x</b> 1 STRING &amp; 2 INT")
            quotes = mdmsg(["encode", "--encoding", "mInt", "--dictionary", dictionary], '{"x<b>x</b>":"v","&amp;":1}')
            page = Page(["--dictionary", dictionary, "--by", "x<b>x</b>"], quotes)
        self.assertEqual([row[0] for row in page.rows("fields")], ["x<b>x</b>", "&amp;"])
        self.assertEqual(page.root.findall(".//b"), [])
        self.expect_closed(page)

    def test_an_empty_input_has_a_page(self):
        page = Page([])
        self.assertEqual(page.cards("overview"), {"messages": "0", "bytes": "0"})
        self.expect_closed(page)

    def test_files_are_not_overwritten_unasked(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "page.html")
            with open(path, "w", encoding="utf-8") as file:
                file.write("kept")
            mdmsg(["stats", "--html", path], "", 2)
            with open(path, encoding="utf-8") as file:
                self.assertEqual(file.read(), "kept")
            mdmsg(["stats", "--svg", path, "--html", path, "--force"], "", 2)

    def test_the_picture_is_well_formed(self):
        feed = mdmsg(["generate", "--count", "500"])
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "picture.svg")
            mdmsg(["stats", "--svg", path, "--time-field", "SEND_TIME"], feed)
            root = ElementTree.parse(path).getroot()
        name = "{http://www.w3.org/2000/svg}"
        texts = [text.text for text in root.iter(name + "text")]
        self.assertEqual(texts.count("messages"), 2)
        self.assertIn("size in bytes", texts)
        for text in root.iter(name + "text"):
            if "x" in text.attrib:
                self.assertLess(float(text.attrib["x"]), float(root.attrib["width"]))


class RecordedStatsPage(PageTest):
    def test_recorded_packets_have_the_same_figures(self):
        capture = os.path.join(DATA, "udp_realtime.pcap")
        if not DATA or not os.path.exists(capture):
            self.skipTest("MD_TEST_DATA names no folder with udp_realtime.pcap")
        page = Page([capture], "", 1)
        self.assertGreater(len(page.rows("endpoints")), 0)
        self.expect_figures(page)
        self.expect_closed(page)

    def test_recorded_quotes_have_the_same_figures(self):
        ticks = os.path.join(DATA, "ticks_small.csv")
        if not DATA or not os.path.exists(ticks):
            self.skipTest("MD_TEST_DATA names no folder with ticks_small.csv")
        fields = (
            "recv_ns 1 EPOCH_NSEC venue 2 STRING symbol 3 STRING kind 4 CHAR event_ms 5 INT64 txn_ms 6 INT64 seq 7 INT64 "
            "bid 20 DOUBLE bid_size 21 DOUBLE ask 22 DOUBLE ask_size 23 DOUBLE price 24 DOUBLE size 25 DOUBLE "
            "side 26 CHAR ord_type 27 STRING"
        )
        with tempfile.TemporaryDirectory() as folder:
            dictionary = os.path.join(folder, "ticks.txt")
            with open(dictionary, "w", encoding="utf-8") as file:
                file.write(fields)
            options = ["--dictionary", dictionary]
            quotes = mdmsg(["encode", "--encoding", "MsgT", "--csv", *options, ticks])
            page = Page([*options, "--by", "venue,symbol", "--sequence", "seq", "--per", "symbol", "--time-field", "recv_ns"], quotes)
        self.assertEqual(page.cards("overview")["messages"], "11983")
        self.assertEqual(len(page.rows("by")), 6)
        self.expect_figures(page)


if __name__ == "__main__":
    MDMSG = sys.argv[1]
    DATA = os.environ.get("MD_TEST_DATA", "")
    unittest.main(argv=[sys.argv[0], sys.argv[2]], verbosity=2)
