#!/usr/bin/python3
"""Generates the table of the public DICOM data dictionary (PS3.6, PS3.7 and the items of PS3.5), and the tags' names.

    cmake/make_dictionary.py            writes PublicDictionaryTable.generated.inc and Tags.generated.h
    cmake/make_dictionary.py --tags     writes Tags.generated.h alone: after a source has used a new name
    cmake/make_dictionary.py --check    writes nothing; exit status 1 when a file is not what would be written

Both are kept in Dicom/Lib/dictionary/, so no build needs this script. Run it when the standard has grown and newer
packages hold the new attributes. It works offline and gives the same bytes for the same packages.

Tags.generated.h has a constant, named by the standard's keyword, for each tag that the sources call tags::Keyword.

Two independent sources (Debian: python3-pydicom, libdcmtk17) have to agree on every tag, value representation and
keyword; names, as PS3.6 prints them, come from the first, which is the only one that has them. A difference that is
not resolved by a rule below stops the script: it is for a person to look up.
"""

import argparse
import collections
import glob
import pathlib
import re
import sys

import lint
import pydicom
from pydicom._dicom_dict import DicomDictionary, RepeatersDictionary

ROOT = pathlib.Path(__file__).resolve().parent.parent
TABLE = ROOT / "Dicom" / "Lib" / "dictionary" / "PublicDictionaryTable.generated.inc"
TAGS = TABLE.with_name("Tags.generated.h")
EDITION = "2022b"

Row = collections.namedtuple("Row", "representation name")

# One code per row. "US or SS" follows Pixel Representation (0028,0103) and is marked; the others have a choice that
# is valid whatever the pixels are: the implicit syntax fixes OW, and a look-up table may be longer than US can say.
RESOLVED = {
    "US or SS": "US",
    "OB or OW": "OW",
    "US or OW": "OW",
    "US or SS or OW": "OW",
}
AMBIGUOUS = "US or SS"
NO_REPRESENTATION = "NONE"

# The second source's notation for the same alternatives.
SECOND_NOTATION = {
    "xs": {"US or SS"},
    "ox": {"OB or OW"},
    "px": {"OB or OW"},
    "lt": {"US or OW", "US or SS or OW"},
    "na": {"NONE"},
    "up": {"UL"},
}

# In edition 2022b, and newer than the first source: tag and representation are the second source's.
NEWER_NAMES = {
    0x00060001: "Current Frame Functional Groups Sequence",
    0x00080017: "Acquisition UID",
    0x00080019: "Pyramid UID",
    0x00081088: "Pyramid Description",
    0x00200027: "Pyramid Label",
}

# Even groups that a repeating group of PS3.5 section 7.6 stands for; the standard names no others.
REPEATED_GROUPS = {
    "50xx": range(0x5000, 0x5020, 2),
    "60xx": range(0x6000, 0x6020, 2),
    "7Fxx": range(0x7F00, 0x8000, 2),
}

# (1000,xxx0) to (1000,xxx5) and (1010,xxxx), retired with ACR-NEMA, would be 90,112 rows of seven names.
UNLISTED_GROUPS = (0x1000, 0x1010)


def fail(message):
    sys.exit(f"make_dictionary.py: {message}")


def tag_text(key):
    return f"({key >> 16:04X},{key & 0xFFFF:04X})"


def expand(pattern):
    """Keys that a pattern such as "60xx3000" or "002804x0" stands for."""
    group, element = pattern[:4], pattern[4:]
    groups = REPEATED_GROUPS[group] if "x" in group else [int(group, 16)]
    digits = element.count("x")
    for g in groups:
        for value in range(16**digits):
            text = element
            for digit in f"{value:0{digits}X}" if digits else "":
                text = text.replace("x", digit, 1)
            yield g << 16 | int(text, 16)


def first_source():
    """Rows and keywords by key. A tag that is listed by itself goes before a pattern that covers it."""
    rows, keywords, unnamed = {}, {}, []
    for key, (representation, _, name, _, keyword) in DicomDictionary.items():
        if not keyword:  # retired so thoroughly that the standard prints neither name nor keyword
            unnamed.append(key)
            continue
        rows[key] = Row(representation, name)
        keywords[key] = keyword
    for pattern, (representation, _, name, _, keyword) in RepeatersDictionary.items():
        if pattern[:4] in ("1000", "1010"):
            continue
        for key in expand(pattern):
            if key not in rows:
                rows[key] = Row(representation, name)
                keywords[key] = keyword
    return rows, keywords, unnamed


def second_source(path):
    """(first key, is a range, representation, keyword) of each public line; the file's header names its edition."""
    text = pathlib.Path(path).read_text(encoding="ascii")
    if f"PS 3.6-{EDITION}" not in text:
        fail(f"{path} is not of edition {EDITION}")
    for line in text.splitlines():
        if not line.startswith("("):
            continue
        tag, representation, keyword, _, version = line.split("\t")
        if not version.startswith("DICOM"):
            continue
        group, element = tag.strip("()").split(",")
        key = int(group.split("-")[0], 16) << 16 | int(element.split("-")[0], 16)
        yield key, "-" in tag, representation, re.sub("^RETIRED_", "", keyword)


def merge(rows, keywords, path):
    """Checks the first source by the second and adds the newer attributes; returns the numbers for the summary."""
    counts = collections.Counter()
    seen = set()
    for key, is_range, representation, keyword in second_source(path):
        if key >> 16 in UNLISTED_GROUPS:
            counts["left out"] += 1
            continue
        if key in NEWER_NAMES and key not in rows:
            name = NEWER_NAMES[key]
            rows[key] = Row(representation, name)
            keywords[key] = name.replace(" ", "")
            counts["added"] += 1
        if key not in rows:
            fail(f"{tag_text(key)} {keyword} is in one source only")
        if rows[key].representation not in SECOND_NOTATION.get(representation, {representation}):
            fail(f"{tag_text(key)} {keyword}: {rows[key].representation} here, {representation} there")
        if keywords[key] != keyword:
            fail(f"{tag_text(key)}: {keywords[key]} here, {keyword} there")
        counts["ranges" if is_range else "single tags"] += 1
        seen.add(keyword)
    for key, keyword in keywords.items():
        if keyword not in seen:
            fail(f"{tag_text(key)} {keyword} is in one source only")
    return counts


def check_row(key, row):
    representation = RESOLVED.get(row.representation, row.representation)
    if representation != NO_REPRESENTATION and not re.fullmatch("[A-Z]{2}", representation):
        fail(f"{tag_text(key)}: no rule for the value representation {row.representation}")
    if not re.fullmatch("[ !#-\\[\\]-~]+", row.name) or row.name != row.name.strip():
        fail(f"{tag_text(key)}: {row.name!r} is not printable ASCII without quotes and backslashes")


def table_text(rows):
    lines = [
        "// Generated by cmake/make_dictionary.py: do not edit, run the script.",
        f"// DICOM PS3.6 and PS3.7 {EDITION} by way of pydicom {pydicom.__version__} and DCMTK's dictionary;"
        f" {len(rows)} rows.",
        "// clang-format off",
    ]
    for key in sorted(rows):
        row = rows[key]
        check_row(key, row)
        flags = "kAmbiguousUsSs" if row.representation == AMBIGUOUS else "0"
        representation = RESOLVED.get(row.representation, row.representation)
        code = "0" if representation == NO_REPRESENTATION else f'Code("{representation}")'
        lines.append(f'{{0x{key:08X}, {flags}, {code}, "{row.name}"}},')
    return "\n".join(lines) + "\n"


def used_keywords():
    """The names that the sources use; read as cmake/lint.py reads them, which checks that none is missing or left."""
    used = set()
    for path in lint.project_files():
        if lint.is_source(path) and not lint.is_generated(path):
            used |= set(lint.TAG_NAME.findall((ROOT / path).read_text(encoding="utf-8")))
    return used


def tags_text(keywords, used):
    """A repeating group's keyword means its first group."""
    first = {}
    for key in sorted(keywords):
        first.setdefault(keywords[key], key)
    for name in sorted(used - set(first)):
        fail(f"tags::{name} is no keyword of the standard")
    lines = [
        "// Generated by cmake/make_dictionary.py: do not edit, run the script with --tags.",
        "// Tags by the keyword that the standard gives them (PS3.6, PS3.7): those that the sources use.",
        "#pragma once",
        "",
        '#include "../dataset/Tag.h"',
        "",
        "namespace tags {",
        "",
        "// clang-format off",
    ]
    for name in sorted(used, key=first.get):
        lines.append(f"inline constexpr Tag {name} = MakeTag(0x{first[name] >> 16:04X}, 0x{first[name] & 0xFFFF:04X});")
    return "\n".join([*lines, "// clang-format on", "", "}  // namespace tags"]) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--check", action="store_true", help="compare with the kept files instead of writing them")
    parser.add_argument("--tags", action="store_true", help="the names of the tags alone")
    parser.add_argument("--dcmtk", metavar="FILE", help="DCMTK's dicom.dic, where it is not in its usual place")
    arguments = parser.parse_args()

    rows, keywords, unnamed = first_source()
    texts = {}
    if not arguments.tags:
        second = [arguments.dcmtk] if arguments.dcmtk else sorted(glob.glob("/usr/share/libdcmtk*/dicom.dic"))
        if not second:
            fail("no dicom.dic found (Debian: apt-get install libdcmtk17)")
        counts = merge(rows, keywords, second[-1])
        print(f"{len(rows)} rows; agreed: {counts['single tags']} single tags and {counts['ranges']} ranges;"
              f" newer: {counts['added']}; left out: {counts['left out']} of groups 1000 and 1010, without a name:"
              f" {' '.join(tag_text(key) for key in sorted(unnamed))}")
        texts[TABLE] = table_text(rows)
    texts[TAGS] = tags_text(keywords, used_keywords())
    for path, text in texts.items():
        if not arguments.check:
            path.write_text(text, encoding="ascii", newline="\n")
        elif not path.exists() or path.read_text(encoding="ascii") != text:
            fail(f"{path.name} is not what this script makes of the packages here")


if __name__ == "__main__":
    main()
