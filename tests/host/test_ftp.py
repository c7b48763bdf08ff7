#!/usr/bin/env python3
"""Export to an FTP server: a small one that runs here, and can be told to fail."""

import pathlib
import socket
import threading

import host_test
from host_test import WORK, export, korvane, phantom


class Server(threading.Thread):
    """One session (RFC 959, passive mode) after another, into a dictionary of files."""

    def __init__(self, break_after=None):
        super().__init__(daemon=True)
        self.files, self.commands, self.break_after = {}, [], break_after
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.start()

    def run(self):
        while True:
            session, _ = self.listener.accept()
            with session, session.makefile("rw", newline="") as lines:
                self.serve(lines)

    def serve(self, lines):
        def reply(text):
            lines.write(text + "\r\n")
            lines.flush()

        reply("220 ready")
        data = None
        for line in iter(lines.readline, ""):
            self.commands.append(line.strip())
            command, _, rest = line.strip().partition(" ")
            if command == "PASS":
                reply("230 welcome" if rest == "secret" else "530 no such user")
            elif command == "PASV":
                data = socket.create_server(("127.0.0.1", 0))
                port = data.getsockname()[1]
                reply(f"227 entering (127,0,0,1,{port >> 8},{port & 255})")
            elif command == "STOR":
                reply("150 go on")
                self.store(rest, data.accept()[0])
                reply("226 done")
            else:
                reply({"USER": "331 password", "QUIT": "221 bye"}.get(command, "200 ok"))

    def store(self, name, connection):
        received = bytearray()
        limit = None
        if name.endswith("img"):
            limit, self.break_after = self.break_after, None
        with connection:
            while limit is None or len(received) < limit:
                part = connection.recv(65536)
                if not part:
                    break
                received += part
        self.files[name] = bytes(received)


def send(source, server, password="secret", path="vol", status=0):
    url = f"ftp:user%{password}@127.0.0.1:{server.port}/{path}"
    return korvane("export", source, "--format", "analyze", "--to", url, status=status)


def the_same_files_as_on_disk():
    source = phantom("source", "--size", 64, "--slices", 5)
    export(source)
    server = Server()
    out, err = send(source, server, path="a/b/vol")
    expected = {f"a/b/vol.{end}": pathlib.Path(f"{WORK}/volume.{end}").read_bytes() for end in ("hdr", "img")}
    assert server.files == expected, (server.files.keys(), out, err)
    assert "a/b/vol.hdr" in out and "secret" not in out + err
    assert "QUIT" in server.commands


def a_login_that_is_refused():
    source = phantom("source", "--size", 16, "--slices", 2)
    _, err = send(source, Server(), password="wr0ng", status=1)
    assert "530 no such user" in err and "wr0ng" not in err, err
    closed = Server()
    closed.port = 1
    _, err = send(source, closed, status=1)
    assert "cannot log in to 127.0.0.1:1" in err and "secret" not in err, err


def an_upload_that_breaks_leaves_nothing_that_looks_whole():
    source = phantom("source", "--size", 512, "--slices", 12)
    server = Server(break_after=100000)
    out, err = send(source, server, status=1)
    assert not out and "vol.img" in err and "emptied" in err, (out, err)
    assert server.files == {"/vol.hdr": b"", "/vol.img": b""}, {name: len(data) for name, data in server.files.items()}


host_test.run(the_same_files_as_on_disk, a_login_that_is_refused, an_upload_that_breaks_leaves_nothing_that_looks_whole)
