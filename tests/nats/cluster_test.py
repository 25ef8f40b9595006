"""The programs of examples/cluster: a publisher, three workers of a partition each, a late joiner, and queries."""
import os
import pathlib
import re
import signal
import subprocess

import support

CLUSTER = pathlib.Path(os.environ["CLUSTER"])
ENVIRONMENT = {**os.environ, "CONFIG_PATH": str(pathlib.Path(__file__).resolve().parents[2] / "etc")}


class Worker:
    def __init__(self, test, server, partition):
        self.err = open(test.folder / f"worker{partition}.{id(self)}", "w+", encoding="utf-8")
        test.addCleanup(self.close)
        self.process = subprocess.Popen([CLUSTER / "worker", server.url, str(partition)], stdout=subprocess.PIPE,
                                        stderr=self.err, env=ENVIRONMENT)
        support.wait_for("the worker", self.is_ready)

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.communicate()
        self.err.close()

    def is_ready(self):
        assert self.process.poll() is None, self.reports()
        return "ready" in self.reports()

    def reports(self):
        return pathlib.Path(self.err.name).read_text(encoding="utf-8")

    def kill(self):
        self.process.kill()
        self.process.wait(support.TIMEOUT_S)

    def cache(self):
        """Ends it. SYMBOL's token -> SEQ of its last message."""
        self.process.send_signal(signal.SIGTERM)
        out = self.process.communicate(timeout=support.TIMEOUT_S)[0]
        assert self.process.returncode == 0, self.reports()
        return dict(line.split() for line in out.decode().splitlines())


class Cluster(support.TestCase):
    def publish(self, server, messages):
        result = subprocess.run([CLUSTER / "publisher", server.url], input=support.framed(messages), capture_output=True,
                                check=False, timeout=support.TIMEOUT_S, env=ENVIRONMENT)
        self.assertEqual((result.returncode, result.stdout.decode()), (0, f"{len(messages)} messages published\n"),
                         result.stderr)

    def query(self, server, symbol):
        return subprocess.run([CLUSTER / "query", server.url, symbol], capture_output=True, check=False,
                              timeout=support.TIMEOUT_S, env=ENVIRONMENT)

    def last_numbers(self, messages):
        """What the caches must hold, from decode alone."""
        rows = self.mdmsg("decode", "--framing", "u32le", "--format", "csv", "--fields", "SYMBOL,SEQ",
                          stdin=support.framed(messages)).out.decode().splitlines()[1:]
        return dict(row.split(",") for row in rows)

    def test_workers_late_joiner_and_queries(self):
        symbols = ",".join(f"SYM{number}" for number in range(40))
        messages, _ = self.generate(12000, "--symbols", symbols)
        expected = self.last_numbers(messages)
        self.assertEqual(len(expected), 40)
        server = self.server()
        self.publish(server, messages[:4000])
        workers = [Worker(self, server, partition) for partition in range(3)]
        self.publish(server, messages[4000:8000])
        # One is killed, and replaced while messages go on.
        workers[1].kill()
        self.publish(server, messages[8000:10000])
        workers[1] = Worker(self, server, 1)
        late = Worker(self, server, "*")
        self.publish(server, messages[10000:])

        def answer(symbol):
            found = self.query(server, symbol)
            return re.search(rf"^SEQ +(?:INT64 +)?= {expected[symbol]}$", found.stdout.decode(), re.MULTILINE)

        for symbol in ("SYM0", "SYM17", "SYM39"):
            support.wait_for(f"the answer for {symbol}", lambda symbol=symbol: answer(symbol))
        unknown = self.query(server, "NOPE")
        self.assertEqual((unknown.returncode, unknown.stderr), (1, b"there is no message of NOPE\n"))

        # The late joiner subscribed to all partitions: it ends when it has the last message of every symbol.
        client = self.client(server)
        client.flush()
        support.wait_for("all messages", lambda: self.consumed(client))
        shares = [worker.cache() for worker in workers]
        together = {}
        for share in shares:
            self.assertFalse(set(share) & set(together), "a symbol in two partitions")
            together.update(share)
        self.assertTrue(all(shares), "each worker has some of the symbols")
        self.assertEqual(together, expected)
        self.assertEqual(late.cache(), expected)

    @staticmethod
    def consumed(client):
        """Whether the server has delivered everything to every reader that is there."""
        names = client.request("$JS.API.CONSUMER.NAMES.MD")["consumers"]
        states = [client.request(f"$JS.API.CONSUMER.INFO.MD.{name}") for name in names]
        return all(state["num_pending"] == 0 for state in states if state.get("push_bound"))


if __name__ == "__main__":
    support.main()
