"""Readers whose output is blocked while messages arrive."""
import os
import re
import threading
import time

import support


class SlowReaders(support.TestCase):
    def test_slow_subscriber_counts_its_drops(self):
        _, file = self.generate(30000)
        server = self.server()
        read, write = os.pipe()
        reader = self.start("subscribe", "--url", server.url, "--subject", "md.>", "--format", "u32le", "--pending", 1000,
                            stdout=write)
        os.close(write)
        reader.wait_for_report("subscribed")
        # Nobody reads its output until all has come.
        self.expect(self.mdmsg("publish", "--url", server.url, "--subject", "md.{SYMBOL}", "--framing", "u32le", file), 0)
        support.wait_for("empty sockets", lambda: all(not self.queued(server) and time.sleep(0.02) is None
                                                      for _ in range(5)))
        received = bytearray()
        drainer = threading.Thread(target=self.drain, args=(read, received))
        drainer.start()
        ends = self.end(server, reader, lambda: bytes(received[-8:]))
        self.assertEqual(reader.wait(), 1, reader.err)
        drainer.join()
        os.close(read)
        dropped = int(re.search(r"(\d+) messages dropped: they arrived faster", reader.err).group(1))
        self.assertGreater(dropped, 0)
        self.assertEqual(len(support.messages_in(bytes(received))) + dropped, 30000 + ends)

    def test_slow_reader_of_a_stream_gets_everything(self):
        # The server sends ahead by bytes, and further each time that they have been read. On its own the client library
        # drops what exceeds 65,536 messages.
        total, ahead = 300_000, 80_000
        messages = [b"\x06" + number.to_bytes(4, "big") * 25 for number in range(total)]
        server = self.server()
        self.create_stream(server)
        client = self.client(server)
        for begin in range(0, total, 10_000):
            client.send(b"".join(b"PUB md.x 101\r\n%s\r\n" % message for message in messages[begin:begin + 10_000]))
        support.wait_for("a full stream", lambda: self.stored(server) == total)
        read, write = os.pipe()
        reader = self.start("subscribe", "--url", server.url, "--stream", "FEED", "--no-wait", "--format", "u32le",
                            stdout=write)
        os.close(write)
        received = bytearray()
        while len(received) < (total - 2 * ahead) * 105:
            received.extend(os.read(read, 1 << 20))

        def sent():
            """The server's last message on the way to the reader."""
            names = client.request("$JS.API.CONSUMER.NAMES.FEED")["consumers"] or []
            states = [client.request(f"$JS.API.CONSUMER.INFO.FEED.{name}") for name in names]
            return max((state["delivered"]["stream_seq"] for state in states), default=0)

        # The test's own connections leave the server's pings unread.
        support.wait_for("messages that the reader has not written",
                         lambda: self.queued(server) < 1000 and sent() - len(received) // 105 > ahead)
        time.sleep(2)
        self.drain(read, received)
        os.close(read)
        self.assertEqual(reader.wait(), 0, reader.err)
        self.assertEqual(reader.err, 'mdmsg: subscribed to ">" of the stream "FEED"\n')
        self.assertTrue(support.messages_in(bytes(received)) == messages)

    @staticmethod
    def drain(pipe, received):
        while data := os.read(pipe, 1 << 20):
            received.extend(data)

    @staticmethod
    def queued(server):
        """Bytes in the sockets of connections to the server."""
        port = f":{server.port:04X}"
        with open("/proc/net/tcp", encoding="ascii") as table:
            rows = [line.split() for line in table.readlines()[1:]]
        return sum(int(number, 16) for row in rows if row[1].endswith(port) or row[2].endswith(port)
                   for number in row[4].split(":"))


if __name__ == "__main__":
    support.main()
