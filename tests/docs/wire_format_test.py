#!/usr/bin/env python3
"""Compares the bytes and the field table of docs/wire-format.md with the library and qiven decode.

Usage: wire_format_test.py QIVEN LIBQIVEN DOCUMENT
"""
import ctypes
import json
import re
import subprocess
import sys
import unittest

QIVEN, LIBRARY, DOCUMENT = sys.argv[1:]
lib = ctypes.CDLL(LIBRARY)
sodium = ctypes.CDLL("libsodium.so.23")
with open(DOCUMENT, encoding="utf-8") as document:
    TEXT = document.read()
with open(DOCUMENT.replace("docs/wire-format.md", "include/qiven/packet.h"), encoding="ascii") as header:
    CONSTANTS = {name: int(value, 0) for name, value in re.findall(r"^#define (\w+) (0x\w+|\d+)\b", header.read(), re.M)}
with open(DOCUMENT.replace("docs/wire-format.md", "src/packet/field_table.cpp"), encoding="ascii") as source:
    NAMES = {CONSTANTS.get(ident) or int(ident, 16): name
             for ident, name in re.findall(r"\{(\w+), FIELD_\w+, \w+\((\w+)\)", source.read())}
# Packets in the document: blocks of lines with bytes, followed by two blanks and a remark.
PACKETS = [bytes.fromhex("".join(line.split("  ")[0] for line in block.splitlines()))
           for block in re.findall(r"^```text\n(12 34 .*?)^```$", TEXT, re.S | re.M)]


class Attrib(ctypes.Structure):
    _fields_ = [(name, ctypes.c_uint32) for name in ("ident", "type", "offset", "width", "endian", "mask")]


class Send(ctypes.Structure):
    _fields_ = [("record", ctypes.c_void_p), ("count", ctypes.c_int32), ("ids", ctypes.c_uint32 * 256)]


FIELDS = {attrib.ident: attrib for attrib in (Attrib * CONSTANTS["QIVEN_FIELD_COUNT"]).in_dll(lib, "grgfieldAttribs")}


def row_of(field):
    if field.type == 3:
        return "nothing that is stored"
    if field.type != 1:
        return f"{('text', '', 'list of 32 texts, each')[field.type]} of up to {min(field.width - 1, 255)} bytes" + \
            (f", slot {field.width}" if field.width > 256 else "")
    return f"integer, {field.width} bytes, " + ("network order" if field.endian else "little-endian")


def table():
    rows = {}
    for ident, field in FIELDS.items():
        name = NAMES.get(ident)
        rows.setdefault(row_of(field), []).append(f"{ident:02X}" + (f" `{name}`" if name else ""))
    return [f"| {value} | {', '.join(names)} |" for value, names in rows.items()]


def write(packet):
    """Decodes the packet with the command and encodes it again with the library."""
    decoded = json.loads(subprocess.run([QIVEN, "decode", "--format", "json", packet.hex()], capture_output=True).stdout)
    record = ctypes.create_string_buffer(12192)
    send = Send(ctypes.addressof(record))
    for part in decoded[0]["fields"]:
        field, value = FIELDS[part["id"]], bytes.fromhex(part["hex"])
        ctypes.memmove(ctypes.addressof(record) + field.offset, value, len(value))
        lib.QIVENSendPktIDAdd(None, ctypes.byref(send), part["id"], 0)
    libc = ctypes.CDLL(None)
    libc.malloc.restype = ctypes.c_void_p
    buffer, capacity = ctypes.c_void_p(libc.malloc(8192)), ctypes.c_int(8192)
    length = lib.QIVENPacketWrite(None, ctypes.byref(buffer), ctypes.byref(capacity), ctypes.byref(send))
    return ctypes.string_at(buffer, length)


class WireFormat(unittest.TestCase):
    def test_field_table(self):
        self.assertEqual(re.findall(r"^\| .* \| [0-9A-F]{2}\b.* \|$", TEXT, re.M), table())
        required = re.findall(r"\bmust be in\b.*?: (.*?)\.", TEXT)
        self.assertEqual([", ".join(f"{i:02X}" for i, f in FIELDS.items() if f.mask in masks)
                          for masks in ((1, 2), (4, 8, 16))], required)

    def test_packets(self):
        query, answer, keyed, sealed = PACKETS
        self.assertEqual(query, bytes((ctypes.c_ubyte * 20).in_dll(lib, "stQIVENBroadCastVQX20")))
        for packet in (query, answer, keyed):
            self.assertEqual(write(packet), packet)
        shown = re.search(r"^\$ qiven decode (\w+)\n(.*?)^```$", TEXT, re.S | re.M)
        self.assertEqual(bytes.fromhex(shown[1]), answer)
        self.assertEqual(subprocess.run([QIVEN, "decode", shown[1]], capture_output=True, text=True).stdout, shown[2])
        secret = bytes.fromhex(re.search(r"secret key is\s+`(\w{64})`", TEXT)[1])
        public = bytes.fromhex(keyed[22:86].decode())
        plain = ctypes.create_string_buffer(len(sealed) - 8 - CONSTANTS["QIVEN_SEAL_OVERHEAD"])
        opened = sodium.crypto_box_seal_open(plain, sealed[8:], ctypes.c_ulonglong(len(sealed) - 8), public, secret)
        self.assertEqual((opened, plain.raw), (0, answer + bytes.fromhex("c60467452301")))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
