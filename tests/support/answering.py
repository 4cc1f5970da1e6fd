"""A namespace with two interfaces that runs "qiven answer"; this process has the other ends of the veth pairs."""
import ctypes
import os
import socket
import subprocess
import sys
import tempfile
import time
import unittest

from segment import PLAIN, PORT, QUERY, SEAL_OVERHEAD, field, resident

SO_BINDTODEVICE = 25
sodium = ctypes.CDLL("libsodium.so.23")
assert sodium.sodium_init() >= 0


def enter_namespaces():
    """Runs this program again in new namespaces, as root or as an ordinary user."""
    if os.environ.get("ANSWER_TEST_INSIDE") != "1":
        os.environ.update(ANSWER_TEST_INSIDE="1", PATH=os.environ["PATH"] + ":/usr/sbin:/sbin",
                          ASAN_OPTIONS="quarantine_size_mb=1:verify_asan_link_order=0:detect_leaks=0")
        user = [] if os.geteuid() == 0 else ["--map-root-user"]
        os.execvp("unshare", ["unshare", *user, "--net", "--mount", sys.executable, "-B", *sys.argv])
    run("ip link set lo up")


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


def query(key, process):
    return QUERY + field(0xC4, key.hex().encode()) + field(0xC5, process)


class Searcher:
    """A key pair and a process identifier."""

    def __init__(self):
        self.public, self.secret = ctypes.create_string_buffer(32), ctypes.create_string_buffer(32)
        sodium.crypto_box_keypair(self.public, self.secret)
        self.id = os.urandom(3) + b"\x01"
        self.query = query(self.public.raw, self.id)

    def open(self, packet):
        box = packet[8:]
        plain = ctypes.create_string_buffer(max(len(box) - SEAL_OVERHEAD, 1))
        done = sodium.crypto_box_seal_open(plain, box, ctypes.c_ulonglong(len(box)), self.public, self.secret)
        return fields(plain.raw) if done == 0 else None


class Answering(unittest.TestCase):
    """This process has one end of two veth pairs (s1, s2), the host the other (eth1, eth2)."""

    program = ""

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
        segment.bind(("0.0.0.0", PORT))
        setattr(self, f"s{n}", segment)

    def launch(self, *options, stderr, program=None, **more):
        command = [*(program or [self.program]), "answer", "--config", self.config, *options]
        self.host = subprocess.Popen(self.inside(command), stderr=stderr, **more)
        self.addCleanup(self.end, self.host)

    def start(self, *options):
        self.log = open(self.dir.name + "/log", "w+", encoding="utf-8")
        self.addCleanup(self.log.close)
        self.launch(*options, stderr=self.log, env=dict(os.environ, NOTIFY_SOCKET=self.dir.name + "/notify"))
        self.assertIn(b"READY=1", self.notify.recv(4096))

    def ask(self, segment, packet=QUERY):
        segment.sendto(packet, ("255.255.255.255", PORT))

    def hear(self, segment, seconds=0.6, first=False):
        """Packets from the host within a time, or the first one: (packet, sender). Own queries are received as well."""
        heard, end = [], time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            segment.settimeout(left)
            try:
                packet, sender = segment.recvfrom(9000)
            except TimeoutError:
                break
            if not sender[0].endswith(".9"):
                heard.append((packet, sender))
                if first:
                    break
        return heard

    def memory(self):
        return resident(self.host.pid)
