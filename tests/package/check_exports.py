#!/usr/bin/env python3
"""The module exports each class and function that a public header marks KORVANE_API, and nothing else; the Kit those that
its headers mark KORVANE_KIT, all in its namespace.

A Windows module is also to need nothing but the system's own DLLs and the runtime that is shipped beside it.

usage: check_exports.py module|kit LIBRARY SOURCE_ROOT PUBLIC_HEADERS_LIST [OBJDUMP]    (OBJDUMP: for a Windows library)
"""

import re
import subprocess
import sys
from pathlib import Path

SYSTEM_DLLS = {"KERNEL32.dll", "msvcrt.dll", "OLEAUT32.dll", "SHELL32.dll", "USER32.dll", "WS2_32.dll"}
SHIPPED_DLLS = {"libgcc_s_dw2-1.dll", "libwinpthread-1.dll", "Korvane.dll"}
TOOLKIT = {"VR", "DICOMObject", "DICOMDataObject", "DcmDictionary", "CursorList", "TransferSyntaxCodec", "Buffer"}


MACROS = {"module": "KORVANE_API", "kit": "KORVANE_KIT"}


def declared(root, headers, macro):
    """Names of the classes and of the functions that the headers mark."""
    classes, functions = set(), set()
    for header in headers:
        text = re.sub(r"//[^\n]*|/\*.*?\*/", " ", (root / header).read_text(encoding="utf-8"), flags=re.DOTALL)
        if header in ("base/Export.h", "kit/core/KitExport.h"):  # the macro itself
            continue
        for match in re.finditer(rf"\b(class|struct|union)\s+{macro}\s+(\w+)|\b{macro}\b([^;{{]*?)"
                                 r"(operator\s*[^\s\w(]+|operator\s*\(\)|\w+)\s*\(", text):
            if match.group(2):
                classes.add(match.group(2))
            else:
                functions.add(re.sub(r"\s", "", match.group(4)))
    return classes, functions


def output(*command, text=None):
    return subprocess.run(command, input=text, capture_output=True, text=True, check=True).stdout


def exported(module):
    """Demangled names of the defined dynamic symbols."""
    return [line.split(" ", 2)[2] for line in output("nm", "-D", "--defined-only", "-C", module).splitlines()]


def exported_by_dll(module, objdump):
    """The same of a Windows module, and what it imports from where it should not. The compiler adds the type information
    of the standard exceptions that an exported function catches."""
    text = output(objdump, "-p", module)
    table = text[text.index("[Ordinal/Name Pointer] Table"):]
    names = re.findall(r"^\t\[ *\d+\] (\S+)$", table, re.MULTILINE)
    foreign = set(re.findall(r"DLL Name: (\S+)", text)) - SYSTEM_DLLS - SHIPPED_DLLS
    symbols = [name for name in output("c++filt", text="\n".join(names)).splitlines()
               if not name.startswith("typeinfo for std::")]
    return symbols, [f"needs {name}" for name in sorted(foreign)]


def owner(symbol):
    """The class or function that a symbol belongs to: "vtable for CVolume" and "CVolume::Init(...)" are CVolume's."""
    symbol = re.sub(r"^((construction )?vtable|VTT|typeinfo name|typeinfo|guard variable|"
                    r"(non-virtual|virtual|covariant return) thunk) (for|to) ", "", symbol)
    if symbol.startswith("operator"):
        return re.sub(r"\s", "", re.match(r"operator\s*(\(\)|[^(]+)", symbol).group(0))
    name = re.match(r"[^(<]+", symbol).group(0)  # of a template the tool shows the result type too: "long C::F<...>"
    return name.split(" ")[-1].split("::")[0]


def main():
    which, library, root, listed = sys.argv[1], sys.argv[2], Path(sys.argv[3]), Path(sys.argv[4])
    classes, functions = declared(root, listed.read_text(encoding="utf-8").split(), MACROS[which])
    symbols, wrong = exported_by_dll(library, sys.argv[5]) if len(sys.argv) > 5 else (exported(library), [])
    if which == "kit":
        wrong += [f"outside the namespace: {symbol}" for symbol in symbols if "korvane::" not in symbol]
        symbols = [symbol.replace("korvane::", "").replace("[abi:cxx11]", "") for symbol in symbols]
    found = {}
    for symbol in symbols:
        found.setdefault(owner(symbol), symbol)
    wrong += [f"not exported: {name}" for name in sorted((classes | functions) - found.keys())]
    wrong += [f"exported, yet no public header says so: {symbol}"
              for name, symbol in sorted(found.items()) if name not in classes | functions]
    wrong += [f"a toolkit class marked for export: {name}" for name in sorted(TOOLKIT & classes)]
    if not classes:
        wrong.append("no exported class in any header")
    print("\n".join(wrong) or f"{len(classes)} classes and {len(functions)} functions, as declared")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
