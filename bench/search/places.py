"""The segments for the measurements: a bridge, hosts in separate network namespaces, and their daemons.

Everything is inside the namespaces that run.py enters first, and is deleted with them.
"""
import ctypes
import os
import subprocess
import sys
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
sys.path.insert(0, str(ROOT / "tests/support"))
SERVICE = "_smb._tcp"
SCRATCH = Path(os.environ.get("SEARCH_SCRATCH", "/nowhere"))
LIBC = ctypes.CDLL(None, use_errno=True)
CLONE_NEWNET = 0x40000000


def run(command):
    subprocess.run(command, shell=True, check=True)


def enter(namespace):
    with open(f"/run/netns/{namespace}") as place:
        if LIBC.setns(place.fileno(), CLONE_NEWNET) != 0:
            raise OSError(ctypes.get_errno(), f"cannot enter {namespace}")


def begin():
    """Sets up the namespace: an empty /run, and the bridge."""
    run("mount -t tmpfs tmpfs /run && mount -t proc proc /proc")
    run("ip link set lo up && ip link add lan type bridge && ip link set lan up")


def add_host(name, address, prefix=24):
    run(f"""ip netns add {name} && ip -n {name} link set lo up
            ip link add v-{name} type veth peer name eth0 netns {name} && ip link set v-{name} master lan up
            ip -n {name} address add {address}/{prefix} brd + dev eth0 && ip -n {name} link set eth0 up
            ip -n {name} route add default dev eth0""")


def start(namespace, command, **options):
    options.setdefault("stdout", subprocess.DEVNULL)
    return subprocess.Popen(["ip", "netns", "exec", namespace] + command, stderr=subprocess.DEVNULL,
                            stdin=subprocess.DEVNULL, **options)


def wait_for(condition, seconds, what):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError(what)
        time.sleep(0.05)


def avahi_config(name, dbus):
    path = SCRATCH / f"avahi-{name}.conf"
    path.write_text(f"[server]\nhost-name={name}\nuse-ipv4=yes\nuse-ipv6=no\nallow-interfaces=eth0\n"
                    f"enable-dbus={'yes' if dbus else 'no'}\nratelimit-interval-usec=0\nratelimit-burst=0\n"
                    "[wide-area]\nenable-wide-area=no\n[publish]\npublish-workstation=no\n[rlimits]\n")
    return path


def avahi_command(name, services, dbus=False):
    """avahi-daemon with a private /run and directory of services."""
    daemon = f"avahi-daemon --no-drop-root --no-chroot --no-rlimits -f {avahi_config(name, dbus)}"
    return ["sh", "-c", f"mount -t tmpfs tmpfs /run && mount --bind {services} /etc/avahi/services && exec {daemon}"]


def publish(name):
    """The services of one host, for its avahi-daemon."""
    folder = SCRATCH / f"services-{name}"
    folder.mkdir()
    (folder / "smb.service").write_text(
        f"<service-group><name>{name}</name><service><type>{SERVICE}</type><port>445</port></service></service-group>")
    return folder


BUS = """<busconfig><type>system</type><listen>unix:path={path}</listen><auth>EXTERNAL</auth>
<policy context="default"><allow user="*"/><allow own="*"/><allow send_destination="*" eavesdrop="true"/>
<allow receive_sender="*"/></policy></busconfig>"""


class Bus:
    """A message bus of one namespace, and the avahi-daemon on it."""

    def __init__(self, namespace):
        self.namespace, path = namespace, SCRATCH / f"bus-{namespace}"
        config = SCRATCH / f"bus-{namespace}.conf"
        config.write_text(BUS.format(path=path))
        self.environment = dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS=f"unix:path={path}")
        self.services = SCRATCH / f"services-{namespace}"
        self.services.mkdir()
        self.daemon = None
        self.bus = start(namespace, ["dbus-daemon", "--nofork", "--nopidfile", f"--config-file={config}"])
        wait_for(path.exists, 10, "the message bus does not start")

    def start_avahi(self):
        self.daemon = start(self.namespace, avahi_command(self.namespace, self.services, dbus=True),
                            env=self.environment)

    def wait_for_avahi(self):
        """Waits until the daemon has its name and accepts clients."""
        command = ["avahi-browse", "-t", "-p", "_none._tcp"]
        wait_for(lambda: subprocess.run(command, env=self.environment, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL).returncode == 0, 15, "avahi does not start")
        time.sleep(1.5)

    def stop_avahi(self):
        self.daemon.kill()
        self.daemon.wait()
