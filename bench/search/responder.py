"""Answers searches for UPnP root devices, and queries of `qiven find` if there are too many hosts for one process each.

    responder.py ssdp NAMESPACE=NAME...     one device per namespace, answers without delay
    responder.py crowd COUNT                COUNT devices and hosts in the current namespace
"""
import os
import random
import select
import socket
import struct
import sys
import time

import places
import segment

GROUP, SSDP_PORT = "239.255.255.250", 1900


def listen():
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    sock.bind(("0.0.0.0", SSDP_PORT))
    card = struct.pack("=4s4si", socket.inet_aton(GROUP), bytes(4), socket.if_nametoindex("eth0"))
    sock.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, card)
    return sock


def reply(name):
    return (f"HTTP/1.1 200 OK\r\nCACHE-CONTROL: max-age=1800\r\nEXT:\r\nLOCATION: http://10.9.0.10/{name}.xml\r\n"
            f"SERVER: Linux UPnP/1.0 bench/1\r\nST: upnp:rootdevice\r\nUSN: uuid:{name}::upnp:rootdevice\r\n\r\n").encode()


def serve_ssdp(devices):
    """devices: maps a socket to the names that answer through it."""
    while True:
        for sock in select.select(list(devices), [], [])[0]:
            data, sender = sock.recvfrom(2000)
            if not data.startswith(b"M-SEARCH"):
                continue
            for count, name in enumerate(devices[sock], 1):
                sock.sendto(reply(name), sender)
                if count % 20 == 0:
                    time.sleep(0.002)  # as fast as the crowd below


def main():
    devices = {}
    if sys.argv[1] == "ssdp":
        for namespace, name in (entry.split("=") for entry in sys.argv[2:]):
            places.enter(namespace)
            devices[listen()] = [name]
        serve_ssdp(devices)
    count = int(sys.argv[2])
    names = [f"host{i}" for i in range(count)]
    answers = [segment.answer(name.encode(), x48=i) for i, name in enumerate(names)]
    if os.fork() == 0:
        serve_ssdp({listen(): names})
    with segment.Hosts(lambda number, query: random.sample(answers, count)):
        time.sleep(3600)


if __name__ == "__main__":
    main()
