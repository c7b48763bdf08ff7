#!/usr/bin/env python3
"""House rules that a machine can check. `./dev lint` calls this; each finding is one line "file:line: what"."""

import argparse
import concurrent.futures
import hashlib
import json
import os
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent

# The rooms that each room may include besides itself. A room stands below all those that it may include, so there are no
# circles.
TOOLKIT = {
    "Dicom/Lib/stream": [],
    "Dicom/Lib/dataset": [],
    "Dicom/Lib/dictionary": ["dataset"],
    "Dicom/Lib/syntax": ["stream", "dataset", "dictionary"],
    "Dicom/Lib/pixels": ["stream", "dataset", "dictionary", "syntax"],
    "Dicom/Lib/storage": ["stream", "dataset", "dictionary", "syntax", "pixels"],
    "Dicom/Lib/network": ["stream", "dataset", "dictionary", "syntax", "pixels", "storage"],
}
GROUND = ["base", "platform"]
MIDDLE = ["automation", "automation/values", "volume", "math", *TOOLKIT, *GROUND]
LIBRARY = ["series", "slicing", "export", "media", *MIDDLE]
KIT = {
    "kit/core": [],
    "kit/dataset": ["core"],
    "kit/vendors": ["core", "dataset"],
    "kit/study": ["core", "dataset", "vendors"],
    "kit/pictures": ["core", "dataset", "study"],
    "kit/derived": ["core", "dataset", "study"],
    "kit/export": ["core", "dataset", "vendors", "study", "pictures", "derived"],
    "kit/batch": ["core", "dataset", "study", "export"],
    "kit/media": ["core", "dataset", "study", "pictures"],
    "kit/network": ["core", "dataset"],
    "kit/phantom": ["core", "dataset"],
}
ARROWS = {
    "base": [],
    "platform": ["base"],
    "math": GROUND,
    "volume": GROUND,
    **{room: [*(f"Dicom/Lib/{name}" for name in names), *GROUND] for room, names in TOOLKIT.items()},
    "automation/values": GROUND,
    "automation": [*TOOLKIT, "automation/values", "math", *GROUND],
    "series": MIDDLE,
    "slicing": ["series", *MIDDLE],
    "export": ["series", *MIDDLE],
    "media": ["series", *MIDDLE],
    **{room: [*(f"kit/{name}" for name in names), *LIBRARY] for room, names in KIT.items()},
}
OUTSIDERS = ["codecs", "host", "python", "examples", "tests", "bench"]  # on <Korvane/...> only
FOREIGN = {"export": ["ftplib.h"], "codecs": ["jpeglib.h", "openjpeg.h"],
           "kit/pictures": ["jpeglib.h"], "kit/dataset": ["archive.h", "archive_entry.h"],
           "kit/network": ["curl/curl.h", "openssl/err.h", "openssl/ssl.h", "openssl/x509v3.h"]}  # and who may include them

SOURCE_SUFFIXES = {".cpp", ".h", ".H", ".hpp", ".inc"}
SKIPPED_FOLDERS = {".git", "build", "out", "__pycache__"}

INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]')
# Their waits in GCC 12's library may last for ever where the system has no futex; see docs/style.md.
LOSES_WAKE_UPS = re.compile(r"std::(latch|barrier|binary_semaphore|counting_semaphore|stop_callback)\b")
SYSTEM_MACRO = re.compile(
    r"\b(_WIN32|_WIN64|WIN32|__linux__|__linux|__unix__|__unix|__APPLE__|_MSC_VER|__MINGW32__|__MINGW64__|_POSIX_\w+)\b")
# Files that may know an operating system: the answers to each of them in platform/ and host/terminal/; headers that mark
# exports for its linker; automation values, which Windows has itself; and three files of platform/.
SYSTEM_PLACES = re.compile(
    r"^((platform|host/terminal)/(posix|windows)/|base/(Codec)?Export\.h$|automation/values/Automation\.h$"
    r"|platform/(PerThread\.h|Socket\.cpp|TextConversion\.cpp)$)")
SYSTEM_HEADER = re.compile(
    r"^(windows|winsock2?|ws2tcpip|oleauto|oaidl|io|direct|process|unistd|fcntl|dlfcn|netdb|poll|dirent|pthread|"
    r"ifaddrs|termios|utime|strings|sched|langinfo)\.h$|^(sys|netinet|arpa|net|linux|asm)/")
FORBIDDEN = re.compile(
    r"\bthe spec(ification)?\b|\bspec(ification)?\.md\b|\bParts? [1-8]\.[1-9]\b|\.\./shared/(spec|design|models)"
    r"|/wor" r"k/|/tmp/bri" r"ef|\bdesign\.md\b|\bmodels\.md\b", re.IGNORECASE)
MAX_LINES = 700
RAW_TAG = re.compile(r"MakeTag\(0x([0-9A-F]{4}), 0x([0-9A-F]{4})\)")
TAG_NAME = re.compile(r"\btags::(?!Tag\b|MakeTag\b|ElementOf\b|GroupOf\b)(\w+)")
DICTIONARY = Path("Dicom/Lib/dictionary/PublicDictionaryTable.generated.inc")
TAG_NAMES = Path("Dicom/Lib/dictionary/Tags.generated.h")  # made by cmake/make_dictionary.py


def project_files():
    for folder, folders, names in os.walk(ROOT):
        folders[:] = sorted(f for f in folders if f not in SKIPPED_FOLDERS)
        for name in sorted(names):
            yield (Path(folder) / name).relative_to(ROOT)


def is_source(path):
    return path.suffix in SOURCE_SUFFIXES


def is_generated(path):
    return "generated" in path.name


def room_of(path):
    text = path.as_posix()
    return max((r for r in [*ARROWS, *OUTSIDERS] if text.startswith(r + "/")), key=len, default=None)


def includes(path):
    for number, line in enumerate((ROOT / path).read_text(encoding="utf-8", errors="replace").splitlines(), 1):
        match = INCLUDE.match(line)
        if match:
            yield number, match.group(1) == "<", match.group(2)


def target_of(path, name):
    """The project file that an include names, relative to the root, or None."""
    if name.startswith("Korvane/"):
        return Path(name.removeprefix("Korvane/"))
    for base in (path.parent, Path(), path.parent / "posix"):  # the build chooses between posix/ and windows/
        candidate = Path(os.path.normpath(base / name))
        if (ROOT / candidate).is_file():
            return candidate
    return None


def check_arrows(files, public):
    for path in files:
        room = room_of(path)
        if room is None or not is_source(path):
            continue
        for number, angled, name in includes(path):
            target = target_of(path, name)
            other = room_of(target) if target else None
            if room in OUTSIDERS:
                if other in ARROWS and not name.startswith("Korvane/"):
                    yield f"{path}:{number}: {room}/ includes the library as <Korvane/...>, not {name}"
            elif other and other != room and other not in ARROWS[room]:
                yield f"{path}:{number}: {room}/ must not include {other}/ ({name})"
            elif not angled and target is None:
                yield f"{path}:{number}: no such file in the project: {name}"
            elif name.startswith("Korvane/") and name != "Korvane/Version.h":  # which the build makes
                yield f"{path}:{number}: inside the library include by folder, not {name}"
            elif path.as_posix() in public and target and not (ROOT / path.parent / name).is_file():
                yield f"{path}:{number}: public headers include relatively: {name}"
            elif path.as_posix() in public and target and target.as_posix() not in public:
                yield f"{path}:{number}: a public header includes {name}, which is not installed"
            elif any(name in names for names in FOREIGN.values()) and name not in FOREIGN.get(room, []):
                yield f"{path}:{number}: {room}/ must not include {name}"


def check_portability(files):
    for path in files:
        room = room_of(path)
        if not is_source(path) or room is None or SYSTEM_PLACES.match(path.as_posix()):
            continue
        for number, _, header in includes(path):
            if SYSTEM_HEADER.match(header) and room != "tests":  # tests also play the outside world: servers, full disks
                yield f"{path}:{number}: operating-system header {header} outside an answer to a system"
        for number, line in enumerate((ROOT / path).read_text(encoding="utf-8", errors="replace").splitlines(), 1):
            code = line.split("//")[0]
            if SYSTEM_MACRO.search(code):
                yield f"{path}:{number}: operating-system macro outside an answer to a system: {line.strip()}"
            if LOSES_WAKE_UPS.search(code):
                yield f"{path}:{number}: waits for ever now and then in the 32-bit Windows build (docs/style.md): {line.strip()}"


def check_words(files):
    for path in files:
        if path.as_posix() == "cmake/lint.py":
            continue
        data = (ROOT / path).read_bytes()
        if b"\0" in data:
            continue
        for number, line in enumerate(data.decode("utf-8", "replace").splitlines(), 1):
            match = FORBIDDEN.search(line)
            if match:
                yield f"{path}:{number}: \"{match.group(0)}\" does not belong into the project"


def check_length(files):
    for path in files:
        if is_source(path) and not is_generated(path):
            lines = len((ROOT / path).read_text(encoding="utf-8", errors="replace").splitlines())
            if lines > MAX_LINES:
                yield f"{path}:{MAX_LINES}: {lines} lines; split it"


def check_program():
    """The program is arguments, words and exit statuses: it stands on the Kit and on its command line library alone."""
    for path in sorted((ROOT / "host").rglob("*")):
        if not is_source(path):
            continue
        for number, angled, name in includes(path.relative_to(ROOT)):
            if "terminal" in path.parts:
                continue  # the part of it that knows a system
            foreign = angled and ("/" in name or name.endswith(".h")) and not SYSTEM_HEADER.match(name)
            if foreign and name not in ("Korvane/Kit.h", "CLI/CLI.hpp"):
                yield f"{path.relative_to(ROOT)}:{number}: the program includes <Korvane/Kit.h> and its command line library, not {name}"
            elif not angled and not (path.parent / name).is_file():
                yield f"{path.relative_to(ROOT)}:{number}: the program includes {name}, which is not its own"


def check_tags(files):
    """The list of tag names holds those that the sources use, and no others; tags that have a name are called by it."""
    public = {int(key, 16) for key in re.findall(r"\{0x([0-9A-F]{8}),", (ROOT / DICTIONARY).read_text(encoding="ascii"))}
    listed = set(re.findall(r"constexpr Tag (\w+)", (ROOT / TAG_NAMES).read_text(encoding="ascii")))
    used = {}
    for path in files:
        if is_source(path) and not is_generated(path):
            for number, line in enumerate((ROOT / path).read_text(encoding="utf-8", errors="replace").splitlines(), 1):
                used.update({name: f"{path}:{number}" for name in TAG_NAME.findall(line)})
                for group, element in RAW_TAG.findall(line) if room_of(path) not in {"tests", "bench"} else []:
                    if int(group + element, 16) in public:
                        yield f"{path}:{number}: ({group},{element}) has a name: tags::Keyword"
    for name in sorted(used.keys() - listed):
        yield f"{used[name]}: tags::{name} is not listed yet; run cmake/make_dictionary.py --tags"
    for name in sorted(listed - used.keys()):
        yield f"{TAG_NAMES}:1: tags::{name} is used no more; run cmake/make_dictionary.py --tags"


def run_all(commands):
    """Runs (label, command) pairs on all processors; yields (label, exit status, output) in order."""
    def run(item):
        done = subprocess.run(item[1], capture_output=True, text=True, check=False, cwd=ROOT)
        return item[0], done.returncode, done.stdout + done.stderr
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        yield from pool.map(run, commands)


def check_format(files):
    paths = [str(p) for p in files if is_source(p) and not is_generated(p)]
    for path, status, output in run_all([(p, ["clang-format", "--dry-run", "-Werror", p]) for p in paths]):
        if status:
            lines = re.findall(r":(\d+):\d+: error:", output)
            yield f"{path}:{lines[0] if lines else 1}: not as clang-format would have it ({len(lines)} places)"


def check_headers(build, public):
    """Each public header, and each interface of platform/, compiles alone, without a compiler extension."""
    internal = [path.relative_to(ROOT).as_posix() for folder in ("platform", "platform/memory")
                for path in sorted((ROOT / folder).glob("*.h"))]
    names = ["Kit.h", "Korvane.h", "Dicom.h", "Version.h", *public, *internal]
    flags = ["-std=c++20", "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic", "-Werror",
             "-Wno-nonportable-include-path", "-x", "c++", f"-I{build}/include", "-include"]
    commands = [(name, ["clang++", *flags, f"Korvane/{name}", "/dev/null"]) for name in names]
    for name, status, output in run_all(commands):
        if status:
            yield f"{name}: does not compile alone\n{output}"


def stamp(entry, dependencies, settings):
    """A key that changes when the source, a project header that it includes, its flags or the settings change."""
    digest = hashlib.sha256(settings + entry["command"].encode())
    for path in sorted({entry["file"], *dependencies}):
        digest.update(Path(path).read_bytes())
    return digest.hexdigest()


def read_dependencies(build):
    """Object file -> project files that it was compiled from, as Ninja remembers them."""
    text = subprocess.run(["ninja", "-C", str(build), "-t", "deps"], capture_output=True, text=True, check=True).stdout
    result, current = {}, None
    for line in text.splitlines():
        if line.startswith("    "):
            path = Path(os.path.normpath(build / line.strip()))
            if current is not None and path.is_relative_to(ROOT) and path.is_file():
                current.append(str(path))
        elif ": #deps" in line:
            current = result.setdefault(line.split(":")[0], [])
    return result


def check_tidy(build):
    """clang-tidy over every compiled file; a file that was clean and has not changed since is not read again."""
    settings = (ROOT / ".clang-tidy").read_bytes()
    for extra in sorted(ROOT.glob("*/.clang-tidy")):
        settings += extra.read_bytes()
    dependencies = read_dependencies(build)
    stamps_file = build / "lint-stamps.json"
    stamps = json.loads(stamps_file.read_text()) if stamps_file.is_file() else {}
    commands, fresh = [], {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        if not Path(entry["file"]).is_relative_to(ROOT) or Path(entry["file"]).is_relative_to(build):
            continue
        fresh[entry["file"]] = stamp(entry, dependencies.get(entry.get("output", ""), []), settings)
        if stamps.get(entry["file"]) != fresh[entry["file"]]:
            commands.append((entry["file"], ["clang-tidy", "-p", str(build), "--quiet", entry["file"]]))
    for name, status, output in run_all(commands):
        findings = [line for line in output.splitlines() if ": warning:" in line or ": error:" in line]
        if status or findings:
            fresh.pop(name)
            yield "\n".join(findings) or output
    stamps_file.write_text(json.dumps(fresh))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=Path, required=True, help="a configured and built Ninja build folder")
    parser.add_argument("checks", nargs="*", help="which checks to run (all)")
    arguments = parser.parse_args()
    build = arguments.build.resolve()
    files = list(project_files())
    public = [name for listed in ("public-headers.txt", "kit-headers.txt") if (build / listed).is_file()
              for name in (build / listed).read_text().split()]
    checks = {
        "arrows": lambda: check_arrows(files, public),
        "program": check_program,
        "portability": lambda: check_portability(files),
        "words": lambda: check_words(files),
        "length": lambda: check_length(files),
        "tags": lambda: check_tags(files),
        "format": lambda: check_format(files),
        "headers": lambda: check_headers(build, public),
        "tidy": lambda: check_tidy(build),
    }
    failed = 0
    for name, check in checks.items():
        if arguments.checks and name not in arguments.checks:
            continue
        findings = list(dict.fromkeys(line for text in check() for line in text.splitlines()))
        print(f"{name}: {'clean' if not findings else ''}", flush=True)
        for finding in findings:
            print(f"  {finding}")
        failed += len(findings)
    print(f"lint: {failed} findings")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
