"""The modules of src/ include and call downwards only, and everything above the library uses its public headers alone.

    layers_test.py SOURCE_DIRECTORY OBJECT_FILE...     the objects of the library
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


check_includes(pathlib.Path(sys.argv[1]).resolve())
check_calls(sys.argv[2:])
print("\n".join(faults) if faults else "every include and call points down")
sys.exit(1 if faults else 0)
