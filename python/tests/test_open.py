"""open(): messages of everything that mdmsg reads."""
import gc
import gzip
import json
import os
import pickle
import signal
import subprocess
import threading

import pytest

import md_message
from md_message import Message

MDMSG = os.environ["MDMSG"]


def generate(path, *options):
    subprocess.run([MDMSG, "generate", "--count", "300", "--output", path, *options], check=True, capture_output=True)
    return path


def decoded(path, *options):
    """What mdmsg prints of the same file."""
    run = subprocess.run([MDMSG, "decode", "--format", "json", *options, path], capture_output=True, text=True, check=False)
    return run.stdout.splitlines()


@pytest.mark.parametrize("form, framing", [("hex", None), ("pcap", None), ("u16le", "u16le"), ("u16be", "u16be"),
                                           ("u32le", "u32le"), ("u32be", "u32be")])
def test_forms_of_input(tmp_path, form, framing):
    path = generate(tmp_path / "feed", "--format", form)
    options = ["--framing", framing] if framing else []
    expected = decoded(path, *options)
    assert len(expected) == 300
    assert [message.to_json() for message in md_message.open(path, framing=framing)] == expected
    compressed = tmp_path / "feed.gz"
    compressed.write_bytes(gzip.compress(path.read_bytes()))
    assert [message.to_json() for message in md_message.open(compressed, framing=framing)] == expected
    frames = generate(tmp_path / "feed.zst", "--format", form)
    assert frames.read_bytes().startswith(b"\x28\xb5\x2f\xfd")
    assert [message.to_json() for message in md_message.open(frames, framing=framing)] == expected
    rows = md_message.read_columns(frames, ["BID"], framing=framing)["BID"].to_list()
    assert rows == md_message.read_columns(path, ["BID"], framing=framing)["BID"].to_list() and len(rows) == 300


def test_raw(tmp_path):
    path = tmp_path / "message"
    path.write_bytes(bytes(Message(BID=1)))
    [message] = md_message.open(path, framing="raw")
    assert message.to_dict() == {"BID": 1.0} and message.place == str(path)


def test_places_and_times(tmp_path):
    path = generate(tmp_path / "feed.pcap", "--format", "pcap")
    first, second = list(md_message.open(path, limit=2))
    assert first.place == f"{path}: packet 1 (byte 24)" and first.time_ns == first["SEND_TIME"] < second.time_ns
    for again in (pickle.loads(pickle.dumps(second)), second.copy(), second.convert("MsgT")):
        assert (again.place, again.time_ns) == (second.place, second.time_ns) and again == second
    path = generate(tmp_path / "feed.hex")
    assert [(message.place, message.time_ns) for message in md_message.open([path, path], limit=301)][299:] == [
        (f"{path}:300", None), (f"{path}:1", None)]


def test_conditions_and_fields(tmp_path):
    path = generate(tmp_path / "feed.hex")
    where = ["BID > 100", "SYMBOL ~ USD"]
    expected = [json.loads(line) for line in decoded(path, "--where", where[0], "--where", where[1], "--fields", "BID,SYMBOL")]
    assert 0 < len(expected) < 300
    assert [message.to_dict() for message in md_message.open(path, where=where, fields=[22, "SYMBOL"])] == expected
    assert len(list(md_message.open(path, where="BID > 100", limit=5))) == 5
    assert not list(md_message.open(path, limit=0))
    for arguments in ({"where": "BID"}, {"where": "BID > x"}, {"limit": -1}, {"framing": "u64"}, {"errors": "ignore"}):
        with pytest.raises(ValueError):
            md_message.open(path, **arguments)
    with pytest.raises(ValueError, match='^where "BIDX = 1": column 1: field BIDX: .*did you mean BID'):
        md_message.open(path, where="BIDX = 1")
    for arguments in ({"where": 5}, {"where": [5]}, {"fields": "BID"}, {"limit": "x"}, {"framing": 4}, {"fields": 5}):
        with pytest.raises(TypeError):
            md_message.open(path, **arguments)
    with pytest.raises(KeyError):
        md_message.open(path, fields=["NOPE"])


def malformed(tmp_path):
    path = tmp_path / "feed.hex"
    good = bytes(Message(BID=1)).hex()
    path.write_text(f"{good}\nzz\n{good}\n07\n{good}\n")
    return path


def test_malformed_messages_are_counted(tmp_path):
    reader = md_message.open(malformed(tmp_path))
    assert len(list(reader)) == 3 and reader.counts == {"messages": 3, "malformed": 2}


def test_malformed_messages_raise(tmp_path):
    path = malformed(tmp_path)
    reader = md_message.open(path, errors="raise")
    places = []
    for _ in range(5):
        try:
            places.append(next(reader).place)
        except ValueError as error:
            places.append(str(error).split(": ")[0])
    assert places == [f"{path}:{line}" for line in range(1, 6)]
    with pytest.raises(StopIteration):
        next(reader)


def test_malformed_messages_are_passed_on(tmp_path):
    path = malformed(tmp_path)
    texts = []
    assert len(list(md_message.open(path, errors=texts.append))) == 3
    assert [text.split(": ")[0] for text in texts] == [f"{path}:2", f"{path}:4"]

    def refuse(_):
        raise KeyError("stop")

    with pytest.raises(KeyError, match="stop"):
        list(md_message.open(path, errors=refuse))


def test_a_binary_file_without_its_framing_is_malformed(tmp_path):
    path = generate(tmp_path / "feed", "--format", "u16be")
    reader = md_message.open(path)
    assert list(reader) == [] and reader.counts == {"messages": 0, "malformed": 1}
    text = f"{path}: looks binary, not like hex lines; framing may be missing"
    with pytest.raises(ValueError) as raised:
        list(md_message.open(path, errors="raise"))
    assert str(raised.value) == text
    columns = md_message.read_columns(path, ["BID"])
    assert len(columns["BID"]) == 0 and columns.counts["malformed"] == 1
    # Hex lines in it are read; the next file is judged by itself.
    mixed = tmp_path / "mixed"
    mixed.write_bytes(b"\x00\x01\n" + bytes(Message(BID=1)).hex().encode() + b"\n")
    texts = []
    messages = list(md_message.open([mixed, path], errors=texts.append))
    assert [message["BID"] for message in messages] == [1.0] and messages[0].place == f"{mixed}:2"
    assert texts == [text.replace("feed", "mixed"), text]


def test_a_truncated_capture_names_the_packet_once(tmp_path):
    path = tmp_path / "cut.pcap"
    path.write_bytes(generate(tmp_path / "feed.pcap", "--format", "pcap").read_bytes()[:30])
    texts = []
    assert list(md_message.open(path, errors=texts.append)) == []
    assert len(texts) == 1 and texts[0].startswith(f"{path}: packet 1 (byte 24) cannot be read: ")


def test_a_truncated_file_keeps_what_comes_before(tmp_path):
    whole = generate(tmp_path / "feed", "--format", "u32le").read_bytes()
    path = tmp_path / "truncated"
    path.write_bytes(whole[:-5])
    reader = md_message.open(path, framing="u32le")
    assert len(list(reader)) == 299 and reader.counts["malformed"] == 1
    with pytest.raises(ValueError, match="message 300"):
        list(md_message.open(path, framing="u32le", errors="raise"))


def test_files_that_cannot_be_read(tmp_path):
    for path, error in ((tmp_path / "none", FileNotFoundError), (tmp_path, IsADirectoryError)):
        reader = md_message.open(path)
        with pytest.raises(error) as raised:
            next(reader)
        assert raised.value.filename == str(path)
        assert not list(reader)
    with pytest.raises(TypeError):
        md_message.open(5)


def test_pipes_give_each_message_when_it_comes(tmp_path):
    path = tmp_path / "pipe"
    os.mkfifo(path)
    line = (bytes(Message(BID=1)).hex() + "\n").encode()
    go_on = threading.Event()

    def write():
        with open(path, "wb", buffering=0) as pipe:
            pipe.write(line)
            assert go_on.wait(30)
            pipe.write(line)

    thread = threading.Thread(target=write)
    thread.start()
    reader = md_message.open(path)
    assert next(reader)["BID"] == 1.0
    go_on.set()
    assert next(reader)["BID"] == 1.0 and not list(reader)
    thread.join()


def test_signals_end_the_wait_for_a_pipe(tmp_path):
    path = tmp_path / "pipe"
    os.mkfifo(path)

    class Alarm(Exception):
        pass

    def on_alarm(*_):
        raise Alarm

    previous = signal.signal(signal.SIGALRM, on_alarm)
    descriptor = os.open(path, os.O_RDWR)  # so that the pipe has a writer
    signal.setitimer(signal.ITIMER_REAL, 0.05)
    try:
        with pytest.raises(Alarm):
            next(md_message.open(path))
    finally:
        signal.signal(signal.SIGALRM, previous)
        os.close(descriptor)


def test_one_reader_serves_one_thread_at_a_time(tmp_path):
    path = tmp_path / "pipe"
    os.mkfifo(path)
    descriptor = os.open(path, os.O_RDWR)
    reader = md_message.open(path)
    got = []
    thread = threading.Thread(target=lambda: got.append(next(reader)["BID"]))
    thread.start()
    refusals = 0
    while not refusals:
        try:
            reader.counts
        except ValueError:
            refusals += 1
    with pytest.raises(ValueError, match="another thread"):
        next(reader)
    with pytest.raises(RuntimeError, match="being parsed"):
        md_message.load_dictionary(md_message.dictionary().source)
    os.write(descriptor, (bytes(Message(BID=3)).hex() + "\n").encode())
    thread.join()
    os.close(descriptor)
    assert got == [3.0]


def test_close_and_with(tmp_path):
    path = generate(tmp_path / "feed.pcap", "--format", "pcap")
    with md_message.open(path) as reader:
        next(reader)
    assert not list(reader) and reader.counts["packets"] >= 1


def test_another_dictionary_ends_the_reading(tmp_path):
    path = generate(tmp_path / "feed.hex")
    source = md_message.dictionary().source
    reader = md_message.open(path)
    next(reader)
    assert next(md_message.open(path, dictionary=source))["SYMBOL"]
    with pytest.raises(RuntimeError, match="the dictionary was replaced"):
        next(reader)


def test_a_reader_that_its_own_callback_holds_is_collected(tmp_path):
    class Holder:
        def __call__(self, text):
            raise AssertionError(text)

    collected = []
    holder = Holder()
    holder.reader = md_message.open(tmp_path / "none", errors=holder)
    import weakref
    weakref.finalize(holder, collected.append, True)
    del holder
    gc.collect()
    assert collected == [True]
