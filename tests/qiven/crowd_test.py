"""A segment with many hosts: none is missed in repeated runs, and the command exits soon after the last answer."""
import json
import os
import random
import statistics
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import segment  # noqa: E402
from segment import Hosts, answer  # noqa: E402

QIVEN = sys.argv.pop(1)


def find(count):
    """Returns (names in row order, seconds until the last row, seconds until the exit)."""
    hosts = [answer(b"host%d" % i, f"10.9.{i // 250}.{i % 250 + 1}", x48=i) for i in range(1, count + 1)]
    with Hosts(lambda number, query: random.sample(hosts, count)):  # random order of answers
        start = time.monotonic()
        with subprocess.Popen([QIVEN, "find", "--format", "ndjson", "--fields", "name"], stdout=subprocess.PIPE) as process:
            rows = [(json.loads(line)["name"], time.monotonic() - start) for line in process.stdout]
            status = process.wait(timeout=20)
    assert status == 0, status
    return [name for name, _ in rows], rows[-1][1], time.monotonic() - start


class Crowd(unittest.TestCase):
    def check(self, count, runs):
        last, end = [], []
        for _ in range(runs):
            names, to_last, to_end = find(count)
            self.assertEqual(sorted(names), sorted(f"host{i}" for i in range(1, count + 1)))
            last.append(to_last)
            end.append(to_end)
        self.assertLess(statistics.median(last), 1)
        self.assertLess(statistics.median(end), 4)

    def test_fifty_hosts_ten_times(self):
        self.check(50, 10)

    def test_a_thousand_hosts(self):
        self.check(1000, 3)


if __name__ == "__main__":
    segment.set_up()
    unittest.main()
