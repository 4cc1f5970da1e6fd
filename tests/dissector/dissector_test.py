#!/usr/bin/env python3
"""Wireshark's dissector agrees with "qiven decode" on captured and malformed packets.

Usage: script/in-namespaces dissector_test.py QIVEN QIVEN.LUA FUZZ/CORPUS
"""
import glob
import json
import os
import random
import re
import subprocess
import sys
import tempfile
import time
import unittest
import xml.etree.ElementTree as ElementTree

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import segment  # noqa: E402
from captures import pcap, udp  # noqa: E402
from segment import SEALED, answer, packet  # noqa: E402

QIVEN, LUA, CORPORA = sys.argv[1:4]
BASIC = [(1, 2), (0xA4, 0)]
# The corpora of the fuzz targets packet and decode_walk.
CORPUS = [open(path, "rb").read() for path in sorted(glob.glob(CORPORA + "/packet/*") + glob.glob(CORPORA + "/decode_walk/*"))]


def tshark(path, *options):
    done = subprocess.run(["tshark", "-X", "lua_script:" + LUA, "-r", path, *options], check=True,
                          capture_output=True, env={**os.environ, "HOME": "/nonexistent"}, timeout=120)
    assert b"Lua" not in done.stderr, done.stderr
    return done.stdout


def shown(node, name):
    found = node.find(f".//field[@name='qiven.{name}']")
    return None if found is None else found.get("show")


def value_of(node, of):
    """The value that Wireshark shows for the field "of" of qiven decode, converted to the types of qiven decode."""
    value = shown(node, of["name"]) or shown(node, of["name"] + ".text")
    return int(value, 0) if value and of["type"] == "integer" else value or None


class Dissector(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.TemporaryDirectory()
        self.addCleanup(self.dir.cleanup)
        self.path = self.dir.name + "/capture"

    def write(self, packets, cut=None):
        with open(self.path, "wb") as file:
            file.write(pcap(101, *map(udp, packets), cut=cut))
        return self.path

    def compare(self, path):
        decoded = json.loads(subprocess.run([QIVEN, "decode", "--format", "json", "--pcap", path],
                                            stdout=subprocess.PIPE, check=False).stdout)
        xml = re.sub("[\0-\x08\x0b\x0c\x0e-\x1f\ufffe\uffff]", "?", tshark(path, "-T", "pdml").decode("utf-8", "replace"))
        trees = ElementTree.fromstring(xml).findall(".//proto[@name='qiven']")
        self.assertEqual(len(trees), len(decoded))
        for tree, of in zip(trees, decoded):
            self.assertEqual((shown(tree, "verdict"), shown(tree, "reason")), (of["verdict"], of.get("reason")))
            fields, start = tree.findall("field[@name='qiven.field']"), int(tree.get("pos"))
            self.assertEqual(len(fields), len(of["fields"]))
            for got, want in zip(fields, of["fields"]):
                number = [None if n is None else int(n, 0) for n in (shown(got, f"field.{k}") for k in ("id", "length", "element"))]
                self.assertEqual([int(got.get("pos")) - start, *number, shown(got, "field.problem")],
                                 [want["offset"], want["id"], want["length"], want.get("element"), want.get("problem")])
                raw = shown(got, "field.raw")
                if raw is not None:
                    self.assertEqual(raw.replace(":", ""), want["hex"])
                elif want["length"] is not None and re.fullmatch(b"[ -~]*", bytes.fromhex(want["hex"])):
                    self.assertEqual(value_of(got, want), None if want["value"] == "" else want["value"])
        return decoded

    def test_a_real_search(self):
        every = answer(b"all", x2a=b"l" * 255, x72=b"more", x7c=b"02:00:00:00:00:01", xb0=b"\1" * 8, xbc=b"e", x13=b"\x0a\0\0\1")
        with subprocess.Popen(["tshark", "-q", "-i", "lan0", "-f", "udp port 9999", "-w", self.path],
                              stderr=subprocess.PIPE) as sniffer:
            while b"Capture started" not in sniffer.stderr.readline():
                self.assertIsNone(sniffer.poll())
            with subprocess.Popen([QIVEN, "answer", "--name", "real", "--model", "7"]) as host, segment.Hosts(lambda *_: [every]):
                subprocess.run([QIVEN, "find", "--count", "2", "--timeout", "20"], stdout=subprocess.DEVNULL, check=True)
                host.terminate()
            time.sleep(1)
            sniffer.terminate()
            sniffer.communicate(timeout=20)
        decoded = self.compare(self.path)
        self.assertEqual({"accepted", "sealed"}, {of["verdict"] for of in decoded})

    def test_malformed_and_random_packets(self):
        random.seed(1)
        good = answer(b"n", x2a=b"text", xbc=b"a", x48=7, xb0=bytes(8))
        bent = [bytes(random.choice((b, b, b, b, random.randrange(256))) if i > 7 else b for i, b in enumerate(good)) for _ in range(200)]
        self.compare(self.write(CORPUS + bent + [good[:n] for n in range(1, len(good))]))
        for cut in range(29, 80, 7):
            decoded = self.compare(self.write([good, SEALED + bytes(100)], cut))
            self.assertEqual([of["verdict"] for of in decoded], ["incomplete"] * 2)

    def test_what_people_see(self):
        hostile = [(0x11, b"\x1b[31mred\x07\xff\xc3\n"), (0x7C, b"02:00:00:00:00:01"), (0x7C, b"\x1b02:00"), (0x7C, b"")]
        self.write([packet(BASIC + hostile), packet(BASIC) + b"\x03\xff\x11\x02ab", SEALED + bytes(range(200)),
                    answer(b"attic", x7c=b"02:00:00:00:00:01")])
        for options in ((), ("-V",)):
            self.assertNotRegex(tshark(self.path, *options).decode(), "[\0-\x09\x0b-\x1f\x7f-\x9f]")
        self.assertIn(b"Answer, attic, 10.9.0.7", tshark(self.path))
        self.assertIn(b"announces 255 bytes, 4 left", tshark(self.path, "-T", "fields", "-e", "_ws.expert.message"))
        for wanted, count in (("qiven.address == 10.9.0.7", 1), ("qiven.mac == 02:00:00:00:00:01", 2), ("qiven.box.key", 1),
                              ('qiven.verdict == "sealed"', 1), ("qiven.type == 2 && qiven.name matches \"^att\"", 1)):
            self.assertEqual(tshark(self.path, "-Y", wanted, "-T", "fields", "-e", "frame.number").count(b"\n"), count, wanted)


if __name__ == "__main__":
    segment.set_up()
    unittest.main(argv=sys.argv[:1])
