"""Ports for servers that tests start."""

import contextlib
import random
import socket

HERE = "127.0.0.1"
_given = set()


def free_port():
    """None twice, and none that an outgoing connection may take meanwhile: those begin at 32768."""
    while True:
        port = random.randrange(20000, 32768)
        with socket.socket() as listener, contextlib.suppress(OSError):
            listener.bind((HERE, port))
            if port not in _given:
                _given.add(port)
                return port
