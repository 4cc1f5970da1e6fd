#!/usr/bin/env python3
"""Strangers, readers of the output, terminals and disks against a running "qiven find".

Usage: script/in-namespaces find_hostile_test.py QIVEN [TEST...]. QIVEN_LONG=1 sends a million datagrams for each output.
"""
import contextlib
import json
import os
import random
import resource
import select
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import segment  # noqa: E402
from outputs import OUTPUTS, wake  # noqa: E402
from segment import SEALED, Hosts, answer, resident  # noqa: E402

QIVEN = sys.argv.pop(1)
LONG = "QIVEN_LONG" in os.environ
DATAGRAMS = 1_000_000 if LONG else 8_000
ENVIRONMENT = {"PATH": "/usr/bin:/bin:/usr/sbin:/sbin", "LC_ALL": "C.UTF-8",
               "ASAN_OPTIONS": "quarantine_size_mb=1:detect_leaks=0"}


def colliding(count):
    """Identifiers whose keys ("i" and the identifier) have the same hash value in libstdc++."""
    mask, factor = (1 << 64) - 1, 0xc6a4a7935bd1e995
    inverse = pow(factor, -1, 1 << 64)

    def mixed(word):
        return word ^ word >> 47
    start, end = 0xc70f6907 ^ 24 * factor & mask, 0x123456789abcdef
    while count > 0:
        key = b"i" + bytes(random.randrange(1, 256) for _ in range(15))
        state = start
        for at in (0, 8):
            word = mixed(int.from_bytes(key[at:at + 8], "little") * factor & mask) * factor & mask
            state = (state ^ word) * factor & mask
        # Inverts the steps of the hash, starting from the wanted value.
        word = mixed((end * inverse ^ state) * inverse & mask) * inverse & mask
        if 0 not in word.to_bytes(8, "little"):
            yield key[1:] + word.to_bytes(8, "little")
            count -= 1


class Flood(unittest.TestCase):
    def cpu_seconds_beside(self, idents, rate):
        """What a search costs that finds 200 hosts beside so many forged ones a second."""
        genuine = [answer(b"host%d" % i, f"10.9.0.{i}") for i in range(1, 201)]
        forged = [answer(b"forged", ident=ident) for ident in idents]
        with Hosts(lambda *_: genuine), segment.everybody() as sock, subprocess.Popen(
                [QIVEN, "find", "--format", "csv", "--fields", "name"], env=ENVIRONMENT, stdout=subprocess.PIPE) as process:
            start = time.monotonic()
            for count, packet in enumerate(forged):
                sock.send(packet)
                time.sleep(max(0, start + count / rate - time.monotonic()))
            names = process.stdout.read().split()
            _, status, usage = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
        self.assertEqual(process.returncode, 0)
        self.assertLessEqual({b"host%d" % i for i in range(1, 201)}, set(names))
        self.assertGreater(len(names), len(forged) / 2)
        return usage.ru_utime + usage.ru_stime

    def test_chosen_identifiers_cost_no_more_than_random_ones(self):
        count, rate = 12000, 4000
        common = self.cpu_seconds_beside([random.randbytes(23).replace(b"\0", b"0") for _ in range(count)], rate)
        chosen = self.cpu_seconds_beside(list(colliding(count)), rate)
        self.assertLess(chosen, 2 * common)


REAL = [b"real%d" % i for i in range(30)]


class Genuine(Hosts):
    """Hosts that answer each query, but not the many that come within a moment."""

    def __init__(self):
        super().__init__(self.answers)
        self.last = 0

    def answers(self, *_):
        if time.monotonic() - self.last < 0.15:
            return []
        self.last = time.monotonic()
        return [answer(name, f"10.9.0.{i + 10}") for i, name in enumerate(REAL)]


def forgeries():
    """What a stranger sends: hosts, one host that is ever another, and packets that are none."""
    rng = random.Random(1)
    pool = []
    for _ in range(500):
        noise = rng.randbytes(30)
        pool += [answer(b"forged", ident=noise), answer(noise, ident=b"one", x7c=noise, x1a=noise * 8),
                 answer(b"one", socket.inet_ntoa(noise[:4]), ident=b"one", x7c=noise[:20]), noise,
                 segment.packet([(1, 1), (0xA4, 0)]), SEALED[:7] + noise * 3,
                 answer(b"\x1b[2J\r\n%s%n\x9b31m\xff\xfe", ident=b"text", x52=noise), answer(b"bad")[:-1]]
    rng.shuffle(pool)
    return pool


class Run:
    """The command, with standard output or standard error of some kind; the other one is a file."""

    def __init__(self, kind, stream, options):
        make, prepare = OUTPUTS[kind]
        self.kind, self.stream, self.text = kind, stream, b""
        self.writer, self.reader = make()
        self.file = tempfile.TemporaryFile()
        if kind == "closed":
            def prepare():
                os.close({"stdout": 1, "stderr": 2}[stream])
        self.process = subprocess.Popen(
            [QIVEN, "find", "--verbose", "--format", "ndjson", "--fields", "name", *options.split()], env=ENVIRONMENT,
            preexec_fn=prepare, **{"stdout": self.file, "stderr": self.file, stream: self.writer})

    def let_go(self):
        """What stood in its way does no longer."""
        if self.kind == "too long" and self.process.poll() is None:
            resource.prlimit(self.process.pid, resource.RLIMIT_FSIZE, (resource.RLIM_INFINITY,) * 2)
        if self.reader is not None:
            wake(self.writer, self.reader)

    def read(self):
        with contextlib.suppress(OSError):
            while self.reader is not None and not os.get_blocking(self.reader) and (chunk := os.read(self.reader, 1 << 16)):
                self.text += chunk

    def finish(self):
        """The status, and the genuine hosts that there are rows of; every row must be whole."""
        end = time.monotonic() + 20
        while self.process.poll() is None and time.monotonic() < end:
            self.read()
            time.sleep(0.02)
        self.read()
        if self.stream == "stderr" or self.kind == "too long":
            self.text = os.pread(self.file.fileno() if self.stream == "stderr" else self.writer, 1 << 26, 0)
        for fd in (self.writer, self.reader):
            if fd is not None:
                os.close(fd)
        self.file.close()
        rows = [json.loads(line) for line in self.text.lstrip(b".").splitlines()]
        return self.process.poll(), sorted(
            row["name"].encode() for row in rows if row.get("event") != "changed" and row["name"].startswith("real"))


def large(ident):
    """An answer with as many texts as fit into its fields."""
    more = {f"x{x}": b"T" * 127 for x in ("52", "53", "56", "57", "58", "59", "5a", "5b", "1a", "4a")}
    return answer(b"forged", ident=ident, **more) + segment.field(0xBB, 32) + segment.field(0xBC, b"A" * 63) * 32


class Budgets(unittest.TestCase):
    def send(self, packets, pause, until=None):
        """Sends the packets, at most until there is something to read."""
        with segment.everybody() as sock:
            for packet in packets:
                sock.send(packet)
                time.sleep(pause)
                if until is not None and select.select([until], [], [], 0)[0]:
                    return

    def start(self, *options):
        file = tempfile.TemporaryFile()
        self.addCleanup(file.close)
        process = subprocess.Popen([QIVEN, "find", "--format", "ndjson", *options], env=ENVIRONMENT, stdout=file, stderr=subprocess.PIPE)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.kill)
        time.sleep(0.5)
        return process, file

    def end(self, process, file):
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(5), 143)
        return os.pread(file.fileno(), 1 << 30, 0).splitlines()

    def test_a_full_table_stays_within_its_bytes_and_hides_no_host(self):
        # Bytes run out with the one kind of host; their number would with the other.
        kinds = {"large": large, "small": lambda ident: answer(b"f", ident=ident)} if LONG else {"large": large}
        for kind, forge in kinds.items():
            for options in ("--expect", "100000", "--timeout", "3600"), ("--watch", "--interval", "0.5"):
                with self.subTest(kind, options=options):
                    process, file = self.start("--fields", "name", *options)
                    before = resident(process.pid)
                    self.send((forge(b"%d" % i) for i in range(300000)), 1e-4, process.stderr)
                    full = resident(process.pid)
                    self.assertLess(full - before, (32 + 4) << 10)
                    self.assertEqual(len(select.select([process.stderr], [], [], 0)[0]), 1)
                    self.assertIn(b"more hosts answer than are kept", os.read(process.stderr.fileno(), 4096))
                    with Genuine():
                        self.send((forge(random.randbytes(20)) for i in range(DATAGRAMS // 4)), 1e-3)
                    print(kind, options, full - before, resident(process.pid) - full, "KiB more", flush=True)
                    self.assertLess(resident(process.pid) - full, 4 << 10)
                    names = [json.loads(line)["name"].encode() for line in self.end(process, file)]
                    self.assertEqual(set(REAL) - set(names), set())

    def test_a_watch_writes_few_lines_and_the_last_state(self):
        process, file = self.start("--fields", "name,ident,model,field_52", "--watch", "--interval", "0.5")
        start = time.monotonic()
        self.send((answer(b"%d" % i, ident=b"one", x52=random.randbytes(60)) if i % 2 else answer(b"f", ident=b"%d" % i)
                   for i in range(10000)), 1e-4)
        self.send([answer(b"last", ident=b"one")] * 5, 0.3)
        seconds = time.monotonic() - start
        lines = self.end(process, file)
        rows = [row for row in map(json.loads, lines) if row["ident"] == "one"]
        self.assertLess(len(lines), 1000 + 100 * (seconds + 1))
        self.assertLess(len(rows), seconds + 2)
        self.assertEqual(rows[-1]["name"], "last")


class Outputs(unittest.TestCase):
    # Of standard output: the statuses of a search and of --watch, and whether the rows can be read. A reader that has
    # gone ends both, as it ends any program; what can never be written ends them, too.
    EXPECTED = {"closed": (3, 3, False), "full": (3, 3, False), "too long": (1, 143, True), "gone": (-13, -13, False),
                "asleep": (1, 143, True), "slow": (1, 143, False), "stopped terminal": (1, 143, True),
                "terminal that hung up": (-13, -13, False), "sleeping journal": (1, 143, True)}

    def storm(self, runs, pool):
        """Sends the datagrams; all runs that can go on do, and do not grow once they have seen the pool."""
        before = {}
        with segment.everybody() as sock:
            for sent in range(DATAGRAMS):
                sock.send(pool[sent % len(pool)])
                if sent % 20 == 0:
                    time.sleep(0.001 if LONG else 0.01)
                if sent == len(pool):
                    before = {run: resident(run.process.pid) for run in runs if run.process.poll() is None}
        for run, kilobytes in before.items():
            growth = resident(run.process.pid) - kilobytes
            print(run.kind, run.stream, growth, "KiB more", flush=True)
            self.assertLess(growth, 4096)

    def check(self, kinds, options, column):
        pool = forgeries()
        runs = [Run(kind, stream, options) for kind in kinds for stream in ("stdout", "stderr")]
        for run in runs:
            self.addCleanup(run.process.kill)
        # The genuine hosts stay: --watch forgets a host that is silent for 3.5 s.
        with Genuine():
            self.storm(runs, pool)
            time.sleep(1)
            self.finish(runs, options, column)

    def finish(self, runs, options, column):
        # One reader never wakes up, but for a search to end.
        sleeper = next((run for run in runs if column == 1 and (run.kind, run.stream) == ("asleep", "stdout")), None)
        for run in runs:
            if run is not sleeper:
                run.let_go()
        time.sleep(1)
        for run in runs:
            with self.subTest(f"{run.kind} {run.stream} {options}"):
                *statuses, rows = self.EXPECTED[run.kind] if run.stream == "stdout" else (1, 143, True)
                if column == 1:
                    run.process.send_signal(signal.SIGTERM)
                status, found = run.finish()
                self.assertEqual(status, statuses[column])
                if rows and run is not sleeper:
                    # Beside so many others, --watch may miss a host's answers and report it a second time.
                    self.assertEqual(sorted(set(found)) if column == 1 else found, sorted(REAL))

    def test_a_search(self):
        for kinds in ([kind] for kind in OUTPUTS) if LONG else [OUTPUTS]:
            self.check(kinds, f"--expect 1000 --timeout {DATAGRAMS / 12000 + 20 if LONG else 14}", 0)

    def test_a_watch(self):
        for kinds in ([kind] for kind in OUTPUTS) if LONG else [OUTPUTS]:
            self.check(kinds, "--watch --interval 0.5", 1)


if __name__ == "__main__":
    segment.set_up()
    unittest.main()
