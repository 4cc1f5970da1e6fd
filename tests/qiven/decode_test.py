#!/usr/bin/env python3
"""qiven decode: all refusals, known and unknown fields, hex dumps, all kinds of captures. Argument: the command."""
import json
import os
import struct
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from captures import pcap, pcapng, udp  # noqa: E402
from segment import FIELD_A4, PLAIN, SEALED, field  # noqa: E402

QIVEN = ""
BASIC = field(0x01, 1) + field(0xA4, FIELD_A4)


def run(*args, stdin=b""):
    done = subprocess.run([QIVEN, "decode", *args], input=stdin, capture_output=True, timeout=30, check=False)
    return done.returncode, done.stdout.decode("ascii"), done.stderr.decode()


def decode(packet):
    status, out, err = run("--format", "json", packet.hex())
    (shown,) = json.loads(out)
    assert err == "", err
    return status, shown


ETHER = bytes(12)
LINKS = {
    "ethernet, padded": (1, ETHER + b"\x08\x00" + udp(PLAIN + BASIC) + bytes(9)),
    "two vlans": (1, ETHER + b"\x88\xa8\x00\x05\x81\x00\x00\x06\x08\x00" + udp(PLAIN + BASIC, 9999, 5)),
    "cooked": (113, bytes(14) + b"\x08\x00" + udp(PLAIN + BASIC)),
    "cooked 2": (276, b"\x08\x00" + bytes(18) + udp(PLAIN + BASIC)),
    "raw": (101, udp(PLAIN + BASIC)),
}


class Decode(unittest.TestCase):
    def test_refusals(self):
        net = field(0x01, 3) + field(0xA4, 0)
        for reason, packet in {
            "too short": PLAIN,
            "more than 64 fields": PLAIN + BASIC + field(0x03) * 63,
            "value of field 0x11 runs past the end": PLAIN + BASIC + field(0x11, b"ab", 3),
            "integer of field 0x48 has 3 bytes, must have 4": PLAIN + BASIC + field(0x48, b"abc"),
            "long text to 1536 bytes": PLAIN + BASIC + field(0x2A, b"a" * 255) * 2 + field(0x72, b"b" * 255) * 5 + field(0x72, b"c" * 6),
            "ends after unknown identifier 0x03": PLAIN + BASIC + b"\x03",
            "basic fields are missing: 0xA4": PLAIN + field(0x01, 1),
            "missing: 0x29": PLAIN + net + field(0x20) + field(0x21),
        }.items():
            status, shown = decode(packet)
            self.assertEqual((status, shown["verdict"]), (1, "refused"), reason)
            self.assertIn(reason, shown["reason"])

    def test_accepted(self):
        packet = PLAIN + BASIC + field(0xBC, b"x") + field(0x4B, b"?") + field(0xBC, b"y\0z") + field(0x12, bytes([10, 1, 2, 3]))
        packet += field(0xB0, struct.pack("<Q", 1 << 40)) + field(0x11, b"\x1b[2J\xff")
        # The value of the unknown field does not fit: its first byte is the identifier of another one.
        packet += field(0xEE, b"", 200) + field(0x11)
        status, shown = decode(packet)
        self.assertEqual((status, shown["verdict"]), (0, "accepted"))
        got = [(f["id"], f["value"], f["length"], f.get("element")) for f in shown["fields"]]
        self.assertEqual(got[:7], [(1, 1, 4, None), (0xA4, FIELD_A4, 4, None), (0xBC, "x", 1, 0), (0x4B, None, 1, None),
                                   (0xBC, "y", 3, 1), (0x12, "10.1.2.3", 4, None), (0xB0, 1 << 40, 8, None)])
        self.assertEqual([f["offset"] for f in shown["fields"]][:4], [8, 14, 20, 23])
        self.assertEqual([f["hex"] for f in shown["fields"] if f["id"] == 0x11], ["1b5b324aff", ""])
        text = run(packet.hex())[1]
        self.assertIn('"\\x1b[2J\\xff"', text)
        self.assertNotIn("\x1b", text)

        status, shown = decode(SEALED + bytes(100))
        self.assertEqual((status, shown["verdict"], shown["length"], shown["fields"]), (0, "sealed", 108, []))

    def test_hex_forms(self):
        packet = PLAIN + BASIC
        dump = "".join(f"{i:08x}: {packet[i:i+16].hex(' ', 2)}  text: 12 34\n" for i in range(0, len(packet), 16))
        for digits, count in ((packet.hex(":"), 1), (dump * 2, 2)):
            status, out, _ = run("--format", "json", stdin=digits.encode())
            self.assertEqual((status, [p["verdict"] for p in json.loads(out)]), (0, ["accepted"] * count), digits)
        for bad in ("123", "12 3g", "\x1b", ""):
            status, out, err = run(stdin=bad.encode())
            self.assertEqual((status, out, "\x1b" in err), (2, "", False))

    def test_files(self):
        with tempfile.TemporaryDirectory() as folder:
            def shown(option, content):
                path = os.path.join(folder, "file")
                with open(path, "wb") as file:
                    file.write(content)
                status, out, _ = run("--format", "json", option, path)
                return status, json.loads(out)

            for name, (link, frame) in LINKS.items():
                for make in (pcap, pcapng):
                    status, packets = shown("--pcap", make(link, frame, ETHER))
                    self.assertEqual((status, [(p["verdict"], p["length"]) for p in packets]), (0, [("accepted", 20)]), name)
            self.assertEqual(shown("--raw", PLAIN + BASIC)[0], 0)
            fragments = (udp(b"", more=True, offset=9), udp(PLAIN + BASIC, more=True), udp(BASIC, offset=4), udp(b"", 1, 2))
            status, packets = shown("--pcap", pcap(101, *fragments))
            self.assertEqual((status, [p["verdict"] for p in packets]), (1, ["incomplete"] * 2))
            self.assertTrue(all("fragment" in p["reason"] for p in packets))
            packets = shown("--pcap", pcap(101, udp(PLAIN + BASIC), cut=40))[1]
            self.assertIn("captured without its last 8 bytes", packets[0]["reason"])
            for content in (pcap(147, b"x"), b"not a capture"):
                self.assertIn(shown("--pcap", content)[0], (1, 3))
            self.assertEqual(shown("--raw", bytes(65536))[0], 3)
            self.assertEqual(run("--raw", os.path.join(folder, "none"))[0], 3)


if __name__ == "__main__":
    QIVEN = sys.argv.pop(1)
    unittest.main()
