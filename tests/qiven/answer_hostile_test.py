#!/usr/bin/env python3
"""Robustness of a running "qiven answer" against strangers, log readers, terminals, disks and failing calls.

Usage: answer_hostile_test.py QIVEN SHIM CALLS [TEST...]. QIVEN_LONG=1 sends a million datagrams for each kind of
standard error, and lets calls fail with every error.
"""
import contextlib
import errno
import os
import pty
import random
import signal
import socket
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "support"))
import segment  # noqa: E402
from answering import Answering, Searcher, enter_namespaces, query  # noqa: E402
from outputs import OUTPUTS, wake  # noqa: E402
from segment import PLAIN, PORT, QUERY, SEALED, packet  # noqa: E402

Answering.program, SHIM, CALLS = sys.argv[1:4]
LONG = "QIVEN_LONG" in os.environ
DATAGRAMS = 1_000_000 if LONG else 8_000
BATCH = 1000
NO_KEY = query(bytes(32), b"\1\1\1\1")  # cannot be sealed for: each is a line of the log


def deaf():
    """A terminal that nobody reads, with space for a part of a line."""
    space = 1 << 30
    for left in (0, 50):
        master, slave = pty.openpty()
        os.set_blocking(slave, False)
        written = 0
        with contextlib.suppress(BlockingIOError):
            while written < space - left:
                written += os.write(slave, b".")
        space = written
        if left == 0:
            os.close(slave)
            os.close(master)
    os.set_blocking(slave, True)
    return slave, master


def forgeries():
    """Traffic of a stranger that exhausts the limits of both kinds of answers and of the log."""
    rng = random.Random(1)
    pool = []
    for _ in range(500):
        noise = rng.randbytes(36)
        fresh = query(noise[:32], noise[32:])
        pool += [QUERY, fresh, NO_KEY[:-4] + noise[32:], noise, SEALED + noise * 3, fresh[:-1], fresh + b"\x11",
                 packet([(0x01, 2), (0xA4, 0), (0x11, b"\x1b[2J\r\n%s%n\x9b31m\xff\xfe\0\0")])]
    rng.shuffle(pool)
    return pool


class Hostile(Answering):
    def setUp(self):
        super().setUp()
        self.stranger = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(self.stranger.close)
        self.stranger.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        self.stranger.connect(("10.9.1.255", PORT))
        self.s1.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)

    def is_served(self, what=None, wait=0.3, has_exited=lambda: False):
        """Whether a searcher that repeats its query like qiven find gets a sealed or a shared answer."""
        searcher, end = Searcher(), time.monotonic() + 10
        while time.monotonic() < end and not has_exited():
            self.ask(self.s2, searcher.query)
            if any(searcher.open(packet) or (what is None and packet.startswith(PLAIN))
                   for packet, _ in self.hear(self.s2, wait, first=True)):
                return True
        return False

    def lost(self, sent):
        """How many of these datagrams the kernel has dropped before the host, because they came too fast. Each of the
        host's sockets rejects those that another one takes."""
        with open(f"/proc/{self.host.pid}/net/udp", encoding="ascii") as table:
            dropped = [int(line.split()[-1]) for line in table if f":{PORT:04X} " in line]
        lost = sum(dropped) - (len(dropped) - 1) * sent
        self.assertGreaterEqual(lost, 0)
        return lost

    def storm(self, pool):
        """The host reads so many datagrams; its searchers are served meanwhile."""
        sent, asked, before = 0, 0, self.lost(0)
        while (received := sent - (self.lost(sent) - before)) < DATAGRAMS:
            for packet in pool[sent % len(pool):][:BATCH]:
                with contextlib.suppress(ConnectionRefusedError):
                    self.stranger.send(packet)
            sent += BATCH
            if received >= asked * DATAGRAMS // 4:
                asked += 1
                self.assertTrue(self.is_served(), f"after {sent} datagrams")

    def stop(self):
        self.host.send_signal(signal.SIGTERM)
        self.assertEqual(self.host.wait(1.5), 0)

    def test_whatever_standard_error_is(self):
        pool = forgeries()
        for name, (make, prepare) in {**OUTPUTS, "deaf terminal": (deaf, None)}.items():
            with self.subTest(name):
                output, reader = make()
                self.launch("--verbose", stderr=output,
                            preexec_fn=prepare if output is not None else lambda: os.close(2))
                self.assertTrue(self.is_served("sealed"))
                before = self.memory()
                self.storm(pool)
                self.assertIsNone(self.host.poll())
                growth = self.memory() - before
                print(f"{name}: {growth} KiB more", flush=True)
                self.assertLess(growth, segment.growth_limit(self.program))
                if output is not None:
                    self.assertTrue(os.get_blocking(output))
                if reader is not None:
                    self.says_what_was_lost(output, reader)
                self.stop()
                for end in (output, reader):
                    if end is not None:
                        os.close(end)

    def says_what_was_lost(self, output, reader):
        """The reader resumes: the next log line reports the number of dropped lines."""
        wake(output, reader)
        text, end = b"", time.monotonic() + 10
        while b" messages were lost" not in text:
            self.assertLess(time.monotonic(), end, text[-500:])
            with contextlib.suppress(BlockingIOError):
                text = text[-5000:] + os.read(reader, 1 << 20)
            self.stranger.send(NO_KEY[:-4] + os.urandom(4))
            time.sleep(0.05)

    def test_every_call_fails_once(self):
        """The program exits at the start with a reason, or it answers, reads its file again, and exits when told to."""
        self.orders, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.log = os.memfd_create("log")
        self.launch("--verbose", stderr=self.log, pass_fds=[theirs.fileno()], program=[
            "env", f"LD_PRELOAD={SHIM}", f"QIVEN_FAIL={theirs.fileno()}", self.program])
        theirs.close()
        self.addCleanup(self.orders.close)
        with open(CALLS, encoding="ascii") as table:
            rows = [line.split() for line in table if line[0] != "#"]
        counts = {}
        for call, *errors in rows:
            for error in errors if LONG else errors[:1]:
                counts[call] = next(n for n in range(1, 10_000) if not self.has_failed(call, n, error)) - 1
        print(counts, flush=True)
        self.assertTrue(min(counts[call] for call in ("memory", "socket", "sendmsg", "recvmmsg", "write")) > 0)

    def has_failed(self, call, n, error):
        """Whether there was such a call to fail; the program has lived on with it."""
        os.truncate(self.log, 0)
        os.lseek(self.log, 0, os.SEEK_SET)
        self.orders.send(f"{call} {n} {getattr(errno, error)}".encode())
        pid, exited = int(self.orders.recv(64)), []

        def has_exited(seconds=0.0001):
            self.orders.settimeout(seconds)
            with contextlib.suppress(TimeoutError):
                exited.append(exited[0] if exited else self.orders.recv(64))
            return exited

        if self.is_served(wait=0.01, has_exited=has_exited):
            os.kill(pid, signal.SIGHUP)
            for packet in (QUERY, NO_KEY, b"junk"):
                self.stranger.send(packet)
            self.assertTrue(self.is_served(wait=0.05))
            os.kill(pid, signal.SIGTERM)
        self.assertTrue(has_exited(1.5))
        self.orders.settimeout(None)
        status, left = map(int, exited[0].split())
        said = os.pread(self.log, 9999, 0).decode()
        with self.subTest(said, call=call, n=n, error=error):
            self.assertIn(os.waitstatus_to_exitcode(status), (0, 3, 4) if said else (0,))
        return left == 0


if __name__ == "__main__":
    enter_namespaces()
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]], verbosity=2)
