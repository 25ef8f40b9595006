"""What mdmsg installs is loaded by tshark, without being named."""
import os
import re

from support import TestCase, main


class Install(TestCase):
    def test_the_installed_dissector_is_loaded(self):
        tshark = os.environ["TSHARK"]
        folders, _ = self.run_program([tshark, "-G", "folders"])
        shared = re.search(r"^Global Lua Plugins:\s+(.*)$", folders, re.MULTILINE).group(1)
        if os.path.exists(os.path.join(shared, "md_message.lua")):
            self.skipTest("installed for all users, too, which Wireshark refuses")
        self.mdmsg("wireshark", "--install")
        capture = self.udp_capture("one.pcap", [b"\x06"])
        output, _ = self.run_program([tshark, "-r", capture, "-o", "md.udp_ports:30001", "-T", "fields", "-e", "md.encoding"])
        self.assertEqual(output, "6\n")


if __name__ == "__main__":
    main()
