"""Messages arrive byte by byte as they were published, by core NATS and from a stream."""
import support


class RoundTrip(support.TestCase):
    def test_generated_feed_in_all_encodings(self):
        messages, file = self.generate(30000, "--seed", 5)
        self.assertEqual({message[0] for message in messages}, {1, 6, 0x46})
        server = self.server()
        self.assertTrue(self.through_core(server, file, 30000) == messages)
        self.assertTrue(self.through_stream(server, file, 30000) == messages)


if __name__ == "__main__":
    support.main()
