"""A segment full of hosts: none is missed, in any of many runs, and the command ends by itself soon after."""
import json
import random
import statistics
import subprocess
import sys
import time
import unittest

import segment
from segment import Hosts, answer

QIVEN = sys.argv.pop(1)


def find(count):
    """(names in the order of their rows, seconds to the last row, seconds to the end)"""
    hosts = [answer(b"host%d" % i, f"10.9.{i // 250}.{i % 250 + 1}", x48=i) for i in range(1, count + 1)]
    with Hosts(lambda number, query: random.sample(hosts, count)):  # hosts answer in no fixed order
        start = time.monotonic()
        with subprocess.Popen([QIVEN, "find", "--format", "ndjson"], stdout=subprocess.PIPE) as process:
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

    def test_fifty_hosts_twenty_times(self):
        self.check(50, 20)

    def test_a_thousand_hosts(self):
        self.check(1000, 5)


if __name__ == "__main__":
    segment.set_up()
    unittest.main()
