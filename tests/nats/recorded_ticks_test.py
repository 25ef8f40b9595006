"""The recorded ticks arrive byte by byte, by core NATS and from a stream."""
import support


class RecordedTicks(support.TestCase):
    def test_round_trip(self):
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


if __name__ == "__main__":
    support.main()
