"""read_columns(): fields of messages as columns."""
import ctypes
import itertools
import json
import math
import os
import subprocess
import sys
import threading

import duckdb_library
import pytest

import md_message
from duckdb_library import pointer_of
from md_message import DateTime, Message

MDMSG = os.environ["MDMSG"]
VALUES = {"SIDE": "B", "BID_QTY": -5, "SEQ": 1 << 60, "DELTA": 0.25, "BID": 184.15, "SYMBOL": "na\u00efve",
          "RAW_PAYLOAD": b"\0\xff", "EXCH_TIME": DateTime(20240603, 93000000, -300), "RECV_TIME": 1717407000123456789}
NAMES = list(VALUES)


def framed(messages):
    return b"".join(len(bytes(message)).to_bytes(4, "little") + bytes(message) for message in messages)


def sample(count=1000):
    """Messages with every second, third, ... field."""
    return [Message(("mInt", "IterMap", "MsgT")[row % 3],
                    {name: VALUES[name] for number, name in enumerate(NAMES) if row % (number + 2) == 0})
            for row in range(count)]


@pytest.mark.parametrize("batch_rows", [1, 64, 999, 1000, 65536])
def test_values_and_nulls(batch_rows):
    messages = sample()
    columns = md_message.read_columns(framed(messages), NAMES, framing="u32le", batch_rows=batch_rows)
    assert list(columns) == NAMES and columns.rows == 1000 and len(columns) == 9
    assert columns.counts == {"messages": 1000, "malformed": 0}
    for name in NAMES:
        expected = [message.get(name) for message in messages]
        column = columns[name]
        assert column.to_list() == list(column) == expected and len(column) == 1000
        assert [column[row] for row in (0, 999, -1, -1000)] == [expected[row] for row in (0, 999, -1, -1000)]
        for part in slice(3), slice(990, 2000), slice(None, None, -7), slice(700, 20, -300), slice(5, 5):
            assert column[part] == expected[part]
        for wrong in 1000, -1001, 2**70:
            with pytest.raises(IndexError):
                column[wrong]
        with pytest.raises(TypeError):
            column["0"]
        with pytest.raises(ValueError):
            column[::0]
        assert repr(column) == f"<Column of {column.type}: 1000 rows, {expected.count(None)} of them null>"
        assert column.null_count == expected.count(None) and column.type == md_message.dictionary()[name].type
        bits = [bool(column.validity[row // 8] >> row % 8 & 1) for row in range(1000)]
        assert bits == [value is not None for value in expected]
    parts = list(columns.batches())
    assert len(parts) == -(-1000 // batch_rows)
    assert list(itertools.chain.from_iterable(part["BID"] for part in parts)) == columns["BID"].to_list()
    scanned = md_message.read_batches(framed(messages), NAMES, framing="u32le", batch_rows=batch_rows)
    assert [part["SYMBOL"].to_list() for part in scanned] == [part["SYMBOL"].to_list() for part in parts]


@pytest.mark.parametrize("batch_rows", [7, 1000])
def test_the_buffer_protocol(batch_rows):
    messages = sample(100)
    columns = md_message.read_columns(framed(messages), NAMES, framing="u32le", batch_rows=batch_rows)
    for name, format_ in {"BID_QTY": "i", "SEQ": "q", "DELTA": "f", "BID": "d", "RECV_TIME": "q"}.items():
        view = memoryview(columns[name])
        assert view.format == format_ and view.readonly and view.shape == (100,)
        assert view.tolist() == [message.get(name, 0) for message in messages]
    for name in ("SIDE", "SYMBOL", "RAW_PAYLOAD", "EXCH_TIME"):
        with pytest.raises(BufferError, match=name):
            memoryview(columns[name])
    view = memoryview(columns["BID"])
    del columns
    assert view[0] == 184.15


def test_numpy_and_pandas():
    numpy, pandas = pytest.importorskip("numpy"), pytest.importorskip("pandas")
    messages = sample(50)
    columns = md_message.read_columns(framed(messages), NAMES, framing="u32le")
    arrays = columns.to_numpy()
    assert [None if math.isnan(value) else value for value in arrays["BID"].tolist()] == columns["BID"].to_list()
    assert arrays["SEQ"].tolist() == columns["SEQ"].to_list() and arrays["SEQ"].dtype == numpy.int64
    assert arrays["SYMBOL"].tolist() == columns["SYMBOL"].to_list()
    assert arrays["RECV_TIME"].dtype == "datetime64[ns]"
    assert [None if numpy.isnat(value) else int(value) for value in arrays["RECV_TIME"]] == columns["RECV_TIME"].to_list()
    frame = columns.to_pandas()
    assert list(frame) == NAMES and len(frame) == 50
    assert [None if value is pandas.NA else value for value in frame["BID_QTY"]] == columns["BID_QTY"].to_list()
    assert str(frame["RECV_TIME"].dtype) == "datetime64[ns, UTC]"
    whole = md_message.read_columns(framed([Message(SEQ=1), Message(SEQ=2)]), ["SEQ"], framing="u32le")
    assert whole["SEQ"].to_numpy().tolist() == [1, 2] and whole["SEQ"].validity is None
    assert whole["SEQ"].to_pandas().dtype == numpy.int64
    assert numpy.shares_memory(whole["SEQ"].to_numpy(), numpy.asarray(whole["SEQ"]))


def test_without_numpy_and_pandas():
    script = """
import sys
sys.modules["numpy"] = sys.modules["pandas"] = None
import md_message
columns = md_message.read_columns(bytes.fromhex("060b0008010000000000000"+"0"), ["SEQ"], framing="raw")
assert columns["SEQ"].to_list() == [1]
for function in (columns.to_numpy, columns.to_pandas, columns["SEQ"].to_pandas, lambda: md_message.as_datetime64(1)):
    try:
        function()
    except ImportError as error:
        print(error)
"""
    run = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, check=True)
    assert run.stdout.splitlines() == [
        "to_numpy() requires numpy, which is not installed",
        "to_pandas() requires pandas, which is not installed",
        "to_pandas() requires pandas, which is not installed",
        "as_datetime64() requires numpy, which is not installed",
    ]


@pytest.mark.parametrize("batch_rows", [7, 1000])
def test_dictionary_encoded_columns(batch_rows):
    rows = ["NEB/USD", None, "ORI/USD", "NEB/USD", "", "J\u00e4ger", None] * 5
    data = framed([Message(SEQ=seq, **({} if symbol is None else {"SYMBOL": symbol})) for seq, symbol in enumerate(rows)])
    columns = md_message.read_columns(data, ["SEQ", "SYMBOL"], framing="u32le", batch_rows=batch_rows,
                                      dictionary_encoded=["SYMBOL", "SEQ"])
    symbol = columns["SYMBOL"]
    assert symbol.to_list() == list(symbol) == rows and symbol.null_count == 10 and symbol.type == "STRING"
    assert columns["SEQ"].to_list() == list(range(35)) and memoryview(columns["SEQ"])[34] == 34
    assert [row for part in columns.batches() for row in part["SYMBOL"]] == rows
    with pytest.raises(BufferError, match="SYMBOL"):
        memoryview(symbol)
    binary = md_message.read_columns(bytes.fromhex("0601000441ff4200"), ["SYMBOL"], framing="raw", binary=["SYMBOL"],
                                     dictionary_encoded=["SYMBOL"])
    assert binary["SYMBOL"].to_list() == ["A\udcffB"]
    with pytest.raises(ValueError, match="SYMBOL.*not UTF-8"):
        md_message.read_columns(bytes.fromhex("0601000441ff4200"), ["SYMBOL"], framing="raw", dictionary_encoded=["SYMBOL"])
    with pytest.raises(KeyError):
        md_message.read_columns(data, ["SYMBOL"], framing="u32le", dictionary_encoded=["NOPE"])
    pytest.importorskip("numpy")
    pytest.importorskip("pandas")
    assert symbol.to_numpy().tolist() == rows
    series = symbol.to_pandas()
    assert list(series.cat.categories) == ["NEB/USD", "ORI/USD", "", "J\u00e4ger"]
    assert [None if value != value else value for value in series] == rows
    assert series.cat.codes.tolist() == [0, -1, 1, 0, 2, 3, -1] * 5
    nothing = md_message.read_columns(b"", ["SYMBOL"], dictionary_encoded=["SYMBOL"])["SYMBOL"]
    assert nothing.to_numpy().tolist() == [] and len(nothing.to_pandas()) == 0
    absent = md_message.read_columns(framed([Message(SEQ=1)]), ["SYMBOL"], framing="u32le", dictionary_encoded=["SYMBOL"])
    assert absent["SYMBOL"].to_numpy().tolist() == [None] and absent["SYMBOL"].to_pandas().isna().all()


class Schema(ctypes.Structure):
    pass


class Array(ctypes.Structure):
    pass


class Stream(ctypes.Structure):
    pass


Schema._fields_ = [("format", ctypes.c_char_p), ("name", ctypes.c_char_p), ("metadata", ctypes.c_void_p),
                   ("flags", ctypes.c_int64), ("n_children", ctypes.c_int64),
                   ("children", ctypes.POINTER(ctypes.POINTER(Schema))), ("dictionary", ctypes.POINTER(Schema)),
                   ("release", ctypes.CFUNCTYPE(None, ctypes.POINTER(Schema))), ("private", ctypes.c_void_p)]
Array._fields_ = [("length", ctypes.c_int64), ("null_count", ctypes.c_int64), ("offset", ctypes.c_int64),
                  ("n_buffers", ctypes.c_int64), ("n_children", ctypes.c_int64),
                  ("buffers", ctypes.POINTER(ctypes.c_void_p)), ("children", ctypes.POINTER(ctypes.POINTER(Array))),
                  ("dictionary", ctypes.POINTER(Array)), ("release", ctypes.CFUNCTYPE(None, ctypes.POINTER(Array))),
                  ("private", ctypes.c_void_p)]
Stream._fields_ = [("get_schema", ctypes.CFUNCTYPE(ctypes.c_int, ctypes.POINTER(Stream), ctypes.POINTER(Schema))),
                   ("get_next", ctypes.CFUNCTYPE(ctypes.c_int, ctypes.POINTER(Stream), ctypes.POINTER(Array))),
                   ("get_last_error", ctypes.CFUNCTYPE(ctypes.c_char_p, ctypes.POINTER(Stream))),
                   ("release", ctypes.CFUNCTYPE(None, ctypes.POINTER(Stream))), ("private", ctypes.c_void_p)]


def test_the_arrow_stream():
    columns = md_message.read_columns(framed(sample(250)), NAMES, framing="u32le", batch_rows=100)
    capsule = columns.__arrow_c_stream__()
    unused = columns.__arrow_c_stream__()
    stream = Stream.from_address(pointer_of(capsule, b"arrow_array_stream"))
    schema = Schema()
    assert stream.get_schema(stream, schema) == 0 and schema.n_children == 9 and schema.format == b"+s"
    assert [schema.children[i].contents.name.decode() for i in range(9)] == NAMES
    assert [schema.children[i].contents.format.decode() for i in range(9)] == [
        "u", "i", "l", "f", "g", "u", "z", "+s", "tsn:UTC"]
    schema.release(schema)
    rows = bids = 0
    expected = columns["BID"].to_list()
    arrays = []
    while True:
        array = Array()
        assert stream.get_next(stream, array) == 0
        if not array.release:
            break
        arrays.append(array)
    stream.release(stream)
    del columns, capsule, unused  # the arrays live on
    for array in arrays:
        bid = array.children[4].contents
        values = ctypes.cast(bid.buffers[1], ctypes.POINTER(ctypes.c_double))
        valid = ctypes.cast(bid.buffers[0], ctypes.POINTER(ctypes.c_uint8))
        for row in range(array.length):
            is_valid = valid[row // 8] >> row % 8 & 1
            assert (values[row] if is_valid else None) == expected[rows + row]
            bids += is_valid
        rows += array.length
        # A consumer may take a child and release the rest.
        taken = Array.from_buffer_copy(bid)
        bid.release = type(bid.release)()
        array.release(array)
        assert ctypes.cast(taken.buffers[1], ctypes.POINTER(ctypes.c_double))[0] == values[0]
        taken.release(taken)
    assert rows == 250 and bids == len([value for value in expected if value is not None])


def test_the_arrow_stream_of_a_dictionary_encoded_column():
    rows = ["NEB/USD", None, "ORI/USD", "NEB/USD"]
    data = framed([Message(SEQ=1, **({} if symbol is None else {"SYMBOL": symbol})) for symbol in rows])
    columns = md_message.read_columns(data, ["SYMBOL"], framing="u32le", batch_rows=3, dictionary_encoded=["SYMBOL"])
    capsule = columns.__arrow_c_stream__()
    del columns
    stream = Stream.from_address(pointer_of(capsule, b"arrow_array_stream"))
    schema = Schema()
    assert stream.get_schema(stream, schema) == 0
    symbol = schema.children[0].contents
    assert symbol.format == b"i" and symbol.dictionary.contents.format == b"u"
    schema.release(schema)
    batches = []
    for _ in range(2):
        array = Array()
        assert stream.get_next(stream, array) == 0
        symbol = array.children[0].contents
        values = symbol.dictionary.contents
        offsets = ctypes.cast(values.buffers[1], ctypes.POINTER(ctypes.c_int32))
        texts = [ctypes.string_at(values.buffers[2] + offsets[i], offsets[i + 1] - offsets[i]) for i in range(values.length)]
        numbers = ctypes.cast(symbol.buffers[1], ctypes.POINTER(ctypes.c_int32))
        batches.append((texts, symbol.null_count, numbers[0], numbers[array.length - 1]))
        array.release(array)
    assert batches == [([b"NEB/USD", b"ORI/USD"], 1, 0, 1), ([b"NEB/USD"], 0, 0, 0)]


@pytest.mark.skipif(not duckdb_library.is_there(), reason="DuckDB's library is missing; scripts/install-deps npm installs it")
def test_duckdb_reads_the_stream(tmp_path):
    messages = sample(1000)
    columns = md_message.read_columns(framed(messages), [*NAMES, "VENUE"], framing="u32le", batch_rows=300,
                                      dictionary_encoded=["SYMBOL"])
    database = duckdb_library.DuckDb()
    try:
        database.load("t", columns)
        del columns
        assert database.query("SELECT column_name, column_type FROM (DESCRIBE t)") == [
            ("SIDE", "VARCHAR"), ("BID_QTY", "INTEGER"), ("SEQ", "BIGINT"), ("DELTA", "FLOAT"), ("BID", "DOUBLE"),
            ("SYMBOL", "VARCHAR"), ("RAW_PAYLOAD", "BLOB"),
            ("EXCH_TIME", 'STRUCT(date INTEGER, "time" INTEGER, "offset" SMALLINT)'),
            ("RECV_TIME", "TIMESTAMP WITH TIME ZONE"), ("VENUE", "VARCHAR")]
        path = tmp_path / "messages.parquet"
        database.query(f"COPY t TO '{path}' (FORMAT parquet)")
        for source in ("t", f"'{path}'"):
            rows = database.query(
                "SELECT SIDE, BID_QTY, SEQ, DELTA, BID, SYMBOL, hex(RAW_PAYLOAD), EXCH_TIME.date, EXCH_TIME.time, "
                f"EXCH_TIME.offset, epoch_ns(RECV_TIME), VENUE FROM {source}")
            assert len(rows) == 1000
            for message, row in zip(messages, rows):
                side, quantity, seq, delta, bid, symbol, payload, *date_time, time, venue = row
                found = {"SIDE": side, "BID_QTY": quantity and int(quantity), "SEQ": seq and int(seq),
                         "DELTA": delta and float(delta), "BID": bid and float(bid), "SYMBOL": symbol,
                         "RAW_PAYLOAD": payload if payload is None else bytes.fromhex(payload),
                         "EXCH_TIME": None if date_time[0] is None else DateTime(*map(int, date_time)),
                         "RECV_TIME": time and int(time), "VENUE": venue}
                # DuckDB's timestamps with a time zone have microseconds.
                expected = {name: message.get(name) for name in found}
                assert found == {**expected, "RECV_TIME": expected["RECV_TIME"] and expected["RECV_TIME"] // 1000 * 1000}
    finally:
        database.close()


def test_a_file_and_mdmsg_agree(tmp_path):
    path = tmp_path / "feed.pcap"
    subprocess.run([MDMSG, "generate", "--count", "2000", "--format", "pcap", "--output", path], check=True,
                   capture_output=True)
    run = subprocess.run([MDMSG, "decode", "--format", "json", path], capture_output=True, text=True, check=True)
    expected = [json.loads(line) for line in run.stdout.splitlines()]
    names = ["SYMBOL", "BID", "SEQ", "LAST", "MSG_KIND", "SEND_TIME"]
    columns = md_message.read_columns(path, names)
    for name in names:
        assert columns[name].to_list() == [fields.get(name) for fields in expected]
    both = md_message.read_columns([path, path.read_bytes()], ["SEQ"])
    assert both["SEQ"].to_list() == 2 * [fields["SEQ"] for fields in expected]
    assert both.counts["packets"] == 4000
    some = md_message.read_columns(path, names, where="BID > 100", limit=100)
    wanted = [fields for fields in expected if fields.get("BID", 0) > 100][:100]
    assert some["BID"].to_list() == [fields["BID"] for fields in wanted] and some.rows == 100


def test_malformed_input():
    data = framed([Message(SEQ=1), Message(SEQ=2)])
    columns = md_message.read_columns(data[:-3], ["SEQ"], framing="u32le")
    assert columns["SEQ"].to_list() == [1] and columns.counts == {"messages": 1, "malformed": 1}
    columns = md_message.read_columns(b"07\nzz\n" + bytes(Message(SEQ=5)).hex().encode(), ["SEQ"])
    assert columns["SEQ"].to_list() == [5] and columns.counts == {"messages": 1, "malformed": 2}
    empty = md_message.read_columns(b"", NAMES)
    assert empty.rows == 0 and empty["BID"].to_list() == [] and not list(empty.batches())
    assert memoryview(empty["BID"]).tolist() == [] and empty["BID"].null_count == 0
    assert not list(md_message.read_batches(b"", NAMES))


def test_text_that_is_not_utf8():
    data = bytes.fromhex("0601000441ff4200")
    with pytest.raises(ValueError, match="SYMBOL.*not UTF-8"):
        md_message.read_columns(data, ["SYMBOL"], framing="raw")
    columns = md_message.read_columns(data, ["SYMBOL"], framing="raw", binary=["SYMBOL"])
    assert columns["SYMBOL"].to_list() == ["A\udcffB"]


def test_wrong_arguments(tmp_path):
    data = framed([Message(SEQ=1)])
    for error, arguments, options in (
            (KeyError, (data, ["NOPE"]), {}), (TypeError, (data, "SEQ"), {}), (TypeError, (5, ["SEQ"]), {}),
            (ValueError, (data, ["SEQ", "SEQ"]), {}), (ValueError, (data, ["LAST_FRACTION"]), {}),
            (ValueError, (data, ["SEQ"]), {"batch_rows": 0}), (FileNotFoundError, (tmp_path / "none", ["SEQ"]), {}),
            (ValueError, (data, ["SEQ"]), {"framing": "u8"}), (ValueError, (data, ["SEQ"]), {"where": "SEQ"})):
        with pytest.raises(error):
            md_message.read_columns(*arguments, **options)
    for name in ("_Column", "_Table"):
        with pytest.raises(TypeError):
            getattr(md_message._md_message, name)()
    column = md_message.read_columns(data, ["SEQ"], framing="u32le")["SEQ"]
    for row in (1, -2, 1 << 40):
        with pytest.raises(IndexError):
            column[row]
    assert column[-1] == column[0] == 1


def test_other_threads_run_meanwhile():
    data = framed(sample(2000)) * 20
    results = []

    def read():
        results.append(md_message.read_columns(data, ["BID"], framing="u32le", batch_rows=1000).rows)

    threads = [threading.Thread(target=read) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert results == [40000] * 4
