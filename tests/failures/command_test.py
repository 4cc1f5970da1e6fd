#!/usr/bin/env python3
"""Every call of the command fails once: it ends in time with a status it documents, and says why when something is
missing. Usage:
unshare -rn command_test.py QIVEN SHIM CALLS [SUBCOMMAND...]. Of the thousands
of allocations, QIVEN_FAIL_ALL=1 fails each, otherwise ever fewer."""
import collections
import errno
import os
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "qiven"))
import segment  # noqa: E402

QIVEN, SHIM, CALLS = sys.argv[1:4]
ALL = "QIVEN_FAIL_ALL" in os.environ
OPERATIONS = {
    "find": ["find", "--timeout", "0.1", "--format", "json"],
    "answer": ["answer", "--check-config", "--config", "answer.toml"],
    "interfaces": ["interfaces"],
    "decode": ["decode", "--raw", "packet.bin"],
    "doctor": ["doctor"],
}


def run(arguments, fail):
    """Status, output and messages; None when nothing failed."""
    environment = {"PATH": "/usr/bin:/bin:/usr/sbin:/sbin", "LC_ALL": "C.UTF-8", "LD_PRELOAD": SHIM, "QIVEN_FAIL": fail,
                   "QIVEN_FAILED": "failed", "ASAN_OPTIONS": "verify_asan_link_order=0:detect_leaks=0"}
    done = subprocess.run([QIVEN, *arguments], env=environment, capture_output=True, check=False, timeout=60)
    failed = os.path.exists("failed")
    if failed:
        os.unlink("failed")
    return failed, done.returncode, done.stdout, done.stderr.decode()


segment.set_up()
os.chdir(tempfile.mkdtemp())
with open("answer.toml", "w", encoding="ascii") as file:
    file.write("name = 'nas1'\nmodel = 7\n")
with open("packet.bin", "wb") as file:
    file.write(segment.answer(b"nas1"))
faults = []
counts = collections.Counter()


def is_truthful(status, report):
    """Whether a report of doctor names what it could not check, or what stands in the way of a search."""
    verdict, _, checks = report.partition("\n\n")
    found = {line[:8].strip(): line[19:] for line in checks.splitlines()}
    if "fault" in found:
        # The card has an address.
        return status == 1 and found["fault"].lower() in verdict.lower() and "No IPv4 address" not in verdict
    partly = verdict.startswith("Nothing wrong was seen, but not everything could be checked: ")
    return status == 3 and partly and found.get("skipped", "?") in verdict


def check(name, normal, fail):
    """Whether the failure has happened at all."""
    failed, status, output, messages = run(OPERATIONS[name], fail)
    if not failed:
        return False
    counts[name, fail.split()[0]] += 1
    # The name server of a file that breaks off is not known, as of one that names none.
    if (status, output) == normal or (name, fail.split()[0]) == ("interfaces", "__getdelim"):
        return True
    documented = {0, 1, 3, 4} if name == "answer" else {0, 1, 3}
    said = messages != "" or (name == "doctor" and is_truthful(status, output.decode()))
    if status not in documented or not said or "terminate" in messages:
        faults.append(fail)
        print(f"{name}, {fail}: status {status}\n{output.decode()}{messages}", flush=True)
    return True


for name in sys.argv[4:] or OPERATIONS:
    failed, *normal, messages = run(OPERATIONS[name], "nothing 1 1")
    assert not failed and messages == "", (name, messages)
    with open(CALLS, encoding="ascii") as table:
        rows = [line.split() for line in table if line[0] != "#"]
    # The clock of C++ cannot report a failure.
    rows = [row for row in rows if row[0] != "clock_gettime"]
    # Listening takes doctor seconds.
    thinner = 1 if name == "doctor" else 8
    for call, error, *_ in rows:
        most = 20 if name != "doctor" else 8 if call == "ioctl" else 4
        n = 1
        while check(name, tuple(normal), f"{call} {n} {getattr(errno, error)}") and (n < most or call == "memory"):
            n += 1 if ALL else max(1, n // thinner)
for name in sys.argv[4:] or OPERATIONS:
    print(name, {call: n for (of, call), n in counts.items() if of == name})
    assert counts[name, "memory"] > 0, name
sys.exit(len(faults) > 0)
