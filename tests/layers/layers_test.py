"""The modules of src/ include and call downwards only, everything above the library uses its public headers alone, and
the subcommands of the command know what they share, but not each other.

    layers_test.py SOURCE_DIRECTORY OBJECT_FILE...     the objects of the library and of the command
"""

import collections
import pathlib
import re
import subprocess
import sys

# What a module may include and call besides itself.
ALLOWED = {
    "log": set(),
    "base": {"log"},
    "nasinfo": {"base", "log"},
    "matrix": {"base", "log"},
    "keys": {"base", "log"},
    "packet": {"keys", "base", "log"},
    "iface_lnx": {"base", "log"},
    "iface": {"iface_lnx", "base", "log"},
    "udp": {"packet", "iface", "keys", "base", "log"},
    "search": {"udp", "packet", "iface", "keys", "base", "log"},
}
# Calls that one module alone may make, and what that keeps.
RESERVED = {
    r"sodium_(malloc|mprotect_\w+)": ("keys", "the secret key"),
    r"QIVENProcessSecretKey\w+": ("packet", "the secret key"),
    r"TAVOQIVENGet2Hash": (None, "the list reader, which is for callers only"),
}
# Folders of programs and libraries on top of the library: they see include/ alone.
ABOVE = ("watch", "tools", "serve", "python", "examples")
# Directories of the command that are not subcommands: what these share.
SHARED = {"output"}

faults = []


def includes(path):
    return re.findall(r'^\s*#\s*include\s*"([^"]+)"', path.read_text(errors="replace"), re.M)


def sources(directory):
    return (path for path in sorted(directory.rglob("*")) if path.suffix in (".c", ".cpp", ".h", ".inc"))


def check_includes(root):
    modules = {path.name for path in (root / "src").iterdir() if path.is_dir()}
    if modules != set(ALLOWED):
        faults.append(f"src/ has the modules {sorted(modules)}, this test knows {sorted(ALLOWED)}")
    for module in modules & set(ALLOWED):
        for path in sources(root / "src" / module):
            for name in includes(path):
                if name.split("/")[0] not in ALLOWED[module] | {module}:
                    faults.append(f"{path.relative_to(root)} includes {name}")
            if module != "iface_lnx" and '"/etc/' in path.read_text():
                faults.append(f"{path.relative_to(root)} names a configuration file: those are read in iface_lnx")
    for folder in (*ABOVE, "platform"):
        for path in sources(root / folder):
            for name in includes(path):
                beside = (path.parent / name).resolve()
                if root / "src" in beside.parents or (not beside.exists() and (root / "src" / name).exists()):
                    faults.append(f"{path.relative_to(root)} includes {name} of the library")
        for path in (root / folder).rglob("CMakeLists.txt"):
            if re.search(r"qiven-(static|objects)|SOURCE_DIR}/src\b", path.read_text()):
                faults.append(f"{path.relative_to(root)} reaches into the library")


def symbols(path, kind):
    lines = subprocess.run(["nm", "-P", kind, path], check=True, capture_output=True, text=True).stdout.splitlines()
    return {fields[0]: fields[1] for fields in map(str.split, lines)}


def check_calls(objects):
    module_of = {path: re.search(r"qiven-objects\.dir/(?:\./)?(\w+)/", path) for path in objects}
    module_of = {path: match[1] for path, match in module_of.items() if match}
    home = {}
    for path, module in module_of.items():
        # Weak definitions are inline functions, which every user has.
        home.update({name: module for name, kind in symbols(path, "--defined-only").items() if kind in "TDBR"})
    calls = collections.Counter()
    for path, module in module_of.items():
        for name in symbols(path, "--undefined-only"):
            called = home.get(name, module)
            calls[module, called] += called != module
            if called not in ALLOWED.get(module, set()) | {module}:
                faults.append(f"{module} calls {name} of {called}")
            for pattern, (user, what) in RESERVED.items():
                if re.fullmatch(pattern, name) and user != module:
                    faults.append(f"{module} calls {name}: {what}")
    # The test would also find nothing if it did not look at the right files.
    for arrow in [("search", "udp"), ("udp", "packet"), ("packet", "keys"), ("iface", "iface_lnx"), ("packet", "base")]:
        if calls[arrow] == 0:
            faults.append(f"no call from {arrow[0]} to {arrow[1]} was found")


def check_subcommands(root, objects):
    """tools/qiven has a directory for each subcommand; its files see that directory and those on top."""
    top = root / "tools" / "qiven"
    subcommands = {path.name for path in top.iterdir() if path.is_dir()} - SHARED
    on_top = {path.name for path in top.iterdir() if path.is_file()}
    for path in sources(top):
        own = path.parent.name if path.parent != top else None
        where = path.relative_to(root)
        for name in includes(path):
            folder = name.split("/")[0] if "/" in name else None
            if folder not in SHARED | {own, None} or not (top / name).is_file():
                faults.append(f"{where} includes {name}")
        # A quoted include would find the file beside it first.
        if own and path.name in on_top:
            faults.append(f"{where} has the name of a file on top")
        for name in re.findall(r"^namespace qiven(?:::(\w+))?", path.read_text(), re.M):
            if name in subcommands - {own} or (own in subcommands and name != own):
                faults.append(f"{where} defines names of qiven::{name}")

    calls = collections.Counter()
    for path in objects:
        match = re.search(r"qiven-command-\w+\.dir/(?:\./)?(?:(\w+)/)?(\w+)\.cpp", path)
        if match is None or match[2] == "command_line":  # which puts them together
            continue
        for name in symbols(path, "--undefined-only"):
            mangled = re.match(r"_ZNK?5qiven(\d+)(\w+)", name)
            called = mangled and mangled[2][: int(mangled[1])]
            calls[match[1], called] += 1
            if called in subcommands - {match[1]}:
                faults.append(f"{match[1] or match[2]} calls {name} of {called}")
    if objects and (calls["find", "find"] == 0 or calls["doctor", "packet_walk"] == 0):
        faults.append("no call within find or from doctor to packet_walk was found")


check_includes(pathlib.Path(sys.argv[1]).resolve())
check_calls([path for path in sys.argv[2:] if "qiven-objects" in path])
check_subcommands(pathlib.Path(sys.argv[1]).resolve(), [path for path in sys.argv[2:] if "qiven-command" in path])
print("\n".join(faults) if faults else "every include and call points down; the subcommands do not know each other")
sys.exit(1 if faults else 0)
