"""An FTP server for tests, pyftpdlib on a loopback port in a thread of this process: well-behaved, or with a fault."""

import pathlib
import shutil
import socket
import threading

from pyftpdlib import authorizers, handlers, log, servers

log.config_logging(level=50)


class Data(handlers.DTPHandler):
    """A data connection, with what a server may do wrong there."""

    def handle_read(self):
        if self.cmd_channel.fault == "stalls":
            self.ioloop.unregister(self._fileno)  # nobody reads any more
        elif self.cmd_channel.fault == "hangs up":
            self.cmd_channel.close()
        else:
            super().handle_read()
        if self.cmd_channel.fault == "fills up":
            self._resp = ("452 Insufficient storage space", log.logger.info)
            self.close()

    handle_read_event = handle_read  # which the base class has fixed to its own


class Control(handlers.FTPHandler):
    """A session of the server; `fault` says what goes wrong."""

    dtp_handler = Data
    fault = ""
    auth_failed_timeout = 0

    def ftp_PASS(self, line):
        if self.fault == "closes at login":
            self.close()
        elif self.fault != "silent at login":
            super().ftp_PASS(line)

    def ftp_PASV(self, line):
        if self.fault == "leads nowhere":
            port = self.nowhere.port
            self.respond(f"227 Entering passive mode (127,0,0,1,{port // 256},{port % 256}).")
        else:
            super().ftp_PASV(line)

    def ftp_STOR(self, file, mode="w"):
        if self.fault == "full":
            self.respond("552 Storage quota exceeded")
        elif self.fault != "silent at file":
            super().ftp_STOR(file, mode)


class Nowhere:
    """A port that no connection to it is ever made: those that its queue holds are there already."""

    def __init__(self):
        self.sockets = [socket.create_server(("127.0.0.1", 0), backlog=0)]
        self.port = self.sockets[0].getsockname()[1]
        for _ in range(3):
            self.sockets.append(socket.socket())
            self.sockets[-1].setblocking(False)
            self.sockets[-1].connect_ex(("127.0.0.1", self.port))


class Server:
    """Users me, reader (who may not write), password s3cret, and anonymous; the folder has one named sub. `host` is
    what a URL says."""

    def __init__(self, folder, fault=""):
        shutil.rmtree(folder, ignore_errors=True)
        (pathlib.Path(folder) / "sub").mkdir(parents=True)
        handler = type("Handler", (Control,), {"fault": fault, "authorizer": authorizers.DummyAuthorizer(),
                                               "nowhere": Nowhere()})
        for user, rights in (("me", "elradfmwMT"), ("reader", "elr")):
            handler.authorizer.add_user(user, "s3cret", str(folder), rights)
        handler.authorizer.add_anonymous(str(folder), perm="elradfmwMT")
        self.server = servers.FTPServer(("127.0.0.1", 0), handler)
        self.host = f"127.0.0.1:{self.server.address[1]}"
        self.ending = False
        self.thread = threading.Thread(target=self.serve)
        self.thread.start()

    def serve(self):
        while not self.ending:
            self.server.serve_forever(timeout=0.01, blocking=False)
        self.server.close_all()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.ending = True
        self.thread.join()
