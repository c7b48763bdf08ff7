#!/usr/bin/env python3
"""Storage commitment as user (korvane commit, send --commit) and as provider (korvane receive), beside peers of our own
making, whose reports pydicom reads, and Orthanc."""

import contextlib
import io
import json
import signal
import socket
import struct
import subprocess
import threading
import time
import urllib.request

import host_test
import pydicom
from host_test import WINDOWS, WORK, korvane, phantom, wait_for
from network_peers import HERE, ORTHANC, free_port, receiver, running
from pydicom.dataset import Dataset
from pydicom.filewriter import write_dataset

CLASS, INSTANCE = b"1.2.840.10008.1.20.1", b"1.2.840.10008.1.20.1.1"
CT = "1.2.840.10008.5.1.4.1.1.2"
NUMBERS = {0x100, 0x110, 0x120, 0x800, 0x900, 0x1002, 0x1008}


def item(kind, data):
    return struct.pack(">BBH", kind, 0, len(data)) + data


class Peer:
    """One association on a connection, in implicit little endian."""

    def __init__(self, connection):
        self.socket, self.roles, self.early = connection, b"", []
        connection.settimeout(20)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def take(self, count):
        taken = b""
        while len(taken) < count and (part := self.socket.recv(count - len(taken))):
            taken += part
        return taken

    def read(self):
        head = self.take(6)
        return (head[0], self.take(struct.unpack(">I", head[2:])[0])) if len(head) == 6 else (0, b"")

    def write(self, kind, body):
        self.socket.sendall(struct.pack(">BBI", kind, 0, len(body)) + body)

    def associate(self, kind, context, called=b"B", calling=b"A", roles=b""):
        self.write(kind, struct.pack(">HH", 1, 0) + called.ljust(16) + calling.ljust(16) + bytes(32) +
                   item(0x10, b"1.2.840.10008.3.1.1.1") + context + item(0x50, item(0x51, bytes(4)) + roles))

    def ask(self, calling):
        context = b"\1\0\0\0" + item(0x30, CLASS) + item(0x40, b"1.2.840.10008.1.2")
        self.associate(1, item(0x20, context), calling=calling)
        assert self.read()[0] == 2
        return self

    def accept(self):
        """The calling title; keeps the roles that were proposed and accepts them."""
        kind, body = self.read()
        assert kind == 1, kind
        begin = body.find(b"\x54\0")
        self.roles = body[begin:begin + 8 + len(CLASS)] if begin > 0 else b""
        self.associate(2, item(0x21, b"\1\0\0\0" + item(0x40, b"1.2.840.10008.1.2")), roles=self.roles)
        return body[20:36].strip()

    def send(self, elements, data=b""):
        command = b""
        for tag, value in sorted({**elements, 0x800: 1 if data else 0x101}.items()):
            value = struct.pack("<H", value) if tag in NUMBERS else value + bytes(len(value) % 2)
            command += struct.pack("<HHI", 0, tag, len(value)) + value
        for part, control in ((command, 3), *([(data, 2)] if data else [])):
            for at in range(0, len(part), 60000):
                piece = part[at:at + 60000]
                last = control if at + 60000 >= len(part) else control & 1
                self.write(4, struct.pack(">IBB", len(piece) + 2, 1, last) + piece)

    def receive(self):
        """The next command and its data set; None when the association has ended."""
        parts, command = {1: b"", 0: b""}, None
        while command is None or (command[0x800] != 0x101 and not data_ended):
            kind, body = self.read()
            if kind != 4:
                return None
            while body:
                length, _, control = struct.unpack(">IBB", body[:6])
                parts[control & 1] += body[6:4 + length]
                body = body[4 + length:]
                data_ended = control == 2
                if control == 3:
                    command, rest = {}, parts[1]
                    while rest:
                        _, tag, length = struct.unpack("<HHI", rest[:8])
                        value, rest = rest[8:8 + length], rest[8 + length:]
                        command[tag] = struct.unpack("<H", value)[0] if tag in NUMBERS else value.rstrip(b"\0 ")
        data = pydicom.dcmread(io.BytesIO(parts[0]), force=True) if command[0x800] != 0x101 else None
        return command, data

    def request(self, data, action=1, instance=INSTANCE, number=1):
        """The status of the answer to a request for commitment."""
        self.send({3: CLASS, 0x100: 0x130, 0x110: number, 0x1001: instance, 0x1008: action}, data)
        while (answer := self.receive())[0][0x100] == 0x100:  # a report about an earlier one
            self.early.append(answer)
        assert answer[0][0x100] == 0x8130 and answer[0][0x120] == number, answer
        return answer[0][0x900]

    def report(self):
        """The next report, which is confirmed: transaction, event, committed, failed with reasons."""
        command, data = self.early.pop(0) if self.early else self.receive()
        assert command[0x100] == 0x100 and command[2] == CLASS and command[0x1000] == INSTANCE, command
        self.send({2: CLASS, 0x100: 0x8100, 0x120: command[0x110], 0x900: 0, 0x1000: INSTANCE})
        good = {ds.ReferencedSOPInstanceUID for ds in data.get("ReferencedSOPSequence", [])}
        failed = {ds.ReferencedSOPInstanceUID: ds.FailureReason for ds in data.get("FailedSOPSequence", [])}
        return data.TransactionUID, command[0x1002], good, failed

    def release(self):
        self.write(5, bytes(4))
        assert self.read()[0] == 6


def encoded(transaction, instances, failed=()):
    ds = Dataset()
    ds.TransactionUID = transaction
    for keyword, rows in (("FailedSOPSequence", failed), ("ReferencedSOPSequence", instances)):
        items = []
        for sop_class, uid, *reason in rows:
            items.append(Dataset())
            items[-1].ReferencedSOPClassUID, items[-1].ReferencedSOPInstanceUID = sop_class, uid
            if reason:
                items[-1].FailureReason = reason[0]
        if items:
            setattr(ds, keyword, items)
    out = pydicom.filebase.DicomBytesIO()
    out.is_little_endian, out.is_implicit_VR = True, True
    write_dataset(out, ds)
    return out.getvalue()


def connect(port, calling=b"SCU"):
    return Peer(socket.create_connection((HERE, port), 10)).ask(calling)


def instances(folder):
    return {pydicom.dcmread(path).SOPInstanceUID: path for path in folder.iterdir()}


def with_itself():
    """What is missing, cut off or of another class is told, file by file, in every layout; repeated files count once."""
    files = instances(phantom("ct", "--slices", 6, "--size", 8))
    uids = sorted(files)
    for layout in ("flat", "series"):
        folder = WORK / layout
        with receiver(folder, "--layout", layout, "--no-sync", "--count", 6, status=None) as (port, said, _):
            sent = json.loads(korvane("send", HERE, port, WORK / "ct", "--commit", "--json")[0])
            assert sent["stored"] == sent["commitment"]["committed"] == 6, sent
            assert "6 of 6 instances are committed" in korvane("commit", HERE, port, WORK / "ct", *files.values())[0]
            there = {path.stem: path for path in folder.rglob("*.dcm")}
            there[uids[0]].unlink()
            there[uids[1]].write_bytes(there[uids[1]].read_bytes()[:-40])
            other = pydicom.dcmread(there[uids[2]])
            other.SOPClassUID = "1.2.840.10008.5.1.4.1.1.4"
            other.save_as(there[uids[2]])
            out, err = korvane("commit", HERE, port, WORK / "ct", "--json", status=1)
            report = json.loads(out)
            said_of = {one["sopInstance"]: (one["outcome"], one.get("status")) for one in report["instances"]}
            assert report["committed"] == 3 and [said_of[uid] for uid in uids] == [
                ("failed", 0x112), ("failed", 0x110), ("failed", 0x119)] + [("committed", None)] * 3, said_of
            assert "3 are not committed" in err and str(files[uids[0]]) in err, err
            korvane("send", HERE, port, files[uids[2]])  # a second version, of the right class
            assert korvane("commit", HERE, port, files[uids[2]])[0].startswith("1 of 1")
        news = [line for line in said[:-1] if line["event"] == "commitment"]
        assert [(line["instances"], line["failed"], line["reported"]) for line in news] == [
            (6, 0, True), (6, 0, True), (6, 3, True), (1, 0, True)], news
        assert not (folder / ".korvane-commitments").exists()


def turned_roles():
    """A requestor that releases at once is told over another association; what is open outlives a receiver that is killed."""
    files = instances(phantom("ct", "--slices", 3, "--size", 8))
    uids = sorted(files)
    with socket.create_server((HERE, 0)) as own:
        to = f"SCU={HERE}:{own.getsockname()[1]}"
        with receiver(WORK / "in", "--commit-to", to, "--once", status=None) as (port, _, _):
            korvane("send", HERE, port, *list(files.values())[:3])
        own.close()
        with receiver(WORK / "in", "--commit-to", to, "--commit-retry", 1, status=None) as (port, said, process):
            with connect(port) as peer:
                assert peer.request(encoded("1.2.3", [(CT, uid) for uid in uids] + [(CT, "1.2.4")])) == 0
                peer.release()
            line = json.loads(process.stdout.readline())
            while line["event"] != "commitment":  # nobody listens at that address
                line = json.loads(process.stdout.readline())
            assert "cannot connect" in line["why"] and not line["reported"] and not line["over"], line
            process.send_signal(signal.SIGINT if WINDOWS else signal.SIGKILL)
        (left,) = (WORK / "in/.korvane-commitments").iterdir()
    time.sleep(0.2)
    with socket.create_server((HERE, int(to.rsplit(":", 1)[1]))) as own:
        own.settimeout(20)
        with receiver(WORK / "in", "--commit-to", to, status=1) as (port, said, process):
            with Peer(own.accept()[0]) as peer:
                assert peer.accept() == b"B"  # the title that was called
                assert peer.roles == item(0x54, struct.pack(">H", len(CLASS)) + CLASS + b"\0\1"), peer.roles
                assert peer.report() == ("1.2.3", 2, set(uids), {"1.2.4": 0x112})
                assert peer.read()[0] == 5
                peer.write(6, bytes(4))
            wait_for(lambda: not left.exists())
            # On the association that asked, where the requestor stays: one report at a time, after each other.
            with connect(port) as peer:
                for number in (1, 2):
                    assert peer.request(encoded(f"1.2.{number}", [(CT, uids[0])]), number=number) == 0
                assert [peer.report()[:2] for _ in range(2)] == [("1.2.1", 1), ("1.2.2", 1)]
                peer.release()
            # Whose report is not confirmed before the end is told again.
            with connect(port) as peer:
                assert peer.request(encoded("1.2.5", [(CT, uids[0])])) == 0
                assert peer.receive()[0][0x100] == 0x100
            with Peer(own.accept()[0]) as peer:
                peer.accept()
                assert peer.report()[0] == "1.2.5"
                assert peer.read()[0] == 5  # the confirmation was heard
                peer.write(6, bytes(4))
            wait_for(lambda: not list(left.parent.glob("*")))
            process.send_signal(signal.SIGINT)
        assert not left.parent.exists()
    korvane("receive", 0, WORK / "in", "--commit-to", "SCU", status=2)


def hostile_requests():
    """Each is answered, and the next one too."""
    good = encoded("1.2.3", [(CT, "1.2")])
    with receiver(WORK / "in", status=host_test.STOPPED) as (port, said, process):
        with connect(port) as peer:
            for data, options, status in (
                    (good, {"instance": b"1.2"}, 0x112), (good, {"action": 2}, 0x123), (b"", {}, 0x115), (b"garbage", {}, 0x115),
                    (encoded("../1.2", [(CT, "1.2")]), {}, 0x115), (encoded("1.2.3", []), {}, 0x115),
                    (encoded("1.2.3", [(CT, "")]), {}, 0x115), (encoded("1.2.3", [(CT, "1" * 65)]), {}, 0x115),
                    (encoded("1.2.3", [], [(CT, "1.2", 0x110)]), {}, 0x115),
                    (encoded("1.2.3", [(CT, "../../x"), (CT, "1.2")]), {}, 0)):
                got = peer.request(data, **options)
                assert got == status, (data[:80], hex(got))
            assert peer.report() == ("1.2.3", 2, set(), {"../../x": 0x112, "1.2": 0x112})
            assert peer.request(encoded("1.2.9", [(CT, "1.2")] * 50001)) == 0x115
            peer.send({2: CLASS, 0x100: 0x100, 0x110: 7, 0x1000: INSTANCE, 0x1002: 1}, good)  # we never asked for that
            assert peer.receive()[0][0x900] == 0x211
            peer.send({2: CLASS, 0x100: 1, 0x110: 8, 0x1000: b"1.2.3"}, good)  # a data set to store
            assert peer.receive()[0][0x900] == 0x122
            peer.release()
        most = 10 if WINDOWS else 1000  # each waits for the disk, the emulator's for a tenth of a second
        for number in range(most + 1):  # of one that never hears the reports
            if number % 250 == 0:
                peer = connect(port)
            status = peer.request(encoded(f"1.3.{number}", [(CT, "1.2")]), number=number + 1) if number else 0
            assert status == 0, number
        assert WINDOWS or peer.request(encoded("1.4", [(CT, "1.2")])) == 0x213
        with connect(port, b"OTHER") as other:  # nor may another take over what is open
            assert other.request(encoded(f"1.3.{most}", [(CT, "1.2")])) == 0x131
        process.send_signal(signal.SIGINT)
    assert {path.name for path in (WORK / "in").iterdir()} == {".korvane-commitments"}


@contextlib.contextmanager
def provider(behave):
    """A peer that takes one request and then does `behave(peer, transaction, instances)`: its port."""
    faults = []

    def serve():
        try:
            with Peer(listener.accept()[0]) as peer:
                peer.accept()
                command, data = peer.receive()
                peer.send({2: CLASS, 0x100: 0x8130, 0x120: command[0x110], 0x900: 0, 0x1000: INSTANCE})
                behave(peer, data.TransactionUID, [(i.ReferencedSOPClassUID, i.ReferencedSOPInstanceUID)
                                                   for i in data.ReferencedSOPSequence])
                while (pdu := peer.read())[0]:
                    if pdu[0] == 5:
                        peer.write(6, bytes(4))
        except Exception as error:  # pylint: disable=broad-except
            faults.append(error)

    with socket.create_server((HERE, 0)) as listener:
        thread = threading.Thread(target=serve)
        thread.start()
        yield listener.getsockname()[1]
        thread.join(20)
    assert not faults, faults


def event(peer, data, number=1):
    peer.send({2: CLASS, 0x100: 0x100, 0x110: number, 0x1000: INSTANCE, 0x1002: 1}, data)
    return peer.receive()[0][0x900]


def reports_that_lie():
    """Only what is reported for this request, with its class, is committed; silence is no yes."""
    files = phantom("ct", "--slices", 4, "--size", 8)

    def outcomes(port, *options):
        start = time.monotonic()
        report = json.loads(korvane("commit", HERE, port, files, "--json", *options, status=1)[0])
        assert time.monotonic() - start < 8
        return sorted(one["outcome"] for one in report["instances"])

    def lies(peer, transaction, asked):
        assert event(peer, encoded("1.2.3", asked)) == 0x110
        assert event(peer, b"garbage") == 0x115
        said = [asked[0], ("1.2", asked[1][1]), asked[2], (CT, "1.2.3")]
        assert event(peer, encoded(transaction, said, [(*asked[2], 0x213)])) == 0

    with provider(lies) as port:
        assert outcomes(port) == ["committed", "failed", "unanswered", "unanswered"]
    with provider(lambda *_: None) as port:
        assert outcomes(port, "--wait", 1) == ["unanswered"] * 4
    with provider(lambda peer, *_: peer.socket.shutdown(socket.SHUT_RDWR)) as port:
        assert outcomes(port) == ["unanswered"] * 4
    with provider(lambda peer, *_: peer.socket.sendall(b"\4\0\0\0")) as port:  # half a message
        assert outcomes(port, "--wait", 1) == ["unanswered"] * 4
    with provider(lambda *_: None) as port:
        host_test.interrupted(["commit", HERE, port, files], lambda: time.sleep(1))
    own = free_port()

    def elsewhere(peer, transaction, asked):
        """The report comes over another association, once this one has been released."""
        while peer.read()[0] != 5:
            pass
        peer.write(6, bytes(4))
        with Peer(socket.create_connection((HERE, own), 10)) as other:
            other.associate(1, item(0x20, b"\1\0\0\0" + item(0x30, CLASS) + item(0x40, b"1.2.840.10008.1.2")),
                            called=b"KORVANE", roles=item(0x54, struct.pack(">H", len(CLASS)) + CLASS + b"\0\1"))
            kind, answer = other.read()
            assert kind == 2 and CLASS + b"\0\1" in answer, answer
            assert event(other, encoded(transaction, asked)) == 0
            other.release()

    with provider(elsewhere) as port:
        assert korvane("commit", HERE, port, files, "--port", own, "--bind", HERE)[0].startswith("4 of 4")
    with receiver(WORK / "in", "--once") as (port, _, _):
        with socket.create_server((HERE, 0)) as taken:
            assert "cannot listen" in korvane("commit", HERE, port, files, "--port", taken.getsockname()[1], "--bind", HERE,
                                              status=1)[1]
        korvane("echo", HERE, port)


def orthanc():
    if not ORTHANC:
        print("skipped: Orthanc is not installed")
        return
    files = phantom("ct", "--slices", 5, "--size", 8)
    dicom, http, own = free_port(), free_port(), free_port()
    with receiver(WORK / "in", "--commit-to", f"ORTHANC={HERE}:{dicom}", status=0) as (port, said, process):
        (WORK / "orthanc.json").write_text(json.dumps({
            "StorageDirectory": str(WORK / "db"), "IndexDirectory": str(WORK / "db"), "DicomPort": dicom, "HttpPort": http,
            "Plugins": [], "RemoteAccessAllowed": False, "AuthenticationEnabled": False,
            "DicomModalities": {"k": ["KORVANE", HERE, port], "u": ["USER", HERE, own]}}))
        with running(ORTHANC, WORK / "orthanc.json", stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL):
            def ask(path, data=None):
                body = None if data is None else json.dumps(data).encode()
                with urllib.request.urlopen(f"http://{HERE}:{http}/{path}", data=body, timeout=20) as answer:
                    return json.load(answer)

            def is_up():
                with contextlib.suppress(OSError):
                    return ask("system")

            wait_for(is_up)
            peer = (HERE, dicom, "--aet", "USER", "--aec", "ORTHANC")
            out = korvane("send", *peer, files, "--commit", "--commit-port", own, "--commit-bind", HERE)[0]
            assert "5 of 5 instances are committed" in out, out
            ask("modalities/k/store", ask("instances"))
            asked = {"DicomInstances": [{"SOPClassUID": CT, "SOPInstanceUID": uid}
                                        for uid in (*instances(files), "1.2.3.4")]}
            path = ask("modalities/k/storage-commitment", asked)["Path"]
            wait_for(lambda: ask(path)["Status"] != "Pending")
            answer = ask(path)
            assert len(answer["Success"]) == 5 and [one["SOPInstanceUID"] for one in answer["Failures"]] == ["1.2.3.4"], answer
            for uid in ask("instances")[:2]:
                request = urllib.request.Request(f"http://{HERE}:{http}/instances/{uid}", method="DELETE")
                urllib.request.urlopen(request, timeout=20).close()
            report = json.loads(korvane("commit", *peer, files, "--port", own, "--bind", HERE, "--json", status=1)[0])
            assert [one["outcome"] for one in report["instances"]].count("failed") == 2 and report["committed"] == 3, report
        process.send_signal(signal.SIGINT)


host_test.run(with_itself, turned_roles, hostile_requests, reports_that_lie, orthanc)
