"""Starts a NATS server on the loopback interface and runs mdmsg against it.

Environment, set by CMakeLists.txt: MDMSG, NATS_SERVER (empty where the program is missing: tests then show as skipped).
Recorded ticks are read from the folder that MD_TEST_DATA names; without it the tests of them are skipped.
"""
import contextlib
import gzip
import json
import os
import pathlib
import pty
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest

MDMSG = os.environ["MDMSG"]
NATS_SERVER = os.environ.get("NATS_SERVER")

# What a test waits for something at most: only an endless loop takes that long.
TIMEOUT_S = 60

TICK_FIELDS = {
    "recv_ns": "RECV_TIME", "venue": "VENUE", "symbol": "SYMBOL", "kind": "MSG_KIND", "event_ms": "EVENT_MS",
    "txn_ms": "TXN_MS", "seq": "SEQ", "bid": "BID", "bid_size": "BID_SIZE", "ask": "ASK", "ask_size": "ASK_SIZE",
    "price": "LAST", "size": "LAST_SIZE", "side": "SIDE", "ord_type": "ORD_TYPE"}
TICKS = 414569


# Messages without fields.
END, LAST = b"\x06", b"\x01"


def wait_for(what, condition):
    """Waits until condition() is true, and returns what it returned."""
    end = time.monotonic() + TIMEOUT_S
    while time.monotonic() < end:
        found = condition()
        if found:
            return found
        time.sleep(0.01)
    raise AssertionError(f"{what}: not within {TIMEOUT_S} s")


class Server:
    """A server with a store of its own. It keeps its port when it is started again."""

    def __init__(self, folder, configuration="", port=-1):
        self.folder = folder
        self.store = folder / "store"
        self.port = port
        self.configuration = configuration
        self.process = None
        self.start()

    def start(self):
        ports = pathlib.Path(tempfile.mkdtemp(dir=self.folder))
        configuration = self.folder / "server.conf"
        configuration.write_text(
            f'host: "127.0.0.1"\nport: {self.port}\nports_file_dir: "{ports}"\n'
            f'jetstream: {{ store_dir: "{self.store}" }}\n{self.configuration}\n', encoding="utf-8")
        with (self.folder / "server.log").open("ab") as log:
            self.process = subprocess.Popen([NATS_SERVER, "--config", str(configuration)], stdin=subprocess.DEVNULL,
                                            stdout=log, stderr=log)

        def listening():
            if self.process.poll() is not None:
                raise AssertionError("the server ended: " + (self.folder / "server.log").read_text())
            for file in ports.glob("*.ports"):
                with contextlib.suppress(ValueError, KeyError, IndexError):
                    return int(json.loads(file.read_text())["nats"][0].rpartition(":")[2])
            return None

        self.port = wait_for("the server", listening)

    def kill(self):
        """Ends it without a chance to save anything."""
        self.process.kill()
        self.process.wait(TIMEOUT_S)

    def stop(self):
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.kill()

    @property
    def url(self):
        return f"nats://127.0.0.1:{self.port}"


class Client:
    """A connection that speaks the protocol itself, so that what mdmsg does is seen by other means."""

    def __init__(self, port, **connect):
        self.socket = socket.create_connection(("127.0.0.1", port), TIMEOUT_S)
        self.socket.settimeout(TIMEOUT_S)
        self.file = self.socket.makefile("rb")
        assert self.file.readline().startswith(b"INFO ")
        options = {"verbose": False, "headers": True, "no_responders": True, **connect}
        self.send(b"CONNECT " + json.dumps(options).encode() + b"\r\n")
        self.flush()

    def close(self):
        self.file.close()
        self.socket.close()

    def send(self, data):
        self.socket.sendall(data)

    def flush(self):
        """Returns when the server has taken everything."""
        self.send(b"PING\r\n")
        while not self.file.readline().startswith(b"PONG"):
            pass

    def subscribe(self, subject):
        self.send(b"SUB %s 1\r\n" % subject.encode())
        self.flush()

    def publish(self, subject, payload, reply=""):
        self.send(b"PUB %s %s %d\r\n%s\r\n" % (subject.encode(), reply.encode(), len(payload), payload))

    def next(self):
        """The next message: subject, headers, payload."""
        while True:
            line = self.file.readline()
            if line.startswith(b"PING"):
                self.send(b"PONG\r\n")
            words = line.split()
            if not words:
                raise AssertionError("the connection ended")
            if words[0] in (b"MSG", b"HMSG"):
                size = int(words[-1])
                header_size = int(words[-2]) if words[0] == b"HMSG" else 0
                data = self.file.read(size + 2)[:-2]
                headers = {}
                for header in data[:header_size].split(b"\r\n")[1:]:
                    name, colon, value = header.partition(b":")
                    if colon:
                        headers[name.decode()] = value.strip().decode()
                return words[1].decode(), headers, data[header_size:]

    def request(self, subject, payload=b""):
        """Asks the server's JetStream, say, and returns its answer."""
        inbox = f"_INBOX.test{id(self)}.{time.monotonic_ns()}"
        self.send(b"SUB %s 9\r\n" % inbox.encode())
        self.publish(subject, payload, inbox)
        answer = self.next()[2]
        self.send(b"UNSUB 9\r\n")
        return json.loads(answer or b"{}")


class Run:
    """A run of mdmsg that goes on while the test does something else."""

    def __init__(self, arguments, folder, stdin=subprocess.DEVNULL, stdout=None):
        self.err_file = tempfile.TemporaryFile(dir=folder)
        self.out_file = stdout if stdout is not None else tempfile.TemporaryFile(dir=folder)
        self.process = subprocess.Popen([MDMSG, *map(str, arguments)], stdin=stdin, stdout=self.out_file,
                                        stderr=self.err_file, cwd=folder, env=environment(folder))

    def _read(self, file):
        return os.pread(file.fileno(), 1 << 30, 0)

    @property
    def err(self):
        return self._read(self.err_file).decode()

    @property
    def out(self):
        return self._read(self.out_file)

    def wait_for_report(self, text):
        def reported():
            if self.process.poll() is not None and text not in self.err:
                raise AssertionError(f"ended with {self.process.returncode} without {text!r}: {self.err}")
            return text in self.err
        wait_for(text, reported)

    def wait(self):
        return self.process.wait(TIMEOUT_S)

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait(TIMEOUT_S)

    def close(self):
        self.kill()
        self.err_file.close()
        if not isinstance(self.out_file, int):
            self.out_file.close()


def environment(folder):
    return {"PATH": os.environ["PATH"], "HOME": str(folder), "CONFIG_PATH": str(folder),
            **{name: value for name, value in os.environ.items() if name.startswith(("ASAN_", "UBSAN_", "TSAN_", "LSAN_"))}}


class Result:
    def __init__(self, completed):
        self.status = completed.returncode
        self.out = completed.stdout
        self.err = completed.stderr.decode()


@unittest.skipUnless(NATS_SERVER, "nats-server is missing")
class TestCase(unittest.TestCase):
    """A test with a folder of its own, and a server when it asks for one."""

    maxDiff = 4000

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="md-nats-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def server(self, configuration=""):
        server = Server(self.folder, configuration)
        self.addCleanup(server.stop)
        return server

    def client(self, server, **connect):
        client = Client(server.port, **connect)
        self.addCleanup(client.close)
        return client

    def mdmsg(self, *arguments, stdin=b""):
        return Result(subprocess.run([MDMSG, *map(str, arguments)], input=stdin, capture_output=True, check=False,
                                     timeout=TIMEOUT_S, cwd=self.folder, env=environment(self.folder)))

    def start(self, *arguments, **options):
        run = Run(arguments, self.folder, **options)
        self.addCleanup(run.close)
        return run

    def expect(self, result, status, *reports):
        self.assertEqual(result.status, status, result.err)
        for report in reports:
            self.assertIn(report, result.err)

    def create_stream(self, server, subject="md.>", **limits):
        answer = self.client(server).request("$JS.API.STREAM.CREATE.FEED", json.dumps(
            {"name": "FEED", "subjects": [subject], "storage": "file", "retention": "limits", "max_consumers": -1,
             "max_msgs": -1, "max_bytes": -1, "num_replicas": 1, "duplicate_window": 120 * 10**9, **limits}).encode())
        self.assertNotIn("error", answer)

    def stored(self, server):
        return self.client(server).request("$JS.API.STREAM.INFO.FEED")["state"]["messages"]

    def stream(self, server):
        """All messages of the stream, read by mdmsg."""
        result = self.mdmsg("subscribe", "--url", server.url, "--stream", "FEED", "--no-wait", "--format", "u32le")
        self.expect(result, 0)
        return messages_in(result.out)

    def end(self, server, reader, output):
        """Ends a reader that has read everything up to here: it gets messages until it has written the last of them.
        Returns how many there were."""
        client = self.client(server)
        number = 0

        def written():
            nonlocal number
            number += 1
            client.publish("md.end", END)
            client.flush()
            return output().endswith(framed([END]))

        wait_for("a message behind all others", written)
        # There is room for this one.
        client.publish("md.end", LAST)
        wait_for("the last message", lambda: output().endswith(framed([LAST])))
        reader.process.send_signal(signal.SIGINT)
        return number + 1

    def through_core(self, server, file, count):
        reader = self.start("subscribe", "--url", server.url, "--subject", "md.>", "--format", "u32le", "--count", count)
        reader.wait_for_report('subscribed to "md.>"')
        result = self.mdmsg("publish", "--url", server.url, "--subject", "md.{VENUE}.{SYMBOL}", "--framing", "u32le", file)
        self.expect(result, 0, f"sent {count} messages", f"{count} acknowledged, 0 lost")
        self.assertEqual(reader.wait(), 0, reader.err)
        return messages_in(reader.out)

    def through_stream(self, server, file, count):
        result = self.mdmsg("publish", "--url", server.url, "--subject", "st.{VENUE}.{SYMBOL}", "--stream", "FEED",
                            "--create-stream", "--framing", "u32le", file)
        self.expect(result, 0, f"{count} acknowledged, 0 of them duplicates, 0 lost")
        result = self.mdmsg("subscribe", "--url", server.url, "--stream", "FEED", "--no-wait", "--format", "u32le")
        self.expect(result, 0)
        return messages_in(result.out)

    def generate(self, count, *options):
        """A feed as a list of messages, and the file that holds it, framed."""
        file = self.folder / f"feed{count}.bin"
        result = self.mdmsg("generate", "--count", count, "--format", "u32le", "--output", file, "--force", *options)
        self.expect(result, 0)
        return messages_in(file.read_bytes()), file

    def by_symbol(self, messages):
        """SYMBOL -> its messages in their order."""
        decoded = self.mdmsg("decode", "--framing", "u32le", "--format", "csv", "--fields", "SYMBOL",
                             stdin=framed(messages)).out.decode().splitlines()[1:]
        self.assertEqual(len(decoded), len(messages))
        found = {}
        for symbol, message in zip(decoded, messages):
            found.setdefault(symbol, []).append(message)
        return found


def counts(err):
    """The numbers of the publisher's last report."""
    found = re.search(r"sent (\d+) messages?, .*; (\d+) acknowledged(?:, (\d+) of them duplicates)?, (\d+) lost", err)
    return tuple(int(number or 0) for number in found.groups())


def messages_in(stream):
    """The messages of a stream with a length of four bytes in front of each."""
    messages = []
    at = 0
    while at != len(stream):
        size, = struct.unpack_from("<I", stream, at)
        messages.append(stream[at + 4:at + 4 + size])
        assert len(messages[-1]) == size
        at += 4 + size
    return messages


def framed(messages):
    return b"".join(struct.pack("<I", len(message)) + message for message in messages)


def recorded_ticks():
    """The recorded ticks as CSV with field names, or None."""
    folder = os.environ.get("MD_TEST_DATA")
    path = pathlib.Path(folder or "/nonexistent") / "ticks.csv.gz"
    if not folder or not path.exists():
        return None
    header, _, rows = gzip.decompress(path.read_bytes()).partition(b"\n")
    return ",".join(TICK_FIELDS[name] for name in header.decode().strip().split(",")).encode() + b"\n" + rows


def main():
    """Runs a file's tests; where all are skipped, says so in a way that ctest understands."""
    program = unittest.main(module="__main__", exit=False, verbosity=2)
    result = program.result
    if result.wasSuccessful() and result.testsRun == len(result.skipped):
        print("skipped: " + "; ".join(sorted({reason for _, reason in result.skipped})))
    sys.exit(not result.wasSuccessful())
