"""Messages arrive byte by byte as they were published, by core NATS and from a stream."""
import unittest

import support


class RoundTrip(support.TestCase):
    def through_core(self, server, file, count):
        reader = self.start("subscribe", "--url", server.url, "--subject", "md.>", "--format", "u32le", "--count", count)
        reader.wait_for_report('subscribed to "md.>"')
        result = self.mdmsg("publish", "--url", server.url, "--subject", "md.{VENUE}.{SYMBOL}", "--framing", "u32le", file)
        self.expect(result, 0, f"sent {count} messages", f"{count} acknowledged, 0 lost")
        self.assertEqual(reader.wait(), 0, reader.err)
        return support.messages_in(reader.out)

    def through_stream(self, server, file, count):
        result = self.mdmsg("publish", "--url", server.url, "--subject", "st.{VENUE}.{SYMBOL}", "--stream", "FEED",
                            "--create-stream", "--framing", "u32le", file)
        self.expect(result, 0, f"{count} acknowledged, 0 of them duplicates, 0 lost")
        result = self.mdmsg("subscribe", "--url", server.url, "--stream", "FEED", "--no-wait", "--format", "u32le")
        self.expect(result, 0)
        return support.messages_in(result.out)

    def test_recorded_ticks(self):
        ticks = support.recorded_ticks()
        if ticks is None:
            self.skipTest("MD_TEST_DATA does not name a folder with ticks.csv.gz")
        server = self.server()
        file = self.folder / "ticks.bin"
        self.expect(self.mdmsg("encode", "--csv", "--encoding", "mInt", "--format", "u32le", "--output", file, stdin=ticks), 0)
        messages = support.messages_in(file.read_bytes())
        self.assertEqual(len(messages), support.TICKS)
        # One connection publishes and one reads: the order of all messages is kept, not only that of each subject.
        self.assertTrue(self.through_core(server, file, support.TICKS) == messages)
        self.assertTrue(self.through_stream(server, file, support.TICKS) == messages)

    def test_generated_feed_in_all_encodings(self):
        messages, file = self.generate(30000, "--seed", 5)
        self.assertEqual({message[0] for message in messages}, {1, 6, 0x46})
        server = self.server()
        self.assertTrue(self.through_core(server, file, 30000) == messages)
        self.assertTrue(self.through_stream(server, file, 30000) == messages)

    def test_capture_keeps_its_times(self):
        feed = self.folder / "feed.pcap"
        self.expect(self.mdmsg("generate", "--count", 500, "--format", "pcap", "--output", feed), 0)
        server = self.server()
        self.expect(self.mdmsg("publish", "--url", server.url, "--subject", "md.{SYMBOL}", "--stream", "FEED",
                               "--create-stream", feed), 0)
        back = self.folder / "back.pcap"
        self.expect(self.mdmsg("subscribe", "--url", server.url, "--stream", "FEED", "--no-wait", "--format", "pcap",
                               "--output", back), 0)
        self.assertEqual(back.read_bytes(), feed.read_bytes())

    def test_capture_of_messages_without_times_has_those_of_the_stream(self):
        server = self.server()
        _, file = self.generate(3)
        before = support.time.time_ns()
        self.expect(self.mdmsg("publish", "--url", server.url, "--subject", "md.{SYMBOL}", "--stream", "FEED",
                               "--create-stream", "--framing", "u32le", file), 0)
        after = support.time.time_ns()
        written = self.mdmsg("subscribe", "--url", server.url, "--stream", "FEED", "--no-wait", "--format", "pcap").out
        seconds, nanoseconds = support.struct.unpack_from("<II", written, 24)
        self.assertLessEqual(before, seconds * 10**9 + nanoseconds)
        self.assertLessEqual(seconds * 10**9 + nanoseconds, after)

    def test_decoded_as_by_decode(self):
        _, file = self.generate(300)
        server = self.server()
        self.expect(self.mdmsg("publish", "--url", server.url, "--subject", "md.{SYMBOL}", "--stream", "FEED",
                               "--create-stream", "--framing", "u32le", file), 0)
        for options in (["--format", "text"], ["--format", "json", "--iso-time"],
                        ["--format", "csv", "--fields", "SYMBOL,BID", "--where", "BID > 150"]):
            with self.subTest(options):
                got = self.mdmsg("subscribe", "--url", server.url, "--stream", "FEED", "--no-wait", *options)
                expected = self.mdmsg("decode", "--framing", "u32le", *options, file)
                self.assertEqual(got.out, expected.out)
                self.assertNotEqual(got.out, b"")
                self.assertEqual(got.status, 0, got.err)


class Kafka(support.TestCase):
    """A topic's messages by way of a pipe, as kcat -C -f '%R%s' writes them: the length in 32 bits, high byte first, and
    the bytes."""

    def test_stream_of_kcat(self):
        messages, file = self.generate(200)
        stream = b"".join(support.struct.pack(">i", len(message)) + message for message in messages)
        decoded = self.mdmsg("decode", "--framing", "u32be", "--format", "json", stdin=stream)
        self.expect(decoded, 0)
        self.assertEqual(decoded.out.count(b"\n"), 200)
        self.assertEqual(decoded.out, self.mdmsg("decode", "--framing", "u32le", "--format", "json", file).out)

    def test_message_without_a_value(self):
        # Its length is -1. What comes before it is decoded; nothing is read past it.
        messages, _ = self.generate(1)
        stream = support.struct.pack(">i", len(messages[0])) + messages[0] + support.struct.pack(">i", -1)
        decoded = self.mdmsg("decode", "--framing", "u32be", "--format", "json", stdin=stream)
        self.assertEqual(decoded.out.count(b"\n"), 1)
        self.expect(decoded, 1, "0 of 4294967295 bytes")


class Headers(support.TestCase):
    def test_dictionary_publisher_time_and_source(self):
        feed = self.folder / "feed.pcap"
        self.expect(self.mdmsg("generate", "--count", 1, "--start", "2024-06-03T09:30:00Z", "--source", "192.0.2.9:4000",
                               "--format", "pcap", "--output", feed), 0)
        server = self.server()
        client = self.client(server)
        client.subscribe("md.>")
        self.expect(self.mdmsg("publish", "--url", server.url, "--subject", "md.{VENUE}.{SYMBOL}", "--publisher", "p1",
                               feed), 0)
        subject, headers, payload = client.next()
        fields = self.mdmsg("decode", "--format", "json", feed).out
        self.assertEqual(subject, "md.XNEB." + support.json.loads(fields)["SYMBOL"])
        fingerprint = self.mdmsg("dict", "show", "--fingerprint").out.decode().strip()
        self.assertEqual(headers["Md-Dictionary"], fingerprint[2:])
        self.assertEqual(headers["Md-Publisher"], "p1")
        self.assertEqual(headers["Md-Source"], "192.0.2.9:4000")
        self.assertEqual(int(headers["Md-Time"]) // 10**9, 1717407000)
        self.assertIn(payload, feed.read_bytes())


if __name__ == "__main__":
    support.main()
