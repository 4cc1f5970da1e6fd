#!/usr/bin/env python3
"""Runs every example of the README and of the manual: each "$ command" of a console block or of an EXAMPLES section.

Usage: script/in-namespaces examples_test.py SOURCE BUILD. Lines behind a command are what it prints, to the character.
"""
import glob
import os
import re
import signal
import subprocess
import sys
import tempfile
import unittest

SOURCE, BUILD = sys.argv[1:]
sys.path.insert(0, SOURCE + "/tests/support")
import captures  # noqa: E402
import segment  # noqa: E402

NOT_RUN = {
    "script/demo": "builds, and makes a network of its own; script/readme shows what it prints",
    "script/test": "runs this test",
    "cmake --preset release && cmake --build --preset release": "is how this test was built",
}
# Commands that run until they are interrupted.
ENDLESS = re.compile(r"qiven find .*--watch|qiven answer (?!.*--check-config)")


def examples(path):
    """Yields (command, expected output or None) for each example."""
    with open(path, encoding="utf-8") as page:
        text = page.read()
    if path.endswith(".md"):
        blocks = re.findall(r"^```console\n(.*?)^```$", text, re.S | re.M)
    else:
        section = re.search(r"^# EXAMPLES$(.*?)^# ", text, re.S | re.M)
        blocks = re.findall(r"^```\n(.*?)^```$", section[1], re.S | re.M) if section else []
    for block in blocks:
        for command, printed in re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", block, re.M):
            yield re.sub(r"\s+#.*", "", command), printed or None


def furnish(folder):
    """Fills the directory in which the examples run: source tree, build, and the files that they use."""
    for entry in os.listdir(SOURCE):
        if entry != "build":
            os.symlink(f"{SOURCE}/{entry}", f"{folder}/{entry}")
    os.mkdir(folder + "/build")
    os.symlink(BUILD, folder + "/build/release")
    os.symlink(SOURCE + "/examples/search.c", folder + "/search.c")
    with open(folder + "/capture.pcapng", "wb") as file:
        file.write(captures.pcap(101, captures.udp(segment.QUERY)))
    # As if installed: the command, headers, libraries, and a configuration.
    os.environ.update(PATH=f"{BUILD}/bin:{os.environ['PATH']}", CPATH=SOURCE + "/include",
                      LIBRARY_PATH=BUILD + "/lib", LD_LIBRARY_PATH=BUILD + "/lib")
    subprocess.run(f"cp -r /etc {folder}/etc 2>/dev/null; mkdir -p {folder}/etc/qiven && mount --bind {folder}/etc /etc"
                   f" && cp {SOURCE}/docs/answer.toml.example /etc/qiven/answer.toml", shell=True, check=True)


class Examples(unittest.TestCase):
    def run_example(self, command, printed):
        process = subprocess.Popen(["bash", "-ec", command], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                   start_new_session=True)
        try:
            out, err = process.communicate(timeout=3 if ENDLESS.match(command) else 60)
            self.assertFalse(ENDLESS.match(command), f"ended by itself: {err}")
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGINT)
            out, err = process.communicate(timeout=10)
        self.assertIn(process.returncode, (0, 130) if ENDLESS.match(command) else (0,), out + err)
        if printed is not None:
            self.assertEqual(out, printed)

    def test_examples(self):
        segment.set_up("eth0")
        segment.run("ip route add 255.255.255.255 dev eth0")
        hosts = [segment.answer(name, x48=101 + i, x49=240) for i, name in enumerate((b"attic", b"cellar", b"garage"))]
        # An empty /tmp, except for the source tree if it is below /tmp.
        subprocess.run(f"mount --bind {SOURCE} /mnt && mount -t tmpfs tmpfs /tmp && mkdir -p {SOURCE}"
                       f" && mount --bind /mnt {SOURCE}", shell=True, check=True)
        ran, spared = 0, set()
        with tempfile.TemporaryDirectory() as folder, segment.Hosts(lambda number, query: hosts):
            furnish(folder)
            os.chdir(folder)
            for page in [SOURCE + "/README.md", *sorted(glob.glob(SOURCE + "/docs/man/*.scd"))]:
                for command, printed in examples(page):
                    with self.subTest(page=page, command=command):
                        if command in NOT_RUN:
                            spared.add(command)
                            continue
                        ran += 1
                        self.run_example(command, printed)
            os.chdir("/")
            segment.run("umount /etc")
        self.assertEqual(spared, set(NOT_RUN))
        self.assertGreater(ran, 15)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
