"""Builds capture files from frames, and frames from packets."""
import struct


def udp(payload, sport=1234, dport=9999, more=False, offset=0):
    if offset == 0:
        payload = struct.pack(">HHHH", sport, dport, 8 + len(payload), 0) + payload
    fragment = (0x2000 if more else 0) | offset
    return struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(payload), 7, fragment, 64, 17, 0, bytes([10, 0, 0, 1]),
                       bytes([255] * 4)) + payload


def pcap(link, *frames, cut=None):
    data = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, link)
    for frame in frames:
        data += struct.pack("<IIII", 1700000000, 5, len(frame[:cut]), len(frame)) + frame[:cut]
    return data


def pcapng(link, *frames):
    def block(kind, body):
        body += bytes(-len(body) % 4)
        return struct.pack("<II", kind, len(body) + 12) + body + struct.pack("<I", len(body) + 12)

    data = block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1)) + block(1, struct.pack("<HHI", link, 0, 65535))
    return data + b"".join(block(6, struct.pack("<IIIII", 0, 0, 0, len(f), len(f)) + f) for f in frames)
