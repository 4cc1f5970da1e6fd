"""Examples for other programs. Usage: script/in-namespaces integrations_test.py QIVEN EXAMPLES"""
import json
import os
import re
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import segment  # noqa: E402
from segment import Hosts, answer  # noqa: E402

QIVEN, EXAMPLES = sys.argv.pop(1), sys.argv.pop(1)
EVIL = b"{{ lookup('pipe', 'id') }}"
CROWD = [answer(b"attic", "10.9.0.2", x48=7, x7c=b"02:00:00:00:00:02"), answer(b"attic", "10.9.0.3", ident=b"twin", x48=7),
         answer(EVIL, "10.9.0.4", ident=EVIL + b"\xff", x48=9, x7c=EVIL), answer(b"qiven", "10.9.0.5", x48=9),
         answer(b"10.9.0.7", "10.9.0.6"), answer(b"-bad", "10.9.0.7"), answer(b"nowhere", "0.0.0.0")]
# Names and addresses of Ansible's own machine, of groups, or of another host in the inventory.
POSING = [answer(name, f"10.9.1.{count}", ident=b"posing%d" % count) for count, name in enumerate(
    [b"localhost", b"127.0.0.1", b"LocalHost.localdomain", b"all", b"ungrouped", b"host-10.9.0.5", b"10.9.0.2"], 1)] + [
    answer(b"posing", address, ident=address.encode()) for address in ("127.0.0.1", "127.9.9.9", "224.0.0.1", "255.255.255.254")]


def run(name, *arguments, packets=(), qiven=QIVEN, options=""):
    environment = {**os.environ, "QIVEN": qiven, "QIVEN_FIND": options}
    with Hosts(lambda *_: packets):
        return subprocess.run([f"{EXAMPLES}/{name}", *arguments], env=environment, stdout=subprocess.PIPE, check=False)


class Ansible(unittest.TestCase):
    def test_inventory(self):
        listed = json.loads(run("ansible-inventory", "--list", packets=POSING + CROWD).stdout)
        variables = listed.pop("_meta")["hostvars"]
        self.assertEqual({name: of["ansible_host"] for name, of in variables.items()}, {
            **{f"10.9.1.{count}": f"10.9.1.{count}" for count in range(1, 8)}, "attic": "10.9.0.2",
            **{f"10.9.0.{count}": f"10.9.0.{count}" for count in range(3, 8)}})
        self.assertEqual(listed["qiven"]["hosts"], list(variables))
        self.assertEqual(listed["qiven_model_7"], {"hosts": ["attic", "10.9.0.3"]})
        self.assertEqual(variables["attic"], {"ansible_host": "10.9.0.2", "qiven_model": 7, "qiven_ident": "id-attic",
                                              "qiven_macs": ["02:00:00:00:00:02"]})
        self.assertNotRegex(json.dumps(variables).replace("}}", ""), "{{")

    def test_one_host_and_failure(self):
        one = json.loads(run("ansible-inventory", "--host", "attic", packets=CROWD, options="--model 7").stdout)
        self.assertEqual(one["ansible_host"], "10.9.0.2")
        self.assertEqual(json.loads(run("ansible-inventory", "--host", "nobody", packets=CROWD).stdout), {})
        self.assertEqual(run("ansible-inventory", "--list", options="--interface nope").returncode, 3)


class Prometheus(unittest.TestCase):
    def test_targets(self):
        with tempfile.TemporaryDirectory() as folder:
            def targets(*options, packets=()):
                status = run("prometheus-file-sd", folder + "/nas.json", "9100", *options, packets=packets).returncode
                self.assertEqual(os.listdir(folder), ["nas.json"])
                with open(folder + "/nas.json", encoding="utf-8") as file:
                    return status, json.load(file)

            status, groups = targets(packets=CROWD)
            self.assertEqual((status, len(groups)), (0, 6))
            self.assertEqual(groups[0], {"targets": ["10.9.0.2:9100"], "labels": {
                "qiven_name": "attic", "qiven_ident": "id-attic", "qiven_model": "7"}})
            for group in groups:
                self.assertRegex(group["targets"][0], r"^10\.9\.0\.\d:9100$")
                self.assertTrue(all(re.match("[a-z_]+$", k) and isinstance(v, str) for k, v in group["labels"].items()))
            self.assertEqual(targets("--interface", "nope"), (3, groups))
            self.assertEqual(targets(packets=[]), (0, []))


if __name__ == "__main__":
    segment.set_up()
    unittest.main()
