"""FTP saves against real servers, well-behaved and faulty: pyftpdlib in this process, vsftpd beside it.

Called with the path of save_url, behind the words of an emulator's command where it is a Windows program. Exits with 77
(skipped) without pyftpdlib.
"""

import os
import pathlib
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import time

try:
    from ftp_server import Nowhere, Server
except ImportError:  # Debian's packages belong to Debian's interpreter, which may not be the first one found
    if os.path.realpath(sys.executable) != os.path.realpath("/usr/bin/python3") and os.path.exists("/usr/bin/python3"):
        os.execv("/usr/bin/python3", ["/usr/bin/python3", *sys.argv])
    print("skipped: python3-pyftpdlib is not installed")
    sys.exit(77)

PROGRAM = [*sys.argv[1:-1], os.path.abspath(sys.argv[-1])]
WORK = pathlib.Path(tempfile.mkdtemp(prefix="korvane-ftp-test-"))
SERVED, LOCAL = WORK / "served", WORK / "local"
FILES = {"analyze": ["vol.hdr", "vol.img"], "bob": ["vol.header", "vol.ImageInfo", "vol.img"], "vox": ["\\vol.vox"],
         "bytes": ["vol.hdr", "vol.img"]}  # a call of the writer for each plane
BAD_URL = "Bad URL: ftp:user%pwd@host/path/filename | file:path/filename"
NOWHERE = Nowhere()
BIG, LIMIT = 2048, 600  # voxels along a side that no socket's buffers hold; milliseconds


def call(*arguments):
    command = [*PROGRAM, *map(str, arguments)]
    done = subprocess.run(command, capture_output=True, cwd=WORK, timeout=60, check=False)
    assert done.returncode == 0, (command, done.returncode, done.stderr[-500:])
    return done.stdout.decode().replace("\r", "")


def save(form, url, expected, side=3, limit=5000, told=None):
    """Saves to `url`, and checks (result, whether the writer stayed, how the error text begins) and the time it took. A
    save to file: must work whatever happened, and after a success the server has the same files."""
    shutil.rmtree(LOCAL, ignore_errors=True)
    LOCAL.mkdir()
    start = time.monotonic()
    saved, kept, local, text = call(form, url, side, limit).split("\n", 3)
    seconds = time.monotonic() - start
    if told:
        print(f"    {form:8}{told:36.36}{seconds:4.1f} s  \"{text.strip()}\"")
    assert local == "1" and (LOCAL / FILES[form][-1].strip("\\")).stat().st_size >= 4 * side * side, (form, url)
    assert (saved == "1", kept == "1", text.strip()[:len(expected[2]) or None]) == expected, (form, url, saved, kept, text)
    assert seconds < 15, (form, url, seconds)


def arrived(form, folder, name="vol"):
    """Whether the uploaded files hold what the local ones do."""
    for file in FILES[form]:
        there = pathlib.Path(folder + (file if form == "vox" else f"/{file}"))
        there = there.with_name(there.name.replace("vol.", f"{name}."))
        assert there.read_bytes() == (LOCAL / file.strip("\\")).read_bytes(), there


GOOD, FAILED = (True, False, ""), (False, False, "")


def good_saves():
    with Server(SERVED) as server:
        for form in FILES:
            for login, path, folder in (("me%s3cret", "sub/vol", f"{SERVED}/sub"), ("anonymous%me", "vol", f"{SERVED}/")):
                save(form, f"ftp:{login}@{server.host}/{path}", GOOD, side=40)
                arrived(form, folder)
        save("analyze", f"ftp:me%s3cret@{server.host}/sub/my head 1", GOOD)
        arrived("analyze", f"{SERVED}/sub", "my head 1")
        text = call("writer", server.host).split("\n")
    assert text[0].startswith("550 ") and text[1] == "1 4 3 0 4 511 1 5 1 0", text
    assert (SERVED / "sub/a name").read_bytes() == b"a\nbc\0\0\0" + b"7 x|" + b"y" * 511
    assert (SERVED / "sub/text").read_bytes().replace(b"\r", b"") == b"a\nbcd"


def threads():
    """Sessions and exporters of different threads, from the library's first use on; volume k holds numbers of its own."""
    shutil.rmtree(LOCAL, ignore_errors=True)
    LOCAL.mkdir()
    with Server(SERVED) as server:
        assert call("threads", server.host, 8) == "1" * 8
    for k in range(8):
        for name in (f"{k}.hdr", f"{k}.img"):
            assert (SERVED / "sub" / name).read_bytes() == (LOCAL / name).read_bytes(), name
        voxels = struct.unpack(">40000h", (LOCAL / f"{k}.img").read_bytes())  # last slice first
        assert sorted(voxels) == sorted((1000 * k + i + 32768) % 65536 - 32768 for i in range(40000)), k


def faults():
    """Every fault: false, the stated text, and never longer than the limit allows."""
    for fault, login, name, result in (
            ("", "me%wrong", "vol", (False, True, "530 ")), ("", "nobody%s3cret", "vol", (False, True, "530 ")),
            ("", f"me%{'p' * 58}", "vol", (False, True, "220 ")), ("", "me%s3cret", "missing/vol", FAILED),
            *((f"{how} at login", "me%s3cret", "vol", (False, True, "331 ")) for how in ("closes", "silent")),
            *((how, "me%s3cret", "vol", FAILED)
              for how in ("silent at file", "leads nowhere", "full", "fills up", "hangs up", "stalls"))):
        for form in FILES if fault and result == FAILED else ["analyze"]:
            with Server(SERVED, fault) as server:
                save(form, f"ftp:{login}@{server.host}/{name}", result, BIG if fault in ("hangs up", "stalls") else 3,
                     LIMIT, fault or f"{login:.9}, {name}")
    with socket.create_server(("127.0.0.1", 0)) as silent:
        hosts = {"no such host": "no-such-host.invalid", "refused": "127.0.0.1:1", "no answer": f"127.0.0.1:{NOWHERE.port}",
                 "silent": f"127.0.0.1:{silent.getsockname()[1]}"}
        for told, host in hosts.items():
            save("vox", f"ftp:me%s3cret@{host}/vol", (False, True, ""), 3, LIMIT, told)
    save("bob", "ftp:me@127.0.0.1:1/vol", (False, True, BAD_URL))


def vsftpd():
    """The same against vsftpd, anonymous with and without the password that it asks for."""
    program = shutil.which("vsftpd", path="/usr/sbin:/usr/bin")
    if program is None:
        print("    skipped: vsftpd is not installed")
        return
    with socket.create_server(("127.0.0.1", 0)) as probe:
        port = probe.getsockname()[1]
    root = WORK / "vsftpd"
    (root / "sub").mkdir(parents=True)
    (root / "passwords").write_text("secret\n")
    user = subprocess.run(["id", "-un"], capture_output=True, text=True, check=True).stdout.strip()
    (root / "vsftpd.conf").write_text(f"""listen=YES\nlisten_ipv6=NO\nlisten_address=127.0.0.1\nlisten_port={port}
background=NO\nseccomp_sandbox=NO\nrun_as_launching_user=YES\nftp_username={user}\nanon_root={root}
local_enable=NO\nwrite_enable=YES\nanon_upload_enable=YES\nanon_other_write_enable=YES\ndelay_failed_login=0
secure_email_list_enable=YES\nemail_password_file={root}/passwords\n""")
    server = subprocess.Popen([program, root / "vsftpd.conf"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    try:
        host = f"127.0.0.1:{port}"
        for _ in range(100):
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", port)) == 0:
                    break
            time.sleep(0.02)
        if server.poll() is not None:
            print(f"    skipped: vsftpd does not run here: {server.stdout.read().decode().strip()}")
            return
        for form in FILES:
            save(form, f"ftp:ftp%secret@{host}/sub/vol", GOOD, side=400)
            arrived(form, f"{root}/sub")
        save("analyze", f"ftp:ftp%wrong@{host}/vol", (False, True, "530 Login incorrect."))
        save("analyze", f"ftp:ftp%secret@{host}/missing/vol", FAILED)
    finally:
        server.terminate()
        server.wait(10)


def main():
    failed = 0
    for test in (good_saves, threads, faults, vsftpd):
        try:
            test()
            print(f"passed {test.__name__}")
        except Exception as error:  # pylint: disable=broad-except
            failed = 1
            print(f"FAILED {test.__name__}: {type(error).__name__} {str(error)[:2000]}")
    shutil.rmtree(WORK, ignore_errors=True)
    sys.exit(failed)


main()
