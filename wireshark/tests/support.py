"""Runs tshark with the dissector and mdmsg, writes captures, and reads what both print.

Environment, set by CMakeLists.txt: MD_DISSECTOR, MD_SOURCE_DIR, MDMSG, TSHARK, LUA, the last two empty where the program
is missing: tests then show as skipped.
"""
import json
import os
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["MD_SOURCE_DIR"])
DISSECTOR = pathlib.Path(os.environ["MD_DISSECTOR"])
FIELD_MAP = SOURCE / "etc" / "field_map.txt"
MDMSG = os.environ["MDMSG"]
TSHARK = os.environ.get("TSHARK")
LUA = os.environ.get("LUA")
PORT = 30001
MINT, ITERMAP, MSGT = 6, 1, 70

# What a test waits for one program at most: only an endless loop takes that long.
TIMEOUT_S = 240


class TestCase(unittest.TestCase):
    """A test with a folder of its own. tshark sees neither the user's settings nor the user's plugins."""

    maxDiff = 4000

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="md-wireshark-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.environment = {
            "PATH": os.environ["PATH"],
            "HOME": str(self.folder),
            "WIRESHARK_CONFIG_DIR": str(self.folder / "settings"),
            "CONFIG_PATH": str(self.folder / "no-configuration"),
            "LC_ALL": "C.UTF-8",
            "TZ": "UTC",
        }

    def run_program(self, command, status=0, environment=None, text=True):
        """Returns standard output and standard error."""
        run = subprocess.run([str(part) for part in command], env={**self.environment, **(environment or {})},
                             cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=TIMEOUT_S,
                             check=False)
        errors = run.stderr.decode("utf-8", "replace")
        self.assertEqual(run.returncode, status, f"{command}: {errors}")
        return (run.stdout.decode("utf-8", "surrogateescape") if text else run.stdout), errors

    def tshark_with_errors(self, capture, *arguments, udp_port=PORT, environment=None, status=0):
        ports = ["-o", f"md.udp_ports:{udp_port}"] if udp_port else []
        script = ["-X", f"lua_script:{DISSECTOR}"]
        output, errors = self.run_program([TSHARK, *script, "-n", "-r", capture, *ports, *arguments], status, environment)
        # Run by root, as in CI, tshark says so.
        errors = re.sub(r"Running as user \"root\" and group \"root\"\. This could be dangerous\.\n?", "", errors)
        self.assertNotIn("Lua", errors)
        self.assertNotIn("Lua Error", output)
        self.assertNotIn("Dissector bug", output)
        return output, errors

    def tshark(self, capture, *arguments, **options):
        output, errors = self.tshark_with_errors(capture, *arguments, **options)
        self.assertEqual(errors, "")
        return output

    def fields(self, capture, *names, arguments=(), **options):
        """A list of the rows of -T fields, as lists."""
        selected = [part for name in names for part in ("-e", name)]
        output = self.tshark(capture, "-T", "fields", *selected, *arguments, **options)
        return [line.split("\t") for line in output.splitlines()]

    def dissected(self, capture, *arguments, **options):
        """The layer md of each packet as lists of pairs, None where it has none."""
        output = self.tshark(capture, "-T", "json", "-x", "-J", "md", *arguments, **options)
        packets = json.loads(output, object_pairs_hook=list)
        return [dict(dict(dict(packet)["_source"])["layers"]) for packet in packets]

    def mdmsg(self, *arguments, status=0, **options):
        return self.run_program([MDMSG, *arguments], status, **options)[0]

    def generate(self, name, *arguments):
        capture = self.folder / name
        self.mdmsg("generate", "--format", "pcap", "--output", capture, *arguments)
        return capture

    def udp_capture(self, name, payloads, ports=None):
        """A capture of one datagram for each payload."""
        frames = [ip_frame(17, udp_datagram(payload, ports[i] if ports else PORT)) for i, payload in enumerate(payloads)]
        return write_capture(self.folder / name, frames)

    def tcp_capture(self, name, connections, port=PORT):
        """A capture of TCP connections, each given as the list of its segments."""
        frames = []
        for i, segments in enumerate(connections):
            sequence = 1
            for segment in segments:
                # Wireshark asks the protocol of the lower port first.
                header = struct.pack(">HHIIBBHHH", 50000 + i, port, sequence, 1, 0x50, 0x18, 65535, 0, 0)
                frames.append(ip_frame(6, header + segment))
                sequence += len(segment)
        return write_capture(self.folder / name, frames)


def udp_datagram(payload, port):
    return struct.pack(">HHHH", 30000, port, 8 + len(payload), 0) + payload


def ip_frame(protocol, payload):
    addresses = bytes([192, 0, 2, 1, 239, 192, 0, 1])
    ip = struct.pack(">BBHHHBBH", 0x45, 0, 20 + len(payload), 0, 0, 64, protocol, 0) + addresses
    return b"\x01\x00\x5e\x40\x00\x01\x02\x00\xc0\x00\x02\x01\x08\x00" + ip + payload


def write_capture(path, frames, kept=None):
    """One second from packet to packet. `kept`: captured bytes of each packet; default: all."""
    with open(path, "wb") as file:
        file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, 1))
        for i, frame in enumerate(frames):
            held = frame[:kept[i]] if kept else frame
            file.write(struct.pack("<IIII", 1717407000 + i, 0, len(held), len(frame)) + held)
    return path


def record(encoding, field, value, code=None):
    """A record of a field that mInt and MsgT give a length, and of IterMap one without."""
    if encoding == MINT:
        return struct.pack("<HB", field, len(value)) + value
    if encoding == MSGT:
        return struct.pack(">HHI", field, code, len(value)) + value
    return struct.pack("<H", field) + value


def main():
    for program, name in ((TSHARK, "tshark"), (LUA, "Lua")):
        if not program:
            print(f"skipped: {name} is not installed")
            sys.exit(0)
    unittest.main()
