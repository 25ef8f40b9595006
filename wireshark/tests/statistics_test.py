"""The tap: messages counted by encoding and symbol."""
import json
import struct

from support import MINT, PORT, TestCase, main, record


class Statistics(TestCase):
    def report(self, capture, *arguments, **options):
        """The rows as name (with its indentation), messages, share, bytes and messages with problems."""
        lines = self.tshark(capture, "-q", *arguments, **options).splitlines()
        rows = [line.rsplit(None, 4) for line in lines[3:-1]]
        return [(name.rstrip(), int(count), share, int(size), int(problems)) for name, count, share, size, problems in rows]

    def test_counts_by_encoding_and_symbol(self):
        capture = self.generate("feed.pcap", "--count", 800, "--damaged", 10)
        rows = self.report(capture, "-z", "md,tree")
        self.assertEqual(rows[0][:3], ("Market data messages", 800, "100.00%"))
        self.assertEqual([row[0] for row in rows[1:] if not row[0].startswith("    ")],
                         ["  IterMap", "  MsgT", "  mInt", "  unknown encoding"])
        # Messages that the program decodes, by encoding and symbol.
        for encoding in ("IterMap", "MsgT", "mInt"):
            start = [row[0] for row in rows].index(f"  {encoding}")
            shown = {}
            for name, count, *_ in rows[start + 1:]:
                if not name.startswith("    "):
                    break
                shown[name.strip()] = count
            filtered = self.folder / f"{encoding}.pcap"
            arguments = ("-Y", f'md.encoding == "{encoding}"', "-w", filtered, "-F", "pcap")
            self.tshark(capture, *arguments)
            decoded = self.mdmsg("decode", "--format", "json", filtered, status=1)
            expected = {}
            for line in decoded.splitlines():
                symbol = json.loads(line)["SYMBOL"]
                expected[symbol] = expected.get(symbol, 0) + 1
            self.assertEqual(shown, expected)
            self.assertEqual(rows[start][1], sum(expected.values()))

    def test_filter(self):
        capture = self.generate("feed.pcap", "--count", 300)
        rows = self.report(capture, "-z", 'md,tree,md.encoding == "mInt" and md.symbol == "ORI/USD"')
        self.assertEqual([row[0] for row in rows], ["Market data messages", "  mInt", "    ORI/USD"])
        count = len(self.fields(capture, "frame.number",
                                arguments=("-Y", 'md.encoding == "mInt" and md.symbol == "ORI/USD"')))
        self.assertEqual({row[1] for row in rows}, {count})

    def test_the_field_of_the_symbol_is_a_preference(self):
        capture = self.udp_capture("one.pcap", [b"\x06" + record(MINT, 3, b"XNEB\0"), b"\x06", b""])
        rows = self.report(capture, "-z", "md,tree", "-o", "md.symbol_field:VENUE")
        self.assertEqual(rows, [("Market data messages", 2, "100.00%", 10, 0), ("  mInt", 2, "100.00%", 10, 0),
                                ("    XNEB", 1, "50.00%", 9, 0), ("    no symbol", 1, "50.00%", 1, 0)])

    def test_every_message_of_a_tcp_segment_counts(self):
        message = b"\x06" + record(MINT, 1, b"A\0")
        stream = b"".join(struct.pack(">I", len(message)) + message for _ in range(7))
        capture = self.tcp_capture("tcp.pcap", [[stream[:20], stream[20:]]])
        rows = self.report(capture, "-z", "md,tree", "-o", f"md.tcp_ports:{PORT}", udp_port=None)
        self.assertEqual(rows[-1], ("    A", 7, "100.00%", 7 * len(message), 0))

    def test_a_capture_without_messages(self):
        rows = self.report(self.udp_capture("none.pcap", [b"\x06"]), "-z", "md,tree", udp_port=None)
        self.assertEqual(rows, [("Market data messages", 0, "0.00%", 0, 0)])

    def test_a_filter_that_is_none(self):
        _, errors = self.tshark_with_errors(self.udp_capture("one.pcap", [b"\x06"]), "-q", "-z", "md,tree,no.such.field == 1")
        self.assertIn("md,tree: ", errors)


if __name__ == "__main__":
    main()
