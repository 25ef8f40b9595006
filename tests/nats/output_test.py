"""What is written: the formats of messages that arrive, the line of progress, the headers."""
import support


class Output(support.TestCase):
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

    def test_arrow_as_by_decode(self):
        _, file = self.generate(300)
        server = self.server()
        self.expect(self.mdmsg("publish", "--url", server.url, "--subject", "md.{SYMBOL}", "--stream", "FEED",
                               "--create-stream", "--framing", "u32le", file), 0)
        for options in (["--format", "arrow"], ["--format", "arrow-file", "--fields", "SYMBOL,BID", "--binary-text"],
                        ["--format", "arrow", "--where", "BID > 150"]):
            with self.subTest(options):
                expected = self.mdmsg("decode", "--framing", "u32le", *options, file)
                if "FlatBuffers" in expected.err:
                    self.skipTest(expected.err)
                got = self.mdmsg("subscribe", "--url", server.url, "--stream", "FEED", "--no-wait", *options)
                self.assertEqual((got.out, got.status), (expected.out, 0), got.err)
                self.assertNotEqual(got.out, b"")
        # Rows that wait for a whole batch have not been written, so that nothing of them may be acknowledged.
        for options, named in ((["--durable", "x"], "--durable"), (["--queue", "x"], "--queue with --stream")):
            got = self.mdmsg("subscribe", "--url", server.url, "--stream", "FEED", "--format", "arrow", *options)
            self.expect(got, 2, f"mdmsg: --format arrow excludes {named}: messages are acknowledged once")

    def test_arrow_that_arrives(self):
        messages, file = self.generate(300)
        server = self.server()
        reader = self.start("subscribe", "--url", server.url, "--subject", "md.>", "--queue", "readers", "--format", "arrow",
                            "--count", 300)
        reader.wait_for_report("subscribed")
        self.expect(self.mdmsg("publish", "--url", server.url, "--subject", "md.{SYMBOL}", "--framing", "u32le", file), 0)
        self.assertEqual(reader.wait(), 0, reader.err)
        expected = self.mdmsg("decode", "--framing", "u32le", "--format", "arrow", file)
        self.assertEqual(reader.out, expected.out)


class Progress(support.TestCase):
    """On a terminal a line shows how many messages were sent, acknowledged and lost."""

    def shown(self, server, *options):
        messages, _ = self.generate(300)
        terminal, err = support.pty.openpty()
        publisher = support.subprocess.Popen(
            [support.MDMSG, "publish", "--url", server.url, "--subject", "md.{SYMBOL}", "--framing", "u32le", *options],
            stdin=support.subprocess.PIPE, stdout=support.subprocess.DEVNULL, stderr=err, cwd=self.folder,
            env=support.environment(self.folder))
        support.os.close(err)
        self.addCleanup(publisher.kill)
        for part in range(6):
            publisher.stdin.write(support.framed(messages[part * 50:part * 50 + 50]))
            publisher.stdin.flush()
            support.time.sleep(0.3)
        publisher.stdin.close()
        shown = b""
        with support.contextlib.suppress(OSError):  # the end of a terminal
            while data := support.os.read(terminal, 65536):
                shown += data
        support.os.close(terminal)
        self.assertEqual(publisher.wait(support.TIMEOUT_S), 0, shown)
        return shown.decode()

    def test_core_and_stream(self):
        server = self.server()
        for options in ([], ["--stream", "FEED", "--create-stream"]):
            with self.subTest(options):
                shown = self.shown(server, *options)
                self.assertRegex(shown, "\r\x1b\\[Kstandard input: sent [0-9]+ messages, [0-9]+ acknowledged, 0 lost, 0.0 MB")
                # The line is gone before the report at the end.
                self.assertRegex(shown, "\r\x1b\\[Kmdmsg: sent 300 messages, .* 300 acknowledged, .*0 lost\r\n$")
        self.assertNotIn("\x1b", self.shown(server, "--no-progress"))


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
