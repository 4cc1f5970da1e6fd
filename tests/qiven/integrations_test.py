"""The examples that feed other programs. Usage: unshare -rn integrations_test.py QIVEN EXAMPLES"""
import json
import os
import re
import subprocess
import sys
import tempfile
import unittest

import segment
from segment import Hosts, answer

QIVEN, EXAMPLES = sys.argv.pop(1), sys.argv.pop(1)
EVIL = b"{{ lookup('pipe', 'id') }}"
CROWD = [answer(b"attic", "10.9.0.2", x48=7, x7c=b"02:00:00:00:00:02"), answer(b"attic", "10.9.0.3", ident=b"twin", x48=7),
         answer(EVIL, "10.9.0.4", ident=EVIL + b"\xff", x48=9, x7c=EVIL), answer(b"qiven", "10.9.0.5", x48=9),
         answer(b"10.9.0.7", "10.9.0.6"), answer(b"-bad", "10.9.0.7"), answer(b"nowhere", "0.0.0.0")]


def run(name, *arguments, packets=(), qiven=QIVEN, options=""):
    environment = {**os.environ, "QIVEN": qiven, "QIVEN_FIND": options}
    with Hosts(lambda *_: packets):
        return subprocess.run([f"{EXAMPLES}/{name}", *arguments], env=environment, stdout=subprocess.PIPE, check=False)


class Ansible(unittest.TestCase):
    def test_inventory(self):
        listed = json.loads(run("ansible-inventory", "--list", packets=CROWD).stdout)
        variables = listed.pop("_meta")["hostvars"]
        self.assertEqual({name: of["ansible_host"] for name, of in variables.items()}, {
            "attic": "10.9.0.2", "10.9.0.3": "10.9.0.3", "10.9.0.4": "10.9.0.4", "host-10.9.0.5": "10.9.0.5",
            "10.9.0.7": "10.9.0.6", "host-10.9.0.7": "10.9.0.7"})
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
