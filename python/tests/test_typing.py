"""The stubs are those of the module, and the package and the examples pass mypy --strict."""
import os
import pathlib
import subprocess
import sys

import pytest

SOURCE = pathlib.Path(os.environ["MD_SOURCE_DIR"])

pytest.importorskip("mypy")


def run(*command):
    result = subprocess.run([sys.executable, "-m", *command], capture_output=True, text=True, check=False)
    assert result.returncode == 0, result.stdout + result.stderr


def test_the_stubs_are_those_of_the_module():
    run("mypy.stubtest", "md_message")


def test_the_package_and_the_examples_are_typed(tmp_path):
    examples = sorted(str(path) for path in (SOURCE / "python" / "examples").glob("*.py"))
    assert examples
    run("mypy", "--strict", "--cache-dir", str(tmp_path), "-p", "md_message")
    run("mypy", "--strict", "--cache-dir", str(tmp_path), *examples)
