"""What is shown of messages: packet details, columns, filters, and the preferences about them."""
import struct

from support import MINT, PORT, TestCase, ip_frame, main, record, udp_datagram, write_capture

EPOCH = bytes.fromhex("4bac23449174d517")
DATE_TIME = bytes.fromhex("40118b358c8fdaff")  # 20240603 93000000 (-300)

# The message of docs/encodings.md.
EXAMPLE = bytes.fromhex(
    "06 0100 04 4e454200 2a00 01 42 1a00 01 64 1b00 02 e803 0800 04 fbffffff 4200 08 00f2052a01000000 3601 04 0000803e"
    "1600 08 0000000000106740 8403 02 cafe 1000 08 40118b358c8fdaff 0e00 08 4bac23449174d517".replace(" ", ""))
EXAMPLE_MSGT = bytes.fromhex("46515231 00010006 00000004 4e454200 001a0002 00000004 00000064 00160005 00000008"
                             "4067100000000000".replace(" ", ""))

DETAILS = """\
Market Data Message, mInt, 11 fields
    [Size in bytes: 84]
    Encoding: mInt (6)
    [Fields: 11]
    SYMBOL: NEB
        Id: SYMBOL (1)
        [Type: STRING (6)]
        Length: 4
    SIDE: 'B'
        Id: SIDE (42)
        [Type: CHAR (1)]
        Length: 1
    BID_QTY: 100
        Id: BID_QTY (26)
        [Type: INT (2)]
        Length: 1
    ASK_QTY: 1000
        Id: ASK_QTY (27)
        [Type: INT (2)]
        Length: 2
    TICK: -5
        Id: TICK (8)
        [Type: INT (2)]
        Length: 4
    VOLUME: 5000000000
        Id: VOLUME (66)
        [Type: INT64 (19)]
        Length: 8
    VOLATILITY: 0.25
        Id: VOLATILITY (310)
        [Type: FLOAT (4)]
        Length: 4
    BID: 184.5
        Id: BID (22)
        [Type: DOUBLE (5)]
        Length: 8
    RAW_PAYLOAD: cafe
        Id: RAW_PAYLOAD (900)
        [Type: BUFFER (14)]
        Length: 2
    EXCH_TIME: Jun  3, 2024 14:30:00.000000000 UTC
        Date: 20240603
        Time of day: 93000000
        UTC offset: -300
        Id: EXCH_TIME (16)
        [Type: DATETIME (20)]
        Length: 8
    RECV_TIME: Jun  3, 2024 09:30:00.173980747 UTC
        Nanoseconds since 1970: 1717407000173980747
        Id: RECV_TIME (14)
        [Type: EPOCH_NSEC (22)]
        Length: 8
"""

DETAILS_MSGT = """\
Market Data Message, MsgT, 3 fields
    [Size in bytes: 44]
    Encoding: MsgT (70)
    Mark: QR1
    [Fields: 3]
    SYMBOL: NEB
        Id: SYMBOL (1)
        Type: STRING (6)
        Length: 4
    BID_QTY: 100
        Id: BID_QTY (26)
        Type: INT (2)
        Length: 4
    BID: 184.5
        Id: BID (22)
        Type: DOUBLE (5)
        Length: 8
"""

PROBLEM = """\
Market Data Message, mInt, 1 field
    [Size in bytes: 11]
    Encoding: mInt (6)
    [Fields: 1]
    BID
        Id: BID (22)
        [Type: DOUBLE (5)]
        Length: 8
        Bytes: 00000000
            [Expert Info (Error/Malformed): the message is truncated within the value, of which it has 4 of 8 bytes]
                [the message is truncated within the value, of which it has 4 of 8 bytes]
                [Severity level: Error]
                [Group: Malformed]
"""


class Display(TestCase):
    def details(self, payload, *arguments):
        output = self.tshark(self.udp_capture("one.pcap", [payload]), "-V", *arguments)
        return output[output.index("Market Data Message"):].rstrip("\n") + "\n"

    def test_packet_details(self):
        self.assertEqual(self.details(EXAMPLE), DETAILS)
        self.assertEqual(self.details(EXAMPLE_MSGT), DETAILS_MSGT)
        self.assertIn(PROBLEM.replace("\n    [Size in bytes: 11]", "\n    [Size in bytes: 8]"),
                      self.details(b"\x06\x16\x00\x08" + bytes(4)))

    def test_parts_of_records_can_be_left_out(self):
        without = "".join(line + "\n" for line in DETAILS.splitlines()
                          if not line.startswith(("        Id", "        [Type", "        Length")))
        self.assertEqual(self.details(EXAMPLE, "-o", "md.parts:never"), without)
        self.assertEqual(self.details(EXAMPLE, "-o", "md.parts:always"), DETAILS)
        # What is wrong with a record is always shown where it is.
        self.assertIn("Length: 8", self.details(b"\x06\x16\x00\x08" + bytes(4), "-o", "md.parts:never"))

    def test_fields_output_shows_the_parts_that_are_asked_for(self):
        capture = self.udp_capture("one.pcap", [EXAMPLE])
        self.assertEqual(self.fields(capture, "md.bid"), [["184.5"]])
        ids = "1,42,26,27,8,66,310,22,900,16,14"
        self.assertEqual(self.fields(capture, "md.record.id"), [[ids]])
        self.assertEqual(self.fields(capture, "md.bid", arguments=("-Y", "md.record.length == 2")), [["184.5"]])
        self.assertEqual(self.fields(capture, "md.record.id", arguments=("-o", "md.parts:always")), [[ids]])

    def test_columns(self):
        payloads = [EXAMPLE, EXAMPLE_MSGT, b"\x01", b"\x07\x01\x02", b"\x06\x16\x00\x08" + bytes(4), b"\x06\xe8\xfd\x00\x2c",
                    b"\x06" + record(MINT, 1, b"A\x1b[1m\xe2\x80\xaeB\0") + record(MINT, 22, struct.pack("<d", 0.1 + 0.2)),
                    b"\x06" + record(MINT, 1, b"A" * 61 + b"\0") + record(MINT, 22, struct.pack("<d", 1e300)),
                    b"\x06" + record(MINT, 1, b"A\0") + record(MINT, 1, b"B\0")]
        rows = self.fields(self.udp_capture("many.pcap", payloads), "_ws.col.Protocol", "_ws.col.Info")
        self.assertEqual(rows, [["MD", info] for info in (
            "mInt, 11 fields, SYMBOL=NEB, BID=184.5",
            "MsgT, 3 fields, SYMBOL=NEB, BID=184.5",
            "IterMap, 0 fields",
            "unknown encoding byte 0x07",
            "mInt, 1 field, 1 problem",
            "mInt, 0 fields, 2 problems",
            "mInt, 2 fields, SYMBOL=A.[1m.B, BID=0.30000000000000004",
            "mInt, 2 fields, SYMBOL=" + "A" * 60 + "..., BID=1e+300",
            "mInt, 1 field, SYMBOL=B, 1 problem",
        )])

    def test_info_fields(self):
        capture = self.udp_capture("one.pcap", [EXAMPLE, EXAMPLE_MSGT])
        for chosen, first, second in (
                ("", "mInt, 11 fields", "MsgT, 3 fields"),
                ("VOLUME", "mInt, 11 fields, VOLUME=5000000000", "MsgT, 3 fields"),
                ("SIDE, 26 ,ASK_QTY,TICK,BID", "mInt, 11 fields, SIDE=B, BID_QTY=100, ASK_QTY=1000, TICK=-5",
                 "MsgT, 3 fields, BID_QTY=100"),
                ("NO_SUCH,VOLATILITY,RAW_PAYLOAD,EXCH_TIME,RECV_TIME",
                 "mInt, 11 fields, VOLATILITY=0.25, RAW_PAYLOAD=2 bytes, EXCH_TIME=20240603 93000000 (-300), "
                 "RECV_TIME=2024-06-03T09:30:00.173980747Z", "MsgT, 3 fields")):
            with self.subTest(chosen):
                rows = self.fields(capture, "_ws.col.Info", arguments=("-o", f"md.info_fields:{chosen}"))
                self.assertEqual(rows, [[first], [second]])

    def test_filters(self):
        """Filters choose the messages that the program's --where chooses, and those by the rest of what is shown."""
        capture = self.generate("feed.pcap", "--count", 1500, "--damaged", 10)
        for expression, condition in (("md.bid > 300", "BID > 300"), ('md.symbol == "ORI/USD"', "SYMBOL = ORI/USD"),
                                      ("md.bid_orders <= 100", "BID_ORDERS <= 100"), ("md.volume > 10000", "VOLUME > 10000"),
                                      ("md.msg_kind == 'T'", "MSG_KIND = T"),
                                      ("md.send_time.ns < 1717407001000000000", "SEND_TIME < 1717407001000000000"),
                                      ('md.send_time < "2024-06-03 09:30:01"', "SEND_TIME < 1717407001000000000")):
            with self.subTest(expression):
                decoded = self.mdmsg("decode", "--format", "csv", "--fields", "SEQ", "--where", condition, capture, status=1)
                expected = [[number] for number in decoded.split()[1:]]
                # A repeated number is shown as often as it is there, the one that counts last.
                rows = self.fields(capture, "md.seq", arguments=("-Y", expression, "-E", "occurrence=l"))
                self.assertGreater(len(rows), 50)
                self.assertEqual(rows, expected)
        counts = {}
        for expression in ('md.encoding == "MsgT"', "md.encoding == 6", "md.problem.unknown_encoding", "md.problem.unknown_id",
                           "md.problem.unknown_id_and_length", "md.problem.repeated_field", "md.problem.truncated_value",
                           "md", "md.field_count == 11", "md.record.id == 22", 'md.record.id == "BID"',
                           'md.record.type == "DOUBLE"', "md.size > 150", "md.record", "md.record.value.char"):
            counts[expression] = len(self.fields(capture, "frame.number", arguments=("-Y", expression)))
        report = self.mdmsg("stats", capture, status=1)
        self.assertEqual(counts["md"], 1500)
        for line, expression in (("MsgT", 'md.encoding == "MsgT"'), ("mInt", "md.encoding == 6"),
                                 ("unrecognised", "md.problem.unknown_encoding"), ("truncated", "md.problem.truncated_value")):
            self.assertIn(f"{line} {counts[expression]}", [" ".join(row.split()[:len(line.split()) + 1])
                                                           for row in report.splitlines()])
        self.assertEqual(counts["md.record.id == 22"], counts['md.record.id == "BID"'])
        self.assertGreater(counts["md.record.value.char"], 0)
        for expression, count in counts.items():
            self.assertGreater(count, 0, expression)

    def test_date_times(self):
        """The point in time of a date-time by the preferences about its units; its parts are always shown."""
        june = 124 << 37 | 6 << 33 | 3 << 28
        parts = ((93000500, 0), (93000500, -300), (93001, 120), (34200500, 0), (96000000, 0))
        capture = self.udp_capture("times.pcap", [
            b"\x06" + record(MINT, 16, struct.pack("<Q", (offset & 0x7FFFF) << 45 | june | time)) for time, offset in parts])
        for preferences, moments in (
                ((), ("3, 2024 09:30:00.500", "3, 2024 14:30:00.500", "", "3, 2024 03:42:00.500", "")),
                (("offset:ignored",), ("3, 2024 09:30:00.500", "3, 2024 09:30:00.500", "", "3, 2024 03:42:00.500", "")),
                (("unit:hhmmss",), ("", "", "3, 2024 07:30:01.000", "", "")),
                (("unit:ms",), ("", "", "2, 2024 22:01:33.001", "3, 2024 09:30:00.500", "")),
                (("unit:s",), ("", "", "", "", "")),
                (("unit:unknown",), ("", "", "", "", ""))):
            with self.subTest(preferences):
                arguments = [part for preference in preferences for part in ("-o", f"md.datetime_{preference}")]
                rows = self.fields(capture, "md.exch_time", "md.exch_time.date", "md.exch_time.time", "md.exch_time.offset",
                                   arguments=arguments)
                self.assertEqual(rows, [[moment and f"Jun  {moment}000000 UTC", "20240603", str(time), str(offset)]
                                        for moment, (time, offset) in zip(moments, parts)])

    def test_dates_that_do_not_exist_have_no_moment(self):
        cases = {
            0: "EXCH_TIME: 19000000 0 (0)",
            0xFFFFFFFFFFFFFFFF: "EXCH_TIME: 21551531 268435455 (-1)",
            1 << 28 | 1 << 33: "EXCH_TIME: Jan  1, 1900 00:00:00.000000000 UTC",
            255 << 37 | 12 << 33 | 31 << 28: "EXCH_TIME: Dec 31, 2155 00:00:00.000000000 UTC",
            100 << 37 | 2 << 33 | 29 << 28: "EXCH_TIME: Feb 29, 2000 00:00:00.000000000 UTC",
            101 << 37 | 2 << 33 | 29 << 28: "EXCH_TIME: 20010229 0 (0)",
        }
        capture = self.udp_capture("dates.pcap", [b"\x06" + record(MINT, 16, struct.pack("<Q", word)) for word in cases])
        output = self.tshark(capture, "-V", "-o", "md.parts:never")
        self.assertEqual([line.strip() for line in output.splitlines() if "EXCH_TIME" in line], list(cases.values()))

    def test_messages_of_which_the_capture_holds_a_part(self):
        """They are not called truncated: the message went on, the capture did not."""
        frame = ip_frame(17, udp_datagram(EXAMPLE, PORT))
        start = len(frame) - len(EXAMPLE)
        capture = write_capture(self.folder / "cut.pcap", [frame] * (len(EXAMPLE) - 1), kept=range(start + 1, len(frame)))
        rows = self.fields(capture, "_ws.expert.message", "md.field_count", "md.symbol")
        self.assertEqual([row[0] for row in rows],
                         [f"the capture contains only {held} of the {len(EXAMPLE)} bytes of this message"
                          for held in range(1, len(EXAMPLE))])
        self.assertEqual([row[1:] for row in rows[:8]], [["0", ""]] * 2 + [["1", ""]] * 5 + [["1", "NEB"]])


if __name__ == "__main__":
    main()
