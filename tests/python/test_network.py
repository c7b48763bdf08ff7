#!/usr/bin/env python3
"""Peers and receivers in Python, beside dcmtk's programs.

usage: test_network.py FOLDER_OF_THE_PACKAGE
"""

import contextlib
import gc
import os
import pathlib
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import time
import unittest
import weakref

sys.path.insert(0, sys.argv[1])
sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "host"))

import pydicom

import korvane
from free_port import HERE, free_port

SLOW = "libasan" in os.environ.get("LD_PRELOAD", "")


@unittest.skipUnless(shutil.which("storescu") and shutil.which("dcmqrscp"), "dcmtk is not installed")
class Network(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory(prefix="korvane-network-")
        cls.folder = pathlib.Path(cls.temporary.name)
        cls.files = korvane.phantom(cls.folder / "ct", slices=4, size=16)
        cls.uids = {pydicom.dcmread(path).SOPInstanceUID for path in cls.files}

    @classmethod
    def tearDownClass(cls):
        cls.temporary.cleanup()

    def stored(self, folder):
        return {pydicom.dcmread(path).SOPInstanceUID for path in pathlib.Path(folder).iterdir()}

    def test_a_receiver_tells_what_comes(self):
        told = {"file": [], "association": [], "study": []}
        receiver = korvane.Receiver(self.folder / "in", address=HERE, on_file=told["file"].append, study_quiet=1,
                                    on_study=told["study"].append, on_association=told["association"].append)
        self.assertIsNone(receiver.port)
        with receiver:
            self.assertTrue(receiver.running)
            subprocess.run(["echoscu", HERE, str(receiver.port)], check=True)
            subprocess.run(["storescu", HERE, str(receiver.port), *self.files], check=True)
            self.assertFalse(receiver.wait(0.05))
            before = time.monotonic()
            while not told["study"] and time.monotonic() - before < 20:
                time.sleep(0.05)
        self.assertFalse(receiver.running)
        self.assertEqual({os.path.basename(f["path"]) for f in told["file"]}, {f"{uid}.dcm" for uid in self.uids})
        self.assertEqual(self.stored(self.folder / "in"), self.uids)
        self.assertEqual([a["stored"] for a in told["association"]], [0, 4])
        self.assertEqual(told["study"][0]["files"], 4)
        self.assertEqual((receiver.report["associations"], receiver.report["stored"]), (2, 4))
        with socket.socket() as again:
            again.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            again.bind((HERE, receiver.port))
            again.listen()  # nobody else does
        # Once more, by count, with our own user, and a callback that stops it.
        with korvane.Receiver(self.folder / "again", address=HERE, count=1) as receiver:
            korvane.send(HERE, receiver.port, self.folder / "ct")
            self.assertTrue(receiver.wait(20))
        self.assertEqual(self.stored(self.folder / "again"), self.uids)
        stopper = korvane.Receiver(self.folder / "third", address=HERE, on_association=lambda _: stopper.stop())
        stopper.start()
        korvane.echo(HERE, stopper.port)
        self.assertTrue(stopper.wait(20))

    def test_what_a_callback_raises_is_told(self):
        def breaks(file):
            raise RuntimeError("the callback's own")

        receiver = korvane.Receiver(self.folder / "breaks", address=HERE, on_file=breaks).start()
        subprocess.run(["storescu", HERE, str(receiver.port), *self.files], capture_output=True)
        with self.assertRaisesRegex(RuntimeError, "own"):
            receiver.wait(20)
        self.assertFalse(receiver.running)
        self.assertLessEqual(self.stored(self.folder / "breaks"), self.uids)  # whole ones
        with self.assertRaises(RuntimeError), korvane.Receiver(self.folder / "b2", address=HERE, on_file=breaks) as receiver:
            subprocess.run(["storescu", HERE, str(receiver.port), *self.files], capture_output=True)
            receiver._thread.join(20)
        # What had a callback into itself goes when it has ended.
        class Node:
            def __init__(self, folder):
                self.receiver = korvane.Receiver(folder, address=HERE, on_file=self.take)

            def take(self, file):
                pass

        node = Node(self.folder / "node")
        with node.receiver:
            gone = weakref.ref(node)
        del node
        gc.collect()
        self.assertIsNone(gone())
        # The block's own exception is not hidden by the callback's.
        with self.assertRaises(KeyError), korvane.Receiver(self.folder / "b3", address=HERE, on_file=breaks) as receiver:
            subprocess.run(["storescu", HERE, str(receiver.port), *self.files], capture_output=True)
            raise KeyError

        # It would wait for itself, for ever.
        with self.assertRaises(korvane.WrongArgument), korvane.Receiver(
                self.folder / "waits", address=HERE, on_association=lambda _: receiver.wait()) as receiver:
            korvane.echo(HERE, receiver.port)
            receiver._thread.join(20)

    def test_stops_at_once(self):
        took = []
        for _ in range(7):
            receiver = korvane.Receiver(self.folder / "stops", address=HERE).start()
            with socket.create_connection((HERE, receiver.port)):  # a peer that says nothing
                time.sleep(0.1)
                before = time.monotonic()
                receiver.stop()
                took.append(time.monotonic() - before)
        self.assertLess(statistics.median(took), 1 if SLOW else 0.2, took)  # single ones wait for a busy machine

    def test_what_keeps_it_from_listening(self):
        with korvane.Receiver(self.folder / "one", address=HERE) as one:
            with self.assertRaises(korvane.Error):
                korvane.Receiver(self.folder / "two", address=HERE, port=one.port).start()
            with self.assertRaises(korvane.WrongArgument):
                one.start()
        self.assertRaises(ValueError, korvane.Receiver(self.folder / "three", layout="round").start)
        self.assertRaises(korvane.WrongArgument, korvane.Receiver(self.folder / "four", address="nowhere").start)
        self.assertRaises(korvane.Refused, korvane.echo, HERE, free_port())
        self.assertRaises(korvane.NotFound, korvane.echo, "no.such.host.invalid", 104)

    def test_processes_that_end_or_fork_beside_one(self):
        code = ("import korvane, os, sys\n"
                f"one = korvane.Receiver({str(self.folder / 'ends')!r}, address='{HERE}', on_file=print).start()\n"
                "child = os.fork()\n"
                "if not child:\n"
                "    one.stop()\n"  # the parent's
                f"    korvane.echo('{HERE}', one.port)\n"
                "    os._exit(7)\n"
                "status = os.waitpid(child, 0)[1]\n"
                "print(os.waitstatus_to_exitcode(status), one.running)\n")
        done = subprocess.run([sys.executable, "-c", code], env={**os.environ, "PYTHONPATH": sys.argv[1]}, text=True,
                              capture_output=True, timeout=60)
        self.assertEqual((done.returncode, done.stdout.split()), (0, ["7", "True"]), done.stderr)

    @contextlib.contextmanager
    def archive(self):
        port, back = free_port(), free_port()
        store = self.folder / "archive"
        store.mkdir()
        (self.folder / "qr.cfg").write_text(
            f'NetworkTCPPort = {port}\nMaxPDUSize = 16384\nMaxAssociations = 16\nHostTable BEGIN\nback = (KORVANE, localhost, {back})\n'
            f'HostTable END\nAETable BEGIN\nARCHIVE {store} RW (9, 1024mb) ANY\nAETable END\n')
        with subprocess.Popen(["dcmqrscp", "-c", self.folder / "qr.cfg"], stderr=subprocess.DEVNULL) as process:
            try:
                for _ in range(200):
                    with contextlib.suppress(OSError), socket.create_connection((HERE, port), 1):
                        break
                    time.sleep(0.05)
                yield korvane.Peer(HERE, port, aec="ARCHIVE"), back
            finally:
                process.terminate()

    def test_an_archive(self):
        with self.archive() as (peer, back):
            self.assertGreater(peer.echo()["milliseconds"], 0)
            self.assertEqual(len(peer.send(self.folder / "ct", retries=2)["failed"]), 0)
            studies = peer.find(PatientID="PHANT*", StudyDescription=None)
            self.assertEqual([(s.PatientID, s.StudyDescription) for s in studies], [("PHANTOM", "Synthetic head")])
            uid = studies[0].StudyInstanceUID
            images = peer.find("image", keys={"0020,000D": [uid]}, limit=3)
            self.assertEqual((len(images), images.cut), (3, True))
            self.assertEqual(peer.find(PatientID="nobody"), [])
            self.assertEqual(peer.get(self.folder / "got", StudyInstanceUID=uid)["stored"], 4)
            self.assertEqual(peer.move(self.folder / "moved", port=back, StudyInstanceUID=uid)["stored"], 4)
            self.assertEqual((self.stored(self.folder / "got"), self.stored(self.folder / "moved")), (self.uids, self.uids))
            self.assertRaises(korvane.NotFound, peer.get, self.folder / "none", StudyInstanceUID="1.2.3")
            self.assertRaises(korvane.WrongArgument, peer.find, "planet")
            self.assertRaises(korvane.WrongArgument, peer.find, NoKeyword="1")
            self.assertRaises(korvane.WrongArgument, peer.move, StudyInstanceUID=uid)

    @unittest.skipUnless(shutil.which("openssl"), "openssl is not installed")
    def test_encrypted(self):
        pem = self.folder / "own.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", pem, "-out", self.folder / "c.pem",
                        "-subj", "/CN=localhost", "-addext", f"subjectAltName=DNS:localhost,IP:{HERE}", "-days", "2"],
                       check=True, capture_output=True)
        pem.write_bytes(pem.read_bytes() + (self.folder / "c.pem").read_bytes())
        own = korvane.Tls(certificate=pem, authorities=[pem])
        told = []
        with korvane.Receiver(self.folder / "secret", address=HERE, tls=own, on_association=told.append) as receiver:
            korvane.send(HERE, receiver.port, self.folder / "ct", tls=own)
            subprocess.run(["storescu", "+tls", pem, pem, "+cf", pem, HERE, str(receiver.port), self.files[0]], check=True)
            with self.assertRaises(korvane.Refused):
                korvane.echo(HERE, receiver.port)
            with self.assertRaises(korvane.Refused):
                korvane.echo("localhost", receiver.port, tls=korvane.Tls(certificate=pem))  # nobody vouches for the receiver
        self.assertEqual(self.stored(self.folder / "secret"), self.uids)
        self.assertEqual([a["encrypted"] for a in told if a["stored"]], [True, True])
        self.assertRaises(korvane.WrongArgument, korvane.Receiver(self.folder / "no", tls=korvane.Tls()).start)
        self.assertRaises(ValueError, lambda: korvane.Tls(profile="none"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
