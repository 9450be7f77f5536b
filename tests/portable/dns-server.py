#!/usr/bin/env python3
"""dns-server.py NAME: a DNS server on 127.0.0.1:53 that resolves NAME to 127.0.0.1. Other names do not exist; for names
that begin with "silent" it sends no reply."""
import socket, struct, sys

server = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
server.bind(("127.0.0.1", 53))
while True:
    query, client = server.recvfrom(512)
    labels, end = [], 12
    while query[end]:
        labels.append(query[end + 1:end + 1 + query[end]].decode())
        end += 1 + query[end]
    name, question = ".".join(labels), query[12:end + 5]
    if name.startswith("silent"):
        continue
    is_known, wants_ipv4 = name == sys.argv[1], question[-4:-2] == b"\0\1"
    answer = b"\xc0\x0c\0\1\0\1\0\0\0\x3c\0\4\x7f\0\0\1" if is_known and wants_ipv4 else b""
    flags = 0x8180 if is_known else 0x8183
    server.sendto(query[:2] + struct.pack(">5H", flags, 1, len(answer) > 0, 0, 0) + question + answer, client)
