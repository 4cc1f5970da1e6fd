"""Standard outputs and standard errors that fail, each made by a call that returns (the end to write to, the end to
read from or None)."""
import contextlib
import os
import pty
import resource
import socket
import termios
import threading
import time


def fill(writer):
    os.set_blocking(writer, False)
    with contextlib.suppress(BlockingIOError):
        while True:
            os.write(writer, b"." * 4096)
    with contextlib.suppress(BlockingIOError):
        while True:
            os.write(writer, b".")
    os.set_blocking(writer, True)


def asleep():
    reader, writer = os.pipe()
    fill(writer)
    return writer, reader


def journal():
    reader, writer = (end.detach() for end in socket.socketpair())
    fill(writer)
    return writer, reader


def gone():
    reader, writer = os.pipe()
    os.close(reader)
    return writer, None


def slow():
    reader, writer = os.pipe()

    def read():
        while os.read(reader, 40):
            time.sleep(0.01)
        os.close(reader)
    threading.Thread(target=read, daemon=True).start()
    return writer, None


def terminal():
    master, slave = pty.openpty()
    termios.tcflow(slave, termios.TCOOFF)
    return slave, master


def hung_up():
    master, slave = pty.openpty()
    os.close(master)
    return slave, None


def too_long():
    """To be run before the program: files may not grow, for now."""
    resource.setrlimit(resource.RLIMIT_FSIZE, (99, resource.getrlimit(resource.RLIMIT_FSIZE)[1]))


def wake(writer, reader):
    """Lets the reader of a full output go on."""
    if os.isatty(writer):
        termios.tcflow(writer, termios.TCOON)
    os.set_blocking(reader, False)


# None to write to is a closed descriptor; the second value runs before the program.
OUTPUTS = {
    "closed": (lambda: (None, None), None),
    "full": (lambda: (os.open("/dev/full", os.O_WRONLY), None), None),
    "too long": (lambda: (os.memfd_create("log"), None), too_long),
    "gone": (gone, None), "asleep": (asleep, None), "slow": (slow, None),
    "stopped terminal": (terminal, None), "terminal that hung up": (hung_up, None), "sleeping journal": (journal, None),
}
