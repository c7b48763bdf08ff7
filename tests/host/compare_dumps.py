#!/usr/bin/env python3
"""Dumps against dcmdump, JSON against pydicom, on made files and, where they are, real ones."""

import base64
import csv
import io
import json
import re
import shutil
import subprocess
from xml.etree import ElementTree

import host_test
import numpy
import pydicom
from host_test import SAMPLES, WORK, edited, korvane, phantom
from pydicom.dataset import Dataset
from pydicom.sequence import Sequence

# Files on which the peers themselves disagree or give up: their reading is no measure.
NO_PEER = {"rtplan_truncated.dcm", "MR_truncated.dcm", "image_dfl.dcm", "no_meta.dcm", "badVR.dcm",
           "meta_missing_tsyntax.dcm", "ExplVR_BigEndNoMeta.dcm", "UN_sequence.dcm"}


pydicom.config.replace_un_with_known_vr = True  # as the dump does


def made_file():
    """One file with every kind of value, nested and odd ones included."""
    if (WORK / "made").is_dir():
        return WORK / "made" / "0000.dcm"

    def change(ds, _):
        ds.SpecificCharacterSet = "ISO_IR 100"
        ds.PatientName = "Müller^Jörg=ideographic=phonetic"
        ds.PatientComments = "line one\r\nline \x1b two\x07"
        ds.OtherPatientIDs = ["A", "", "C"]
        inner, item = Dataset(), Dataset()
        inner.ReferencedSOPInstanceUID, inner.ReferencedFrameNumber = "1.2.3", [1, -2, 3]
        item.ReferencedImageSequence = Sequence([inner, Dataset()])
        item.CodeMeaning = "Größe"
        ds.RequestAttributesSequence = Sequence([item])
        ds.ReferencedStudySequence = Sequence([])
        ds.FrameIncrementPointer = [0x00181063, 0x00181065]
        ds.add_new(0x00189087, "FD", [0.1, -1e300])
        ds.add_new(0x00189305, "FD", float("nan"))
        ds.add_new(0x00186020, "SL", [-5, 2**31 - 1])
        ds.add_new(0x0040A162, "UL", 2**32 - 1)
        ds.add_new(0x00089214, "FL", 0.1)
        ds.WindowCenter = ["+40", "1e3", ".5", "007"]
        ds.add_new(0x00090010, "LO", "MAKER")
        ds.add_new(0x00091001, "UN", b"\x01\x02\xff\x00\x80\x7f")
        ds.add_new(0x00091002, "UV", 2**60)
        for length in (2, 4):  # with the 6 above, every remainder of base 64
            ds.add_new(0x00091002 + length, "OB", bytes(range(256 - length, 256)))
    return edited(phantom("plain", "--size", 9, "--slices", 1), "made", change) / "0000.dcm"


def files():
    yield made_file()
    if SAMPLES.is_dir():
        yield from sorted(path for path in (SAMPLES / "files").glob("*.dcm") if path.name not in NO_PEER)
        yield from sorted((SAMPLES / "dicomdir").glob("DICOMDIR*"))
        yield SAMPLES / "mr-epi-5x30" / "axial_epi_fmri_interleaved_i_to_s-00001.dcm"


def own_elements(path):
    """(depth, tag, type, length) of each line."""
    for line in korvane("dump", path)[0].splitlines():
        match = re.match(r"( *)\(([0-9A-F]{4}),([0-9A-F]{4})\) ([A-Z]{2}) +(\d+)  ", line)
        if match:
            yield len(match[1]) // 4, f"{match[2]},{match[3]}".lower(), match[4], int(match[5])


def peer_elements(path):
    done = subprocess.run(["dcmdump", "-q", "+L", path], capture_output=True, check=True)
    text = re.sub(r"\r?\n(?! *\()", " ", done.stdout.decode("latin-1"))  # texts of several lines
    for line in text.split("\n"):
        match = re.match(r"( *)\(([0-9a-f]{4}),([0-9a-f]{4})\) (..) .*# +(u/l|\d+),", line)
        if match and match[2] != "fffe":
            yield len(match[1]) // 4, f"{match[2]},{match[3]}", match[4], match[5]


def without_opened(own, peer):
    """Without the items of sequences that the peer leaves as UN."""
    kept, at = [], 0
    for element in own:
        above = peer[at - 1] if at else None
        if above and above[2] == "UN" and element[0] > above[0]:
            continue
        kept.append(element)
        at += 1
    return kept


def text_dumps():
    if shutil.which("dcmdump") is None:
        print("skipped: dcmdump (dcmtk) is not installed")
        return
    compared = 0
    for path in files():
        own, peer = list(own_elements(path)), list(peer_elements(path))
        own = without_opened(own, peer)
        assert [e[:2] for e in own] == [e[:2] for e in peer], (path, [e for e in zip(own, peer) if e[0][:2] != e[1][:2]][:1])
        for mine, theirs in zip(own, peer):
            same_type = mine[2] == theirs[2] or theirs[2] in ("ox", "xs", "lt", "up", "??", "px")
            # Private elements of an implicit file: the peer has dictionaries of makers.
            encapsulated = theirs[3] == "u/l"  # the peer calls it OB whatever the file says
            assert same_type or encapsulated or "UN" in (mine[2], theirs[2]), (path, mine, theirs)
            assert mine[2] == "SQ" or encapsulated or mine[3] == int(theirs[3]), (path, mine, theirs)
            compared += 1
    print(f"{compared} elements compared")


def printable():
    out = korvane("dump", made_file())[0]
    assert "line one\\r\\nline \\x1B two\\x07" in out and "Müller^Jörg=ideographic=phonetic" in out
    assert "A\\\\C" in out and "01 02 FF 00 80 7F" in out
    assert not set(out) & {chr(code) for code in [*range(10), *range(11, 32), *range(127, 160)]}
    lines = korvane("dump", "--whole", made_file())[0].splitlines()
    assert max(map(len, lines)) > 400 > max(map(len, out.splitlines()))


def trimmed(value):
    """A member of the JSON model without what both may choose: blanks at the end, bytes of padding."""
    if isinstance(value, dict):
        return {key: trimmed(member) for key, member in value.items()}
    if isinstance(value, list):
        return [trimmed(member) for member in value]
    return value.rstrip(" \0") if isinstance(value, str) else value


def same_element(tag, own, peer):
    if tag == "00080005":
        return own["Value"] == ["ISO_IR 192"] or own == peer
    if own["vr"] != peer["vr"]:
        return own["vr"] == "UN"  # private elements of implicit files
    if own["vr"] == "SQ":
        items = own.get("Value", []), peer.get("Value", [])
        return len(items[0]) == len(items[1]) and all(same_data_set(a, b) for a, b in zip(*items))
    if "InlineBinary" in own:
        mine, theirs = base64.b64decode(own["InlineBinary"]), base64.b64decode(peer["InlineBinary"])
        # The model is little endian; the peer passes on what a big-endian file has.
        # A value of odd length has its pad in memory.
        return theirs in (mine, mine[:-1], numpy.frombuffer(mine, "<u2").astype(">u2").tobytes())
    values = own.get("Value", []), [v for v in peer.get("Value", [])]
    if own["vr"] in ("DS", "IS", "FL", "FD") and len(values[0]) == len(values[1]):
        return all(str(a) == str(b) or (a is None and not b) or abs(float(a) - float(b)) <= 1e-6 * abs(float(b))
                   or (a != a or b != b) for a, b in zip(*values) if a != "nan")
    return [v or None for v in trimmed(values[0])] == [v or None for v in trimmed(values[1])] or (
        own["vr"] in ("SV", "UV") and [int(v) for v in values[0]] == values[1])


def same_data_set(own, peer):
    peer = {tag: member for tag, member in peer.items() if not tag.endswith("0000")}
    assert own.keys() == peer.keys(), own.keys() ^ peer.keys()
    for tag, member in own.items():
        assert same_element(tag, member, peer[tag]), (tag, str(member)[:200], str(peer[tag])[:200])
    return True


def json_model():
    for path in files():
        text = korvane("dump", "--json", path)[0]
        own = json.loads(text)
        assert list(own) == sorted(own)
        ds = pydicom.dcmread(path, force=True)
        try:
            peer = ds.to_json_dict(suppress_invalid_tags=True)
        except Exception as error:  # pylint: disable=broad-except
            print(f"no measure: pydicom cannot write {path.name} as JSON: {error}")
            continue
        assert same_data_set(own, peer), path
        assert Dataset.from_json(text).keys() == {tag for tag in ds.keys() if tag.element != 0}
    own = json.loads(korvane("dump", "--json", "--meta", made_file())[0])
    assert own["00020010"]["Value"] == ["1.2.840.10008.1.2.1"]
    assert own["00280009"]["Value"] == ["00181063", "00181065"] and own["00101000"]["Value"] == ["A", None, "C"]
    assert own["00281050"]["Value"] == [40, 1000, 0.5, 7] and own["00091002"]["Value"] == [str(2**60)]
    assert own["00089214"]["Value"] == [0.1]  # a single-precision value, not widened
    assert own["00100010"]["Value"] == [
        {"Alphabetic": "Müller^Jörg", "Ideographic": "ideographic", "Phonetic": "phonetic"}]


NATIVE = "{http://dicom.nema.org/PS3.19/models/NativeDICOM}"


def from_xml(node):
    """The Native DICOM Model as JSON model; private tags without their block."""
    members = {}
    for child in node.findall(NATIVE + "DicomAttribute"):
        member, kind = {"vr": child.get("vr")}, child.get("vr")
        values = []
        for value in child:
            name = value.tag.removeprefix(NATIVE)
            assert name == "InlineBinary" or int(value.get("number")) == len(values) + 1
            if name == "InlineBinary":
                member["InlineBinary"] = value.text
            elif name == "Item":
                values.append(from_xml(value))
            elif name == "PersonName":
                parts = ("FamilyName", "GivenName", "MiddleName", "NamePrefix", "NameSuffix")
                values.append({group.tag.removeprefix(NATIVE): "^".join(
                    group.findtext(NATIVE + part, "") for part in parts).rstrip("^") for group in value} or None)
            else:
                number = {"US": int, "SS": int, "UL": int, "SL": int, "FL": float, "FD": float, "IS": float, "DS": float}
                values.append(number.get(kind, str)(value.text) if value.text else None)
        if values:
            member["Value"] = values
        key = child.get("tag"), child.get("privateCreator")
        assert key not in members
        members[key] = member
        if not key[1]:
            keyword = pydicom.datadict.keyword_for_tag(int(key[0], 16))
            assert child.get("keyword", "") == keyword or int(key[0][:2], 16) in (0x50, 0x60, 0x7F), key
    return members


def without_blocks(peer):
    """What the XML can say of a data set in the JSON model."""
    found = {}
    for tag, member in peer.items():
        if tag.endswith("0000"):
            continue
        if "Value" in member and member["vr"] == "SQ":
            member = {"vr": "SQ", "Value": [without_blocks(item) for item in member["Value"]]}
        creator = None
        if int(tag[:4], 16) % 2 and int(tag[4:], 16) >= 0x1000:
            creator = peer.get(tag[:4] + "00" + tag[4:6], {}).get("Value", [None])[0]
            tag = tag[:4] + "00" + tag[6:]
        found[tag, creator] = member
    return found


def xml_model():
    for path in files():
        text = korvane("dump", "--xml", path)[0]
        own = from_xml(ElementTree.fromstring(text))
        peer = without_blocks(json.loads(korvane("dump", "--json", path)[0]))  # which was compared with pydicom
        assert own.keys() == peer.keys(), (path, own.keys() ^ peer.keys())
        for tag, member in own.items():
            assert same_xml(member, peer[tag]), (path, tag, str(member)[:200], str(peer[tag])[:200])
    comments = ElementTree.fromstring(korvane("dump", "--xml", "--only", "PatientComments", made_file())[0])
    assert comments[0][0].text == "line one\r\nline \ufffd two\ufffd"
    assert "one file" in korvane("dump", "--xml", WORK / "made", status=2)[1]


def comparable(value, kind):
    if isinstance(value, dict):
        return {group: name.rstrip("^") for group, name in value.items()}
    if value is None:
        return None
    text = str(float(value)) if kind in ("IS", "DS", "FL", "FD") else str(value)
    return re.sub("[\x00-\x08\x0b\x0c\x0e-\x1f]", "\ufffd", text)  # which XML does not have


def same_xml(own, peer):
    if own["vr"] == "SQ" and peer["vr"] == "SQ":
        items = own.get("Value", []), peer.get("Value", [])
        return len(items[0]) == len(items[1]) and all(
            a.keys() == b.keys() and all(same_xml(a[tag], b[tag]) for tag in a) for a, b in zip(*items))
    values = [[comparable(value, own["vr"]) for value in member.get("Value", [])] for member in (own, peer)]
    return own["vr"] == peer["vr"] and values[0] == values[1] and own.get("InlineBinary") == peer.get("InlineBinary")


def chosen_elements():
    path = made_file()
    way = "RequestAttributesSequence[0].ReferencedImageSequence[0].ReferencedFrameNumber"
    own = json.loads(korvane("dump", "--json", "--only", way, "--only", "00091002", path)[0])
    item = own["00400275"]["Value"][0]
    assert own.keys() == {"00090010", "00091002", "00400275"} and item.keys() == {"00081140"}
    assert item["00081140"]["Value"] == [{"00081160": {"vr": "IS", "Value": [1, -2, 3]}}, {}]
    lines = korvane("dump", "--only", "(0010,0010)", "--only", "SOPClassUID", path)[0].splitlines()
    assert [line[:11] for line in lines] == ["(0008,0016)", "(0010,0010)"]
    assert "no attribute" in korvane("dump", "--only", "PatientNam", path, status=2)[1]


def folders_and_tables():
    def change(ds, index):
        ds.PatientID = ['plain', 'with "quotes", and commas', "two\\values", " = edged"][index]
        ds.ReferencedStudySequence = Sequence([Dataset()] * index)

    folder = edited(phantom("table", "--size", 9, "--slices", 4), "table-edited", change)
    (folder / "other.txt").write_text("not DICOM")
    columns = "PatientID,ReferencedStudySequence,00280010,ImagePositionPatient,PatientComments,PixelData"
    table = list(csv.reader(io.StringIO(korvane("dump", "--csv", columns, folder)[0])))
    assert table[0] == ["file", *columns.split(",")] and len(table) == 5
    for index, row in enumerate(table[1:]):
        ds = pydicom.dcmread(folder / row[0].rpartition("/")[2])
        stored = "\\".join([ds.PatientID] if isinstance(ds.PatientID, str) else ds.PatientID)
        assert row[1] == stored and row[2] == f"{index} item" + "s" * (index != 1), row
        assert row[3] == "9" and [float(v) for v in row[4].split("\\")] == list(ds.ImagePositionPatient)
        assert row[5] == "" and base64.b64decode(row[6])[: len(ds.PixelData)] == ds.PixelData
    objects = json.loads(korvane("dump", "--json", folder)[0])
    assert [o["00200013"]["Value"] for o in objects] == [[1], [2], [3], [4]]
    cut = folder / "0001.dcm"
    cut.write_bytes(cut.read_bytes()[:-9])
    out, said = korvane("dump", folder, folder / "other.txt", status=1)
    assert "other.txt" in said and cut.name in said and out.count("SOP Class UID") == 8


def all_samples_are_read():
    """What pydicom or dcmdump reads is read; of what is cut, as much as there is."""
    if not SAMPLES.is_dir():
        print("skipped: no samples")
        return
    cut = {"MR_truncated.dcm": "(7FE0,0010) ends early", "rtplan_truncated.dcm": "(300A,012C) ends early"}
    folders = [path for path in (SAMPLES / "vendors").glob("*") if path.is_dir()]
    paths = [*(SAMPLES / "files").iterdir(), *(SAMPLES / "dicomdir").iterdir(),
             *(next(folder.glob("*.dcm")) for folder in folders if any(folder.glob("*.dcm")))]
    count = 0
    for path in sorted(path for path in paths if path.is_file()):
        try:
            pydicom.dcmread(path)
        except pydicom.errors.InvalidDicomError:
            peer = shutil.which("dcmdump") and subprocess.run(["dcmdump", "-q", path], capture_output=True, check=False)
            if not peer or peer.returncode != 0:
                continue
        out, said = korvane("dump", path, status=1 if path.name in cut else 0)
        assert cut.get(path.name, "") in said and out.count("\n(") > 3, path
        count += 1
    print(f"{count} files read")


host_test.run(text_dumps, printable, json_model, xml_model, chosen_elements, folders_and_tables, all_samples_are_read)
