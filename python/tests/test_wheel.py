"""The wheel: built and installed without a registry, and used without the rest of the build."""
import importlib.util
import os
import pathlib
import re
import subprocess
import sys
import venv
import zipfile

import pytest

SOURCE = pathlib.Path(os.environ["MD_SOURCE_DIR"])
VERSION = re.search(r"^project\(md_message VERSION ([0-9.]+)", (SOURCE / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
# Prints what differs in a session, and how many calls there were.
SESSION = """
import doctest, sys
test = doctest.DocTestParser().get_doctest(sys.stdin.read(), {}, "guide", None, 0)
print(doctest.DocTestRunner().run(test))
import md_message
print(md_message.__file__)
print("libmd_message" in open("/proc/self/maps").read())
"""

for module in ("ensurepip", "pip", "setuptools", "wheel"):
    if importlib.util.find_spec(module) is None:
        pytest.skip(f"no module {module}", allow_module_level=True)


def run(*command, **options):
    result = subprocess.run([str(part) for part in command], capture_output=True, text=True, check=False, **options)
    assert result.returncode == 0, result.stdout + result.stderr
    return result.stdout


def build(folder, *options):
    """Builds the wheel, and returns it. The source folder stays as it is."""
    before = sorted(path.name for path in SOURCE.iterdir())
    run(sys.executable, "-m", "pip", "wheel", "--no-index", "--no-deps", *options, "--wheel-dir", folder, SOURCE, cwd=folder)
    assert sorted(path.name for path in SOURCE.iterdir()) == before
    wheel, = folder.glob("*.whl")
    assert re.fullmatch(rf"md_message-{re.escape(VERSION)}-cp311-abi3-linux_[a-z0-9_]+\.whl", wheel.name)
    with zipfile.ZipFile(wheel) as archive:
        assert [name for name in sorted(archive.namelist()) if ".dist-info/" not in name] == [
            "md_message/__init__.py", "md_message/_md_message.abi3.so", "md_message/_md_message.pyi", "md_message/py.typed"]
    return wheel


def test_it_is_built_offline_and_serves_a_fresh_environment(tmp_path):
    wheel = build(tmp_path)
    venv.create(tmp_path / "fresh", with_pip=True)
    python = tmp_path / "fresh" / "bin" / "python"
    environment = {"PATH": "/usr/bin:/bin", "HOME": str(tmp_path)}
    run(python, "-m", "pip", "install", "--no-index", wheel, cwd=tmp_path, env=environment)
    guide = (SOURCE / "docs" / "python.md").read_text()
    block = re.search(r"^```pycon\n(.*?)^```", guide, re.MULTILINE | re.DOTALL)[1]
    calls = len(re.findall("^>>>", block, re.MULTILINE))
    # The library is inside the module: none is loaded beside it.
    assert run(python, "-c", SESSION, input=block, cwd=tmp_path, env=environment).splitlines() == [
        f"TestResults(failed=0, attempted={calls})",
        str(tmp_path / "fresh" / "lib" / f"python3.{sys.version_info.minor}" / "site-packages" / "md_message" / "__init__.py"),
        "False"]


def test_it_is_built_without_an_environment_of_its_own(tmp_path):
    build(tmp_path, "--no-build-isolation")
