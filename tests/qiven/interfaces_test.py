#!/usr/bin/env python3
"""Tests of "qiven interfaces": every cell, and that none is missing. Usage: script/in-namespaces interfaces_test.py QIVEN"""
import ipaddress
import json
import os
import pathlib
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import segment  # noqa: E402
from segment import run  # noqa: E402

QIVEN = sys.argv.pop(1)


def listed():
    """Status and rows by name."""
    done = subprocess.run([QIVEN, "interfaces", "--format", "json"], capture_output=True, check=False, timeout=60)
    assert done.stderr == b"", done.stderr
    rows = json.loads(done.stdout)
    assert all(row.pop("schema") == 1 for row in rows)
    return done.returncode, {row.pop("interface"): row for row in rows}


def ip(what):
    return json.loads(subprocess.check_output(["ip", "-j", *what.split()]))


def of_kernel(name):
    """The cells that the kernel knows."""
    link = ip(f"-4 address show dev {name}") or ip(f"link show dev {name}")
    row = {"mac": ip(f"link show dev {name}")[0]["address"], "active": False}
    for address in link[0].get("addr_info", [])[:1]:
        network = ipaddress.ip_interface(f"{address['local']}/{address['prefixlen']}")
        row |= {"active": True, "address": address["local"], "netmask": str(network.netmask)}
        row |= {"broadcast": address["broadcast"]} if "broadcast" in address else {}
    return row


class Interfaces(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        run("mount -t tmpfs tmpfs /etc")
        pathlib.Path("/etc/network").mkdir()
        pathlib.Path("/etc/network/interfaces").write_text(
            "iface lan0 inet static\n gateway 10.9.0.254\niface lan1 inet dhcp\n", encoding="ascii")
        pathlib.Path("/etc/resolv.conf").write_text("nameserver 10.9.0.53\n", encoding="ascii")
        segment.set_up("lan0", "10.9.0.1")
        run("ip address add 10.7.0.1/16 dev lan0")
        run("ip route add default via 10.9.0.254")
        segment.set_up("lan1", "10.8.0.1")
        run("ip address flush dev lan1")
        run("ip address add 10.8.0.9/32 dev lan1")
        run("ip link add down0 type veth peer name down1")

    def test_every_cell(self):
        status, rows = listed()
        gateway = ip("route show default")[0]
        self.assertEqual((0, {"lan0", "p-lan0", "lan1", "p-lan1"}), (status, set(rows)))
        self.assertEqual("lan0", gateway["dev"])
        dns = {"dns": "10.9.0.53"}
        self.assertEqual(of_kernel("lan0") | dns | {"gateway": gateway["gateway"], "configuration": "static"}, rows["lan0"])
        # No file says of the others that they are static, and none is known to have a lease.
        for name in ("p-lan0", "lan1", "p-lan1"):
            self.assertEqual(of_kernel(name) | dns, rows[name], name)

    def test_more_than_the_table_of_the_library(self):
        for i in range(35):
            run(f"ip link add a{i} type veth peer name b{i}")
            run(f"ip link set a{i} up")
            run(f"ip link set b{i} up")
        segment.set_up("last0", "10.6.0.1")
        # Its configuration is not known.
        with segment.open_port(shared=False):
            status, rows = listed()
        self.assertEqual((0, of_kernel("last0")), (status, rows["last0"]))
        self.assertEqual(35 * 2 + 6, len(rows))


unittest.main(verbosity=2)
