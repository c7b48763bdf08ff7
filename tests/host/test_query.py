#!/usr/bin/env python3
"""The verbs find, get and move against archives of others: what is found and fetched is what was stored there."""

import contextlib
import json
import pathlib
import shutil
import socket
import struct
import subprocess
import threading
import time
import urllib.request

import host_test
import pydicom
from host_test import WINDOWS, WORK, korvane, phantom
from network_peers import HERE, ORTHANC, PEERS, free_port, running

CT = "1.2.840.10008.5.1.4.1.1.2"
NAMES = ("Äther^Ö", "Doe^Jane")


def study():
    """Two patients of one study each, two series in each, of three instances; a series of the second one is compressed."""
    source = sorted(phantom("source", "--size", 8, "--slices", 3).iterdir())
    files = []
    for patient, series in ((p, s) for p in (1, 2) for s in (1, 2)):
        for n, path in enumerate(source):
            ds = pydicom.dcmread(path)
            ds.SpecificCharacterSet, ds.PatientName, ds.PatientID = "ISO_IR 100", NAMES[patient - 1], f"P{patient}"
            ds.StudyInstanceUID, ds.SeriesInstanceUID = f"1.2.{patient}", f"1.2.{patient}.{series}"
            ds.StudyDate, ds.StudyID, ds.AccessionNumber, ds.StudyTime = f"2026010{patient}", "1", "A1", "101112"
            ds.SOPInstanceUID = ds.file_meta.MediaStorageSOPInstanceUID = f"1.2.{patient}.{series}.{n}"
            files.append(WORK / f"{patient}{series}{n}.dcm")
            ds.save_as(files[-1])
            if (patient, series) == (2, 2):
                korvane("convert", files[-1], files[-1].with_suffix(".c"), "--syntax", "jpegll")
                files[-1] = files[-1].with_suffix(".c")
    return files


def await_port(port):
    for _ in range(100):
        with contextlib.suppress(OSError), socket.create_connection((HERE, port), 1):
            return
        time.sleep(0.05)


def has(folder, files):
    """Whether just these instances are in the folder, with their pixels as they were."""
    found = {ds.SOPInstanceUID: ds for ds in map(pydicom.dcmread, folder.iterdir())}
    assert set(found) == {pydicom.dcmread(path).SOPInstanceUID for path in files}, sorted(found)
    for path in files:
        ds = pydicom.dcmread(path)
        got = found[ds.SOPInstanceUID]
        assert got.file_meta.TransferSyntaxUID == ds.file_meta.TransferSyntaxUID or not ds.file_meta.TransferSyntaxUID.is_compressed
        assert got.PixelData == ds.PixelData and got.PatientName == ds.PatientName


def ask(port, *words, status=0):
    out = korvane("find", HERE, port, "--aec", "ARCHIVE", *words, "--json", status=status)[0]
    report = json.loads(valid(out))
    return [pydicom.Dataset.from_json(match) for match in report["matches"]], report


def valid(text):
    with contextlib.suppress(ImportError):
        import jsonschema
        report = json.loads(text)
        name = report["schema"].split(".")[1]
        schema = pathlib.Path(__file__).resolve().parents[2] / f"docs/schemas/{name}.schema.json"
        jsonschema.Draft202012Validator(json.loads(schema.read_text())).validate(report)
    return text


def queried(port, files):
    """What both archives do alike."""
    if not WINDOWS:  # whose arguments, under Wine, are in the locale's character set
        found, _ = ask(port, "PatientName=Ä*", "--charset", "ISO_IR 100")
        assert [str(ds.PatientName) for ds in found] == [NAMES[0]] and found[0].StudyInstanceUID == "1.2.1"
    assert len(ask(port, "StudyDate=20260102-")[0]) == 1 and len(ask(port, "StudyDate=2025-")[0]) in (0, 2)
    assert {ds.PatientID for ds in ask(port, "--level", "patient")[0]} == {"P1", "P2"}
    # Levels above that the keys leave open are asked first, and their keys are in the answer.
    found, _ = ask(port, "--level", "image", "PatientID=P2")
    assert len(found) == 6 and {ds.PatientID for ds in found} == {"P2"} and {ds.get("SOPClassUID", CT) for ds in found} == {CT}
    found, _ = ask(port, "--level", "series", "StudyInstanceUID=1.2.1", "SeriesInstanceUID=1.2.1.2")
    assert [ds.SeriesInstanceUID for ds in found] == ["1.2.1.2"]
    found, report = ask(port, "--level", "image", "--limit", 4)
    assert len(found) == 4 and report["cut"]
    table = korvane("find", HERE, port, "--aec", "ARCHIVE")[0].splitlines()
    assert len(table) == 3 and table[0].split()[:2] == ["PatientName", "PatientID"] and (WINDOWS or any(NAMES[0] in row for row in table))
    valid(korvane("get", HERE, port, WORK / "all", "--aec", "ARCHIVE", "PatientID=P?", "--json")[0])
    has(WORK / "all", files)
    korvane("get", HERE, port, WORK / "one", "--aec", "ARCHIVE", "--level", "image", "StudyInstanceUID=1.2.1",
            "SeriesInstanceUID=1.2.1.1", "SOPInstanceUID=1.2.1.1.0")
    has(WORK / "one", files[:1])
    assert "nothing matches" in korvane("get", HERE, port, WORK / "none", "--aec", "ARCHIVE", "PatientID=X", status=1)[1]
    assert "no key" in korvane("get", HERE, port, WORK / "none", "--aec", "ARCHIVE", "PatientID=*", status=2)[1]


def moved(port, own, files):
    to = ("--aec", "ARCHIVE", "--dir", WORK / "moved", "--port", own)
    korvane("move", HERE, port, "--level", "series", "PatientID=P1", *to)
    has(WORK / "moved", files[:6])
    err = korvane("move", HERE, port, "StudyInstanceUID=1.2.1", *to, "--aet", "NOBODY", status=1)[1]
    assert "NOBODY" in err, err
    with socket.create_server((HERE, own)):
        assert "cannot listen" in korvane("move", HERE, port, "StudyInstanceUID=1.2.1", *to, status=1)[1]


def dcmtk():
    files = study()
    port, own = free_port(), free_port()
    (WORK / "db").mkdir()
    (WORK / "qr.cfg").write_text(f"""NetworkTCPPort = {port}\nMaxPDUSize = 16384\nMaxAssociations = 16
HostTable BEGIN\nk = (KORVANE, {HERE}, {own})\nHostTable END\nVendorTable BEGIN\nVendorTable END
AETable BEGIN\nARCHIVE {WORK / 'db'} RW (200, 1024mb) ANY\nAETable END\n""")
    with running("dcmqrscp", "-c", WORK / "qr.cfg", "+xs", stderr=subprocess.DEVNULL):
        await_port(port)
        korvane("send", HERE, port, *files, "--aec", "ARCHIVE")
        queried(port, files)
        moved(port, own, files)


def orthanc():
    if not ORTHANC:
        print("skipped: Orthanc is not installed")
        return
    files = study()
    port, own, http = free_port(), free_port(), free_port()
    (WORK / "orthanc.json").write_text(json.dumps({
        "StorageDirectory": str(WORK / "odb"), "IndexDirectory": str(WORK / "odb"), "DicomPort": port, "HttpPort": http,
        "Plugins": [], "RemoteAccessAllowed": False, "AuthenticationEnabled": False, "DicomAet": "ARCHIVE",
        "DicomAlwaysAllowGet": True, "DicomAlwaysAllowFind": True, "DicomAlwaysAllowMove": True,
        "DefaultEncoding": "Latin1", "DicomModalities": {"k": ["KORVANE", HERE, own]}}))
    with running(ORTHANC, WORK / "orthanc.json", stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL):
        for _ in range(100):
            with contextlib.suppress(OSError), urllib.request.urlopen(f"http://{HERE}:{http}/system", timeout=5):
                break
            time.sleep(0.1)
        korvane("send", HERE, port, *files, "--aec", "ARCHIVE")
        queried(port, files)
        moved(port, own, files)


def worklist():
    folder = WORK / "wl/ARCHIVE"
    folder.mkdir(parents=True)
    (folder / "lockfile").touch()
    for number in (1, 2):
        step = pydicom.Dataset()
        step.Modality, step.ScheduledStationAETitle = "CT", f"CT{number}"
        step.ScheduledProcedureStepStartDate, step.ScheduledProcedureStepStartTime = f"2026010{number}", "1000"
        step.ScheduledProcedureStepID, step.ScheduledProcedureStepDescription = "S", "Head"
        step.ScheduledPerformingPhysicianName = "Doe"
        ds = pydicom.Dataset()
        ds.SpecificCharacterSet, ds.PatientName, ds.PatientID = "ISO_IR 100", NAMES[0], f"W{number}"
        ds.StudyInstanceUID, ds.RequestedProcedureID, ds.AccessionNumber = f"1.2.{number}", "R", "A"
        ds.RequestedProcedureDescription, ds.PatientSex, ds.PatientBirthDate = "Head", "M", "19700101"
        ds.ScheduledProcedureStepSequence = [step]
        ds.file_meta = pydicom.dataset.FileMetaDataset()
        ds.file_meta.TransferSyntaxUID, ds.is_little_endian, ds.is_implicit_VR = pydicom.uid.ExplicitVRLittleEndian, True, False
        ds.file_meta.MediaStorageSOPClassUID, ds.file_meta.MediaStorageSOPInstanceUID = "1.2.276.0.7230010.3.1.0.1", f"1.2.{number}"
        ds.save_as(folder / f"{number}.wl", write_like_original=False)
    port = free_port()
    with running("wlmscpfs", "-cs1", "-dfp", WORK / "wl", port, stderr=subprocess.DEVNULL):
        await_port(port)
        found, _ = ask(port, "--level", "worklist", "ScheduledProcedureStepSequence[0].ScheduledStationAETitle=CT2")
        assert [(ds.PatientID, str(ds.PatientName)) for ds in found] == [("W2", NAMES[0])]
        assert found[0].ScheduledProcedureStepSequence[0].ScheduledProcedureStepStartDate == "20260102"


def element(tag, value, form="<HHI"):
    return struct.pack(form, tag >> 16, tag & 0xFFFF, len(value)) + value


@contextlib.contextmanager
def archive(answers):
    """A peer that accepts one association for the study root in implicit little endian, and sends what it likes."""
    def item(kind, data):
        return struct.pack(">BBH", kind, 0, len(data)) + data

    def receive(peer):
        head = peer.recv(6, socket.MSG_WAITALL)
        return head[:1], peer.recv(struct.unpack(">I", head[2:])[0], socket.MSG_WAITALL) if len(head) == 6 else b""

    heard = []

    def serve():
        peer = listener.accept()[0]
        with peer, contextlib.suppress(OSError):
            request = receive(peer)[1]
            body = request[:68] + item(0x10, b"1.2.840.10008.3.1.1.1") + item(
                0x21, b"\1\0\0\0" + item(0x40, b"1.2.840.10008.1.2")) + item(0x50, item(0x51, struct.pack(">I", 16384)))
            peer.sendall(struct.pack(">BBI", 2, 0, len(body)) + body)
            receive(peer), receive(peer)
            for part, last in answers():
                pdv = struct.pack(">IBB", len(part) + 2, 1, last) + part
                peer.sendall(struct.pack(">BBI", 4, 0, len(pdv)) + pdv)
            while (message := receive(peer))[0]:
                heard.append(message)
                if message[0] == b"\5":
                    peer.sendall(struct.pack(">BBIxxxx", 6, 0, 4))
    with socket.create_server((HERE, 0)) as listener:
        server = threading.Thread(target=serve)
        server.start()
        yield listener.getsockname()[1], heard
        server.join()


def response(status, data=True):
    command = b"".join(element(tag, struct.pack("<H", value)) for tag, value in (
        (0x100, 0x8020), (0x120, 1), (0x800, 1 if data else 0x101), (0x900, status)))
    return command, 3


def hostile():
    match = element(0x00080052, b"STUDY ") + element(0x0020000D, b"1.2\0")
    nested = (element(0x00081115, b"")[:4] + b"\xff" * 4 + struct.pack("<HHI", 0xFFFE, 0xE000, 0xFFFFFFFF)) * 1000
    for answers, word in (([response(0xFF00), (b"\x08\0\x52\0\xff\xff\xff\x7f", 2)], "damaged"),
                          ([response(0xFF00), (nested, 2)], "damaged"), ([(response(0)[0][:-3], 3)], "malformed")):
        with archive(lambda answers=answers: answers) as (port, _):
            err = korvane("find", HERE, port, status=1)[1]
            assert word in err, err
    # Matches without end: the query is cancelled where the limit is, and the rest is not waited for for ever.
    def endless():
        for _ in range(3):
            yield response(0xFF00)
            yield match, 2
        yield response(0xFE00, False)

    with archive(endless) as (port, heard):
        out = json.loads(korvane("find", HERE, port, "--limit", 2, "--json")[0])
        assert out["cut"] and len(out["matches"]) == 2
    assert any(struct.pack("<H", 0x0FFF) in data for _, data in heard), heard
    with socket.create_server((HERE, 0)) as silent:
        held = []
        host_test.interrupted(["find", HERE, silent.getsockname()[1]], lambda: held.append(silent.accept()))
    with archive(lambda: []) as (port, heard):  # asked, and no answer
        host_test.interrupted(["find", HERE, port], lambda: time.sleep(1))
    assert any(kind == b"\7" for kind, _ in heard), heard


if not PEERS or not all(map(shutil.which, ("dcmqrscp", "wlmscpfs"))):
    print("skipped: dcmtk is not installed")
    raise SystemExit(host_test.SKIPPED)
host_test.run(dcmtk, orthanc, worklist, hostile)
