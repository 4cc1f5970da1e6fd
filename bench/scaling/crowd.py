#!/usr/bin/env python3
"""Simulates many hosts on one interface: each has its own addresses and answers every query.

Usage: crowd.py CARD HOSTS SPREAD plain|sealed, in the network namespace of the interface; exits at the end of standard
input. Each host answers a query once, after a random delay of 0 to SPREAD seconds. Like "qiven answer", it treats all
queries within 200 ms as one. With "sealed", it seals answers if the query carries a key.
"""
import ctypes
import heapq
import os
import random
import re
import select
import socket
import struct
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tests/support"))
from segment import FIELD_A4, PORT, SEALED, field, packet  # noqa: E402

CARD, HOSTS, SPREAD, KIND = sys.argv[1], int(sys.argv[2]), float(sys.argv[3]), sys.argv[4]
COALESCE = 0.2
sodium = ctypes.CDLL("libsodium.so.23")


def address(i):
    return bytes([10, 9, i >> 8, i & 255])


def mac(i):
    return bytes([2, 0, 0, 0, i >> 8, i & 255])


def plain_packet(i, more=b""):
    flags = struct.pack("<Q", 0x23)
    return packet((
        (0x01, 2), (0xA4, FIELD_A4), (0x11, b"storage-%05d" % i), (0x12, address(i)),
        (0x13, b"\xff\xff\0\0"), (0x19, b"ident-%05d" % i), (0x48, 4711), (0x49, 240),
        (0x7C, mac(i).hex(":").encode()), (0xB0, flags), (0xB8, flags))) + more


class Sealer:
    """Seals for one searcher. All hosts share one key of ours: the searcher has the same work, and we have little."""

    def __init__(self, key, process):
        ours, secret = ctypes.create_string_buffer(32), ctypes.create_string_buffer(32)
        self.shared, self.nonce = ctypes.create_string_buffer(32), ctypes.create_string_buffer(24)
        sodium.crypto_box_keypair(ours, secret)
        sodium.crypto_box_beforenm(self.shared, key, secret)
        sodium.crypto_generichash(self.nonce, ctypes.c_size_t(24), ours.raw + key, ctypes.c_ulonglong(64), None,
                                  ctypes.c_size_t(0))
        self.head, self.process = SEALED + ours.raw, process

    def seal(self, i):
        plain = plain_packet(i, field(0xC5, struct.pack("<I", i + 1)) + field(0xC6, self.process))
        box = ctypes.create_string_buffer(len(plain) + 16)
        sodium.crypto_box_easy_afternm(box, plain, ctypes.c_ulonglong(len(plain)), self.nonce, self.shared)
        return self.head + box.raw


def frame(i, packet):
    """An Ethernet broadcast from a host."""
    size = len(packet) + 28
    words = struct.pack("!BBHHHBBH", 0x45, 0, size, i, 0, 64, 17, 0) + address(i) + b"\xff" * 4
    total = sum(struct.unpack("!10H", words))
    total = ~((total & 0xFFFF) + (total >> 16)) & 0xFFFF
    header = words[:10] + struct.pack("!H", total) + words[12:]
    return b"\xff" * 6 + mac(i) + b"\x08\0" + header + struct.pack("!HHHH", PORT, PORT, size - 20, 0) + packet


def frames_for(query, cache):
    """The answers to this searcher: a function from host to frame."""
    key, process = (re.search(pattern, query, re.S) for pattern in (rb"\xc4\x40(.{64})", rb"\xc5\x04(.{4})"))
    if KIND == "plain" or not key or not process:
        sealer, known = None, cache.setdefault(None, {})
    else:
        sealer, known = cache.setdefault(key[1], (Sealer(bytes.fromhex(key[1].decode()), process[1]), {}))

    def get(i):
        if i not in known:
            known[i] = frame(i, sealer.seal(i) if sealer else plain_packet(i))
        return known[i]
    return get


def main():
    ear = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    ear.bind(("0.0.0.0", PORT))
    mouth = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
    mouth.bind((CARD, 0))
    due, cache, last = [], {}, 0.0
    plain = frames_for(b"", cache)
    for i in range(HOSTS):
        plain(i)
    print("ready", flush=True)
    while True:
        wait = max(due[0][0] - time.monotonic(), 0) if due else None
        ready, _, _ = select.select([ear, sys.stdin], [], [], wait)
        now = time.monotonic()
        if sys.stdin in ready:
            return
        if ear in ready:
            query = ear.recv(9000)
            if query[8:14] == b"\x01\x04\x01\0\0\0" and now - last >= COALESCE:
                last, get = now, frames_for(query, cache)
                due += [(now + random.uniform(0, SPREAD), i, get) for i in range(HOSTS)]
                heapq.heapify(due)
        for _ in range(50):
            if not due or due[0][0] > now:
                break
            _, i, get = heapq.heappop(due)
            mouth.send(get(i))


if __name__ == "__main__":
    main()
