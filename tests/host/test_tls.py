#!/usr/bin/env python3
"""Encrypted connections beside dcmtk, Orthanc and OpenSSL's own client, and connections of both address families."""

import atexit
import contextlib
import json
import pathlib
import random
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import urllib.request

import host_test
import pydicom
from host_test import WINDOWS, WORK, korvane, phantom
from network_peers import HERE, ORTHANC, PEERS, free_port, receiver, running, storescp


CERTIFICATES = pathlib.Path(tempfile.mkdtemp(prefix="korvane-host-test-"))
atexit.register(shutil.rmtree, CERTIFICATES)


def openssl(*arguments):
    subprocess.run(["openssl", *map(str, arguments)], check=True, capture_output=True)


def certificates():
    """An authority, a stranger, and certificates of the first for this machine, and for one of another name."""
    for name in ("ca", "stranger"):
        openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", CERTIFICATES / f"{name}.key", "-out", CERTIFICATES / f"{name}.pem",
                "-subj", f"/CN={name}", "-days", "2")
    for name, alternatives in (("here", f"DNS:localhost,IP:{HERE},IP:::1"), ("elsewhere", "DNS:elsewhere.example")):
        openssl("req", "-newkey", "rsa:2048", "-nodes", "-keyout", CERTIFICATES / f"{name}.key", "-out", CERTIFICATES / "request",
                "-subj", f"/CN={name}")
        (CERTIFICATES / "extra").write_text(f"subjectAltName={alternatives}")
        openssl("x509", "-req", "-in", CERTIFICATES / "request", "-CA", CERTIFICATES / "ca.pem", "-CAkey", CERTIFICATES / "ca.key", "-CAcreateserial",
                "-out", CERTIFICATES / f"{name}.pem", "-days", "2", "-extfile", CERTIFICATES / "extra")


def own(name="here", authority="ca"):
    return ("--tls", "--tls-cert", CERTIFICATES / f"{name}.pem", "--tls-key", CERTIFICATES / f"{name}.key", "--tls-ca", CERTIFICATES / f"{authority}.pem")


def theirs(name="here", authority="ca"):
    return ("+tls", CERTIFICATES / f"{name}.key", CERTIFICATES / f"{name}.pem", "+cf", CERTIFICATES / f"{authority}.pem")


def uids(folder):
    return {pydicom.dcmread(path).SOPInstanceUID for path in folder.iterdir()}


def with_dcmtk():
    source = phantom("ct", "--slices", 4, "--size", 256)
    for number, (profile, asked) in enumerate((("+py", "bcp195"), ("+px", "bcp195"), ("+pz", "bcp195-extended"),
                                               ("+pz", "bcp195"))):
        with storescp(*theirs(), profile) as (port, folder):
            korvane("echo", "localhost", port, *own(), "--tls-profile", asked)
            korvane("send", HERE, port, source, *own(), "--tls-profile", asked, "--jobs", 2)
            assert uids(folder) == uids(source)
        with receiver(WORK / f"in{number}", "--once", *own(), "--tls-profile", asked) as (port, _, _):
            subprocess.run(["storescu", *map(str, theirs()), profile, "+sd", HERE, str(port), source], check=True, timeout=60)
        assert uids(WORK / f"in{number}") == uids(source)


def refused():
    """Whom nobody trusts, and what is not encrypted, are refused with the reason; the receiver goes on."""
    file = next(phantom("one", "--slices", 3, "--size", 16).iterdir())
    with storescp(*theirs()) as (port, folder):
        for options, why in ((own(authority="stranger"), "certificate is not accepted"), ((), ""),
                             (own()[:1] + own()[-2:], "")):  # the peer wants a certificate too
            assert why in korvane("send", HERE, port, file, *options, "--timeout", 5, "--connect-timeout", 5, status=1)[1]
        assert not list(folder.iterdir())
    with storescp(*theirs("elsewhere")) as (port, folder):
        assert "not accepted" in korvane("echo", HERE, port, *own(), status=1)[1]
        korvane("echo", HERE, port, *own(), "--tls-any-name")
    with storescp() as (port, _):
        assert "TLS" in korvane("echo", HERE, port, *own(), "--connect-timeout", 5, status=1)[1]
    assert "PEM" in korvane("echo", HERE, 1, "--tls", "--tls-cert", file, status=2)[1]
    assert "certificate" in korvane("receive", 0, WORK / "no", "--tls", status=2)[1]
    with receiver(WORK / "careful", *own(), "--request-timeout", 2, status=None) as (port, said, process):
        for version in ("-tls1_1", "-tls1_2 -cipher AES128-SHA"):
            done = subprocess.run(["openssl", "s_client", "-connect", f"{HERE}:{port}", *version.split()], input=b"",
                                  capture_output=True, timeout=20, check=False)
            assert b"Cipher is (NONE)" in done.stdout, done.stdout[-300:]
        korvane("echo", HERE, port, status=1)  # no TLS
        korvane("send", HERE, port, file, *own()[:1], *own()[-2:], status=1)  # no certificate
        korvane("send", HERE, port, file, "--tls", "--tls-cert", CERTIFICATES / "stranger.pem", "--tls-key", CERTIFICATES / "stranger.key",
                "--tls-ca", CERTIFICATES / "ca.pem", status=1)
        hello = bytearray.fromhex("16030100a5010000a10303") + random.Random(1).randbytes(158)
        with contextlib.ExitStack() as hanging:
            for i in range(40):  # hang, or say nonsense
                peer = hanging.enter_context(socket.create_connection((HERE, port), 5))
                peer.sendall([b"", hello[:20], hello, random.Random(i).randbytes(3000)][i % 4])
            korvane("send", HERE, port, file, *own())
            process.send_signal(signal.SIGINT)
            start = time.monotonic()
            process.wait(timeout=10)
            assert time.monotonic() - start < host_test.SOON, "slow to stop"
    assert len(list((WORK / "careful").iterdir())) == 1, said
    with receiver(WORK / "anybody", "--once", *own()[:-2]) as (port, _, _):  # without authorities
        korvane("send", HERE, port, file, "--tls", "--tls-ca", CERTIFICATES / "ca.pem")


def orthanc():
    """Queries and retrieval, both ways encrypted."""
    if not ORTHANC:
        print("skipped: Orthanc is not installed")
        return
    source = phantom("study", "--slices", 5, "--size", 16)
    dicom, http, back = free_port(), free_port(), free_port()
    (WORK / "orthanc.json").write_text(json.dumps({
        "StorageDirectory": str(WORK / "db"), "IndexDirectory": str(WORK / "db"), "DicomPort": dicom, "HttpPort": http,
        "Plugins": [], "RemoteAccessAllowed": False, "AuthenticationEnabled": False, "DicomTlsEnabled": True,
        "DicomTlsCertificate": str(CERTIFICATES / "here.pem"), "DicomTlsPrivateKey": str(CERTIFICATES / "here.key"),
        "DicomTlsTrustedCertificates": str(CERTIFICATES / "ca.pem"), "DicomAlwaysAllowGet": True, "DicomAlwaysAllowFind": True,
        "DicomAlwaysAllowMove": True,
        "DicomModalities": {"k": {"AET": "KORVANE", "Host": HERE, "Port": back, "UseDicomTls": True, "AllowFind": True,
                                  "AllowGet": True, "AllowMove": True}}}))
    with running(ORTHANC, WORK / "orthanc.json", stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL):
        for _ in range(100):
            with contextlib.suppress(OSError), urllib.request.urlopen(f"http://{HERE}:{http}/system", timeout=5):
                break
            time.sleep(0.1)
        peer = (HERE, dicom, *own(), "--aec", "ORTHANC")
        korvane("send", *peer, source)
        study = pydicom.dcmread(next(source.iterdir())).StudyInstanceUID
        assert len(json.loads(korvane("find", *peer, "--json")[0])["matches"]) == 1
        korvane("get", *peer, WORK / "got", f"StudyInstanceUID={study}")
        korvane("move", *peer, "--dir", WORK / "moved", "--port", back, "--tls-in", f"StudyInstanceUID={study}")
    assert uids(WORK / "got") == uids(WORK / "moved") == uids(source)


def both_families():
    try:
        with socket.create_server(("::1", 0), family=socket.AF_INET6):
            pass
    except OSError:
        print("skipped: no IPv6 here")
        return
    file = next(phantom("six", "--slices", 3, "--size", 16).iterdir())
    command = [*host_test.KORVANE, "receive", "0", WORK / "six-in", "--json", "--count", "3", "--allow", "::1",
               "--allow", HERE]
    with running(*command, stdout=subprocess.PIPE) as process:
        port = json.loads(process.stdout.readline())["port"]
        for host in ("::1", "0:0::1", HERE):
            korvane("send", host, port, file)
        events = [json.loads(line) for line in process.communicate(timeout=20)[0].splitlines()]
    assert [e["address"] for e in events if e["event"] == "association"] == ["::1", "::1", HERE], events
    addresses = {info[4][0] for info in socket.getaddrinfo("localhost", 104)}
    for bound in ({"::1", HERE} & addresses):  # the name has both: the one where somebody listens is found
        with running(*host_test.KORVANE, "receive", "0", WORK / "one-in", "--json", "--once", "--bind", bound,
                     stdout=subprocess.PIPE) as process:
            port = json.loads(process.stdout.readline())["port"]
            korvane("send", "localhost", port, file)
            process.communicate(timeout=20)
    assert "not an IPv4 or IPv6 address" in korvane("receive", 0, WORK / "x", "--allow", "1.2.3", "--once", status=2)[1] or WINDOWS


if not PEERS or not shutil.which("openssl"):
    print("skipped: dcmtk or openssl is not installed")
    raise SystemExit(host_test.SKIPPED)
if WINDOWS:
    assert "no TLS" in korvane("echo", HERE, 1, "--tls", status=1)[1]
    host_test.run(both_families)
else:
    certificates()
    host_test.run(with_dcmtk, refused, orthanc, both_families)
