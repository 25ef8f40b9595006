"""How messages are found: ports, Decode As, the heuristic, and TCP streams with a length prefix of each message."""
import struct

from support import MINT, PORT, TestCase, main, record
from differential_test import FIELD_MAP, read_dump, read_layer

FRAMINGS = {"u16le": "<H", "u16be": ">H", "u32le": "<I", "u32be": ">I"}


def numbered(number):
    """A message of 12 bytes and more: SEQ, and a symbol whose length depends on the number."""
    symbol = b"S" * (number % 9) + b"\0"
    return b"\x06" + record(MINT, 11, struct.pack("<q", number)) + record(MINT, 1, symbol)


def framed(messages, framing):
    return b"".join(struct.pack(FRAMINGS[framing], len(message)) + message for message in messages)


class Udp(TestCase):
    def protocols(self, capture, *arguments, udp_port=None):
        return [row[0] for row in self.fields(capture, "_ws.col.Protocol", arguments=arguments, udp_port=udp_port)]

    def test_ports_by_preference(self):
        capture = self.udp_capture("ports.pcap", [b"\x06"] * 4, ports=[31001, 31002, 31003, 31005])
        for ports, expected in (("", "UDP UDP UDP UDP"), ("31002", "UDP MD UDP UDP"), ("31001-31003", "MD MD MD UDP"),
                                ("31001,31003-31005", "MD UDP MD MD")):
            with self.subTest(ports):
                self.assertEqual(self.protocols(capture, "-o", f"md.udp_ports:{ports}"), expected.split())

    def test_decode_as(self):
        capture = self.udp_capture("ports.pcap", [b"\x06"] * 2, ports=[31001, 31002])
        self.assertEqual(self.protocols(capture, "-d", "udp.port==31002,md"), ["UDP", "MD"])
        capture = self.tcp_capture("tcp.pcap", [[framed([numbered(1)], "u32be")]], port=31002)
        self.assertEqual(self.protocols(capture, "-d", "tcp.port==31002,md"), ["MD"])

    def test_the_heuristic_takes_whole_messages_alone(self):
        """Off by default. On, it takes what walks to its end with known ids and lengths of their types."""
        capture = self.generate("feed.pcap", "--count", 1000, "--damaged", 30)
        self.assertNotIn("MD", self.protocols(capture))
        dumped = read_dump(self.mdmsg("dump", "--dictionary", FIELD_MAP, capture, status=1))
        expected = ["MD" if message.records and not message.problems and
                    all(text.startswith("this field also occurs at") for found in message.records for text in found.problems)
                    else "not MD" for message in dumped]
        self.assertGreater(expected.count("not MD"), 100)
        found = ["MD" if name == "MD" else "not MD" for name in self.protocols(capture, "-o", "md.heuristic:TRUE")]
        self.assertEqual(found, expected)

    def test_the_heuristic_refuses_what_is_nearly_a_message(self):
        bid = record(MINT, 22, struct.pack("<d", 1.5))
        sound = b"\x06" + bid
        cases = {sound: "MD", b"\x06": "UDP", b"\x01": "UDP", b"\x46QR1": "UDP", b"": "UDP", b"\x00" + bid: "UDP",
                 sound + b"\x16": "UDP", sound[:-1]: "UDP", sound + record(MINT, 65000, b""): "UDP",
                 b"\x06" + record(MINT, 22, b"\0" * 4): "UDP", b"\x06" + record(MINT, 1, b"AB"): "UDP",
                 b"\x06" + record(MINT, 6, b"\0" * 4): "UDP", sound + bid: "MD",
                 b"\x46XYZ" + struct.pack(">HHId", 22, 5, 8, 1.5): "UDP", b"\x46QR1" + struct.pack(">HHId", 22, 5, 8, 1.5): "MD",
                 b"\x46QR1" + struct.pack(">HHId", 22, 19, 8, 1.5): "UDP", b"\x01" + struct.pack("<Hd", 22, 1.5): "MD"}
        capture = self.udp_capture("nearly.pcap", list(cases), ports=[40000] * len(cases))
        self.assertEqual(self.protocols(capture, "-o", "md.heuristic:TRUE"), list(cases.values()))


class Tcp(TestCase):
    def numbers(self, capture, framing, *arguments):
        """By connection, the numbers of the messages in order, and what is wrong."""
        rows = self.fields(capture, "tcp.stream", "md.seq", "_ws.expert.message", udp_port=None,
                           arguments=("-o", f"md.tcp_ports:{PORT}", "-o", f"md.tcp_framing:{framing}", "-Y", "md", *arguments))
        streams = {}
        for stream, numbers, problems in rows:
            self.assertEqual(problems, "")
            streams.setdefault(int(stream), []).extend(int(number) for number in numbers.split(",") if number)
        return streams

    def test_every_split_point_of_a_stream(self):
        """50 messages; one connection for each place where the stream is cut in two segments."""
        numbers = list(range(1, 51))
        stream = framed([numbered(number) for number in numbers], "u32be")
        splits = [[stream[:at], stream[at:]] for at in range(1, len(stream))]
        streams = self.numbers(self.tcp_capture("split.pcap", splits), "u32be")
        self.assertEqual(len(streams), len(splits))
        for stream_number, found in streams.items():
            self.assertEqual(found, numbers, f"cut at byte {stream_number + 1}")

    def test_each_framing(self):
        """Split everywhere, one byte a segment, and all in one."""
        numbers = [1, 2, 3]
        for framing in FRAMINGS:
            with self.subTest(framing):
                stream = framed([numbered(number) for number in numbers], framing)
                connections = [[stream[:at], stream[at:]] for at in range(1, len(stream))]
                connections += [[stream[at:at + 1] for at in range(len(stream))], [stream]]
                streams = self.numbers(self.tcp_capture("framed.pcap", connections), framing)
                self.assertEqual(list(streams.values()), [numbers] * len(connections))

    def test_several_messages_in_one_segment_are_all_in_the_info_column(self):
        stream = framed([numbered(1), b"\x01", numbered(2)], "u16be")
        rows = self.fields(self.tcp_capture("info.pcap", [[stream]]), "_ws.col.Info", "md.stream.length", "md.size",
                           arguments=("-o", f"md.tcp_ports:{PORT}", "-o", "md.tcp_framing:u16be", "-o", "md.info_fields:SEQ"))
        first, second = len(numbered(1)), len(numbered(2))
        self.assertEqual(rows, [["mInt, 2 fields, SEQ=1; IterMap, 0 fields; mInt, 2 fields, SEQ=2",
                                 f"{first},1,{second}", f"{first},1,{second}"]])

    def test_lengths_that_cannot_be_right(self):
        stream = framed([numbered(1)], "u32be") + b"\xff\xff\xff\xff" + numbered(2)
        capture = self.tcp_capture("length.pcap", [[stream], [framed([b"", numbered(3)], "u32be")]])
        rows = self.fields(capture, "md.seq", "_ws.expert.message", "_ws.col.Info", udp_port=None,
                           arguments=("-o", f"md.tcp_ports:{PORT}"))
        self.assertEqual(rows[0][:2], ["1", "a length of 4294967295 bytes exceeds the limit of 1048576 bytes in the preferences"])
        self.assertTrue(rows[0][2].endswith("; length of 4294967295 bytes"))
        self.assertEqual(rows[1][:2], ["3", ""])
        self.assertTrue(rows[1][2].startswith("empty message; "))
        rows = self.fields(capture, "md.seq", "_ws.expert.message", udp_port=None,
                           arguments=("-o", f"md.tcp_ports:{PORT}", "-o", "md.tcp_longest:10"))
        self.assertEqual(rows[0], ["", f"a length of {len(numbered(1))} bytes exceeds the limit of 10 bytes in the preferences"])

    def test_without_reassembly_nothing_fails(self):
        stream = framed([numbered(number) for number in range(1, 4)], "u32be")
        capture = self.tcp_capture("apart.pcap", [[stream[:at], stream[at:]] for at in range(1, len(stream))])
        self.tshark(capture, "-o", f"md.tcp_ports:{PORT}", "-o", "tcp.desegment_tcp_streams:FALSE", "-V", udp_port=None)

    def test_large_messages(self):
        """A buffer that cannot be read, as dump has it, and more records than Wireshark has items for."""
        large = b"\x46QR1" + struct.pack(">HHI", 900, 14, 70000) + bytes(70000)
        many = b"\x01" + b"\xe8\xfd" * 60000
        (self.folder / "large.bin").write_bytes(framed([large], "u32be"))
        dumped = read_dump(self.mdmsg("dump", "--dictionary", FIELD_MAP, "--framing", "u32be", "large.bin", status=1))
        self.assertEqual(dumped[0].records[0].problems, ["too long to be read"])
        stream = framed([large, many], "u32be")
        segments = [stream[at:at + 1400] for at in range(0, len(stream), 1400)]
        packets = self.dissected(self.tcp_capture("large.pcap", [segments]), "-o", f"md.tcp_ports:{PORT}", "-Y", "md",
                                 udp_port=None)
        shown = read_layer({**packets[0], "md_raw": [None, packets[0]["md_raw"][1] + 4]})
        self.assertEqual(shown.records[0].problems, ["too long to be read"])
        self.assertEqual((shown.records[0].offset, shown.records[0].length, len(shown.records[0].value)), (4, 70000, 70000))
        shown = read_layer(packets[1])
        self.assertEqual(len(shown.records), 50000)
        self.assertEqual(shown.problems, ["10000 more records are not shown"])


if __name__ == "__main__":
    main()
