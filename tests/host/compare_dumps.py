#!/usr/bin/env python3
"""Dumps against dcmdump, JSON against pydicom, on made files and, where they are, real ones."""

import base64
import json
import re
import shutil
import subprocess

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


host_test.run(text_dumps, printable, json_model)
