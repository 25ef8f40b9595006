"""Nothing that a datagram or a stream contains raises an error of the dissector, or makes it loop."""
import random

from support import ITERMAP, MINT, MSGT, PORT, TestCase, main
from differential_test import random_messages

# The most that a datagram carries, filled with what costs most: records of the least bytes, each with something wrong.
LARGEST = 65507
LARGE = {
    "IterMap, unknown ids": b"\x01" + b"\xe8\xfd" * 32753,
    "IterMap, values of no bytes": b"\x01" + b"\x1f\x00" * 32753,
    "IterMap, a repeated field": b"\x01" + b"\x2a\x00\x42" * 21835,
    "mInt, unknown ids": b"\x06" + b"\xe8\xfd\x00" * 21835,
    "mInt, a repeated field of a wrong length": b"\x06" + b"\x16\x00\x00" * 21835,
    "MsgT, unknown ids": b"\x46QR1" + b"\xfd\xe8\x00\x01\x00\x00\x00\x00" * 8187,
    "MsgT, other types and high bytes": b"\x46QR1" + b"\x00\x16\x01\x05\x00\x00\x00\x00" * 8187,
    "bytes of one value": b"\x06" + b"\xff" * 65506,
    "no encoding": b"\x00" * LARGEST,
}


class Hostile(TestCase):
    def test_random_datagrams(self):
        """As text, as details and as JSON, by port and by the heuristic: errors would be on standard error or in there."""
        generator = random.Random(7)
        payloads = random_messages(3000, seed=21)
        payloads += [generator.randbytes(generator.randrange(200)) for _ in range(1000)]
        payloads += [bytes([code]) + generator.randbytes(generator.randrange(2000))
                     for code in (MINT, ITERMAP, MSGT) for _ in range(50)]
        capture = self.udp_capture("random.pcap", payloads)
        for arguments in ((), ("-V",), ("-T", "json", "-J", "md"), ("-2", "-Y", "md.bid or md.problem.wrong_length")):
            with self.subTest(arguments):
                self.tshark(capture, *arguments, "-o", "md.info_fields:BID,SYMBOL,EXCH_TIME,RECV_TIME")
        self.tshark(capture, "-o", "md.heuristic:TRUE", udp_port=None)

    def test_random_streams(self):
        generator = random.Random(8)
        connections = [[generator.randbytes(generator.randrange(1, 60)) for _ in range(8)] for _ in range(300)]
        capture = self.tcp_capture("random.pcap", connections)
        for framing in ("u16le", "u32be"):
            self.tshark(capture, "-V", "-o", f"md.tcp_ports:{PORT}", "-o", f"md.tcp_framing:{framing}", udp_port=None)

    def test_large_datagrams(self):
        for payload in LARGE.values():
            self.assertLessEqual(len(payload), LARGEST)
        capture = self.udp_capture("large.pcap", list(LARGE.values()))
        output = self.tshark(capture, "-V", "-o", "md.parts:always")
        self.assertEqual(output.count("\nMarket Data Message"), len(LARGE))


if __name__ == "__main__":
    main()
