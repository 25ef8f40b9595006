"""The example programs, run."""
import importlib.util
import os
import pathlib
import socket
import subprocess
import sys
import time

import duckdb_library
import pytest

import md_message
from md_message import Message

EXAMPLES = pathlib.Path(os.environ["MD_SOURCE_DIR"]) / "python" / "examples"


def test_receive_asyncio():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    program = subprocess.Popen([sys.executable, EXAMPLES / "receive_asyncio.py", str(port), "3"],
                               stdout=subprocess.PIPE, text=True)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sending:
        end = time.monotonic() + 30
        # The program may not have bound its port yet, so all are sent until it ends.
        while program.poll() is None and time.monotonic() < end:
            sending.sendto(bytes(Message(SYMBOL="A", BID=1.5, ASK=2)), ("127.0.0.1", port))
            time.sleep(0.02)
    program.kill()
    assert program.communicate()[0].splitlines()[:3] == ["A 1.5 2.0"] * 3


def generated_capture(folder):
    """The capture that plot_capture.py reads in these tests, which need the packages that it plots with."""
    for module in ("matplotlib", "pandas"):
        pytest.importorskip(module)
    capture = folder / "feed.pcap"
    subprocess.run([os.environ["MDMSG"], "generate", "--count", "500", "--format", "pcap", "--output", capture], check=True,
                   capture_output=True)
    return capture


def plot(capture, picture, environment=()):
    return subprocess.run([sys.executable, EXAMPLES / "plot_capture.py", capture, "ORI/USD", picture], check=True,
                          capture_output=True, text=True, env={**os.environ, **dict(environment)})


def test_plot_capture(tmp_path):
    capture, picture = generated_capture(tmp_path), tmp_path / "picture.png"
    run = plot(capture, picture)
    frame = md_message.read_columns(capture, ["SYMBOL", "BID"]).to_pandas().dropna()
    count = int((frame["SYMBOL"] == "ORI/USD").sum())
    assert f"500 messages, {len(frame)} quotes" in run.stdout and f"picture.png: {count} quotes of ORI/USD" in run.stdout
    assert picture.read_bytes().startswith(b"\x89PNG")
    if not any(importlib.util.find_spec(module) for module in ("polars", "duckdb")):
        assert run.stdout.endswith("no Parquet: neither polars nor DuckDB is installed\n")


@pytest.mark.skipif(not duckdb_library.is_there(), reason="DuckDB's library is missing; scripts/install-deps npm installs it")
@pytest.mark.skipif(importlib.util.find_spec("polars") is not None, reason="polars is installed, and comes first")
def test_plot_capture_saves_parquet_by_duckdb(tmp_path):
    capture, picture = generated_capture(tmp_path), tmp_path / "picture.png"
    here = pathlib.Path(__file__).parent
    path = os.pathsep.join([str(here / "stand_ins"), str(here), os.environ["PYTHONPATH"]])
    run = plot(capture, picture, {"PYTHONPATH": path})
    assert run.stdout.endswith(f"{tmp_path / 'picture.parquet'}\n")
    columns = md_message.read_columns(capture, ["SYMBOL", "BID", "ASK", "SEND_TIME"])
    database = duckdb_library.DuckDb()
    rows = database.query(f"SELECT SYMBOL, BID, ASK, epoch_ns(SEND_TIME) FROM '{tmp_path / 'picture.parquet'}'")
    database.close()
    # DuckDB's timestamps with a time zone have microseconds.
    assert [(symbol, bid and float(bid), ask and float(ask), int(time)) for symbol, bid, ask, time in rows] == [
        (symbol, bid, ask, time // 1000 * 1000) for symbol, bid, ask, time in zip(*(one.to_list() for one in columns.values()))]
