"""Calls every function of the module again and again, and compares what is alive before and after: references, blocks of the
interpreter's allocator and bytes of the C library's heap. Run by python3-dbg, which counts references.

    MD_PYTHON_OPERATIONS=1000000 leaks.py [NAME...]     default: 2000 calls of each function
"""
import copy
import ctypes
import gc
import os
import pickle
import socket
import sys
import tempfile

import md_message
from md_message import DateTime, Dictionary, Message, Receiver

OPERATIONS = int(os.environ.get("MD_PYTHON_OPERATIONS", "2000"))
# What caches of the interpreter may take during the measured calls. A leak of one reference per call is more: there are 100 calls
# at least.
SLACK = 500
SLACK_BYTES = 16384


class Heap(ctypes.Structure):
    _fields_ = [(name, ctypes.c_size_t) for name in (
        "arena", "ordblks", "smblks", "hblks", "hblkhd", "usmblks", "fsmblks", "uordblks", "fordblks", "keepcost")]


mallinfo2 = ctypes.CDLL(None).mallinfo2
mallinfo2.restype = Heap


def alive():
    gc.collect()
    heap = mallinfo2()
    return sys.gettotalrefcount(), sys.getallocatedblocks(), heap.uordblks + heap.hblkhd


VALUES = {"SIDE": "B", "BID_QTY": 70000, "SEQ": 1 << 60, "DELTA": 0.25, "BID": 184.15, "SYMBOL": "NEB/USD \u20ac\udcff",
          "RAW_PAYLOAD": b"\0\xff" * 40, "EXCH_TIME": DateTime(20240603, 93000000, -300), "RECV_TIME": 1 << 62}
WRONG = {"SIDE": "XX", "BID_QTY": 1 << 40, "SEQ": 1 << 70, "DELTA": 1e39, "BID": "x", "SYMBOL": "x" * 70000,
         "RAW_PAYLOAD": 5, "EXCH_TIME": (1, 2, 3), "RECV_TIME": -1, "NOPE": 1, "LAST_FRACTION": 1}
full = Message("MsgT", VALUES)
data = bytes(full)
truncated = bytes(Message("MsgT", SYMBOL="A", BID=1.5))[:-3]
unknown = bytes.fromhex("06ffff0141")
fields = md_message.dictionary()
scratch = Message("MsgT")
receiving = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
receiving.bind(("127.0.0.1", 0))
sending = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
sending.connect(receiving.getsockname())
receiver = Receiver(batch=4)


def refused(function, *arguments):
    try:
        function(*arguments)
    except (ArithmeticError, LookupError, TypeError, ValueError, BufferError, RuntimeError, ImportError):
        return
    raise AssertionError(f"{function} was not refused")


def set_and_get():
    for name, value in VALUES.items():
        scratch[name] = value
        assert scratch[name] is not None


def set_wrong():
    for name, value in WRONG.items():
        refused(scratch.__setitem__, name, value)


def change():
    scratch["SYMBOL"] = "short"
    scratch["SYMBOL"] = "longer than before"
    del scratch["SYMBOL"]
    refused(scratch.__delitem__, "SYMBOL")


def blocked():
    message = Message(BID=1)
    view = memoryview(message)
    refused(message.__setitem__, "BID", 2)
    refused(message.clear)
    view.release()


def changed_during_iteration():
    message = Message(BID=1, ASK=2)
    iterator = iter(message)
    next(iterator)
    message.clear()
    refused(next, iterator)


def abandoned_iteration():
    next(iter(full))


def receive():
    for _ in range(3):
        sending.send(data)
    sending.send(b"nothing")
    kept = [message for message in receiver.recv(receiving)]
    assert len(kept) == 3


def receive_reused():
    for _ in range(4):
        sending.send(data)
    for message in receiver.recv(receiving):
        assert len(message) == 9


def unreadable():
    message = Message.from_bytes(truncated)
    refused(message.__getitem__, "BID")
    refused(message.to_dict)
    message.problems()
    repr(message)
    str(message)
    message.to_json()


def report():
    texts = []
    assert md_message.set_report_handler(texts.append) is None
    Message.from_bytes(unknown)
    md_message.set_report_handler(None)


feed = tempfile.NamedTemporaryFile(suffix=".hex")
feed.write(b"\n".join([data.hex().encode(), b"zz", bytes(Message(SEQ=1)).hex().encode(), b"07", b""]))
feed.flush()
hexed = data.hex().encode() + b"\nzz\n" + bytes(Message(SEQ=1)).hex().encode()
message_bytes = bytes(Message(SYMBOL="NEB/USD"))
COLUMNS = list(VALUES)
columns = md_message.read_columns(bytes(Message("MsgT", VALUES, SYMBOL="A", VENUE="B")).hex().encode(), [*COLUMNS, "VENUE"],
                                  dictionary_encoded=["VENUE"])
pointer_of = ctypes.pythonapi.PyCapsule_GetPointer
pointer_of.restype = ctypes.c_void_p
pointer_of.argtypes = [ctypes.py_object, ctypes.c_char_p]


class Stream(ctypes.Structure):
    _fields_ = [(name, ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p)) for name in ("schema", "next")] + [
        ("error", ctypes.c_void_p), ("release", ctypes.CFUNCTYPE(None, ctypes.c_void_p)), ("private", ctypes.c_void_p)]


schema_memory, array_memory = ctypes.create_string_buffer(72), ctypes.create_string_buffer(80)
RELEASE = ctypes.CFUNCTYPE(None, ctypes.c_void_p)


def consume():
    """Imports the stream of the columns as a consumer does."""
    capsule = columns.__arrow_c_stream__()
    address = pointer_of(capsule, b"arrow_array_stream")
    stream = Stream.from_address(address)
    assert stream.schema(address, ctypes.addressof(schema_memory)) == 0
    assert stream.next(address, ctypes.addressof(array_memory)) == 0
    RELEASE.from_buffer(array_memory, 64)(ctypes.addressof(array_memory))
    RELEASE.from_buffer(schema_memory, 56)(ctypes.addressof(schema_memory))


def read_file():
    reader = md_message.open(feed.name, where="SEQ > 0", fields=["SEQ"], limit=5)
    assert sum(1 for _ in reader) == 2 and reader.counts["malformed"] == 2


def read_file_raising():
    reader = md_message.open(feed.name, errors="raise")
    next(reader)
    refused(next, reader)


def read_some():
    with md_message.open(feed.name) as reader:
        next(reader)


class Scribble:
    def __index__(self):
        raise ZeroDivisionError


FUNCTIONS = {
    "Message": lambda: Message("IterMap", VALUES, ASK=1),
    "Message refused": lambda: [refused(Message, "XML"), refused(Message, "mInt", {"NOPE": 1}),
                                refused(Message, "mInt", [1])],
    "from_bytes": lambda: Message.from_bytes(data),
    "from_bytes refused": lambda: [refused(Message.from_bytes, b""), refused(Message.from_bytes, "x")],
    "set and get": set_and_get,
    "set refused": set_wrong,
    "set raising": lambda: refused(scratch.__setitem__, "SEQ", Scribble()),
    "change": change,
    "key refused": lambda: [refused(scratch.__getitem__, 1.5), refused(scratch.__getitem__, "NOPE"),
                            refused(scratch.__getitem__, 70000)],
    "keys made each time": lambda: scratch.get("".join(["B", "ID"])),
    "get": lambda: (full.get("BID"), full.get("ASK", 5), full.get("NOPE")),
    "contains": lambda: ("BID" in full, 22 in full, "NOPE" in full),
    "len": lambda: len(full),
    "iteration": lambda: list(full),
    "iteration abandoned": abandoned_iteration,
    "iteration changed": changed_during_iteration,
    "items": lambda: list(full.items()),
    "keys": lambda: full.keys() & {"BID"},
    "values": lambda: list(full.values()),
    "update": lambda: (scratch.update(full), scratch.update([("BID", 1)], ASK=2)),
    "pop": lambda: (scratch.update(BID=1), scratch.pop("BID"), scratch.pop("BID", 1), refused(scratch.pop, "BID")),
    "popitem": lambda: (scratch.update(BID=1), scratch.popitem()),
    "setdefault": lambda: scratch.setdefault("BID", 1),
    "clear": lambda: (scratch.update(BID=1), scratch.clear()),
    "to_dict": full.to_dict,
    "to_json": full.to_json,
    "str": lambda: str(full),
    "repr": lambda: repr(full),
    "bytes": lambda: bytes(full),
    "memoryview": lambda: bytes(memoryview(full)[1:3]),
    "views block changes": blocked,
    "==": lambda: (full == scratch, full != full, full == 1),
    "< refused": lambda: refused(lambda: full < scratch),
    "hash refused": lambda: refused(hash, full),
    "copy": lambda: (full.copy(), copy.copy(full), copy.deepcopy(full)),
    "convert": lambda: full.convert("mInt"),
    "convert refused": lambda: refused(full.convert, "XML"),
    "attributes": lambda: (full.encoding, full.time_ns, full.place),
    "pickle": lambda: pickle.loads(pickle.dumps(full)),
    "unreadable": unreadable,
    "peek": lambda: [md_message.peek(data, name) for name in VALUES],
    "peek refused": lambda: [refused(md_message.peek, data, "NOPE"), refused(md_message.peek, 5, "BID")],
    "set_report_handler": report,
    "set_report_handler refused": lambda: refused(md_message.set_report_handler, 5),
    "Receiver": lambda: (Receiver(batch=3), receiver.received, receiver.unrecognised),
    "recv": receive,
    "recv reused": receive_reused,
    "recv refused": lambda: refused(receiver.recv, "x"),
    "as_datetime": lambda: md_message.as_datetime(1 << 60),
}
FUNCTIONS |= {
    "open": read_file,
    "open raising": read_file_raising,
    "open and a callable": lambda: list(md_message.open(feed.name, errors=len)),
    "open and close": read_some,
    "open refused": lambda: [refused(md_message.open, 5), refused(lambda: md_message.open(feed.name, where="x"))],
    "read_columns": lambda: md_message.read_columns(hexed, COLUMNS[:5], where="SEQ > 0"),
    "read_columns refused": lambda: [refused(md_message.read_columns, hexed, ["NOPE"]), refused(md_message.read_columns, 5, []),
                                     refused(md_message.read_columns, hexed, COLUMNS)],
    "dictionary-encoded": lambda: [(column[0], column.to_list(), column._encoded()) for column in md_message.read_columns(
        message_bytes, ["SYMBOL"], framing="raw", dictionary_encoded=["SYMBOL"]).values()],
    "read_batches": lambda: [batch.rows for batch in md_message.read_batches(hexed, ["SEQ"], batch_rows=1)],
    "batches": lambda: list(columns.batches()),
    "to_list": lambda: [column.to_list() for column in columns.values()],
    "Column": lambda: (columns["BID"][0], len(columns["BID"]), columns["BID"].validity, columns["BID"].null_count,
                       columns["BID"].type, columns["SYMBOL"][:], repr(columns["BID"]),
                       refused(columns["BID"].__getitem__, 9), refused(columns["BID"].__getitem__, "x")),
    "Column as a buffer": lambda: (memoryview(columns["BID"]).tolist(), refused(memoryview, columns["SYMBOL"])),
    "__arrow_c_schema__": columns.__arrow_c_schema__,
    "__arrow_c_stream__": columns.__arrow_c_stream__,
    "__arrow_c_stream__ consumed": consume,
}
# Of these fewer calls show the same: each takes milliseconds.
SLOW = {
    "Dictionary": Dictionary,
    "dictionary": md_message.dictionary,
    "load_dictionary": lambda: md_message.load_dictionary(fields.source),
    "load_dictionary and messages": lambda: (md_message.load_dictionary(fields.source), full["BID"], list(scratch)),
    "diff": lambda: fields.diff(md_message.dictionary()),
}


def measure(name, function, operations):
    for _ in range(max(operations // 20, 100)):
        function()
    references, blocks, heap = alive()
    for _ in range(operations):
        function()
    after = alive()
    grown = (after[0] - references, after[1] - blocks, after[2] - heap)
    slack = min(SLACK, operations * 9 // 10)
    is_leak = grown[0] > slack or grown[1] > slack or grown[2] > SLACK_BYTES
    print(f"{name}: {operations} calls, references {grown[0]:+}, blocks {grown[1]:+}, heap {grown[2]:+} bytes"
          f"{' LEAK' if is_leak else ''}", flush=True)
    return is_leak


def main():
    chosen = sys.argv[1:]
    leaks = [name for name, function in FUNCTIONS.items()
             if (not chosen or name in chosen) and measure(name, function, OPERATIONS)]
    leaks += [name for name, function in SLOW.items()
              if (not chosen or name in chosen) and measure(name, function, max(OPERATIONS // 100, 100))]
    # That a leak is seen.
    hoard = []
    assert measure("a leak", lambda: hoard.append([]), OPERATIONS), "a leak was not seen"
    receiving.close()
    sending.close()
    sys.exit(f"leaks: {', '.join(leaks)}" if leaks else 0)


if __name__ == "__main__":
    main()
