"""A segment for tests of the command: the network namespace of this process, one interface, and simulated hosts.

The tests run in a network namespace of their own (script/in-namespaces), where the kernel hands broadcasts back to
every socket of the port: the command and the fake hosts hear each other on one card.
"""
import re
import socket
import struct
import subprocess
import threading
import time

ADDRESS = "10.9.0.1"
PORT = 9999
# What the packets of all tests and generators in Python are made of.
PLAIN, SEALED = b"\x12\x34\x56\x78TAVO", b"\x12\x34\x55\x66TAVO"
SEAL_OVERHEAD = 48
FIELD_A4 = 0x01020000  # of the library's own query


def is_sanitized(program):
    """Whether the program reports with AddressSanitizer, which takes memory and descriptors of its own."""
    with open(program, "rb") as file:
        return b"__asan_init" in file.read()


def growth_limit(program):
    """KiB that a program may grow by under hostile input; a sanitizer keeps what was freed for a while."""
    return 4096 * (4 if is_sanitized(program) else 1)


def run(command):
    subprocess.run(command.split(), check=True)


def set_up(card="lan0", address=ADDRESS):
    """Adds an interface with an address; its other end only provides a carrier."""
    run("ip link set lo up")
    run(f"ip link add {card} type veth peer name p-{card}")
    run(f"ip address add {address}/24 brd + dev {card}")
    run(f"ip link set {card} up")
    run(f"ip link set p-{card} up")
    while "state UP" not in subprocess.check_output(["ip", "link", "show", card], text=True):
        time.sleep(0.01)


def resident(pid):
    """KiB of memory that a process holds."""
    with open(f"/proc/{pid}/status", encoding="ascii") as status:
        return int(re.search(r"VmRSS:\s+(\d+)", status.read())[1])


def field(ident, value=b"", length=None):
    if isinstance(value, int):
        value = struct.pack("<I", value)
    return bytes([ident, len(value) if length is None else length]) + value


def packet(fields):
    """A plain packet of (identifier, bytes or number) pairs."""
    return PLAIN + b"".join(field(*pair) for pair in fields)


QUERY = packet([(0x01, 1), (0xA4, FIELD_A4)])


def answer(name, address="10.9.0.7", ident=None, **more):
    """An answer; more fields as x11=value."""
    fields = [(0x01, more.pop("type", 2)), (0xA4, 0), (0x11, name), (0x12, socket.inet_aton(address))]
    fields.append((0x19, b"id-" + name if ident is None else ident))
    fields += [(int(key[1:], 16), value) for key, value in more.items()]
    return packet(fields)


def open_port(address="0.0.0.0", shared=True):
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    if shared:
        sock.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
    sock.bind((address, PORT))
    return sock


def everybody(address="10.9.0.255"):
    """A socket that sends to all on a segment."""
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
    sock.connect((address, PORT))
    return sock


class Hosts:
    """Answers each query with what reply(number of the query, query) returns: a list of packets."""

    def __init__(self, reply):
        self.reply, self.queries, self.senders = reply, [], []
        self.ear = open_port()
        self.ear.settimeout(0.05)
        self.mouth = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.mouth.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        self.mouth.bind((ADDRESS, 0))
        self.ended = False
        self.thread = threading.Thread(target=self.serve)

    def serve(self):
        while not self.ended:
            try:
                data, sender = self.ear.recvfrom(9000)
            except socket.timeout:
                continue
            if data[8:14] != field(0x01, 1):
                continue
            self.queries.append(data)
            self.senders.append(sender)
            for count, out in enumerate(self.reply(len(self.queries), data), 1):
                self.mouth.sendto(out, ("255.255.255.255", PORT))
                if count % 20 == 0:
                    time.sleep(0.002)  # real hosts do not all answer in the same microsecond

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.ended = True
        self.thread.join()
        self.ear.close()
        self.mouth.close()
