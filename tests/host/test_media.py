#!/usr/bin/env python3
"""Media that korvane builds: as independent readers see them, and what becomes of them when something goes wrong."""

import functools
import json
import os
import pathlib
import re
import resource
import shutil
import signal
import struct
import subprocess

import host_test
import pydicom
from host_test import SAMPLES, WINDOWS, WORK, korvane, phantom
from pydicom.fileset import FileSet

RT_PLAN = "1.2.840.10008.5.1.4.1.1.481.5"


def written(name, like, **values):
    """A copy of a file with other values; None takes an element out."""
    ds = pydicom.dcmread(like)
    for key, value in values.items():
        delattr(ds, key) if value is None else setattr(ds, key, value)
    ds.file_meta.MediaStorageSOPInstanceUID = ds.get("SOPInstanceUID", "1.2.3")
    (WORK / name).parent.mkdir(exist_ok=True)
    ds.save_as(WORK / name)
    return WORK / name


def sources():
    """Two patients, three studies, four series and 12 files in one folder."""
    folder = phantom("in", "--size", 8, "--slices", 6)
    first = sorted(folder.iterdir())[0]
    for n, (patient, study, series) in enumerate([("../P2", "1.2.1", "1.2.1.1"), ("../P2", "1.2.2", "1.2.2.1"),
                                                  ("../P2", "1.2.2", "1.2.2.2")] * 2):
        written(f"in/other{n}", first, PatientID=patient, SpecificCharacterSet="ISO_IR 192", PatientName="/etc/x\\..\\Ä^王",
                StudyInstanceUID=study, SeriesInstanceUID=series, SOPInstanceUID=f"{series}.{n}")
    return folder, first


def tool(*command):
    done = subprocess.run(command, capture_output=True, text=True, errors="replace", timeout=60, check=False)
    assert done.returncode == 0, (command, done.stderr[-500:])
    return done.stdout


def readers_find_all(root, count, names=True):
    """pydicom follows the offsets, dcmdump and gdcminfo read the whole. A patient's record has one of the names that files
    give to one Patient ID; `names` says that there is one only."""
    found = {}
    for instance in FileSet(pydicom.dcmread(root / "DICOMDIR")):
        ds = instance.load()
        assert ds.SOPInstanceUID == instance.SOPInstanceUID
        assert not names or str(ds.get("PatientName", "")) == str(instance.PatientName)
        found[instance.SOPInstanceUID] = pathlib.Path(instance.path)
    assert len(found) == count, (len(found), count)
    # dcmdump names the place of each item, and what each link says, resolved to what it is.
    dump = tool("dcmdump", "-q", root / "DICOMDIR")
    items = set(re.findall(r"#\s+offset=\$(\d+)", dump))
    assert count <= len(items) and items.issuperset(re.findall(r"\(0004,14[02]0\) up ([1-9]\d*)", dump))
    assert "Media Storage Directory" in tool("gdcminfo", root / "DICOMDIR")
    return found


def whole():
    folder, first = sources()
    (folder / "notes.txt").write_text("no DICOM")
    before = {pydicom.dcmread(path).SOPInstanceUID: path.read_bytes() for path in folder.iterdir() if path.name != "notes.txt"}
    root = WORK / "medium"
    out, _ = korvane("media", root, folder, "--fileset-id", "A_SET", "--private", folder / "notes.txt")
    assert "2 patients, 3 studies, 4 series, 12 files" in out and "1 files that are not DICOM" in out, out
    for uid, path in readers_find_all(root, 12).items():
        assert path.read_bytes() == before[uid] and re.fullmatch("DICOM/P.{7}/S.{7}/S.{7}/I.{7}", path.relative_to(root).as_posix())
    assert pydicom.dcmread(root / "DICOMDIR").FileSetID == "A_SET"
    assert (root / re.search(r"private file: (.*)", out)[1].strip().replace("\\", "/")).read_text() == "no DICOM"
    korvane("media", "--verify", root)
    assert "has a DICOMDIR already" in korvane("media", root, folder, status=1)[1]
    # Damage of every kind is told.
    directory = root / "DICOMDIR"
    good = directory.read_bytes()
    for tag, word in ((b"\x04\0\x00\x14UL", "record"), (b"\x04\0\x20\x14UL", "record"), (b"\x04\0\x02\x12UL", "last record")):
        at = good.index(tag) + 8
        directory.write_bytes(good[:at] + bytes([good[at] ^ 2]) + good[at + 1:])
        assert word in korvane("media", "--verify", root, status=1)[1]
    directory.write_bytes(good.replace(b"DICOM\\P0000002", b"..\\..\\P0000002"))
    assert "no file ID" in korvane("media", "--verify", root, status=1)[1]
    directory.write_bytes(good)
    (root / "DICOM/P0000001/S0000001/S0000001/I0000002").write_bytes(first.read_bytes())
    (root / "DICOM/P0000001/S0000001/S0000001/I0000003").unlink()
    os.truncate(root / "DICOM/P0000001/S0000001/S0000001/I0000004", len(first.read_bytes()) - 2)
    report = json.loads(korvane("media", "--verify", root, "--json", status=1)[0])
    assert report["files"] == 12 and len(report["problems"]) == 3, report


def left_out():
    folder, first = sources()
    for name, values in {"a": {"PatientID": ""}, "b": {"SeriesInstanceUID": None}, "c": {"Rows": 9},
                         "d": {"SOPInstanceUID": "9.1", "SOPClassUID": "1.2.840.10008.5.1.4.1.1.88.11"}}.items():
        written(f"more/{name}", first, **values)
    whole = first.read_bytes()
    bare = bytes.fromhex("0008 0005 4353 000a") + b"ISO_IR 100"  # big endian
    for name, content in (("same", whole), ("short", whole[:501]), ("cut", whole[:-2]), ("bare", whole[132:]), ("big", bare)):
        (WORK / "more" / name).write_bytes(content)
    out, err = korvane("media", WORK / "medium", folder, WORK / "more", "--json", status=1)
    report = json.loads(out)
    why = {pathlib.Path(fault["path"]).name: fault["why"] for fault in report["faults"]}
    for name, text in (("a", "no Patient ID"), ("b", "no Series Instance UID"), ("c", "another content"),
                       ("d", "Concept name sequence missing"), ("short", "ends early"), ("cut", "pixel data ends early"),
                       ("bare", "no preamble"), ("big", "no meta information")):
        assert text in why.pop(name) and name in err, (name, why)
    assert not why and "lacks 8" in err and [pathlib.Path(copy["path"]).name for copy in report["copies"]] == ["same"]
    readers_find_all(WORK / "medium", 12)
    uid = pydicom.dcmread(first).SOPInstanceUID.encode()
    for end in (b"\0a", b"\0b"):  # one UID, which ends at the zero
        (WORK / f"zero{end[1]}").write_bytes(whole.replace(uid, uid[:-2] + end))
    assert "another content" in korvane("media", WORK / "zeros", WORK / "zero97", WORK / "zero98", status=1)[1]
    korvane("media", "--verify", WORK / "zeros")
    missing = korvane("media", WORK / "none/below", WORK / "more/a", status=1)[1]
    assert "no Patient ID" in missing and not (WORK / "none").exists()
    korvane("media", WORK / "none", first, "--fileset-id", "lower", status=2)
    korvane("media", WORK / "none", status=2)


def transcoded():
    _, first = sources()
    korvane("convert", first, WORK / "rle", "--syntax", "rle")
    plan = written("plan", first, SOPClassUID=RT_PLAN, SOPInstanceUID="9.2", RTPlanLabel="one")
    korvane("convert", plan, WORK / "big", "--syntax", "big")
    kept = written("kept", first, SOPClassUID=RT_PLAN, SOPInstanceUID="9.3")  # little endian already: as it is
    kept.chmod(0o600)
    korvane("media", WORK / "medium", WORK / "rle", WORK / "big", kept, "--transcode")
    found = readers_find_all(WORK / "medium", 3)
    for uid, like, syntax in ((pydicom.dcmread(first).SOPInstanceUID, first, "1.2.840.10008.1.2.1"),
                              ("9.2", plan, "1.2.840.10008.1.2"), ("9.3", kept, "1.2.840.10008.1.2.1")):
        stored = pydicom.dcmread(found[uid])
        assert stored.file_meta.TransferSyntaxUID == syntax and stored.PixelData == pydicom.dcmread(like).PixelData
    assert found["9.3"].read_bytes() == kept.read_bytes() and (WINDOWS or found["9.3"].stat().st_mode & 0o777 == 0o600)
    # As they are without that, whatever they are.
    ds = pydicom.dcmread(plan)
    ds.file_meta.TransferSyntaxUID = pydicom.uid.DeflatedExplicitVRLittleEndian
    ds.save_as(WORK / "deflated")
    korvane("media", WORK / "plain", WORK / "rle", WORK / "deflated")
    korvane("media", WORK / "inflated", WORK / "deflated", "--transcode")
    assert pydicom.dcmread(readers_find_all(WORK / "inflated", 1)["9.2"]).file_meta.TransferSyntaxUID == "1.2.840.10008.1.2"
    assert sorted(path.read_bytes() for path in readers_find_all(WORK / "plain", 2).values()) == sorted(
        (WORK / name).read_bytes() for name in ("rle", "deflated"))
    for medium in ("medium", "plain", "inflated"):
        korvane("media", "--verify", WORK / medium)
    # What is decoded is still known as a copy: of another source, and of what a medium has in that form.
    shutil.copy(WORK / "rle", WORK / "rle copy")
    for number, option in enumerate((("--transcode",), ("--profile", "STD-GEN-CD"))):
        twice = WORK / f"twice{number}"
        report = json.loads(korvane("media", twice, WORK / "rle", WORK / "rle copy", *option, "--json")[0])
        assert [len(report[part]) for part in ("copies", "faults", "rewritten")] == [1, 0, 1], report
        assert "decoded" in report["rewritten"][0]["why"]
        assert "the same as" in korvane("media", twice, WORK / "rle copy", *option, "--append", status=1)[1]
        readers_find_all(twice, 1)


def linked():
    _, first = sources()
    korvane("media", WORK / "medium", first, "--link")
    stored = WORK / "medium/DICOM/P0000001/S0000001/S0000001/I0000001"
    assert stored.read_bytes() == first.read_bytes() and stored.stat().st_nlink == 2
    other = pathlib.Path("/dev/shm") / f"korvane-{os.getpid()}"
    if not WINDOWS and other.parent.is_dir() and other.parent.stat().st_dev != WORK.stat().st_dev:
        korvane("media", other, WORK / "in", "--link")
        readers_find_all(other, 12)
        shutil.rmtree(other)


def broken_off():
    folder, first = sources()
    (WORK / "root").write_text("a file")
    assert "root" in korvane("media", WORK / "root", folder, status=1)[1]
    (WORK / "medium/DICOM/P0000001").mkdir(parents=True)
    assert "not empty" in korvane("media", WORK / "medium", folder, status=1)[1]
    assert (WORK / "medium/DICOM/P0000001").is_dir()
    if WINDOWS:
        return
    assert "cannot be read" in korvane("media", WORK / "none", first, "/proc/self/mem", status=1)[1]
    size = max(path.stat().st_size for path in folder.iterdir())
    signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
    for limit in (500, size, size + 100):  # the first file, the directory somewhere
        small_disk = functools.partial(resource.setrlimit, resource.RLIMIT_FSIZE, (limit, limit))
        err = korvane("media", WORK / "full", folder, status=1, preexec_fn=small_disk, restore_signals=False)[1]
        assert "File too large" in err and len(err.splitlines()) == 1 and not (WORK / "full").exists(), err
    os.mkfifo(WORK / "slow")  # the program waits for whoever writes into it
    host_test.interrupted(("media", WORK / "stopped", folder, WORK / "slow"),
                          lambda: host_test.wait_for(lambda: len(list((WORK / "stopped").rglob("I*"))) == 12))
    assert not (WORK / "stopped").exists()


def side_by_side():
    """Threads copy: medium, report and what is said are those of one thread, and of several failures the first in the order of
    names is told."""
    folder, first = sources()
    korvane("phantom", folder, "--size", 16, "--slices", 150)
    mixed = WORK / "mixed"  # half of it must be decoded
    korvane("convert", folder, mixed, "--syntax", "rle")
    for path in sorted(folder.iterdir())[::2]:
        shutil.copy(path, mixed)
    (mixed / "0 notes").write_text("no DICOM")
    for path in (first, sorted(mixed.iterdir())[-1]):
        shutil.copy(path, mixed / f"same {path.name}")
    (mixed / "2 cut").write_bytes(first.read_bytes()[:-2])
    found = []
    for jobs in (1, 2, 8):
        root = WORK / f"medium{jobs}"
        out, err = korvane("media", root, mixed, "--transcode", "--json", "--jobs", jobs, status=1)
        korvane("media", "--verify", root)
        records = [(str(record.get("ReferencedFileID")), record.get("ReferencedSOPInstanceUIDInFile"), record.DirectoryRecordType)
                   for record in pydicom.dcmread(root / "DICOMDIR").DirectoryRecordSequence]
        files = same_files(root)
        del files["DICOMDIR"]
        found.append((files, records, json.loads(out.replace(root.name, "medium")), err.replace(root.name, "medium")))
    assert len(found[0][0]) == 162 and found[0] == found[1] == found[2]
    if WINDOWS:
        return
    for name in ("CT5", "CT9"):
        written(f"in/{name} large", first, SOPInstanceUID=f"9.{name[2:]}", PixelData=bytes(100000))
    signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
    small_disk = functools.partial(resource.setrlimit, resource.RLIMIT_FSIZE, (50000, 50000))
    for jobs in (1, 2, 8, 2, 8, 2, 8):
        err = korvane("media", WORK / "full", folder, "--jobs", jobs, status=1, preexec_fn=small_disk, restore_signals=False)[1]
        assert "CT5 large to" in err and "File too large" in err and len(err.splitlines()) == 1, err
        assert not (WORK / "full").exists()


def same_files(folder):
    return {path.relative_to(folder).as_posix(): path.read_bytes() for path in folder.rglob("*") if path.is_file()}


def appended_and_removed():
    """Into a medium of another maker, whose records have more than ours, and out of it again."""
    folder, first = sources()
    root = WORK / "theirs"
    made = FileSet()
    for path in sorted(folder.iterdir())[:8]:  # six of the phantom, two others
        made.add(path)
    made._tree.children[0]._record.PatientComments = "kept"  # pylint: disable=protected-access
    made.write(root)
    before = same_files(root)
    korvane("media", root, WORK / "in/other0", status=1)  # without --append nothing is touched
    out, _ = korvane("media", root, folder, "--append", "--json")
    assert not json.loads(out)["namesakes"] and len(json.loads(out)["copies"]) == 8 and json.loads(out)["files"] == 12, out
    after = same_files(root)
    assert all(after[name] == content for name, content in before.items() if name != "DICOMDIR")
    assert set(readers_find_all(root, 12)) == {pydicom.dcmread(path).SOPInstanceUID for path in folder.iterdir()}
    records = pydicom.dcmread(root / "DICOMDIR").DirectoryRecordSequence
    assert [r.PatientComments for r in records if "PatientComments" in r] == ["kept"]
    assert [r.DirectoryRecordType for r in records].count("PATIENT") == 2
    namesake = written("namesake", first, PatientName="Somebody^Else", SOPInstanceUID="5.5")
    out, _ = korvane("media", root, namesake, "--append", "--json")
    assert "Somebody^Else" in json.loads(out)["namesakes"][0]["why"] and len(json.loads(out)["namesakes"]) == 1, out
    korvane("media", root, "--remove", "5.5")
    after = same_files(root)
    written("clash", first, Rows=9)
    assert "another content" in korvane("media", root, WORK / "clash", WORK / "in", "--append", status=1)[1]
    assert same_files(root) == after
    korvane("media", "--verify", root)
    # Out: a study, an instance; what nobody has changes nothing.
    korvane("media", root, "--remove", "1.2.2", "--icons", status=2)
    assert "no record has" in korvane("media", root, "--remove", "1.2.2", "--remove", "9.9", status=1)[1]
    assert same_files(root) == after
    gone = pydicom.dcmread(first).SOPInstanceUID
    out, _ = korvane("media", root, "--remove", "1.2.2", "--remove", gone, "--json")
    assert json.loads(out)["files"] == 7 and len(json.loads(out)["removed"]) == 5, out
    left = readers_find_all(root, 7)
    assert gone not in left and not any(uid.startswith("1.2.2.") for uid in left)
    assert len(same_files(root)) == 8 and not [path for path in root.rglob("*") if path.is_dir() and not any(path.iterdir())]
    korvane("media", "--verify", root)


def removal_stays_inside():
    """Folders of a medium may be links of somebody's."""
    if WINDOWS:
        return
    folder, _ = sources()
    korvane("media", WORK / "medium", folder)
    (WORK / "medium/DICOM").rename(WORK / "elsewhere")
    (WORK / "medium/DICOM").symlink_to(WORK / "elsewhere")
    before = same_files(WORK / "elsewhere")
    assert "stays" in korvane("media", WORK / "medium", "--remove", "1.2.2", status=1)[1]
    assert same_files(WORK / "elsewhere") == before


def profiles():
    _, first = sources()
    made = {"rle": "rle", "jpegll": "jpegll", "big": "big", "implicit": "implicit"}
    for number, (name, syntax) in enumerate(made.items()):
        written(f"{name}0", first, SOPInstanceUID=f"9.{number}", SOPClassUID=RT_PLAN if name == "implicit" else pydicom.dcmread(first).SOPClassUID,
                RTPlanLabel="label", StudyID="", SeriesNumber=None)
        korvane("convert", WORK / f"{name}0", WORK / name, "--syntax", syntax)
    undated = written("undated", first, SOPInstanceUID="9.9", StudyDate="")
    sources_of = [WORK / name for name in made]
    for profile, kept in (("STD-GEN-CD", []), ("STD-GEN-USB-JPEG", ["jpegll"])):
        root = WORK / profile
        out, err = korvane("media", root, *sources_of, undated, "--profile", profile, "--icons", "--json", status=1)
        assert "no Study Date" in err and json.loads(out)["profile"] == profile
        assert [pathlib.Path(file["path"]).name for file in json.loads(out)["rewritten"]] == [n for n in made if n not in kept]
        for number, name in enumerate(made):
            stored = readers_find_all(root, 4)[f"9.{number}"]
            if name in kept:
                assert stored.read_bytes() == (WORK / name).read_bytes()
            else:
                ds = pydicom.dcmread(stored)
                assert ds.file_meta.TransferSyntaxUID == "1.2.840.10008.1.2.1"
                assert ds.PixelData == pydicom.dcmread(WORK / f"{name}0").PixelData
        korvane("media", "--verify", root, "--profile", profile)
        # Another maker's builder finds nothing that its profile forbids, and warns of nothing in the directory.
        option = "-Pgp" if profile == "STD-GEN-CD" else "-Pfl"
        files = [path.relative_to(root).as_posix() for path in (root / "DICOM").rglob("I*")]
        checked = subprocess.run(["dcmmkdir", option, "+I", "+id", str(root), "+D", str(WORK / f"{profile}.dir"), *files],
                                 capture_output=True, text=True, check=False)
        assert checked.returncode == 0 and "rror" not in checked.stderr, checked.stderr
        assert "W: " not in subprocess.run(["dcmdump", "+E", str(root / "DICOMDIR")], capture_output=True, text=True, check=False).stderr
        image = next(r for r in pydicom.dcmread(root / "DICOMDIR").DirectoryRecordSequence if r.DirectoryRecordType == "IMAGE")
        icon = image.IconImageSequence[0]
        assert (icon.Rows, icon.Columns) == (8, 8) and len(set(icon.PixelData)) > 1
    assert "is not of STD-GEN-CD" in korvane("media", "--verify", WORK / "STD-GEN-USB-JPEG", "--profile", "STD-GEN-CD", status=1)[1]
    korvane("media", WORK / "none", first, "--profile", "STD-GEN-XX", status=2)


def invented():
    folder, first = sources()
    nameless = [written(f"nameless/{n}", first, PatientID="", StudyInstanceUID=study, SeriesInstanceUID=f"{study}.7", SOPInstanceUID=f"8.{n}")
                for n, study in enumerate(["1.2.1", "7.1", "7.1", "7.2"])]
    ids = []
    for root in (WORK / "one", WORK / "two"):
        korvane("media", root, *nameless, folder, "--invent-patient-id")
        found = readers_find_all(root, 16, names=False)
        stored = [pydicom.dcmread(found[f"8.{n}"]) for n in range(4)]
        assert all(ds.PixelData == pydicom.dcmread(first).PixelData for ds in stored)
        ids.append([ds.PatientID for ds in stored])
        korvane("media", "--verify", root)
    assert ids[0] == ids[1] and ids[0][0] == "../P2" and ids[0][1] == ids[0][2] != ids[0][3], ids


def overlapping():
    """Each record of a crafted directory holds all that follow it: checked in one pass, not in one for each."""
    def element(number, kind, value):
        length = struct.pack("<HI", 0, len(value)) if kind in (b"OB", b"SQ") else struct.pack("<H", len(value))
        return struct.pack("<HH", 4, number) + kind + length + value

    count, size = 3000, 8 + 12 + 14 + 12
    syntax = b"1.2.840.10008.1.2.1\0"
    meta = struct.pack("<HH2sH", 2, 0x10, b"UI", len(syntax)) + syntax
    head = bytes(128) + b"DICM" + meta + element(0x1200, b"UL", struct.pack("<I", 0))
    place = len(head) + 12
    head = head[:-4] + struct.pack("<I", place)
    record = b""
    for n in reversed(range(count)):
        after = place + (n + 1) * size if n + 1 < count else 0
        inner = element(0x1400, b"UL", struct.pack("<I", after)) + element(0x1430, b"CS", b"IMAGE ")
        inner += element(0x1599, b"OB", record)
        record = struct.pack("<HHI", 0xFFFE, 0xE000, len(inner)) + inner
    (WORK / "crafted").mkdir()
    (WORK / "crafted/DICOMDIR").write_bytes(head + element(0x1220, b"SQ", record))
    assert "records overlap" in "".join(korvane("media", "--verify", WORK / "crafted", status=1))


def built_at_once():
    """Of several builders in one root one wins, and its medium is whole; the others touch nothing of it."""
    folder, _ = sources()
    parts = [sorted(folder.iterdir())[n::4] for n in range(4)]
    for turn in range(2 if WINDOWS else 8):
        root = WORK / f"root{turn}/below"
        builders = [subprocess.Popen([*host_test.KORVANE, "media", str(root), *map(str, part)], stderr=subprocess.PIPE,
                                     stdout=subprocess.DEVNULL, text=True) for part in parts]
        said = [builder.communicate(timeout=60)[1] for builder in builders]
        won = [part for part, builder in zip(parts, builders) if builder.returncode == 0]
        assert len(won) == 1, said
        assert all("is being built in" in text or "has a DICOMDIR already" in text for text in said if text), said
        assert set(readers_find_all(root, 3)) == {pydicom.dcmread(path).SOPInstanceUID for path in won[0]}
        korvane("media", "--verify", root)
        assert sorted(path.name for path in root.iterdir()) == ["DICOM", "DICOMDIR"]


def samples():
    if SAMPLES.is_dir():
        out, _ = korvane("media", WORK / "medium", SAMPLES, "--json", status=1)
        readers_find_all(WORK / "medium", json.loads(out)["files"], names=False)
        korvane("media", "--verify", SAMPLES / "dicomdir")


host_test.run(whole, left_out, transcoded, linked, broken_off, side_by_side, appended_and_removed, removal_stays_inside, profiles, invented, overlapping, built_at_once, samples)
