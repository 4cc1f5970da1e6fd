#!/usr/bin/env python3
"""qiven answer on two segments, queried through raw sockets.

Usage: answer_test.py QIVEN EXAMPLE [TEST...]
"""

import os
import signal
import socket
import struct
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "support"))
import segment  # noqa: E402
from answering import SO_BINDTODEVICE, Answering, Searcher, enter_namespaces, fields, query, run  # noqa: E402
from segment import PLAIN, QUERY, SEALED  # noqa: E402

Answering.program, EXAMPLE = sys.argv[1:3]


class Answer(Answering):
    def test_the_segment_of_the_query_gets_its_address(self):
        self.plug(3, "10.9.1.2")  # on the segment of eth1
        self.start()
        for asked, answering in ((1, (1, 3)), (2, (2,))):
            self.ask(getattr(self, f"s{asked}"))
            for n in (1, 2, 3):
                heard = self.hear(getattr(self, f"s{n}"), 0.3)
                self.assertEqual(len(heard), n in answering, (asked, n))
                for packet, sender in heard:
                    got = fields(packet)
                    self.assertEqual(sender, ("10.9.1.2" if n == 3 else f"10.9.{n}.1", 1234))
                    self.assertEqual(got[0x12] + got[0x13], socket.inet_aton(sender[0]) + b"\xff\xff\xff\0")
                    mac = subprocess.check_output(self.inside(["ip", "link", "show", f"eth{n}"]), text=True)
                    self.assertIn(got[0x7C].decode(), mac)
                    self.assertEqual([got[i] for i in (0x11, 0x19, 0x48, 0x49, 0xBB, 0xBC, 0x01)],
                                     [b"nas1", b"id1", *(struct.pack("<I", v) for v in (7, 240, 2)), b"y", b"\2\0\0\0"])

    def answers(self, *segments):
        """Which of these segments get an answer to a query on each."""
        for segment in segments:
            self.ask(segment)
        return [len(self.hear(segment, 0.4)) > 0 for segment in segments]

    def test_which_interfaces(self):
        for command in ("set eth2 down", "set eth2 name docker0", "set docker0 up"):
            run(" ".join(self.inside(["ip", "link", command])))
        self.start()
        text = "name = 'nas1'\nmodel = 7\n"
        table = [("", (True, False)), ("all_interfaces = true", (True, True)),
                 ("interfaces = ['docker*', 'x']", (False, True)), ("exclude = ['eth*']", (False, False)),
                 ("all_interfaces = true\nexclude = ['docker0']", (True, False))]
        for setting, answering in table:
            self.write(text + setting)
            self.assertIn(b"configuration reloaded", self.reload())
            if setting:
                self.assertIn(b"STATUS=answering as", self.notify.recv(4096))
            self.assertEqual(self.answers(self.s1, self.s2), [*answering], setting)
        self.log.seek(0)
        said = self.log.read()
        self.assertIn("on docker0 10.9.2.1, UDP port 9999\n", said)
        self.assertIn("on no interface (every usable interface is left out; ", said)
        self.write(text + "interfaces = ['eth*']\nexclude = ['docker0']")
        for options, answering in ((("--interface", "docker0", "--exclude", "x"), (False, True)),
                                   (("--exclude", "eth1"), (False, False))):
            self.end(self.host)
            self.start(*options)
            self.assertEqual(self.answers(self.s1, self.s2), [*answering], options)

    def test_senders_off_the_segment(self):
        run("ip address add 192.0.2.9/24 dev s1")
        run(" ".join(self.inside("ip route add 192.0.2.0/24 via 10.9.1.9".split())))
        away = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(away.close)
        away.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        away.setsockopt(socket.SOL_SOCKET, SO_BINDTODEVICE, b"s1")
        away.bind(("192.0.2.9", 0))
        for options, setting, answered in (((), "", False), ((), "answer_off_segment = true", True),
                                           (("--answer-off-segment",), "", True)):
            self.config = self.write("name = 'nas1'\nmodel = 7\n" + setting)
            self.start("--verbose", *options)
            away.sendto(b"junk", ("255.255.255.255", segment.PORT))
            for to in ("255.255.255.255", "10.9.1.1"):
                away.sendto(QUERY, (to, segment.PORT))
                self.assertEqual(len(self.hear(self.s1, 0.5)), answered, (options, setting, to))
            self.log.seek(0)
            said = self.log.read()
            self.assertEqual(said.count("20 bytes from 192.0.2.9 on eth1 are not answered: their sender"),
                             0 if answered else 2)
            self.assertIn("4 bytes from 192.0.2.9 on eth1 are not answered: they are sealed, or no packet\n", said)
            self.end(self.host)

    def test_one_address_does_not_use_up_the_answers_of_others(self):
        self.start()
        run("ip address add 10.9.1.50/24 dev s1")
        stranger = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(stranger.close)
        stranger.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        stranger.setsockopt(socket.SOL_SOCKET, SO_BINDTODEVICE, b"s1")
        stranger.bind(("10.9.1.50", 0))
        began, sealed = time.monotonic(), 0
        for _ in range(5):
            for _ in range(100):
                stranger.sendto(query(os.urandom(32), os.urandom(4)), ("255.255.255.255", segment.PORT))
            searcher = Searcher()
            self.ask(self.s1, searcher.query)
            heard = [packet for packet, sender in self.hear(self.s1, 0.5) if sender[0] == "10.9.1.1"]
            sealed += sum(packet.startswith(SEALED) for packet in heard)
            self.assertTrue(any(packet.startswith(SEALED) and searcher.open(packet) for packet in heard))
        self.assertLessEqual(sealed, 5 + 9 + 8 * (time.monotonic() - began))

    def test_sealed_for_its_searcher_and_silent_otherwise(self):
        self.start()
        searcher = Searcher()
        for _ in range(3):  # copies of one query
            self.ask(self.s1, searcher.query)
        [(packet, _)] = self.hear(self.s1)
        self.assertTrue(packet.startswith(SEALED))
        self.assertIsNone(Searcher().open(packet))
        got = searcher.open(packet)
        self.assertEqual((got[0x11], got[0xC6]), (b"nas1", searcher.id))
        answer = QUERY.replace(b"\4\1", b"\4\2", 1)
        for silent in (answer, answer.replace(b"\4\2", b"\4\6"), packet, QUERY + b"\xc5\x04" + got[0xC5], b"junk",
                       searcher.query.replace(searcher.public.raw.hex().encode(), b"0" * 64)):  # cannot be sealed for
            self.ask(self.s1, silent)
            self.assertEqual(self.hear(self.s1, 0.3), [], silent)
        # A stranger that copies the identifier of a searcher does not use up its answer.
        other = Searcher()
        for _ in range(5):
            self.ask(self.s1, query(os.urandom(32), other.id))
        self.ask(self.s1, other.query)
        self.assertTrue(any(other.open(packet) for packet, _ in self.hear(self.s1)))
        # An invalid key gets a plain answer.
        self.ask(self.s1, searcher.query.replace(searcher.public.raw.hex().encode(), b"x" * 64))
        self.assertEqual([p[:8] for p, _ in self.hear(self.s1)], [PLAIN])

    def test_command_line_goes_before_the_file(self):
        self.start("--plain", "--name", "cli", "--ident", "from-cli", "--model", "9", "--second", "250")
        for text in (None, "name = 'file'\nmodel = 8\nident = 'id2'\nfield_49 = 241\nfield_50 = 'read again'\n"):
            if text is not None:
                self.write(text)
                self.reload()
                time.sleep(0.2)
            self.ask(self.s1, Searcher().query)
            [(packet, _)] = self.hear(self.s1)
            got = fields(packet)
            self.assertEqual([got[i] for i in (0x11, 0x19, 0x48, 0x49)],
                             [b"cli", b"from-cli", *(struct.pack("<I", v) for v in (9, 250))])
        self.assertEqual(got[0x50], b"read again")

    def test_close_queries_share_an_answer(self):
        self.start()
        for _ in range(50):
            self.ask(self.s1)
        self.assertEqual(len(self.hear(self.s1, 0.15)), 1)
        self.ask(self.s1)
        [(packet, _)] = self.hear(self.s1)
        self.assertLess(len(packet), 120)  # the answer to one forged query

    def test_flood(self):
        self.plug(3, "10.9.1.2")  # on the segment of eth1
        self.start("--verbose")
        self.s3.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
        self.ask(self.s1, Searcher().query)
        self.hear(self.s3)
        before, began = self.memory(), time.monotonic()
        for i in range(25000):
            forged = os.urandom(36)
            for packet in (QUERY, query(forged[:32], forged[32:]), query(bytes(32), forged[32:]), SEALED + forged * 3):
                self.ask(self.s1, packet)
        heard = self.hear(self.s3, 0.01)
        genuine = Searcher()
        self.ask(self.s1, genuine.query)
        served = self.hear(self.s3, 1)
        self.assertTrue(any(packet.startswith(PLAIN) or genuine.open(packet) for packet, _ in served))
        heard += served
        seconds = time.monotonic() - began
        plain = [packet for packet, _ in heard if packet.startswith(PLAIN)]
        self.assertTrue(1 <= len(plain) <= seconds * 5 + 2, (len(plain), seconds))
        self.assertTrue(8 <= len(heard) - len(plain) <= 9 + seconds * 8, (len(heard), seconds))
        self.assertLess(self.memory() - before, segment.growth_limit(self.program))
        self.log.seek(0)
        self.assertLess(len(self.log.readlines()), 30 + seconds * 6)

    def test_cards_come_and_go(self):
        self.start()
        run("ip link del s1")
        self.assertEqual(self.answers(self.s2), [True])
        run("ip link del s2")
        self.expect_line("on no interface (no usable network interface (")
        # Many interfaces without addresses, as on a host of virtual machines, and the one that counts after them.
        run(" ".join(self.inside(["sh", "-c", "'for n in $(seq 35); do"
                    " ip link add v$n up type veth peer w$n; ip link set w$n up; done'"])))
        self.expect_line("on no interface (no chosen interface has an IPv4 address)")
        self.plug(1, "10.9.1.77")
        self.expect_line("on eth1 10.9.1.77, UDP port 9999\n")
        self.assertEqual(self.answers(self.s1), [True])

    def expect_line(self, line):
        end = time.monotonic() + 10
        said = ""
        while line not in said:
            self.assertLess(time.monotonic(), end, said)
            time.sleep(0.05)
            self.log.seek(0)
            said = self.log.read()

    def test_configuration_faults(self):
        table = [("name = 'x'\nmodel = -1", "2: model: must be"), ("model = 4294967296", "1: model: must be"),
                 ("model = 1\n\ncolour = 1", "3: colour: is not"), ("address = '10.0.0.1'", "1: address: is filled"),
                 (f"name = '{'x' * 36}'", "1: name: must be a text of 1 to 35"), ("name = 'a\\", "1: "),
                 ("type = 1", "1: type: must be 2 or 6"), ("exclude = 'x'", "1: exclude: must be a list of"),
                 ("interfaces = []", "1: interfaces: "), ("all_interfaces = 1", "1: all_interfaces: must be true or"),
                 ("answer_off_segment = 'x'", "1: answer_off_segment: must"),
                 ("services_running = [128]", "1: services_running: "),
                 ("name = 'x'", " model: is missing"),
                 ("model = 1\n" + "".join(f"field_b{c} = [" + "'x'," * 32 + "]\n" for c in "cd"),
                  " too many fields: a packet carries at most 64")]
        for text, message in table:
            path = self.write(text, "bad.toml")
            done = subprocess.run([self.program, "answer", "--check-config", "--config", path], capture_output=True,
                                  text=True, check=False)
            self.assertEqual((done.returncode, f"{path}:{message}" in done.stderr), (4, True), (text, done.stderr))
        subprocess.run([self.program, "answer", "--check-config", "--config", EXAMPLE], check=True)

    def reload(self):
        self.host.send_signal(signal.SIGHUP)
        self.assertRegex(self.notify.recv(4096), rb"^RELOADING=1\nMONOTONIC_USEC=\d+$")
        return self.notify.recv(4096)

    def test_files_that_are_no_configuration(self):
        """A running program keeps what it has, says why, does not wait, and does not grow."""
        self.start()
        before, path = self.memory(), self.config
        deep = ".".join("a" * 140_000) + " = 1"
        table = [(lambda: os.symlink(path, path), "cannot be opened: Too many levels"),
                 (lambda: os.symlink(sys.executable + "/x", path), "cannot be opened: Not a directory"),
                 (lambda: None, "cannot be opened: No such file"), (lambda: os.mkdir(path), "is a directory"),
                 (lambda: os.mkfifo(path), "is not a regular file"),
                 (lambda: os.symlink("/dev/zero", path), "is not a regular file"),
                 (lambda: os.truncate(self.write(""), 1 << 40), "is larger than"),
                 (lambda: self.write("x = [" + "1," * 500_000 + "]"), "is larger than"),
                 (lambda: self.write("x = [" + "1," * 32_000 + "]"), ":1: x: is not a key"),
                 (lambda: self.write("\n".join(f"x{i}=1" for i in range(7000))), ": 6980 more faults"),
                 (lambda: self.write("x = " + "[" * 60_000), ":1: "),
                 (lambda: self.write(deep[:60_000]), ":1: tables are nested too deeply"),
                 (lambda: self.write("\n[" + deep[:60_000]), ":2: tables are nested too deeply")]
        # What looks like the end, or the inside, of a text or comment.
        for hidden in ('t={a="""x"""",', "a='\\'\n",
                       'a="\\""\n', "a=\'\'\'\'\'\'\'\'\n", 'a="""\\""""""\n', 'a="""\n"#"""#"""\n',
                       "''=1#'\n", '""=1\nb="#"\n'):
            table.append((lambda text=hidden: self.write(text + deep[:60_000]), "tables are nested too deeply"))
        for make, message in table:
            if os.path.isdir(path):
                os.rmdir(path)
            elif os.path.lexists(path):
                os.unlink(path)
            make()
            self.assertIn(b"the previous one stays in use", self.reload())
            done = subprocess.run([self.program, "answer", "--config", path], capture_output=True, text=True,
                                  timeout=10, check=False)
            self.assertEqual((done.returncode, message in done.stderr), (4, True), (message, done.stderr[:500]))
            with open(self.dir.name + "/log", encoding="utf-8") as log:
                self.assertIn(message, log.read())
        if not segment.is_sanitized(self.program):
            self.assertLess(self.memory() - before, 4096)
        self.ask(self.s1)
        self.assertEqual([fields(packet)[0x11] for packet, _ in self.hear(self.s1)], [b"nas1"])

    def test_signals(self):
        self.start()
        for text, name in (("name = 'nas2'\nmodel = 8", b"nas2"), ("name = 1", b"nas2")):
            self.write(text)
            self.reload()
            time.sleep(0.2)
            self.ask(self.s1)
            self.assertEqual([fields(packet)[0x11] for packet, _ in self.hear(self.s1, 0.3)], [name])
        self.log.seek(0)
        said = self.log.read()
        self.assertIn('answering as "nas1" on eth1 10.9.1.1, eth2 10.9.2.1, UDP port 9999\n', said)
        self.assertIn("answer.toml:1: name: must be", said)
        self.host.send_signal(signal.SIGTERM)
        self.assertEqual(self.host.wait(0.5), 0)
        self.assertEqual(self.notify.recv(4096), b"STOPPING=1")
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as holder:  # does not share the port
            self.s1.close(), self.s2.close(), holder.bind(("0.0.0.0", 9999))
            done = subprocess.run([self.program, "answer", "--model", "1"], capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, "by a program that does not share" in done.stderr), (3, True), done.stderr)


if __name__ == "__main__":
    enter_namespaces()
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]], verbosity=2)
