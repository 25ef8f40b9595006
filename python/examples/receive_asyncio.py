#!/usr/bin/env python3
"""Prints the quotes that arrive on a UDP port, in an asyncio program: each wake-up takes all datagrams that have arrived.

    receive_asyncio.py [PORT [COUNT]]     default: port 30001, until interrupted
"""
from __future__ import annotations

import asyncio
import socket
import sys

import md_message


class QuotePrinter:
    """Counts messages and ends after a number of them."""

    def __init__(self, sock: socket.socket, count: int) -> None:
        self.done = asyncio.Event()
        self._sock = sock
        self._left = count
        self._receiver = md_message.Receiver(batch=256)

    def on_readable(self) -> None:
        """Takes a batch. More datagrams than a batch holds wake the loop up again."""
        for message in self._receiver.recv(self._sock):
            print(message.get("SYMBOL", "?"), message.get("BID"), message.get("ASK"), flush=True)
            self._left -= 1
        if self._left == 0:
            self.done.set()


async def run(port: int, count: int) -> None:
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.setblocking(False)
        sock.bind(("127.0.0.1", port))
        printer = QuotePrinter(sock, count)
        loop = asyncio.get_running_loop()
        loop.add_reader(sock, printer.on_readable)
        try:
            await printer.done.wait()
        finally:
            loop.remove_reader(sock)


def main() -> None:
    port = int(sys.argv[1]) if len(sys.argv) > 1 else 30001
    count = int(sys.argv[2]) if len(sys.argv) > 2 else -1
    try:
        asyncio.run(run(port, count))
    except KeyboardInterrupt:
        pass


if __name__ == "__main__":
    main()
