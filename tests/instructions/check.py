#!/usr/bin/env python3
"""Counts the instructions of the library for one decode and one encode, and fails if they exceed the recorded figures.

    check.py PROGRAM LIBRARY FIGURES     --renew as a fourth argument updates the figures

Instructions of the C library are not counted: it selects its functions by processor.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

ALLOWED = 1.05
NUMBER, TEXT = (lambda i, n=4: bytes([i, n]) + bytes(range(1, n + 1))), (lambda i, n: bytes([i, n]) + b't' * n)
BASIC = b'\x124VxTAVO' + bytes([1, 4, 2, 0, 0, 0]) + NUMBER(0xA4)
PACKETS = {
    'typical': BASIC + TEXT(0x11, 11) + b''.join(map(NUMBER, (0x12, 0x13, 0x14, 0x18, 0x48, 0x49, 0x75, 0x76))) +
               TEXT(0x19, 12) + TEXT(0x50, 11) + TEXT(0x51, 9) + TEXT(0x70, 24) + TEXT(0x77, 5) + TEXT(0x78, 18) +
               TEXT(0x7C, 17) + NUMBER(0xB0, 8) + NUMBER(0xB8, 8),
    'fields64': BASIC + bytes([0xBB, 4, 32, 0, 0, 0]) + TEXT(0x2A, 255) + 5 * TEXT(0x72, 255) + TEXT(0x72, 5) +
                TEXT(0x52, 255) + TEXT(0x53, 255) + b''.join(TEXT(i, 127) for i in range(0x56, 0x5C)) +
                TEXT(0x70, 67) + TEXT(0xC4, 64) + 32 * TEXT(0xBC, 63) + 12 * TEXT(0xBD, 63),
}


def count(program, library, packet, function):
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder)
        (path / 'packet').write_bytes(packet)
        subprocess.run(['valgrind', '--tool=callgrind', f'--callgrind-out-file={folder}/out', '--compress-strings=no',
                        '--compress-pos=no', f'--toggle-collect={function}', program, path / 'packet'],
                       check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        lines = (path / 'out').read_text().splitlines()
    # Inlined code counts for the object into which it is inlined, independent of its source file.
    n, within = 0, False
    for before, line in zip([''] + lines, lines):
        if line.startswith('ob='):
            within = pathlib.Path(line[3:]).resolve() == pathlib.Path(library).resolve()
        elif within and re.match(r'\d', line) and not before.startswith('calls='):
            n += int(line.split()[1])
    return n


def main(program, library, figures, renew=None):
    now = {f'{what} {name}': count(program, library, packet, function)
           for what, function in (('decode', 'QIVENPacketRead'), ('encode', 'QIVENPacketWrite'))
           for name, packet in PACKETS.items()}
    if renew:
        pathlib.Path(figures).write_text(''.join(f'{name} {n}\n' for name, n in now.items()))
    was = {line.rsplit(' ', 1)[0]: int(line.rsplit(' ', 1)[1]) for line in pathlib.Path(figures).read_text().splitlines()}
    for name, n in now.items():
        print(f'{name}: {n} instructions, {n / was[name]:.3f} of the {was[name]} on record')
    if any(n == 0 or n > ALLOWED * was[name] for name, n in now.items()):
        sys.exit('more than before: find out why, or accept it with --renew')
    if any(n * ALLOWED < was[name] for name, n in now.items()):
        print('clearly fewer than before: keep the gain with --renew')


main(*sys.argv[1:])
