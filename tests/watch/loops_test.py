#!/usr/bin/env python3
"""Runs the examples: the same search in each event loop, with the responder, on a separate segment.

Usage, in a network namespace of its own:  loops_test.py RESPONDER SEARCH...
"""
import os
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import segment


def main():
    responder, searches = sys.argv[1], sys.argv[2:]
    assert searches
    segment.set_up()
    # No hosts: three seconds, status 1.
    start = time.monotonic()
    assert subprocess.run([searches[0]], check=False, timeout=20, stdout=subprocess.DEVNULL).returncode == 1
    assert 2.5 < time.monotonic() - start
    # Each query is answered once; a name cannot control the terminal.
    hosts = [subprocess.Popen([responder, name, ident, str(2 * len(searches))]) for name, ident in
             (("attic", "i1"), ("cel\x1blar", "i2"))]
    time.sleep(0.3)
    for search in searches:
        done = subprocess.run([search], check=False, timeout=20, stdout=subprocess.PIPE, text=True)
        assert done.returncode == 0, (search, done)
        assert sorted(done.stdout.splitlines()) == ["attic\t10.9.0.1\tlan0", "cel?lar\t10.9.0.1\tlan0"], (search, done)
    assert [host.wait(timeout=20) for host in hosts] == [0, 0]


if __name__ == "__main__":
    main()
