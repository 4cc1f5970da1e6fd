#!/usr/bin/env python3
"""qiven doctor detects simulated faults, each in its own network namespace. Argument: the command."""
import concurrent.futures
import json
import os
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import segment  # noqa: E402

QIVEN = ""
SEGMENT = """ip link add eth0 type veth peer name far0; ip link set far0 netns $HOST; ip address add 10.9.0.1/24 brd + dev eth0
ip link set eth0 up; nsenter -t $HOST -n ip address add 10.9.0.2/24 brd + dev far0; nsenter -t $HOST -n ip link set far0 up
until grep -q up /sys/class/net/eth0/operstate; do sleep .01; done"""
BRIDGE = SEGMENT + """; ip address flush dev eth0; ip link add br-lan type bridge; ip link set eth0 master br-lan
ip address add 10.9.0.1/24 brd + dev br-lan; ip link set br-lan up; until grep -q up /sys/class/net/br-lan/operstate; do sleep .01; done"""
NFT = "nft add table inet guard; nft 'add chain inet guard c { type filter hook %s priority 0; policy %s; }'; "

HOLD = "import socket,time; s=socket.socket(socket.AF_INET,socket.SOCK_DGRAM); s.bind(('',%d)); print(flush=True); time.sleep(30)"
SEND = """import socket,time
s=socket.socket(socket.AF_INET,socket.SOCK_DGRAM); s.setsockopt(socket.SOL_SOCKET,socket.SO_BROADCAST,1)
print(flush=True)
for _ in range(300): s.sendto(bytes.fromhex('%s'),('10.9.0.255',9999)); time.sleep(.02)"""

# name: set-up in the shell, Python that runs beside ("here" or on the "host"), status, cause, words of the verdict
FAULTS = {
    "healthy": (SEGMENT, None, 0, None, ["may be off"]),
    "a host answers": (SEGMENT, ("host", SEND % segment.packet([(0x01, 2), (0xA4, 0)]).hex()), 0, None, ["hosts answer"]),
    "no interface": ("", None, 1, "interfaces", ["no interface", "loopback"]),
    "interface down": ("ip link add eth0 type veth peer name far0", None, 1, "interfaces", ["eth0", "down", "ip link set"]),
    "no address": ("%s; ip address flush dev eth0" % SEGMENT, None, 1, "interfaces", ["no IPv4 address", "eth0", "DHCP"]),
    "no carrier": ("%s; nsenter -t $HOST -n ip link set far0 down" % SEGMENT, None, 1, "interfaces", ["no carrier", "eth0", "cable"]),
    "only bridges": (SEGMENT.replace("eth0", "veth1") + "; ip link add docker0 type bridge; ip address add 172.17.0.1/16 dev docker0; "
                     "ip link set docker0 up", None, 1, "interfaces", ["only interfaces of containers", "docker0", "--all-interfaces"]),
    "port held": (SEGMENT, ("here", HOLD % 9999), 1, "port", ["9999", "process %d (python3"]),
    "port held by an IPv6 socket": (SEGMENT, ("here", HOLD.replace("AF_INET", "AF_INET6") % 9999), 1, "port", ["process %d (python3"]),
    "source port held": (SEGMENT, ("here", HOLD % 1234), 0, None, ["sent on every", "1234, which process %d (python3", "may be off"]),
    "output rule": (SEGMENT + "; " + NFT % ("output", "accept") + "nft add rule inet guard c udp dport 9000-10000 counter drop", None,
                    1, "firewall", ["refuses", "9000-10000", "chain inet guard c", "way out"]),
    "input rule": (SEGMENT + "; iptables -A INPUT -p udp --dport 9999 -j DROP", None, 1, "firewall", ["way in", "9999", "INPUT"]),
    "older iptables": (SEGMENT + "; iptables-legacy -A INPUT -p udp -m multiport --dports 1,9999 -j DROP", None, 1, "firewall",
                       ["iptables chain INPUT", "--dports 1,9999"]),
    "a log prefix, and a chain without a jump to it": (
        SEGMENT + "; iptables -N UNUSED; iptables -A UNUSED -p udp --dport 9999 -j DROP; iptables -N USED; "
        "iptables -A INPUT -p udp --dport 9999 -j LOG --log-prefix DROP; iptables -A INPUT -p udp -j USED; "
        "iptables -A USED -p udp --dport 9000:9999 -j DROP", None, 1, "firewall", ["9000", " USED", "way in", "9999"]),
    "older iptables, in a chain with a jump to it": (
        SEGMENT + "; iptables-legacy -N UNUSED; iptables-legacy -A UNUSED -j DROP; iptables-legacy -N USED; "
        "iptables-legacy -A INPUT -i other+ -j DROP; iptables-legacy -A INPUT -s 10.8.0.0/16 -j DROP; "
        "iptables-legacy -A INPUT -p udp ! --dport 9999 -j DROP; iptables-legacy -A INPUT -p tcp -m tcp --dport 9999 -j DROP; "
        "iptables-legacy -A INPUT -i eth+ -p udp -m multiport --dports 1:9999 -j USED; "
        "iptables-legacy -A USED -s 10.9.0.1 -m comment --comment 'it is -j ACCEPT' -j REJECT", None, 1, "firewall",
        ["-j REJECT", "it is", "iptables chain USED", "!probably"]),
    "rules in a chain with a jump to it": (
        SEGMENT + "; " + NFT % ("input", "accept") + """nft -f - <<'END'
table inet guard {
  set mine { type ipv4_addr; flags interval; elements = { 10.9.0.0/24 } }
  map ways { type inet_service : verdict; elements = { 1 : drop, 9999 : goto second } }
  chain unused { udp dport 9999 drop comment "unused"; }
  chain third { ip saddr != @mine drop; ct state invalid drop; ct state { new } udp dport { 7, 9000-9999 } reject comment "meant"; }
  chain second { iifname "other*" drop; meta l4proto { tcp, icmp } drop; ip6 saddr ::1 drop; iifname "e*" ip saddr @mine jump third; }
  chain first { udp dport vmap @ways; }
}
table ip6 six { chain c { type filter hook input priority 0; policy drop; }; }
add rule inet guard c log prefix "DROP log"
add rule inet guard c tcp dport 9999 drop
add rule inet guard c udp dport != 9999 drop
add rule inet guard c ip saddr 10.8.0.0/16 drop
add rule inet guard c udp dport 9999 meta length > 9000 drop comment "possible"
add rule inet guard c meta nfproto ipv4 fib daddr type broadcast jump first
add rule inet guard c udp dport 9999 drop comment "too late"
END""", None, 1, "firewall", ["meant", "inet guard third", "!probably", "!unused", "!too late", "!DROP log"]),
    "a rule that accepts before one that drops": (
        SEGMENT + "; " + NFT % ("input", "accept") + "nft add rule inet guard c udp dport 9999 accept; nft add rule inet guard c drop; "
        "nft 'add chain inet guard d { type filter hook prerouting priority 0; policy drop; }'; "
        "nft add rule inet guard d udp length lt 9 accept; nft add rule inet guard d tcp dport 9999 accept", None, 1, "firewall",
        ["policy", "chain inet guard d"]),
    "a rule with an unknown condition": (
        SEGMENT + "; " + NFT % ("output", "accept") + "nft add rule inet guard c udp dport 9999 meta length 20-2000 drop", None, 1,
        "firewall", ["probably the rule", "meta length 20-2000", "chain inet guard c"]),
    "own answers": (SEGMENT, ("here", SEND % segment.packet([(0x01, 2), (0xA4, 0)]).hex()), 0, None,
                    ["may be off", "this machine itself answered from 10.9.0.1", "no host answered", "!hosts answer"]),
    "seventy interfaces without an address": (
        "for i in $(seq 35); do ip link add n$i type veth peer name m$i; ip link set n$i up; ip link set m$i up; done\n" + SEGMENT,
        None, 0, None, ["used for searching: eth0;", "and 62 more"]),
    "a bridge that is left out": (BRIDGE, None, 1, "interfaces", ["only interfaces of containers", "br-lan", "--all-interfaces", "!DHCP"]),
    "a bridge that is wanted": (BRIDGE, None, 0, None, ["used for searching: br-lan", "may be off", "!without"]),
    "left out, and without a carrier": (
        SEGMENT.replace("eth0", "veth1") + "; ip link add eth0 type veth peer name br-1; ip link set eth0 up", None, 1, "interfaces",
        ["left out: veth1 (see --interface", "no carrier: eth0"]),
    "none chosen": (SEGMENT, None, 1, "interfaces", ["--exclude leaves out", "eth0"]),
    "input policy": (SEGMENT + "; " + NFT % ("input", "drop") + "nft add rule inet guard c tcp dport 22 accept", None, 1, "firewall",
                     ["policy", "chain inet guard c"]),
    "junk": (SEGMENT, ("host", SEND % "6a756e6b"), 1, "arrivals", ["cannot be decoded", "10.9.0.2", "too short"]),
    "sealed for others": (SEGMENT, ("host", SEND % (segment.SEALED + bytes(80)).hex()), 1, "arrivals", ["sealed", "other searchers", "10.9.0.2"]),
}
OPTIONS = {"a bridge that is wanted": ["--interface", "br-*"], "none chosen": ["--exclude", "eth*"]}


def is_said(word, said, pid):
    """A word that begins with "!" must not be said."""
    word = (word % pid if "%d" in word else word).lower()
    return (word[1:] not in said) if word[0] == "!" else word in said


def stage(name):
    """Runs inside the namespaces."""
    setup, beside, status, cause, words = FAULTS[name]
    with subprocess.Popen(["unshare", "-n", "sh", "-c", "echo; exec sleep 60"], stdout=subprocess.PIPE) as host:
        helpers = [host]
        try:
            host.stdout.readline()
            env = dict(os.environ, HOST=str(host.pid), PATH=os.environ["PATH"] + ":/usr/sbin:/sbin")
            subprocess.run(["sh", "-ec", "mount -t sysfs sysfs /sys; mount -t tmpfs tmpfs /run; ip link set lo up\n" + setup], env=env, check=True, timeout=20)
            pid = 0
            if beside:
                place = ["nsenter", "-t", str(host.pid), "-n"] if beside[0] == "host" else []
                helpers.append(subprocess.Popen(place + [sys.executable, "-c", beside[1]], stdout=subprocess.PIPE, env=env))
                helpers[-1].stdout.readline()
                pid = helpers[-1].pid
            start = time.monotonic()
            command = [QIVEN, "doctor", *OPTIONS.get(name, [])]
            done = subprocess.run([*command, "--format", "json"], capture_output=True, timeout=20, check=False)
            took = time.monotonic() - start
            shown = json.loads(done.stdout)
            # A cause is in the verdict, what is merely worth knowing with its check.
            said = (shown["verdict"] if cause else json.dumps(shown)).lower()
            missing = [word for word in words if not is_said(word, said, pid)]
            good = (done.returncode, shown["cause"], missing, done.stderr) == (status, cause, [], b"") and took < 8
            text = subprocess.run(command, capture_output=True, timeout=20, check=False).stdout.decode()
            good = good and text.split("\n")[1] == "" and (text.split("\n")[0] == shown["verdict"] or cause == "arrivals")
        finally:
            for helper in helpers:
                helper.kill()
                helper.wait()
    print(f"{'ok' if good else 'FAILED'}: {name}: {took:.1f} s, status {done.returncode}, {shown['verdict']}", flush=True)
    if not good:
        print(json.dumps(shown, indent=1), done.stderr.decode(), text, missing)
    return 0 if good else 1


def main():
    user = [] if os.geteuid() == 0 else ["--user", "--map-root-user"]

    def has_failed(name):
        return subprocess.run(["unshare", *user, "--net", "--mount", sys.executable, __file__, QIVEN, name],
                              check=False, timeout=90).returncode != 0

    with concurrent.futures.ThreadPoolExecutor(4) as pool:  # the stages mostly wait
        failed = [name for name, bad in zip(FAULTS, pool.map(has_failed, FAULTS)) if bad]
    print(f"{len(FAULTS) - len(failed)} of {len(FAULTS)} faults named", failed)
    return 1 if failed else 0


if __name__ == "__main__":
    QIVEN = sys.argv[1]
    sys.exit(stage(sys.argv[2]) if len(sys.argv) > 2 else main())
