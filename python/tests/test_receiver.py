"""Receiver: batches of datagrams."""
import asyncio
import signal
import socket
import threading
import time

import pytest

import md_message
from md_message import Message, Receiver


@pytest.fixture
def sockets():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiving, socket.socket(
            socket.AF_INET, socket.SOCK_DGRAM) as sending:
        receiving.bind(("127.0.0.1", 0))
        receiving.settimeout(10)
        sending.connect(receiving.getsockname())
        yield receiving, sending


def test_a_batch_holds_what_has_arrived(sockets):
    receiving, sending = sockets
    for number in range(5):
        sending.send(bytes(Message(("mInt", "IterMap", "MsgT")[number % 3], SEQ=number)))
    receiver = Receiver(batch=3)
    assert [message["SEQ"] for message in receiver.recv(receiving)] == [0, 1, 2]
    assert [message["SEQ"] for message in receiver.recv(receiving)] == [3, 4]
    assert (receiver.received, receiver.unrecognised) == (5, 0)


def test_kept_messages_keep_their_fields(sockets):
    receiving, sending = sockets
    for number in range(20):
        sending.send(bytes(Message(SEQ=number)))
    kept = [message for message in Receiver().recv(receiving)]
    assert [message["SEQ"] for message in kept] == list(range(20))
    for number in range(6):
        sending.send(bytes(Message(SEQ=number)))
    views = [memoryview(message) for message in Receiver().recv(receiving)]
    assert [Message.from_bytes(view)["SEQ"] for view in views] == list(range(6))


def test_messages_that_are_not_kept_are_reused(sockets):
    receiving, sending = sockets
    for number in range(20):
        sending.send(bytes(Message(SEQ=number)))
    assert len({id(message) for message in Receiver().recv(receiving)}) == 2


def test_unrecognised_datagrams_are_counted(sockets):
    receiving, sending = sockets
    for data in (b"", b"hello", bytes(Message(SEQ=1)), b"\x00" * 65000, bytes(Message(SEQ=2))):
        sending.send(data)
    receiver = Receiver()
    assert [message["SEQ"] for message in receiver.recv(receiving)] == [1, 2]
    assert (receiver.received, receiver.unrecognised) == (5, 3)


def test_timeouts(sockets):
    receiving, _ = sockets
    receiver = Receiver()
    receiving.settimeout(0.02)
    start = time.monotonic()
    with pytest.raises(TimeoutError):
        next(receiver.recv(receiving))
    assert time.monotonic() - start >= 0.02
    receiving.setblocking(False)
    assert list(receiver.recv(receiving)) == []


def test_waiting_releases_the_lock(sockets):
    receiving, sending = sockets
    receiving.settimeout(None)
    arrived = []
    thread = threading.Thread(target=lambda: arrived.extend(m["SEQ"] for m in Receiver().recv(receiving)))
    thread.start()
    time.sleep(0.05)
    assert not arrived
    sending.send(bytes(Message(SEQ=9)))
    thread.join(10)
    assert arrived == [9]


def test_signals_end_a_wait(sockets):
    receiving, _ = sockets
    receiving.settimeout(None)

    class Alarm(Exception):
        pass

    def on_alarm(*_):
        raise Alarm

    previous = signal.signal(signal.SIGALRM, on_alarm)
    signal.setitimer(signal.ITIMER_REAL, 0.05)
    try:
        with pytest.raises(Alarm):
            next(Receiver().recv(receiving))
    finally:
        signal.signal(signal.SIGALRM, previous)


def test_wrong_arguments(sockets):
    receiving, _ = sockets
    with pytest.raises(TypeError):
        Receiver(5)
    for batch in (0, -1, 1_000_001):
        with pytest.raises(ValueError):
            Receiver(batch=batch)
    with pytest.raises(TypeError):
        Receiver().recv("socket")
    with socket.socket() as stream, pytest.raises(ValueError, match="datagram"):
        Receiver().recv(stream)
    iterator = Receiver().recv(receiving)
    receiving.close()
    with pytest.raises((OSError, ValueError)):
        next(iterator)


def test_asyncio_takes_a_batch_per_wake_up(sockets):
    receiving, sending = sockets
    receiving.setblocking(False)

    async def run():
        receiver, batches, done = Receiver(), [], asyncio.Event()

        def on_readable():
            batches.append([message["SEQ"] for message in receiver.recv(receiving)])
            if sum(map(len, batches)) == 10:
                done.set()

        asyncio.get_running_loop().add_reader(receiving, on_readable)
        for number in range(10):
            sending.send(bytes(Message(SEQ=number)))
        await asyncio.wait_for(done.wait(), 10)
        asyncio.get_running_loop().remove_reader(receiving)
        return batches

    batches = asyncio.run(run())
    assert sum(batches, []) == list(range(10)) and len(batches) < 10


def test_the_dictionary_may_change_between_batches(sockets, tmp_path):
    receiving, sending = sockets
    before = md_message.dictionary().source
    fields = tmp_path / "fields.txt"
    fields.write_text("NUMBER 11 INT64\n")
    receiver = Receiver()
    data = bytes(Message(SEQ=1))
    sending.send(data)
    assert [dict(message) for message in receiver.recv(receiving)] == [{"SEQ": 1}]
    try:
        md_message.load_dictionary(fields)
        sending.send(data)
        assert [dict(message) for message in receiver.recv(receiving)] == [{"NUMBER": 1}]
    finally:
        md_message.load_dictionary(before)
