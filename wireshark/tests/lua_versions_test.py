"""The dissector does the same in every Lua that Wireshark 3.6 to 4.x is built with, and the Lua tools find nothing."""
import os
import subprocess

from support import DISSECTOR, SOURCE, TestCase, main
from differential_test import random_messages

VERSIONS = os.environ.get("LUA_VERSIONS", "").split()
COMPILERS = os.environ.get("LUA_COMPILERS", "").split()


class LuaVersions(TestCase):
    def test_versions_agree(self):
        messages = "".join(payload.hex() + "\n" for payload in random_messages(1500, seed=22))
        outputs = {}
        for lua in VERSIONS:
            run = subprocess.run([lua, SOURCE / "wireshark" / "tests" / "fake_wireshark.lua", DISSECTOR, "udp"],
                                 input=messages.encode("ascii"), env=self.environment, capture_output=True, check=False)
            self.assertEqual((run.returncode, run.stderr), (0, b""), lua)
            outputs[lua] = run.stdout
        first = outputs[VERSIONS[0]]
        self.assertEqual(first.count(b"protocol: MD"), 1500)
        for lua, output in outputs.items():
            self.assertTrue(output == first, f"{lua} differs from {VERSIONS[0]}")

    def test_every_version_compiles_it(self):
        for compiler in COMPILERS:
            self.run_program([compiler, "-p", DISSECTOR])


class Luacheck(TestCase):
    def test_luacheck_is_clean(self):
        program = os.environ.get("LUACHECK")
        if not program:
            self.skipTest("luacheck is not installed")
        self.run_program([program, "--quiet", "--config", SOURCE / "wireshark" / ".luacheckrc", DISSECTOR])


if __name__ == "__main__":
    main()
