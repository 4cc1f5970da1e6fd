#!/usr/bin/env python3
"""Every call of a subcommand fails once, with every error that the list of calls names: the command exits in time with
a status that it documents, and says why when something is missing. That is tried in two directories, whose paths
differ in length.
Usage: script/in-namespaces command_test.py QIVEN SHIM CALLS SUBCOMMAND [DIRECTORY CALL N ERROR], the latter for one failure."""
import collections
import concurrent.futures
import ctypes
import errno
import os
import shlex
import socket
import subprocess
import sys
import tempfile
import threading

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import segment  # noqa: E402

QIVEN, SHIM, CALLS, NAME = sys.argv[1:5]
IN_NAMESPACES = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../script/in-namespaces"))
CLONE_NEWNS, CLONE_NEWNET = 0x20000, 0x40000000
LIBC = ctypes.CDLL(None, use_errno=True)
DIRECTORIES = {"short": "d", "long": "directory-" * 15}
ENDLESS = 1_000_000_000

# Arguments, and the number of parallel processes: more for commands that mostly wait.
SUBCOMMANDS = {
    "find": (["find", "--timeout", "0.1", "--format", "json"], 8),
    "answer": (["answer", "--check-config", "--config", "{}/answer.toml"], 2),
    "interfaces": (["interfaces"], 2),
    "decode": (["decode", "--raw", "{}/packet.bin"], 2),
    "doctor": (["doctor"], 64),
}
ARGUMENTS, AT_ONCE = SUBCOMMANDS[NAME]
Row = collections.namedtuple("Row", "directory call n error")


class Place:
    """A network namespace with one interface for the calling thread, and the command in it, which forks for each run."""

    def __init__(self, directory):
        for done in (LIBC.unshare(CLONE_NEWNET | CLONE_NEWNS), LIBC.mount(b"none", b"/sys", b"sysfs", 0, None)):
            assert done == 0, os.strerror(ctypes.get_errno())
        segment.set_up()
        self.orders, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.orders.settimeout(60)
        pipes = [os.pipe() for _ in range(2)]
        self.outputs = [out for out, _ in pipes]
        environment = {"PATH": "/usr/bin:/bin:/usr/sbin:/sbin", "LC_ALL": "C.UTF-8", "LD_PRELOAD": SHIM,
                       "QIVEN_FAIL": str(theirs.fileno()), "ASAN_OPTIONS": "verify_asan_link_order=0:detect_leaks=0"}
        self.process = subprocess.Popen([QIVEN, *(text.format(directory) for text in ARGUMENTS)],
                                        env=environment, cwd=directory, pass_fds=[theirs.fileno()],
                                        stdin=subprocess.DEVNULL, stdout=pipes[0][1], stderr=pipes[1][1])
        theirs.close()
        for out, into in pipes:
            os.close(into)
            os.set_blocking(out, False)

    def run(self, call, n, error):
        """Returns the calls left before the one to fail, status, output, messages."""
        self.orders.send(f"{call} {n} {getattr(errno, error)}".encode())
        pid = int(self.orders.recv(64))
        try:
            status, left = map(int, self.orders.recv(64).split())
        except TimeoutError:
            os.kill(pid, 9)
            status, left = map(int, self.orders.recv(64).split())
        return left, os.waitstatus_to_exitcode(status), *(self.read(out) for out in self.outputs)

    @staticmethod
    def read(out):
        text = b""
        try:
            while chunk := os.read(out, 65536):
                text += chunk
        except BlockingIOError:
            pass
        return text.decode()


def is_truthful(status, report):
    """Whether a report of doctor names a check that it could not make, or a fault that prevents a search."""
    verdict, _, checks = report.partition("\n\n")
    found = {line[:8].strip(): line[20:] for line in checks.splitlines()}
    if "fault" in found:
        # The interface has an address.
        return status == 1 and found["fault"].lower() in verdict.lower() and "has no IPv4 address" not in verdict
    partly = verdict.startswith("No fault was found, but not everything could be checked: ")
    return status == 3 and partly and found.get("skipped", "?") in verdict


def is_sound(normal, row, status, output, messages):
    # Interrupted calls are repeated, except two in the library, which are reported.
    if (status, output) == normal or (row.error == "EINTR" and row.call not in ("open", "sendto")):
        return (status, output) == normal
    # If a file is truncated, its name server is unknown, as if it had none.
    if NAME == "interfaces" and row.call in ("memory", "__getdelim") and status == 0:
        lines = [text.splitlines() for text in (output, normal[1])]
        return all(set(a.split()) <= set(b.split()) for a, b in zip(*lines, strict=True))
    # A missing file and a missing address of an interface are not failures.
    if row.error in ("ENOENT", "EADDRNOTAVAIL") and status in (0, 1):
        return True
    documented = {0, 1, 3, 4} if NAME == "answer" else {0, 1, 3}
    said = messages != "" or (NAME == "doctor" and is_truthful(status, output))
    return status in documented and said and "terminate" not in messages


def read_calls():
    """The errors of each call."""
    with open(CALLS, encoding="ascii") as table:
        rows = [line.split() for line in table if line[0] != "#"]
    # The C++ clock cannot report a failure.
    return {call: errors for call, *errors in rows if call != "clock_gettime"}


def furnish(directory):
    os.mkdir(directory)
    with open(os.path.join(directory, "answer.toml"), "w", encoding="ascii") as file:
        file.write("name = 'nas1'\nmodel = 7\n")
    with open(os.path.join(directory, "packet.bin"), "wb") as file:
        file.write(segment.answer(b"nas1"))


def main():
    chosen = [Row(sys.argv[5], sys.argv[6], int(sys.argv[7]), sys.argv[8])] if len(sys.argv) > 5 else None
    own, counts, faults = threading.local(), collections.Counter(), 0

    def settle(directory):
        own.place = Place(directory)
        left, *own.normal, messages = own.place.run("nothing", 1, "EIO")
        assert left == 1 and messages == "", (own.normal, messages)

    def attempt(row):
        left, *outcome = own.place.run(row.call, row.n, row.error)
        return left == 0, is_sound(tuple(own.normal), row, *outcome), outcome

    def count(call):
        return ENDLESS - own.place.run(call, ENDLESS, "EIO")[0]

    with tempfile.TemporaryDirectory() as base:
        for name in {row.directory for row in chosen} if chosen else DIRECTORIES:
            directory = os.path.join(base, DIRECTORIES[name])
            furnish(directory)
            with concurrent.futures.ThreadPoolExecutor(AT_ONCE, initializer=settle, initargs=[directory]) as pool:
                calls = {} if chosen else read_calls()
                rows = chosen or [Row(name, call, n, error) for call, total in zip(calls, pool.map(count, calls))
                                  for n in range(1, total + 1) for error in calls[call]]
                for row, (failed, sound, (status, *texts)) in zip(rows, pool.map(attempt, rows)):
                    counts[row.call] += failed
                    faults += not sound
                    if chosen or not sound:
                        again = shlex.join([IN_NAMESPACES, *sys.argv[:5], *map(str, row)])
                        print(f"status {status}\n{''.join(texts)}Again: {again}", flush=True)
    print(NAME, dict(counts))
    assert counts["memory"] > 0 or chosen
    sys.exit(faults > 0)


main()
