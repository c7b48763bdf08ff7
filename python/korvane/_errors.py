"""The exceptions, by kind."""


class Error(Exception):
    """Why a call could not do what it was asked.

    kind: a stable word, such as "not found". file: the path, or "". element: the tag as a number, or None. offset: bytes
    into the file, or None. choices: what could have been asked for, in lines.
    """

    def __init__(self, text, kind="", file="", element=None, offset=None, choices=""):
        super().__init__(text)
        self.kind, self.file, self.element, self.offset, self.choices = kind, file, element, offset, choices

    def __reduce__(self):
        return type(self), (str(self), self.kind, self.file, self.element, self.offset, self.choices)


class NotFound(Error, FileNotFoundError):
    """A file, folder, host or series that is not there."""


class NotDicom(Error):
    """A file that is something else than DICOM."""


class Damaged(Error):
    """Data that ends early or contradicts itself."""


class Unsupported(Error):
    """Sound data, or a request, that there is no way for."""


class Irregular(Error):
    """A series that makes no even volume, where the caller wants one."""


class Refused(Error, ConnectionError):
    """Another program said no, or broke off."""


class Disk(Error, OSError):
    """The system would not read, write, create or rename."""


class Stopped(Error):
    """The call was stopped before its end."""


class WrongArgument(Error, ValueError):
    """Arguments that make no sense, or name nothing, or more than one thing."""


_BY_KIND = {
    "not found": NotFound,
    "not DICOM": NotDicom,
    "damaged": Damaged,
    "unsupported": Unsupported,
    "irregular": Irregular,
    "refused": Refused,
    "disk": Disk,
    "stopped": Stopped,
    "wrong argument": WrongArgument,
}


def make(text, kind, file, element, offset, choices):
    """The exception for a failure of the compiled part."""
    return _BY_KIND.get(kind, Error)(text, kind, file, element, offset, choices)
