#!/usr/bin/env python3
"""qiven answer on two segments of its own, asked by raw sockets.

Usage: answer_test.py QIVEN EXAMPLE [TEST...]. Runs itself again in new namespaces, as root or as an ordinary user.
"""

import ctypes
import os
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

QIVEN, EXAMPLE = sys.argv[1:3]
if os.environ.get("ANSWER_TEST_INSIDE") != "1":
    os.environ.update(ANSWER_TEST_INSIDE="1", PATH=os.environ["PATH"] + ":/usr/sbin:/sbin",
                      ASAN_OPTIONS="quarantine_size_mb=1")
    user = [] if os.geteuid() == 0 else ["--map-root-user"]
    os.execvp("unshare", ["unshare", *user, "--net", "--mount", sys.executable, *sys.argv])

PLAIN, SEALED = b"\x12\x34\x56\x78TAVO", b"\x12\x34\x55\x66TAVO"
QUERY = PLAIN + b"\x01\x04\x01\0\0\0\xa4\x04\0\0\x02\x01"
SO_BINDTODEVICE = 25
sodium = ctypes.CDLL("libsodium.so.23")


def run(command):
    subprocess.run(command, shell=True, check=True)


def fields(packet):
    assert packet.startswith(PLAIN), packet
    result, at = {}, 8
    while at < len(packet):
        end = at + 2 + packet[at + 1]
        result[packet[at]] = packet[at + 2:end]
        at = end
    return result


class Asker:
    """A key pair and a process identifier."""

    def __init__(self):
        self.public, self.secret = ctypes.create_string_buffer(32), ctypes.create_string_buffer(32)
        sodium.crypto_box_keypair(self.public, self.secret)
        self.id = os.urandom(3) + b"\x01"
        self.query = QUERY + b"\xc4\x40" + self.public.raw.hex().encode() + b"\xc5\x04" + self.id

    def open(self, packet):
        box = packet[8:]
        plain = ctypes.create_string_buffer(len(box) - 48)
        done = sodium.crypto_box_seal_open(plain, box, ctypes.c_ulonglong(len(box)), self.public, self.secret)
        return fields(plain.raw) if done == 0 else None


class Answer(unittest.TestCase):
    """The test is on one end of two cables (s1, s2), the host on the other (eth1, eth2)."""

    def setUp(self):
        self.dir = tempfile.TemporaryDirectory()
        self.addCleanup(self.dir.cleanup)
        self.config = self.write("name = 'nas1'\nmodel = 7\nident = 'id1'\nfield_bc = ['x', 'y']\n")
        self.net = subprocess.Popen(["unshare", "--net", "sh", "-c", "echo; exec cat"], stdin=subprocess.PIPE,
                                    stdout=subprocess.PIPE)
        self.addCleanup(self.end, self.net)
        self.net.stdout.readline()
        for n in (1, 2):
            self.plug(n, f"10.9.{n}.1")
        self.notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.notify.bind(self.dir.name + "/notify")
        self.notify.settimeout(5)
        self.addCleanup(self.notify.close)

    def write(self, text, name="answer.toml"):
        path = os.path.join(self.dir.name, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return path

    def end(self, process):
        if process.poll() is None:
            process.kill()
        process.communicate()

    def inside(self, command):
        return ["nsenter", "-t", str(self.net.pid), "-n", *command]

    def plug(self, n, address):
        run(f"ip link add s{n} type veth peer name eth{n} netns {self.net.pid}; ip link set s{n} up;"
            f"ip address add 10.9.{n}.9/24 brd + dev s{n}")
        self.addCleanup(subprocess.run, f"ip link del s{n}", shell=True, stderr=subprocess.DEVNULL)
        run(" ".join(self.inside(["sh", "-c", f"'ip link set eth{n} up; ip a add {address}/24 brd + dev eth{n}'"])))
        segment = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(segment.close)
        for option in (socket.SO_REUSEADDR, socket.SO_BROADCAST):
            segment.setsockopt(socket.SOL_SOCKET, option, 1)
        segment.setsockopt(socket.SOL_SOCKET, SO_BINDTODEVICE, f"s{n}".encode())
        segment.bind(("0.0.0.0", 9999))
        setattr(self, f"s{n}", segment)

    def start(self, *options):
        self.log = open(self.dir.name + "/log", "w+", encoding="utf-8")
        self.addCleanup(self.log.close)
        env = dict(os.environ, NOTIFY_SOCKET=self.dir.name + "/notify")
        self.host = subprocess.Popen(self.inside([QIVEN, "answer", "--config", self.config, *options]), env=env,
                                     stderr=self.log)
        self.addCleanup(self.end, self.host)
        self.assertIn(b"READY=1", self.notify.recv(4096))

    def ask(self, segment, packet=QUERY):
        segment.sendto(packet, ("255.255.255.255", 9999))

    def hear(self, segment, seconds=0.6):
        """Everything from the host in so many seconds: (packet, sender). Own queries come back and are left out."""
        heard, end = [], time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            segment.settimeout(left)
            try:
                packet, sender = segment.recvfrom(9000)
            except TimeoutError:
                break
            if not sender[0].endswith(".9"):
                heard.append((packet, sender))
        return heard

    def test_each_segment_gets_its_own_address(self):
        self.start()
        self.ask(self.s1)
        for n, segment in ((1, self.s1), (2, self.s2)):
            [(packet, sender)] = self.hear(segment)
            got = fields(packet)
            self.assertEqual(sender, (f"10.9.{n}.1", 1234))
            self.assertEqual(got[0x12] + got[0x13], socket.inet_aton(sender[0]) + b"\xff\xff\xff\0")
            mac = subprocess.check_output(self.inside(["ip", "link", "show", f"eth{n}"]), text=True)
            self.assertIn(got[0x7C].decode(), mac)
            self.assertEqual([got[i] for i in (0x11, 0x19, 0x48, 0x49, 0xBB, 0xBC, 0x01)],
                             [b"nas1", b"id1", *(struct.pack("<I", v) for v in (7, 240, 2)), b"y", b"\2\0\0\0"])

    def test_sealed_for_its_asker_and_silent_otherwise(self):
        self.start()
        asker = Asker()
        for _ in range(3):  # copies of one query
            self.ask(self.s1, asker.query)
        [(packet, _)] = self.hear(self.s1)
        self.assertTrue(packet.startswith(SEALED))
        self.assertIsNone(Asker().open(packet))
        got = asker.open(packet)
        self.assertEqual((got[0x11], got[0xC6]), (b"nas1", asker.id))
        answer = PLAIN + b"\x01\x04\x02\0\0\0\xa4\x04\0\0\x02\x01"
        for silent in (answer, answer.replace(b"\4\2", b"\4\6"), packet, QUERY + b"\xc5\x04" + got[0xC5], b"junk",
                       asker.query.replace(asker.public.raw.hex().encode(), b"0" * 64)):  # a key that seals nothing
            self.ask(self.s1, silent)
            self.assertEqual(self.hear(self.s1, 0.3), [], silent)
        # What is no key asks for a plain answer.
        self.ask(self.s1, asker.query.replace(asker.public.raw.hex().encode(), b"x" * 64))
        self.assertEqual([p[:8] for p, _ in self.hear(self.s1)], [PLAIN])

    def test_close_queries_share_an_answer(self):
        self.start()
        for _ in range(50):
            self.ask(self.s1)
        self.assertEqual(len(self.hear(self.s1, 0.15)), 1)
        [(packet, _)] = self.hear(self.s1)
        self.assertLess(len(packet), 120)  # what one forged query is worth

    def memory(self):
        with open(f"/proc/{self.host.pid}/status", encoding="ascii") as status:
            return int(re.search(r"VmRSS:\s+(\d+)", status.read())[1])

    def test_flood(self):
        self.start("--verbose")
        self.s2.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
        self.ask(self.s1, Asker().query)
        self.hear(self.s2)
        before, began = self.memory(), time.monotonic()
        for i in range(25000):
            forged = os.urandom(36)
            key = b"\xc4\x40" + forged[:32].hex().encode() + b"\xc5\x04" + forged[32:]
            for packet in (QUERY, QUERY + key, forged, SEALED + forged * 3):
                self.ask(self.s1, packet)
        heard = self.hear(self.s2, 0.01)
        genuine = Asker()
        self.ask(self.s1, genuine.query)
        served = self.hear(self.s2, 1)
        self.assertTrue(any(packet.startswith(PLAIN) or genuine.open(packet) for packet, _ in served))
        heard += served
        seconds = time.monotonic() - began
        plain = [packet for packet, _ in heard if packet.startswith(PLAIN)]
        self.assertTrue(1 <= len(plain) <= seconds * 5 + 2, (len(plain), seconds))
        self.assertTrue(16 <= len(heard) - len(plain) <= 17 + seconds * 16, (len(heard), seconds))
        self.assertLess(self.memory() - before, 4096)
        self.log.seek(0)
        self.assertLess(len(self.log.readlines()), 30 + seconds * 6)

    def test_cards_come_and_go(self):
        self.start()
        run("ip link del s1")
        self.ask(self.s2)
        self.assertEqual([sender[0] for _, sender in self.hear(self.s2)], ["10.9.2.1"])
        run("ip link del s2")
        time.sleep(1.1)
        self.plug(1, "10.9.1.77")
        for _ in range(10):  # a busy machine takes its time to carry frames to a new card
            self.ask(self.s1)
            if heard := self.hear(self.s1):
                break
        self.assertEqual([sender[0] for _, sender in heard], ["10.9.1.77"])

    def test_configuration_faults(self):
        table = [("name = 'x'\nmodel = -1", "2: model: must be"), ("model = 4294967296", "1: model: must be"),
                 ("model = 1\n\ncolour = 1", "3: colour: is not"), ("address = '10.0.0.1'", "1: address: is filled"),
                 (f"name = '{'x' * 36}'", "1: name: must be a text of 1 to 35"), ("name = 'a\\", "1: "),
                 ("type = 1", "1: type: must be 2 or 6"), ("services_running = [128]", "1: services_running: "),
                 ("name = 'x'", " model: is missing"),
                 ("model = 1\n" + "".join(f"field_b{c} = [" + "'x'," * 32 + "]\n" for c in "cd"),
                  " a packet carries 64 fields at most")]
        for text, message in table:
            path = self.write(text, "bad.toml")
            done = subprocess.run([QIVEN, "answer", "--check-config", "--config", path], capture_output=True,
                                  text=True, check=False)
            self.assertEqual((done.returncode, f"{path}:{message}" in done.stderr), (4, True), (text, done.stderr))
        subprocess.run([QIVEN, "answer", "--check-config", "--config", EXAMPLE], check=True)

    def test_signals(self):
        self.start()
        for text, name in (("name = 'nas2'\nmodel = 8", b"nas2"), ("name = 1", b"nas2")):
            self.write(text)
            self.host.send_signal(signal.SIGHUP)
            self.assertRegex(self.notify.recv(4096), rb"^RELOADING=1\nMONOTONIC_USEC=\d+$")
            self.assertRegex(self.notify.recv(4096), rb"^READY=1\n")
            time.sleep(0.2)
            self.ask(self.s1)
            self.assertEqual([fields(packet)[0x11] for packet, _ in self.hear(self.s1, 0.3)], [name])
        self.log.seek(0)
        self.assertIn("answer.toml:1: name: must be", self.log.read())
        self.host.send_signal(signal.SIGTERM)
        self.assertEqual(self.host.wait(0.5), 0)
        self.assertEqual(self.notify.recv(4096), b"STOPPING=1")
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as holder:  # shares the port with nobody
            self.s1.close(), self.s2.close(), holder.bind(("0.0.0.0", 9999))
            done = subprocess.run([QIVEN, "answer", "--model", "1"], capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, "Address already in use" in done.stderr), (3, True), done.stderr)


if __name__ == "__main__":
    run("ip link set lo up")
    assert sodium.sodium_init() >= 0
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]], verbosity=2)
