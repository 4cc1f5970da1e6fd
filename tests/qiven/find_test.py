#!/usr/bin/env python3
"""Tests of "qiven find". Usage: script/in-namespaces find_test.py QIVEN SCHEMA [TEST...]"""
import csv
import io
import json
import os
import pty
import re
import signal
import socket
import struct
import subprocess
import sys
import time
import unittest

import jsonschema

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import segment  # noqa: E402
from segment import SEALED, Hosts, answer, resident  # noqa: E402

QIVEN, SCHEMA = sys.argv.pop(1), json.load(open(sys.argv.pop(1), encoding="utf-8"))
ENVIRONMENT = {"PATH": "/usr/bin:/bin:/usr/sbin:/sbin", "LC_ALL": "C.UTF-8"}


def find(*options, reply=lambda number, query: [], environment=None, **more):
    """Runs the command among fake hosts; returns status, output, messages and seconds."""
    more = {"stdout": subprocess.PIPE, **more}
    with Hosts(reply):
        start = time.monotonic()
        done = subprocess.run([QIVEN, "find", *options], stderr=subprocess.PIPE, check=False, timeout=60,
                              env={**ENVIRONMENT, **(environment or {})}, **more)
        return done.returncode, done.stdout, done.stderr.decode(), time.monotonic() - start


def two_interfaces(*_):
    """One host that answers from two interfaces, three times each, and another host."""
    one = [answer(b"box", f"10.9.{card}.7", x7c=b"02:00:00:00:00:%02x" % card, x48=7) for card in (0, 1)]
    return one * 3 + [answer(b"Attic", "10.9.0.9", type=6, x48=9, xb8=struct.pack("<Q", 1 << 5))]


class Escaping(unittest.TestCase):
    """No byte from a host controls a terminal or breaks a table. (fuzz-text checks that no byte is lost.)"""
    every = bytes(range(1, 256))
    texts = dict((b"h%d" % i, bytes(range(1, 256))[i * 30:i * 30 + 30]) for i in range(9))
    hidden = "\u202e\u2066\u200b\u2028\u061c\ufeff\u0085\U000e0041\ufe0f\U0001fffe\u00e9\u96db".encode()

    def reply(self, *_):
        rows = [answer(text, ident=key, x1a=self.every, x52=text, x7c=text, xbc=text + b";,\"") for key, text in self.texts.items()]
        return rows + [answer(self.hidden[:35], ident=b"h9", x1a=self.hidden, x52=self.hidden, xbc=self.hidden)]

    def sent(self, key):
        return self.hidden if key == b"h9" else self.texts[key]

    def output(self, *options):
        status, output, _, _ = find("--count", "10", *options, reply=self.reply)
        self.assertEqual(status, 0)
        text = output.decode("utf-8")
        self.assertNotRegex(text.replace("\r\n", "\n"), "[\0-\x09\x0b-\x1f\x7f-\x9f]")
        self.assertNotRegex(text, "[\u200b-\u200f\u2028-\u202e\u2066-\u2069\u061c\ufe00-\ufe0f\ufeff\U0001fffe\U000e0000-\U000e007f]")
        return text

    def test_table_and_plain(self):
        for text in (self.output(), self.output("--sort", "name")):
            self.assertEqual(len(text.splitlines()), 11)
        self.assertEqual(self.output("--format", "plain").count("\nident: "), 10)

    def test_csv(self):
        rows = list(csv.DictReader(io.StringIO(self.output("--format", "csv"), newline="")))
        self.assertEqual({row["ident"].encode() for row in rows}, {*self.texts, b"h9"})
        self.assertEqual([row["field_bc"][-2:] for row in rows].count(",\""), 9)

    def test_json(self):
        lines = self.output("--format", "ndjson").splitlines()
        for rows in (json.loads(self.output("--format", "json")), [json.loads(line) for line in lines]):
            jsonschema.validate(rows, SCHEMA)
            self.assertEqual(len(rows), 10)
            for row in rows:
                sent, raw = self.sent(row["ident"].encode()), row.get("raw", {})
                got = bytes.fromhex(raw["field_52"]) if "field_52" in raw else row["field_52"].encode()
                self.assertEqual(got, sent)
                self.assertEqual(row["field_52"], sent.decode("utf-8", "replace"))

    def test_csv_on_a_terminal_that_expects_no_utf8(self):
        # In this encoding, a byte of a letter can start a control sequence.
        ours, terminal = pty.openpty()
        self.addCleanup(os.close, ours)
        with open(terminal, "wb") as stdout:
            find("--count", "10", "--format", "csv", "--fields", "ident,name", reply=self.reply, environment={"LC_ALL": "C"}, stdout=stdout)
        output = os.read(ours, 4096)
        self.assertTrue(output.isascii())
        self.assertIn(rb"\u96db", output)

    def test_other_locale_and_narrow_terminal(self):
        _, output, _, _ = find("--count", "10", reply=self.reply, environment={"LC_ALL": "C", "COLUMNS": "20"})
        self.assertTrue(output.isascii())
        self.assertLessEqual(max(len(line) for line in output.splitlines()), 20)


class Queries(unittest.TestCase):
    def test_merges_interfaces_and_answers(self):
        status, output, _, seconds = find("--format", "json", reply=two_interfaces)
        rows = json.loads(output)
        jsonschema.validate(rows, SCHEMA)
        self.assertEqual((status, [row["name"] for row in rows]), (0, ["box", "Attic"]))
        self.assertEqual(rows[0]["addresses"], ["10.9.0.7", "10.9.1.7"])
        self.assertEqual(rows[0]["macs"], ["02:00:00:00:00:00", "02:00:00:00:00:01"])
        self.assertEqual((rows[0]["sealed"], rows[1]["services_running"]), (False, [5]))
        self.assertEqual([rows[0][key] for key in ("interface", "interfaces", "source", "conflict")],
                         ["lan0", ["lan0"], segment.ADDRESS, False])
        self.assertGreaterEqual(rows[0]["answers"], 12)
        self.assertLess(seconds, 4)

    def test_key_is_ident_else_mac_else_name_and_address(self):
        both = [answer(b"x", ident=b"", x7c=b"m1"), answer(b"x", "10.9.0.6", ident=b"", x7c=b"m1"), answer(b"z", ident=b""),
                answer(b"z", "10.9.0.8", ident=b""), answer(b"z", ident=b"")]
        _, output, _, _ = find("--format", "csv", "--fields", "name,address", reply=lambda *_: both)
        self.assertEqual(output.decode().split(), ["name,address", "x,10.9.0.7", "z,10.9.0.7", "z,10.9.0.8"])

    def test_asks_again(self):
        with Hosts(lambda number, _: [answer(b"late")] if number == 2 else []) as hosts:
            output = subprocess.check_output([QIVEN, "find", "--count", "1"], env=ENVIRONMENT)
        self.assertIn(b"late", output)
        self.assertEqual(hosts.senders, [(segment.ADDRESS, 1234)] * 2)

    def test_two_machines_with_one_identifier(self):
        both = [answer(b"one", ident=b"same", x48=1, x7c=b"02:00:00:00:00:01"),
                answer(b"two", "10.9.0.8", ident=b"same", x48=2, x7c=b"02:00:00:00:00:02")]
        _, output, messages, _ = find("--format", "json", reply=lambda *_: both)
        self.assertEqual([(row["name"], row["address"], row["conflict"]) for row in json.loads(output)],
                         [("one", "10.9.0.7", True), ("two", "10.9.0.8", True)])
        self.assertRegex(messages, r'two machines answer as "same": (one|two) \(10.9.0.[78]\) and (one|two) ')

    def test_sealed(self):
        with subprocess.Popen([QIVEN, "answer", "--name", "box", "--model", "7", "--ident", "b"], env=ENVIRONMENT,
                              stderr=subprocess.PIPE) as host:
            host.stderr.readline()
            output = subprocess.check_output([QIVEN, "find", "--format", "csv", "--fields", "name,sealed"], env=ENVIRONMENT)
            host.terminate()
        self.assertEqual(output.split(), [b"name,sealed", b"box,yes"])


class Selection(unittest.TestCase):
    def test_filters_and_sort(self):
        for options, names in {("--name", "b*"): "box", ("--name", "A*,B*", "--sort", "name"): "Attic box",
                               ("--model", "9"): "Attic", ("--type", "6"): "Attic", ("--service", "5"): "Attic",
                               ("--sort", "-address"): "Attic box", ("--model", "9", "--type", "2"): ""}.items():
            with self.subTest(options):
                status, output, _, _ = find(*options, "--format", "csv", "--fields", "name", reply=two_interfaces)
                self.assertEqual((status, output.decode().split()[1:]), (0 if names else 1, names.split()))

    def test_interfaces(self):
        segment.set_up("veth9", "10.9.9.1")
        self.addCleanup(segment.run, "ip link delete veth9")
        for options, senders in {(): {"10.9.0.1"}, ("--all-interfaces",): {"10.9.0.1", "10.9.9.1"},
                                 ("--interface", "v*"): {"10.9.9.1"}, ("--exclude", "lan0", "--interface", "*9"): {"10.9.9.1"}}.items():
            with self.subTest(options), Hosts(lambda *_: []) as hosts:
                subprocess.run([QIVEN, "find", "--timeout", "0.3", *options], env=ENVIRONMENT, check=False)
                self.assertEqual({sender[0] for sender in hosts.senders}, senders)

    def test_hosts_are_of_the_interface_that_heard_them(self):
        segment.set_up("lan1", "10.9.1.1")
        self.addCleanup(segment.run, "ip link delete lan1")
        with segment.everybody("10.9.1.255") as elsewhere:
            def reply(*_):
                elsewhere.send(answer(b"both", "10.9.1.8"))
                elsewhere.send(answer(b"other", "10.9.1.7"))
                return [answer(b"both", "10.9.0.8")]
            for options, expected in {(): [("both", ["lan0", "lan1"]), ("other", ["lan1"])],
                                      ("--interface", "lan1"): [("both", ["lan1"]), ("other", ["lan1"])],
                                      ("--exclude", "lan1"): [("both", ["lan0"])]}.items():
                with self.subTest(options):
                    _, output, _, _ = find(*options, "--sort", "name", "--format", "json", reply=reply)
                    rows = json.loads(output)
                    self.assertEqual([(row["name"], sorted(row["interfaces"])) for row in rows], expected)
                    for row in rows:
                        ends = {"lan0": "10.9.0.", "lan1": "10.9.1."}[row["interface"]]
                        self.assertTrue(all(row[key].startswith(ends) for key in ("address", "source")), row)
                        self.assertEqual(len(row["addresses"]), len(row["interfaces"]))

    def test_interface_after_many_without_an_address(self):
        for i in range(35):
            segment.run(f"ip link add x{i} type veth peer name y{i}")
            self.addCleanup(segment.run, f"ip link delete x{i}")
            segment.run(f"ip link set x{i} up")
            segment.run(f"ip link set y{i} up")
        segment.set_up("late0", "10.9.8.1")
        self.addCleanup(segment.run, "ip link delete late0")
        with Hosts(lambda *_: []) as hosts:
            subprocess.run([QIVEN, "find", "--timeout", "0.5"], env=ENVIRONMENT, check=False)
        self.assertEqual({sender[0] for sender in hosts.senders}, {"10.9.0.1", "10.9.8.1"})


class Events(unittest.TestCase):
    def test_watch_reports_what_happens(self):
        def reply(number, _):
            return [answer(b"stays")] + ([answer(b"goes", x48=number)] if number < 3 else [])
        _, output, _, _ = find("--watch", "--interval", "0.5", "--timeout", "6.5", "--format", "ndjson", reply=reply)
        rows = [json.loads(line) for line in output.splitlines()]
        jsonschema.validate(rows, SCHEMA)
        self.assertEqual([(row["event"], row["name"], row["model"]) for row in rows],
                         [("appeared", "stays", 0), ("appeared", "goes", 1), ("changed", "goes", 2), ("vanished", "goes", 2)])
        self.assertEqual(rows[2]["changes"], [{"field": "model", "was": "1", "now": "2"}])

    def test_a_flood_hides_no_host(self):
        junk = [b"junk" * 9, segment.packet([(1, 1), (0xA4, 0)]), SEALED + bytes(99)]
        with subprocess.Popen([QIVEN, "find", "--verbose", "--expect", "1", "--timeout", "8"], env=ENVIRONMENT,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
            with segment.everybody() as sock:
                time.sleep(0.3)
                before = resident(process.pid)
                for i in range(100000):
                    sock.send(junk[i % 3])
                time.sleep(0.3)
                growth = resident(process.pid) - before
                sock.send(answer(b"real"))
            output, messages = process.communicate(timeout=20)
        self.assertIn(b"real", output)
        self.assertLess(len(messages.splitlines()), 250)
        self.assertLess(growth, segment.growth_limit(QIVEN))


class Ending(unittest.TestCase):
    def test_timeout_is_kept(self):
        start = time.monotonic()
        subprocess.run([QIVEN, "--version"], stdout=subprocess.DEVNULL, check=True)
        startup = time.monotonic() - start
        for limit in (0.25, 1.3, 2.05):
            status, _, _, seconds = find("--expect", "3", "--timeout", str(limit), reply=two_interfaces)
            self.assertEqual(status, 1)
            self.assertGreaterEqual(seconds, limit)
            self.assertLess(seconds, limit + 1 + 2 * startup)

    def test_statuses(self):
        for options, status in {("--count", "2"): 0, ("--count", "1"): 0, ("--count", "3", "--timeout", "1"): 1,
                                ("--timeout", "x"): 2, ("--fields", "nope"): 2, ("--interface", "nope"): 3}.items():
            with self.subTest(options):
                result, output, messages, _ = find(*options, reply=two_interfaces)
                self.assertEqual(result, status)
                self.assertEqual(messages != "", status > 1)
                self.assertEqual(len(output.splitlines()), 2 if options == ("--count", "1") else 3 if status < 2 else 0)

    def test_nothing_found_is_an_empty_array(self):
        status, output, messages, _ = find("--format", "json")
        self.assertEqual((status, json.loads(output), messages), (1, [], ""))

    def test_port_taken(self):
        with segment.open_port(shared=False):
            done = subprocess.run([QIVEN, "find"], env=ENVIRONMENT, capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stdout), (3, b""))
        self.assertRegex(done.stderr, rb"^qiven: cannot search: UDP port 9999 is held by a program that does not share it\n$")

    def test_output_that_cannot_be_written(self):
        for sink in (">/dev/full", ">&-"):
            for arguments in ("find", "find --format json", "--help"):
                with self.subTest(sink + arguments), Hosts(two_interfaces):
                    done = subprocess.run(f'"{QIVEN}" {arguments} {sink}', shell=True, env=ENVIRONMENT, check=False,
                                          stderr=subprocess.PIPE, timeout=20)
                    self.assertEqual(done.returncode, 3)
                    self.assertRegex(done.stderr, rb"(^|\n)qiven: cannot write to standard output: [^;\n]*\n$")
        with Hosts(two_interfaces):
            head = subprocess.check_output(f'"{QIVEN}" find --watch | head -1', shell=True, env=ENVIRONMENT, timeout=20)
        self.assertEqual(len(head.splitlines()), 1)

    @unittest.skipIf(segment.is_sanitized(QIVEN), "sanitizers open descriptors of their own")
    def test_no_descriptor_left(self):
        for limit, missing in (4, b"cannot wait for signals"), (6, b"cannot search"):
            done = subprocess.run(["sh", "-c", f'ulimit -n {limit}; exec "{QIVEN}" find --timeout 0.5'], env=ENVIRONMENT,
                                  capture_output=True, check=False)
            self.assertEqual(done.returncode, 3)
            self.assertIn(missing + b": Too many open files", done.stderr)

    def test_interrupt_shows_what_was_found(self):
        with Hosts(two_interfaces), subprocess.Popen([QIVEN, "find", "--expect", "9", "--format", "json"], env=ENVIRONMENT,
                                                stdout=subprocess.PIPE,
                                                preexec_fn=lambda: signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGINT})) as process:
            time.sleep(1)
            start = time.monotonic()
            process.send_signal(signal.SIGINT)
            output, _ = process.communicate(timeout=5)
            self.assertLess(time.monotonic() - start, 0.5)
        self.assertEqual((process.returncode, len(json.loads(output))), (130, 2))


if __name__ == "__main__":
    segment.set_up()
    unittest.main()
