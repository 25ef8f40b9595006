"""The heuristic takes no datagram of the recorded captures of other protocols, which MD_TEST_DATA holds."""
import os
import pathlib
import sys

from support import TestCase, main


class ForeignCaptures(TestCase):
    def test_none_is_taken(self):
        captures = sorted(pathlib.Path(os.environ["MD_TEST_DATA"]).glob("*.pcap"))
        self.assertGreater(len(captures), 0)
        for capture in captures:
            with self.subTest(capture.name):
                taken = self.fields(capture, "frame.number", arguments=("-o", "md.heuristic:TRUE", "-Y", "md"), udp_port=None)
                self.assertEqual(taken, [])


if __name__ == "__main__":
    if not os.environ.get("MD_TEST_DATA"):
        print("skipped: MD_TEST_DATA names no folder")
        sys.exit(0)
    main()
