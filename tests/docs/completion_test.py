#!/usr/bin/env python3
"""Compares shell completions and the manual with the help of the command. Usage: completion_test.py QIVEN COMPLETIONS MANUAL"""
import glob
import os
import pty
import re
import select
import subprocess
import sys
import unittest

QIVEN, COMPLETIONS, MANUAL = sys.argv[1:]
COMMANDS = ["find", "answer", "interfaces", "decode", "doctor"]
# Command line => completions (in zsh, a subset of a long list).
CASES = {
    "qiven d": {"decode", "doctor"},
    "qiven find --format ": {"table", "plain", "json", "ndjson", "csv"},
    "qiven find --interface ": set(os.listdir("/sys/class/net")),
    "qiven find --fields name,address_1": {"name,address_1" + digit for digit in "345e"},
    "qiven decode --pcap /proc/self/stat": {"/proc/self/stat", "/proc/self/statm", "/proc/self/status"},
}


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def options_of(command):
    return set(re.findall(r"(?<![\w-])--?[a-z][a-z-]*", "\n".join(
        line[:28] for line in output(QIVEN, command, "--help").splitlines() if line.startswith("  -"))))


def bash(line):
    words = line.split(" ")
    return set(output("bash", "-c", f'source {COMPLETIONS}/bash/qiven; COMP_CWORD={len(words) - 1} COMP_WORDS=("$@")'
                      '; _qiven; printf "%s\\n" "${COMPREPLY[@]}"', "bash", *words).split())


def fish(line):
    listed = output("fish", "-c", f"source {COMPLETIONS}/fish/qiven.fish; complete -C '{line}'")
    return {entry.split("\t")[0] for entry in listed.splitlines()}


class Zsh:
    """An interactive shell on a terminal that is large enough for all lists."""
    def __init__(self):
        pid, self.fd = pty.fork()
        if pid == 0:
            os.execvp("zsh", ["zsh", "-f"])
        self.type("stty rows 400 columns 200; PS1=; LISTMAX=1000; autoload -U compinit; "
                  f"fpath=({COMPLETIONS}/zsh $fpath); compinit -u -D; print REA''DY\n", {"READY"})

    def type(self, text, expected, before=""):
        """Types text and returns the printed words; reads until they include the expected ones."""
        os.write(self.fd, text.encode())
        seen, words = b"", set()
        while not expected <= words and select.select([self.fd], [], [], 10)[0]:
            seen += os.read(self.fd, 65536)
            printed = re.split(r"[\s,=/]+", re.sub(rb"\x1b\[[0-9;?]*[A-Za-z]", b" ", seen).decode(errors="replace"))
            words = {begun + word for word in printed for begun in ("", before)}
        return words

    def __call__(self, line, expected):
        # zsh lists only the last element or directory of the typed word.
        words = self.type(line + "\t", expected, re.search(r"[^ ]*[,/]|$", line)[0])
        self.type("\x15print NE''XT\n", {"NEXT"})
        return words & expected


class Completion(unittest.TestCase):
    def test_shells_offer_what_there_is(self):
        options = {f"qiven {command} -": options_of(command) for command in COMMANDS}
        self.assertLess({"--fields", "--watch", "-v"}, options["qiven find -"])
        zsh = Zsh()
        for line, expected in {**CASES, **options}.items():
            for shell in (bash, fish, zsh):
                with self.subTest(line=line, shell=shell):
                    self.assertEqual(shell(line, expected) if shell is zsh else shell(line), expected)
        self.assertEqual(bash("qiven decode --format = j"), {"json"})

    def test_the_name_of_an_interface_is_no_command(self):
        words = subprocess.run(["unshare", *([] if os.geteuid() == 0 else ["-r"]), "-nm", "bash", "-c", f"""
            mount -t sysfs sysfs /sys; ip link add 'a$(id)' type veth peer name 'a;b'; source {COMPLETIONS}/bash/qiven
            COMP_CWORD=3 COMP_WORDS=(qiven find --interface lo,a); _qiven; printf '%s\n' "${{COMPREPLY[@]}}" """],
                               check=True, capture_output=True, text=True).stdout.split()
        self.assertEqual(set(words), {r"lo,a\$\(id\)", r"lo,a\;b"})

    def test_manual_has_every_option_and_no_fault(self):
        for command in COMMANDS:
            page = re.sub(".\b", "", output("mandoc", "-Tascii", f"{MANUAL}/man1/qiven-{command}.1"))
            self.assertEqual({o for o in options_of(command) if not re.search(rf"^ +(\S+, )?{o}\b", page, re.M)}, set())
        pages = [page for page in glob.glob(f"{MANUAL}/man?/*") if not os.path.islink(page)]
        self.assertEqual(len(pages), len(COMMANDS) + 13)
        lint = subprocess.run(["mandoc", "-Tlint", "-Wwarning", *pages], capture_output=True, text=True).stdout
        # scdoc starts a paragraph directly after a section heading, which mandoc reports.
        self.assertEqual([line for line in lint.splitlines() if "skipping paragraph macro: PP" not in line], [])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
