"""Other DICOM programs: queries, retrievals, and a receiver with callbacks."""

import atexit
import os
import threading
import weakref

from . import _korvane
from ._errors import Error, WrongArgument

Peer = _korvane.Peer


class Matches(list):
    """The answers to a query, as DataSets.

    cut: the limit was reached, and there may be more. ignored_keys: the peer has ignored a key in matching, so that there may
    be too many.
    """

    cut = False
    ignored_keys = False


def _pairs(keys, named):
    """Keys and their values as texts: None for what is asked for, lists with backslashes between."""
    pairs = []
    for key, value in {**(keys or {}), **named}.items():
        if isinstance(value, (list, tuple)):
            value = "\\".join(map(str, value))
        pairs.append((key, "" if value is None else str(value)))
    return pairs


def _find(self, level="study", *, keys=None, limit=0, patient_root=False, progress=None, **named):
    """What it has (C-FIND): Matches, a list of DataSets.

    level: 'patient', 'study', 'series', 'image' or 'worklist'. Attributes are asked for by keyword, with a value that must
    match (wildcards * and ?, ranges of dates with -, lists of UIDs) or None; `keys` takes paths and tags as well. limit: matches
    after which it is told to stop, 0 for none.

        for study in pacs.find(PatientID="4711", StudyDescription=None):
            print(study.StudyDate, study.get("StudyDescription"))
    """
    found, cut, ignored = self._find(level, _pairs(keys, named), limit, patient_root, progress)
    matches = Matches(found)
    matches.cut, matches.ignored_keys = cut, ignored
    return matches


def _get(self, folder, level="study", *, keys=None, replace=False, patient_root=False, progress=None, **named):
    """Fetches data sets into a folder (C-GET); the result says what was stored and what failed.

    At least one attribute with a value chooses what: pacs.get('in', StudyInstanceUID=uid). replace: files of the same UID.
    """
    return self._retrieve(False, level, _pairs(keys, named), folder, "", 0, False, replace, patient_root, progress)


def _move(self, folder=None, level="study", *, port=0, destination="", encrypted=False, keys=None, replace=False,
          patient_root=False, progress=None, **named):
    """Has it send data sets (C-MOVE): to a title that it knows, or back here, where they are stored in a folder.

    port: where this program listens meanwhile, as the peer has it for the title `aet`; encrypted: what comes there is. Or
    destination: the title of a third program.
    """
    if (folder is None) == (not destination):
        raise WrongArgument("say where the data sets go: a folder and port, or a destination", kind="wrong argument")
    return self._retrieve(True, level, _pairs(keys, named), folder, destination, port, encrypted, replace, patient_root, progress)


def echo(host, port, *, aet="KORVANE", aec="ANY-SCP", tls=None):
    """Whether a DICOM program answers (C-ECHO); raises Refused. The same as Peer(host, port).echo()."""
    return Peer(host, port, aet=aet, aec=aec, tls=tls).echo()


def send(host, port, paths, *, aet="KORVANE", aec="ANY-SCP", tls=None, jobs=1, retries=0, queue=None, decode_lossy=False,
         progress=None):
    """Sends files, and all below folders (C-STORE). The same as Peer(host, port).send(paths)."""
    return Peer(host, port, aet=aet, aec=aec, tls=tls).send(paths, jobs=jobs, retries=retries, queue=queue,
                                                            decode_lossy=decode_lossy, progress=progress)


_running = weakref.WeakSet()


class Receiver:
    """Stores what other programs send (C-STORE and C-ECHO as provider), on threads of its own, until it is stopped.

    folder: made where it is not there; files are called by their SOP Instance UID, whole or not there. port: 0 for one that
    the system chooses, see `port`. on_file, on_association, on_study: called with a dict, as `korvane receive --json` prints
    it, for each data set that was answered ('path', 'sopInstance', 'status' ...), each association that ended, and each study
    of which no file has come for `study_quiet` seconds. They are called on another thread, one at a time. What one raises ends
    the receiver, and comes out of `wait`, `stop` or the with block.

    address: to listen on, '' for all. layout: 'flat', 'patient', 'study' or 'series', folders in the folder. aet: the title
    that callers must call, '' for any; callers: titles that may call, addresses: addresses that may, [] for all. replace: files
    of the same UID, else both are kept. count: associations after which it ends, 0 for none. limit: associations at once.
    timeout: seconds that a peer may be silent. tls: a Tls with a certificate, None for plain connections.

        with korvane.Receiver("in", port=11112, on_file=lambda file: print(file["path"])) as receiver:
            receiver.wait()
    """

    def __init__(self, folder, *, port=0, on_file=None, on_study=None, on_association=None, address="", layout="flat", aet="",
                 callers=(), addresses=(), replace=False, count=0, limit=64, timeout=300, study_quiet=0, tls=None):
        self._options = dict(folder=os.fsdecode(folder), port=port, address=address, layout=layout, aet=aet,
                             callers=list(callers), addresses=list(addresses), replace=replace, count=count, limit=limit,
                             timeout=timeout, study_quiet=study_quiet or (5 if on_study else 0))
        self._tls = tls
        self._callbacks = {"file": on_file, "study": on_study, "association": on_association}
        self._thread = None
        self._calling = None

    @property
    def port(self):
        """Where it listens; None before it does."""
        return self._port if self._thread is not None else None

    @property
    def running(self):
        """Whether it takes associations."""
        return self._thread is not None and self._thread.is_alive()

    @property
    def report(self):
        """Counts, once it has ended: 'associations', 'stored', 'refused', 'broken'; None before."""
        return None if self._thread is None else self._report

    def start(self):
        """Begins to listen; returns once it does, and raises what keeps it from that. The receiver itself."""
        if self.running:
            raise WrongArgument("the receiver runs already", kind="wrong argument")
        self._stop, self._listening = _korvane._Stop(), threading.Event()
        self._port = self._report = self._failure = None
        self._pid = os.getpid()
        self._thread = threading.Thread(target=self._work, name="korvane.Receiver", daemon=True)
        _running.add(self)
        self._thread.start()
        while not self._listening.wait(0.1) and self._thread.is_alive():
            pass
        if self._port is None:
            self.wait()
        return self

    def wait(self, timeout=None):
        """Waits until it has ended by itself, by `count` or by a callback's exception, which is raised here. True when it has;
        False after `timeout` seconds. Ctrl-C ends the waiting. Not for its callbacks, which it waits for itself."""
        if self._thread is None:
            raise WrongArgument("the receiver was not started", kind="wrong argument")
        if self._calling == threading.get_ident():
            raise WrongArgument("a callback cannot wait for the end of its own receiver", kind="wrong argument")
        self._thread.join(timeout)
        if self._thread.is_alive():
            return False
        _running.discard(self)
        failure, self._failure = self._failure, None
        if failure is not None:
            raise failure
        return True

    def stop(self):
        """Ends it, within 0.2 seconds and with whole files in the folder; associations that are open are broken off. Raises
        what a callback raised; returns the report."""
        if self._thread is None or self._pid != os.getpid():  # after a fork it is the parent's
            return None
        self._stop.set()
        if self._calling != threading.get_ident():  # else by a callback, which must return first
            self.wait()
        return self._report

    def __enter__(self):
        return self.start()

    def __exit__(self, kind, value, trace):
        try:
            self.stop()
        except BaseException:
            if value is None:
                raise

    def _work(self):
        try:
            self._report = _korvane._receive(self._options, self._tls, self._tell, self._stop)
        except Error as error:
            if error.kind != "stopped":
                self._failure = error
        except BaseException as error:
            self._failure = error
        finally:
            self._listening.set()

    def _tell(self, event, facts):
        if event == "listening":
            self._port = facts
            self._listening.set()
            return
        callback = self._callbacks[event]
        if callback is None:
            return
        self._calling = threading.get_ident()
        try:
            callback(facts)
        finally:
            self._calling = None


@atexit.register
def _stop_all():
    for receiver in list(_running):
        try:
            receiver.stop()
        except BaseException:  # nobody is left to be told
            pass


def install():
    """Adds them to the compiled class."""
    for name, function in (("find", _find), ("get", _get), ("move", _move)):
        function.__name__ = name
        function.__qualname__ = f"Peer.{name}"
        setattr(Peer, name, function)
