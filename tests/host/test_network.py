#!/usr/bin/env python3
"""The verbs echo, send and receive against other programs, on the loopback interface: what arrives equals what was sent."""

import contextlib
import itertools
import json
import os
import pathlib
import resource
import signal
import socket
import struct
import subprocess
import time
import urllib.request
import zlib

import host_test
import numpy
import pydicom
from host_test import KORVANE, WINDOWS, WORK, korvane, phantom
from network_peers import HERE, ORTHANC, PEERS, free_port, receiver, request_then, running, storescp

SYNTAXES = ("implicit", "explicit", "big", "rle", "jpegll")


def content(ds):
    """The values of a data set. Not their types, which an implicit file does not carry, and no padding."""
    def value(e):
        if e.VR == "SQ":
            return [content(item) for item in e.value]
        swap = e.tag == 0x7FE00010 and ds.file_meta.TransferSyntaxUID == pydicom.uid.ExplicitVRBigEndian
        return numpy.frombuffer(e.value, "u2").byteswap().tobytes() if swap else e.value

    return [(e.tag, value(e)) for e in ds]


def same(folder, files, syntaxes=True):
    """Every file arrived, element by element."""
    arrived = {ds.SOPInstanceUID: ds for ds in map(pydicom.dcmread, map(str, pathlib.Path(folder).iterdir()))}
    assert len(arrived) == len(files), (folder, len(arrived))
    for sent in map(pydicom.dcmread, files):
        got = arrived[sent.SOPInstanceUID]
        differences = [pair for pair in itertools.zip_longest(content(got), content(sent)) if pair[0] != pair[1]]
        assert not differences, (folder, sent.filename, differences)
        assert not syntaxes or got.file_meta.TransferSyntaxUID == sent.file_meta.TransferSyntaxUID


def sources():
    """One folder for each syntax, each with instances of its own."""
    slices = phantom("ct", "--slices", 10, "--size", 32)
    files = {}
    for n, path in enumerate(sorted(slices.iterdir())):
        syntax = SYNTAXES[n % len(SYNTAXES)]
        (WORK / syntax).mkdir(exist_ok=True)
        files.setdefault(syntax, []).append(WORK / syntax / path.name)
        korvane("convert", path, files[syntax][-1], "--syntax", syntax)
    return files


def deflated():
    """A deflated file of odd length, as writers leave them that do not pad."""
    ds = pydicom.dcmread(WORK / "explicit" / min(os.listdir(WORK / "explicit")))
    ds.file_meta.TransferSyntaxUID = pydicom.uid.DeflatedExplicitVRLittleEndian
    ds.SOPInstanceUID = ds.file_meta.MediaStorageSOPInstanceUID = "1.2.3"
    path = WORK / "deflated"
    for ds.PatientComments in map("x".__mul__, range(1, 99)):
        ds.save_as(path)
        path.write_bytes(path.read_bytes().removesuffix(b"\0"))
        with contextlib.suppress(zlib.error):  # it was no padding
            if path.stat().st_size % 2 and pydicom.dcmread(path):
                return path


def tool(*command):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=60, check=False)
    assert done.returncode == 0, (command, done.stdout[-500:], done.stderr[-500:])


def to_and_from_dcmtk():
    files = sources()
    everything = sum(files.values(), [])
    (WORK / "big/notes.txt").write_text("no DICOM")
    with storescp("+xa") as (port, folder):
        assert "OFFIS_DCMTK" in korvane("echo", "localhost", port)[0]
        report = json.loads(korvane("send", HERE, port, *(WORK / s for s in SYNTAXES), deflated(), "--json")[0])
        assert (report["stored"], report["associations"], len(report["leftOut"])) == (11, 1, 1), report
        same(folder, [*everything, WORK / "deflated"])
    with storescp("+xi") as (port, folder):  # encoded anew
        korvane("send", HERE, port, *(WORK / s for s in SYNTAXES[:3]))
        same(folder, files["implicit"] + files["explicit"] + files["big"], syntaxes=False)
    clients = {"implicit": ("storescu", "-xi"), "explicit": ("storescu", "-xe"), "big": ("storescu", "-xb"),
               "rle": ("storescu", "-xr"), "jpegll": ("storescu", "-xs")}
    with receiver(WORK / "in", "--count", 6) as (port, said, _):
        tool("echoscu", HERE, port)
        for syntax, client in clients.items():
            tool(*client, HERE, port, *files[syntax])
    same(WORK / "in", everything)
    assert [line["event"] for line in said[:-1]].count("file") == 10 and said[-1] == "", said
    with receiver(WORK / "in2", "--once") as (port, said, _):
        tool("dcmsend", "+sd", "+r", HERE, port, *everything)
    same(WORK / "in2", everything, syntaxes=False)  # of those that it proposes, the first counts
    with receiver(WORK / "in3", "--once", status=1) as (port, said, _):  # a deflated stream is stored as it came
        whole = deflated()
        (WORK / "renamed").write_bytes(whole.read_bytes().replace(b"1.2.3\0", b"1.2.4\0", 1))
        (WORK / "halved").write_bytes(whole.read_bytes()[:-whole.stat().st_size // 2])
        err = korvane("send", HERE, port, *everything, whole, WORK / "renamed", WORK / "halved", status=1)[1]
        assert "renamed: data set does not match" in err and "halved: cannot understand" in err, err
    same(WORK / "in3", [*everything, whole])


def orthanc():
    if not ORTHANC:
        print("skipped: Orthanc is not installed")
        return
    files = sources()
    dicom, http = free_port(), free_port()
    with receiver(WORK / "back") as (port, _, process):
        (WORK / "orthanc.json").write_text(json.dumps({
            "StorageDirectory": str(WORK / "db"), "IndexDirectory": str(WORK / "db"), "DicomPort": dicom, "HttpPort": http,
            "Plugins": [], "RemoteAccessAllowed": False, "AuthenticationEnabled": False,
            "DicomModalities": {"k": ["KORVANE", HERE, port]}}))
        with running(ORTHANC, WORK / "orthanc.json", stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL):
            def ask(path, data=None):
                with urllib.request.urlopen(f"http://{HERE}:{http}/{path}", data=data, timeout=20) as answer:
                    return json.load(answer)

            for _ in range(100):
                with contextlib.suppress(OSError):
                    ask("system")
                    break
                time.sleep(0.1)
            korvane("echo", HERE, dicom, "--aec", "ORTHANC")
            korvane("send", HERE, dicom, *(WORK / s for s in SYNTAXES), "--aec", "ORTHANC")
            instances = ask("instances")
            assert len(instances) == 10
            ask("modalities/k/store", json.dumps(instances).encode())  # an association for each syntax
        process.send_signal(signal.SIGINT)
    same(WORK / "back", sum(files.values(), []))


def refused():
    files = sources()["explicit"]
    assert "cannot connect" in korvane("echo", HERE, free_port(), status=1)[1]
    assert "unknown host" in korvane("send", "no-such-host.invalid", 104, files[0], status=1)[1]
    for port in ("0", "70000", ""):
        korvane("echo", HERE, port, status=2)
    korvane("echo", HERE, 104, "--aet", "back\\slash", status=2)
    with socket.create_server((HERE, 0)) as silent:  # connects, and is never heard
        start = time.monotonic()
        err = korvane("echo", HERE, silent.getsockname()[1], "--connect-timeout", 1, status=1)[1]
        assert "in time" in err and time.monotonic() - start < 5, err
    for option, reason in (("--refuse", "rejected"), ("--abort-during", "breaks off"), ("--abort-after", "breaks off")):
        with storescp(option) as (port, _):
            err = korvane("send", HERE, port, *files, files[0], status=1)[1]
            assert reason in err and (option == "--refuse" or "3 files were not stored" in err), err
    with storescp() as (port, _):
        (WORK / "cut").write_bytes(files[0].read_bytes()[:-7])
        err = korvane("send", HERE, port, WORK / "cut", files[0], WORK / "none", status=1)[1]
        assert "cut: the data set is damaged" in err and "none: No such file" in err, err


def received_with_care():
    files = sources()["explicit"]
    other = pydicom.dcmread(files[0])
    other.PatientName = "Another"
    other.save_as(WORK / "other")
    titles = ("--aet", "ME", "--aec", "YOU")
    with receiver(WORK / "in", *titles, "--count", 2) as (port, said, _):
        for wrong in (("--aec", "ME"), ("--aet", "YOU")):
            assert "not recognized" in korvane("send", HERE, port, files[0], *wrong, status=1)[1]
        for _ in range(2):  # the same, and then not: what is there stays
            korvane("send", HERE, port, files[0], WORK / "other", "--aec", "ME", "--aet", "YOU")
    uid = other.SOPInstanceUID
    assert sorted(path.name for path in (WORK / "in").iterdir()) == [f"{uid}-2.dcm", f"{uid}.dcm"]
    assert pydicom.dcmread(WORK / f"in/{uid}-2.dcm").PatientName == "Another"
    with receiver(WORK / "in", "--once", "--replace") as (port, said, _):
        korvane("send", HERE, port, WORK / "other")
    assert pydicom.dcmread(WORK / f"in/{uid}.dcm").PatientName == "Another"
    (WORK / "file").write_text("")
    assert "cannot create the folder" in korvane("receive", 0, WORK / "file", status=1)[1]
    with socket.create_server((HERE, 0)) as taken:
        assert "cannot listen" in korvane("receive", taken.getsockname()[1], WORK / "in", status=1)[1]
    if WINDOWS:
        return

    def small_disk():
        resource.setrlimit(resource.RLIMIT_FSIZE, (2000, 2000))

    with receiver(WORK / "full", "--once", status=1, preexec_fn=small_disk) as (port, said, _):
        assert korvane("send", HERE, port, files[0], files[1], status=1)[1].count("0xA700") == 2  # on one association
    assert "File too large" in said[0]["why"] and not list((WORK / "full").iterdir()), said
    assert said[-2]["refused"] == 2 and said[-2]["released"], said


def many_at_once():
    """Peers that hang in every way cost the others nothing; who is one too many is told so, and to come again."""
    file = sources()["explicit"][0]
    request, store = request_then((0, bytes(100)))
    begun, command = store[:10], store[:60]
    ways = (b"", request[:5], request[:100], request, request + begun, request + command, request + store)
    with receiver(WORK / "in", "--limit", 18, status=host_test.STOPPED) as (port, said, process), contextlib.ExitStack() as hanging:
        for i in range(16):
            peer = hanging.enter_context(socket.create_connection((HERE, port), 10))
            peer.sendall(ways[i % len(ways)])
        time.sleep(0.3)
        times = [json.loads(korvane("echo", HERE, port, "--json")[0])["milliseconds"] for _ in range(3)]
        print(f"behind 16 that hang: {min(times):.1f} ms")
        assert min(times) < 100, times
        korvane("send", HERE, port, file)
        for _ in range(2):
            hanging.enter_context(socket.create_connection((HERE, port), 10))
        err = korvane("echo", HERE, port, status=1)[1]
        assert "temporar" in err or "transient" in err or "limit" in err, err
        start = time.monotonic()
        process.send_signal(signal.SIGINT)
        process.wait(timeout=10)
        assert time.monotonic() - start < host_test.SOON, "slow to stop"
    (stored,) = (WORK / "in").iterdir()
    assert WINDOWS or stored.stat().st_mode & 0o777 == 0o640 & ~os_umask(), oct(stored.stat().st_mode)
    with receiver(WORK / "allowed", "--allow", "10.1.2.3", status=0) as (port, said, process):
        korvane("echo", HERE, port, status=1)
        process.send_signal(signal.SIGINT)
    assert "may not connect" in said[0]["error"], said
    with receiver(WORK / "narrow", "--once", "--keep-free", 2**40, status=1) as (port, said, _):
        assert "0xA700" in korvane("send", HERE, port, file, file, status=1)[1]
    assert len([line for line in said[:-1] if line["event"] == "file" and "are free" in line["why"]]) == 2, said


def faults_at_once():
    """Peers with every fault, four of each at the same time, while four senders work: each fault costs its own peer alone."""
    request, whole = request_then((2, b"\x08\0\x16\0" + struct.pack("<I", 26) + b"1.2.840.10008.5.1.4.1.1.2\0" +
                                   b"\x08\0\x18\0" + struct.pack("<I", 8) + b"1.2.3.4\0"))
    _, store = request_then((0, bytes(100)))
    _, missing = request_then((2, b""))
    _, cut = request_then((2, struct.pack("<HHI", 0x8, 0x70, 100000) + bytes(100)))
    _, nested = request_then((2, struct.pack("<HHIHHI", 0x8, 0x1115, 0xFFFFFFFF, 0xFFFE, 0xE000, 0xFFFFFFFF) * 2000))
    command = store[:-112]
    release = b"\5\0\0\0\0\4" + bytes(4)
    ways = {
        "silence": b"", "cut request": request[:50], "garbage": bytes(range(256)) * 8, "huge request": b"\1\0\xff\xff\xff\xff",
        "no request": store, "another request": request + request, "unknown PDU": request + b"\x63\0\0\0\0\4" + bytes(4),
        "huge PDU": request + b"\4\0\xff\xff\xff\xff", "empty PDV": request + struct.pack(">BBIIBB", 4, 0, 6, 1, 1, 3),
        "PDV beyond its PDU": request + struct.pack(">BBIIBB", 4, 0, 6, 5000, 1, 3),
        "wrong context": request + store.replace(struct.pack(">BB", 1, 3), struct.pack(">BB", 9, 3), 1),
        "data first": request + struct.pack(">BBIIBB", 4, 0, 8, 4, 1, 2) + bytes(2), "no end of a command": request + (
            struct.pack(">BBIIBB", 4, 0, 106, 102, 1, 1) + bytes(100)) * 700,
        "command in a data set": request + store + command, "cut command": request + command[:40],
        "missing data": request + missing + release, "cut data": request + cut + release, "deep data": request + nested + release,
        "aborted": request + store + b"\7\0\0\0\0\4" + bytes(4), "gone": request + store, "stored": request + whole + release,
    }
    sources = phantom("many", "--size", 64, "--slices", 40)
    files = sorted(sources.iterdir())
    with receiver(WORK / "in", "--limit", 200, "--request-timeout", 2, "--timeout", 2, "--no-sync",
                  status=1) as (port, said, process), contextlib.ExitStack() as hanging:
        for way in list(ways) * 4:
            peer = hanging.enter_context(socket.create_connection((HERE, port), 10))
            with contextlib.suppress(OSError):  # the receiver may have had enough
                peer.sendall(ways[way])
                if way == "gone":
                    peer.close()
        senders = [subprocess.Popen([*KORVANE, "send", HERE, str(port), *map(str, files[n::4])], stdout=subprocess.DEVNULL)
                   for n in range(4)]
        assert [sender.wait(timeout=60) for sender in senders] == [0] * 4
        for _ in range(100):
            if len(list((WORK / "in").iterdir())) == 41 and not list((WORK / "in").glob(".*")):
                break
            time.sleep(0.1)  # until the time of the silent ones is up
        korvane("echo", HERE, port)
        process.send_signal(signal.SIGINT)
    stored = sorted(path.name for path in (WORK / "in").iterdir())
    assert len(stored) == 41 and "1.2.3.4.dcm" in stored, stored
    (WORK / "in/1.2.3.4.dcm").unlink()
    same(WORK / "in", files)
    reasons = {line["error"] for line in said[:-1] if line["event"] == "association"}
    assert len(reasons) > 6, reasons


def shared_folder():
    """Two receivers in one folder, eight senders: all that was acknowledged is there, as it was sent."""
    files = []
    for number, source in enumerate(sorted(phantom("small", "--size", 8, "--slices", 50).iterdir()) * 4):
        ds = pydicom.dcmread(source)
        ds.SOPInstanceUID = ds.file_meta.MediaStorageSOPInstanceUID = f"1.2.{number % 150}"  # some come in two versions
        ds.InstanceNumber = number
        files.append(WORK / f"sent{number}")
        ds.save_as(files[-1])
    left = WORK / "in/.1.2.3.dcm.abcdefgh.part"
    left.parent.mkdir()
    left.write_text("of a run that was killed")
    with receiver(WORK / "in", "--count", 4) as (port, _, first), receiver(WORK / "in", "--count", 4) as (other, _, _):
        assert not left.exists()
        senders = [subprocess.Popen([*KORVANE, "send", HERE, str([port, other][n % 2]), *map(str, files[n // 2::4])])
                   for n in range(8)]
        assert [sender.wait(timeout=60) for sender in senders] == [0] * 8
    stored = sorted(path.name for path in (WORK / "in").iterdir())
    assert len(stored) == 200, stored
    found = {(ds.SOPInstanceUID, ds.InstanceNumber): content(ds) for ds in map(pydicom.dcmread, (WORK / "in").iterdir())}
    assert len(found) == 200
    for ds in map(pydicom.dcmread, files):
        assert found[ds.SOPInstanceUID, ds.InstanceNumber] == content(ds)


def os_umask():
    mask = os.umask(0)
    os.umask(mask)
    return mask


def odd_names():
    """An instance whose UID is none has a place too, the same each time, and inside the folder."""
    other = pydicom.dcmread(sources()["explicit"][0])
    uid = "../1.2.a"
    other.SOPInstanceUID = other.file_meta.MediaStorageSOPInstanceUID = uid
    other.save_as(WORK / "odd")
    with receiver(WORK / "in", "--count", 2, "--no-sync") as (port, said, _):
        for _ in range(2):
            korvane("send", HERE, port, WORK / "odd")
    (stored,) = (WORK / "in").iterdir()
    assert stored.name.startswith("2.25.") and pydicom.dcmread(stored).SOPInstanceUID == uid
    assert "no UID" in said[0]["remark"] and not (WORK / "1.2.a.dcm").exists(), said


def flooded():
    """A thousand data sets at once, while nobody reads what the program says: no line is lost, and nothing waits for it."""
    if WINDOWS:  # where writing waits
        return
    request, store = request_then((2, b""))
    with receiver(WORK / "in", "--once", status=1) as (port, said, _), socket.create_connection((HERE, port), 10) as peer:
        peer.sendall(request + store * 1000 + b"\5\0\0\0\0\4" + bytes(4))
        peer.shutdown(socket.SHUT_WR)
        while peer.recv(65536):
            pass
    assert [line["event"] for line in said[:-1]] == ["file"] * 1000 + ["association"] and "1000 data" in said[-1], said[-1]
    with (receiver(WORK / "in", status=host_test.STOPPED) as (port, said, process),
          socket.create_connection((HERE, port), 1) as peer):
        peer.sendall(request)
        with contextlib.suppress(TimeoutError):  # a peer that takes no answers does not hold it against Ctrl-C
            while True:
                peer.sendall(store * 100)
        process.send_signal(signal.SIGINT)
        process.wait(timeout=3)
    with receiver(WORK / "in", status=1) as (port, said, process):
        process.stdout.close()
        process.stdout = None  # whoever read has gone
        with socket.create_connection((HERE, port), 10) as peer:
            peer.sendall(request + store)
            while peer.recv(65536):
                pass
    assert "cannot write to standard output" in said[-1], said


def stopped():
    part = b"".join(request_then((0, struct.pack("<HHI", 0x8, 0x70, 100000) + bytes(10000))))
    for breaks_off in (True, False):
        status = 1 if breaks_off else host_test.STOPPED
        with (receiver(WORK / "in", status=status) as (port, said, process),
              socket.create_connection((HERE, port)) as peer):
            peer.sendall(part)
            for _ in range(100):
                if list((WORK / "in").glob("*.part")):
                    break
                time.sleep(0.02)
            else:
                raise AssertionError("nothing was begun")
            if breaks_off:
                peer.close()
                assert json.loads(process.stdout.readline())["error"] == "the peer closed the connection"
            start = time.monotonic()
            process.send_signal(signal.SIGINT)
            process.wait(timeout=10)
            assert time.monotonic() - start < host_test.SOON, "slow to stop"
        assert said[-1].endswith("not ended in order\n" if breaks_off else "stopped\n"), said
        assert not list((WORK / "in").iterdir())
    with receiver(WORK / "in") as (port, said, process):
        process.send_signal(signal.SIGINT)
    files = sources()["explicit"]
    with socket.create_server((HERE, 0)) as silent:
        held = []
        host_test.interrupted(["send", HERE, silent.getsockname()[1], files[0]], lambda: held.append(silent.accept()))


if not PEERS:
    print("skipped: dcmtk is not installed")
    raise SystemExit(host_test.SKIPPED)
host_test.run(to_and_from_dcmtk, orthanc, refused, received_with_care, many_at_once, faults_at_once, shared_folder, odd_names, flooded, stopped)
