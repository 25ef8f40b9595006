"""Servers, workers and connections that fail."""
import os
import socket
import threading

import support


class Proxy:
    """Passes bytes between clients and the server, and cuts a connection after a number of bytes in one direction."""

    def __init__(self, server, cut_after, from_server=False):
        self.server = server
        self.cut_after = cut_after
        self.from_server = from_server
        self.cuts = 0
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self._accept, daemon=True).start()

    @property
    def url(self):
        return f"nats://127.0.0.1:{self.port}"

    def close(self):
        self.listener.close()

    def _accept(self):
        while True:
            try:
                client = self.listener.accept()[0]
                server = socket.create_connection(("127.0.0.1", self.server.port))
            except OSError:
                return
            # The first connection alone is cut.
            limit, self.cut_after = self.cut_after, None
            for source, sink, counted in ((client, server, not self.from_server), (server, client, self.from_server)):
                threading.Thread(target=self._pass, args=(source, sink, limit if counted else None), daemon=True).start()

    def _pass(self, source, sink, limit):
        passed = 0
        try:
            while True:
                data = source.recv(65536)
                if not data:
                    break
                if limit is not None and passed + len(data) > limit:
                    sink.sendall(data[:limit - passed])
                    self.cuts += 1
                    break
                passed += len(data)
                sink.sendall(data)
        except OSError:
            pass
        for end in (source, sink):
            try:
                end.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
            end.close()


class Faults(support.TestCase):
    def proxy(self, server, cut_after, from_server=False):
        proxy = Proxy(server, cut_after, from_server)
        self.addCleanup(proxy.close)
        return proxy

    def test_server_killed_during_acknowledged_publishing(self):
        messages, file = self.generate(60000)
        server = self.server()
        self.create_stream(server)
        publisher = self.start("publish", "--url", server.url, "--subject", "md.{SYMBOL}", "--stream", "FEED",
                               "--framing", "u32le", file)
        for part in (5000, 20000):
            support.wait_for("messages in the stream", lambda part=part: self.stored(server) >= part)
            server.kill()
            self.assertIsNone(publisher.process.poll(), publisher.err)
            server.start()
        self.assertEqual(publisher.wait(), 0, publisher.err)
        sent, acknowledged, _, lost = support.counts(publisher.err)
        self.assertEqual((sent, acknowledged, lost), (60000, 60000, 0))
        self.assertIn("connected again", publisher.err)
        # None lost, none twice, in their order.
        self.assertTrue(self.stream(server) == messages)

    def test_publisher_cut_inside_a_message(self):
        messages, file = self.generate(20000)
        server = self.server()
        self.create_stream(server)
        proxy = self.proxy(server, 1_000_003)
        result = self.mdmsg("publish", "--url", proxy.url, "--subject", "md.{SYMBOL}", "--stream", "FEED", "--framing",
                            "u32le", file)
        self.expect(result, 0, "connected again")
        self.assertEqual(proxy.cuts, 1)
        self.assertEqual(support.counts(result.err)[3], 0)
        self.assertTrue(self.stream(server) == messages)

    def test_core_publisher_cut_inside_a_message(self):
        messages, file = self.generate(20000)
        server = self.server()
        reader = self.start("subscribe", "--url", server.url, "--subject", "md.>", "--format", "u32le")
        reader.wait_for_report("subscribed")
        proxy = self.proxy(server, 1_000_003)
        result = self.mdmsg("publish", "--url", proxy.url, "--subject", "md.{SYMBOL}", "--framing", "u32le", file)
        self.end(server, reader, lambda: reader.out)
        self.assertEqual(reader.wait(), 0, reader.err)
        received = [message for message in support.messages_in(reader.out) if message not in (support.END, support.LAST)]
        sent, acknowledged, _, lost = support.counts(result.err)
        self.assertEqual(result.status, 1, result.err)
        self.assertEqual(proxy.cuts, 1)
        # What was acknowledged has arrived; what counts as lost may have, too. No part of a message arrives.
        self.assertEqual((sent, acknowledged + lost), (20000, 20000))
        self.assertGreater(lost, 0)
        self.assertGreaterEqual(len(received), acknowledged)
        self.assertLess(len(received), 20000)
        # None twice. Those of the second connection may overtake those of the first: each has its order.
        place = {message: number for number, message in enumerate(messages)}
        places = [place[message] for message in received]
        self.assertEqual(len(set(places)), len(places))
        missing = min(set(range(20000)) - set(places))
        for part in ([number for number in places if number < missing], [number for number in places if number > missing]):
            self.assertEqual(part, sorted(part))

    def test_subscriber_of_a_stream_cut_inside_a_message(self):
        messages, file = self.generate(20000)
        server = self.server()
        self.create_stream(server)
        self.expect(self.mdmsg("publish", "--url", server.url, "--subject", "md.{SYMBOL}", "--stream", "FEED",
                               "--framing", "u32le", file), 0)
        for options in ([], ["--durable", "reader"]):
            with self.subTest(options):
                proxy = self.proxy(server, 1_000_003, from_server=True)
                result = self.mdmsg("subscribe", "--url", proxy.url, "--stream", "FEED", "--no-wait", "--format", "u32le",
                                    *options)
                self.expect(result, 0, "connecting again")
                self.assertEqual(proxy.cuts, 1)
                self.assertTrue(support.messages_in(result.out) == messages)

    def test_core_subscriber_cut_inside_a_message(self):
        messages, file = self.generate(20000)
        server = self.server()
        proxy = self.proxy(server, 1_000_003, from_server=True)
        reader = self.start("subscribe", "--url", proxy.url, "--subject", "md.>", "--format", "u32le")
        reader.wait_for_report("subscribed")
        self.expect(self.mdmsg("publish", "--url", server.url, "--subject", "md.{SYMBOL}", "--framing", "u32le", file), 0)
        self.end(server, reader, lambda: reader.out)
        self.assertEqual(reader.wait(), 1, reader.err)
        self.assertIn("was lost 1 time, and messages published meanwhile are missing", reader.err)
        received = [message for message in support.messages_in(reader.out) if message not in (support.END, support.LAST)]
        self.assertLess(len(received), 20000)
        rest = iter(messages)
        self.assertTrue(all(any(message == other for other in rest) for message in received))

    def test_worker_killed_and_replaced(self):
        messages, file = self.generate(20000)
        server = self.server()
        self.create_stream(server)
        self.expect(self.mdmsg("publish", "--url", server.url, "--subject", "md.{SYMBOL}", "--stream", "FEED",
                               "--framing", "u32le", file), 0)
        arguments = ("subscribe", "--url", server.url, "--stream", "FEED", "--durable", "worker", "--format", "u32le")
        # The first worker's output is blocked when it is killed: it got messages that it has not written.
        read, write = os.pipe()
        first = self.start(*arguments, stdout=write)
        os.close(write)
        handled = b""
        while len(handled) < 500_000:
            handled += os.read(read, 65536)
        first.kill()
        while data := os.read(read, 65536):
            handled += data
        os.close(read)
        whole = 0
        while whole + 4 <= len(handled) and whole + 4 + int.from_bytes(handled[whole:whole + 4], "little") <= len(handled):
            whole += 4 + int.from_bytes(handled[whole:whole + 4], "little")
        by_first = support.messages_in(handled[:whole])
        self.assertLess(len(by_first), 20000)
        second = self.mdmsg(*arguments, "--no-wait")
        self.expect(second, 0, "that an earlier reader received and did not acknowledge")
        by_second = support.messages_in(second.out)
        # Each message at least once: the second continues at or before the end of the first, in the order of the stream.
        self.assertTrue(by_first == messages[:len(by_first)])
        self.assertGreaterEqual(len(by_first) + len(by_second), 20000)
        self.assertTrue(by_second == messages[20000 - len(by_second):])
        # The caches of both, one after the other, are that of one process.
        def cache(handled):
            return {symbol: of_symbol[-1] for symbol, of_symbol in self.by_symbol(handled).items()}
        self.assertEqual({**cache(by_first), **cache(by_second)}, cache(messages))
        # Nothing is left for a third.
        third = self.mdmsg(*arguments, "--no-wait")
        self.expect(third, 0)
        self.assertEqual(third.out, b"")

    def test_server_that_does_not_come_back(self):
        messages, file = self.generate(60000)
        for stream in ([], ["--stream", "FEED", "--create-stream"]):
            with self.subTest(stream):
                server = self.server()
                read, write = os.pipe()
                publisher = self.start("publish", "--url", server.url, "--subject", "md.{SYMBOL}", "--framing", "u32le",
                                       "--retry", 1, *stream, stdin=read)
                os.close(read)
                with os.fdopen(write, "wb", 0) as pipe:
                    pipe.write(support.framed(messages[:30000]))
                    client = self.client(server)
                    client.flush()
                    server.kill()
                    try:
                        pipe.write(support.framed(messages[30000:]))
                    except BrokenPipeError:
                        pass
                self.assertEqual(publisher.wait(), 1, publisher.err)
                self.assertIn("the messages after it were not published", publisher.err)
                sent, acknowledged, _, lost = support.counts(publisher.err)
                self.assertEqual(sent, acknowledged + lost)

    def test_another_dictionary(self):
        (self.folder / "mine.txt").write_text("SYMBOL 1 STRING\nBID 22 DOUBLE\nSEQ 11 INT64\n")
        (self.folder / "theirs.txt").write_text("SYMBOL 1 STRING\nBID 22 FLOAT\nSEQ 11 INT64\n")
        server = self.server()
        reader = self.start("subscribe", "--url", server.url, "--subject", "md.>", "--dictionary", "mine.txt", "--format",
                            "hex", "--count", 3)
        reader.wait_for_report("subscribed")
        encode = ("encode", "--encoding", "mInt", "--dictionary")
        publish = ("publish", "--url", server.url, "--subject", "md.{SYMBOL}", "--publisher")
        same = self.mdmsg(*encode, "mine.txt", stdin=b'{"SYMBOL":"A","SEQ":1}').out
        self.expect(self.mdmsg(*publish, "same", "--dictionary", "mine.txt", stdin=same), 0)
        read, write = os.pipe()
        other = self.start(*publish, "other", "--dictionary", "theirs.txt", "--latency", stdin=read)
        os.close(read)
        with os.fdopen(write, "wb", 0) as pipe:
            pipe.write(same)
            reader.wait_for_report('publisher "other"')
            pipe.write(same)
            self.assertEqual(reader.wait(), 0, reader.err)
        self.assertEqual(other.wait(), 0)
        fingerprint = self.mdmsg("dict", "show", "--fingerprint", "--dictionary", "theirs.txt").out.decode().strip()[2:]
        self.assertEqual(reader.err, (
            'mdmsg: subscribed to "md.>"\n'
            f'mdmsg: publisher "other" has another dictionary, {fingerprint}:\n'
            "mdmsg:   retyped 22 BID FLOAT -> DOUBLE: the id is used with another type\n"))

    def test_dictionary_requested_until_the_publisher_ends(self):
        dictionary = self.folder / "mine.txt"
        dictionary.write_text("SYMBOL 1 STRING\nBID 22 DOUBLE\n")
        fingerprint = self.mdmsg("dict", "show", "--fingerprint", "--dictionary", dictionary).out.decode().strip()[2:]
        server = self.server()
        answers = self.client(server)
        answers.subscribe("answers")
        client = self.client(server, no_responders=False)
        is_over = threading.Event()

        def request():
            while not is_over.is_set():
                client.publish("md-dictionary." + fingerprint, b"", "answers")
                client.flush()

        requester = threading.Thread(target=request)
        requester.start()
        texts = set()
        for _ in range(4):
            read, write = os.pipe()
            publisher = self.start("publish", "--url", server.url, "--subject", "md.x", "--dictionary", dictionary,
                                   stdin=read)
            os.close(read)
            texts.add(answers.next()[2])
            os.close(write)
            self.assertEqual(publisher.wait(), 0, publisher.err)
            answers.publish("answers", b"")
            texts.update(iter(lambda: answers.next()[2], b""))
        is_over.set()
        requester.join()
        self.assertEqual([text.split() for text in texts], [dictionary.read_bytes().split()])


if __name__ == "__main__":
    support.main()
