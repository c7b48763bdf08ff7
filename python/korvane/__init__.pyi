"""Types of the package; the docstrings are in the module."""

from os import PathLike
from typing import Any, Callable, Iterable, Iterator, Literal, Sequence

import numpy as np
from numpy.typing import NDArray

__version__: str

Path = str | PathLike[str]
Vector = Sequence[float]
Progress = Callable[[str, int, int], Any] | bool | None
Policy = Literal["keep", "reject", "resample", "split"]
Level = Literal["patient", "study", "series", "image", "worklist"]
Keys = dict[str, Any] | None

class Error(Exception):
    kind: str
    file: str
    element: int | None
    offset: int | None
    choices: str

class NotFound(Error, FileNotFoundError): ...
class NotDicom(Error): ...
class Damaged(Error): ...
class Unsupported(Error): ...
class Irregular(Error): ...
class Refused(Error, ConnectionError): ...
class Disk(Error, OSError): ...
class Stopped(Error): ...
class WrongArgument(Error, ValueError): ...

class Finding:
    kind: str
    text: str
    slices: list[int]
    files: list[str]
    lengths: list[float]
    angles: list[float]
    count: int

class Series:
    uid: str
    number: int
    modality: str
    description: str
    sop_class: str
    patient_name: str
    patient_id: str
    study_uid: str
    study_date: str
    study_description: str
    has_pixels: bool
    files: list[str]
    slices: list[tuple[str, int]]
    volumes: list[tuple[str, list[int]]]
    findings: list[Finding]
    def describe(self) -> str: ...
    def __len__(self) -> int: ...
    def load(
        self, *, volume: int | Literal["all"] | None = None, irregular: Literal["keep", "reject"] = "keep",
        jobs: int = 0, progress: Progress = None,
    ) -> Volume: ...
    def export(
        self, format: str, to: Path, *, irregular: Policy = "keep", compress: bool = False, jobs: int = 0,
        progress: Progress = None,
    ) -> dict[str, Any]: ...

class Found:
    unreadable: list[Finding]
    left_out: list[tuple[str, str]]
    def __len__(self) -> int: ...
    def __getitem__(self, index: int) -> Series: ...
    def __iter__(self) -> Iterator[Series]: ...
    def only(self) -> Series: ...
    def choose(self, uid: str) -> Series: ...
    def to_dict(self) -> dict[str, Any]: ...

class Volume:
    array: NDArray[Any]
    unit: str
    shape: tuple[int, ...]
    dtype: np.dtype[Any]
    spacing: list[float]
    has_spacing: bool
    has_positions: bool
    origin: list[float]
    row_direction: list[float]
    column_direction: list[float]
    normal: list[float]
    positions: NDArray[np.float64]
    times: list[str]
    affine_lps: NDArray[np.float64]
    affine_ras: NDArray[np.float64]
    findings: list[Finding]
    series: Series
    source: Series | None
    def real(self) -> NDArray[Any]: ...
    def rescale(self, plane: int = 0, time: int = 0) -> tuple[float, float]: ...
    def slice(
        self, view: Literal["axial", "coronal", "sagittal"] = "axial", index: int | None = None, *,
        normal: Vector | None = None, point: Vector | None = None, up: Vector | None = None,
        window: tuple[float, float] | None = None, interpolation: Literal["nearest", "linear", "shaped"] = "linear",
        slab: float = 0, slab_mode: Literal["mean", "maximum", "minimum"] = "mean", pixel_size: float = 0,
        annotate: bool = False, progress: Progress = None,
    ) -> Picture: ...
    def slicer(self, *, slab_memory: int = 268435456) -> Slicer: ...
    def export(
        self, format: str, to: Path, *, irregular: Policy = "keep", compress: bool = False, jobs: int = 0,
        progress: Progress = None,
    ) -> dict[str, Any]: ...
    def save_dicom(
        self, folder: Path, *, description: str = "", derivation: str = "", number: int = 0, secondary_capture: bool = False,
        max_error: float | None = None, nan: float | None = None, replace: bool = False, progress: Progress = None,
    ) -> dict[str, Any]: ...
    def to_nibabel(self) -> Any: ...
    def to_sitk(self) -> Any: ...
    def __array__(self, dtype: Any = None) -> NDArray[Any]: ...

class Picture:
    array: NDArray[np.uint8]
    what: str
    right: str
    below: str
    values: str
    pixel_size: float
    def save(self, path: Path) -> None: ...
    def __array__(self, dtype: Any = None) -> NDArray[Any]: ...

class Slicer:
    slab_step: float
    layer_bytes: int
    def slice(
        self, view: Literal["axial", "coronal", "sagittal"] = "axial", index: int | None = None, *,
        normal: Vector | None = None, point: Vector | None = None, up: Vector | None = None, shift: float = 0,
        frame: tuple[int, int] | None = None, window: tuple[float, float] | None = None,
        interpolation: Literal["nearest", "linear", "shaped"] = "linear", slab: float = 0,
        slab_mode: Literal["mean", "maximum", "minimum"] = "mean", pixel_size: float = 0, jobs: int = 0,
    ) -> Picture: ...
    def values(
        self, view: Literal["axial", "coronal", "sagittal"] = "axial", index: int | None = None, *,
        normal: Vector | None = None, point: Vector | None = None, up: Vector | None = None, shift: float = 0,
        frame: tuple[int, int] | None = None, window: tuple[float, float] | None = None,
        interpolation: Literal["nearest", "linear", "shaped"] = "linear", slab: float = 0,
        slab_mode: Literal["mean", "maximum", "minimum"] = "mean", pixel_size: float = 0, jobs: int = 0,
    ) -> NDArray[np.float32]: ...

class DataSet:
    findings: list[Finding]
    def __init__(self) -> None: ...
    def __getattr__(self, keyword: str) -> Any: ...
    def __setattr__(self, keyword: str, value: Any) -> None: ...
    def __delattr__(self, keyword: str) -> None: ...
    def __getitem__(self, key: str | tuple[int, int]) -> Any: ...
    def __setitem__(self, key: str | tuple[int, int], value: Any) -> None: ...
    def __delitem__(self, key: str | tuple[int, int]) -> None: ...
    def __contains__(self, key: str | tuple[int, int]) -> bool: ...
    def get(self, key: str | tuple[int, int], default: Any = None) -> Any: ...
    def add_item(self, key: str | tuple[int, int]) -> None: ...
    def to_json(self, meta: bool = False) -> str: ...
    def to_bytes(self, syntax: str = "") -> bytes: ...
    def to_pydicom(self) -> Any: ...
    def save(self, path: Path, *, syntax: str = "", progress: Progress = None) -> None: ...

class Tls:
    certificate: str
    authorities: list[str]
    def __init__(
        self, *, certificate: Path | None = None, key: Path | None = None, authorities: Path | Iterable[Path] | None = None,
        profile: Literal["bcp195", "bcp195-extended"] = "bcp195", any_name: bool = False,
    ) -> None: ...

class Matches(list[DataSet]):
    cut: bool
    ignored_keys: bool

class Peer:
    host: str
    port: str
    def __init__(
        self, host: str, port: int | str, *, aet: str = "KORVANE", aec: str = "ANY-SCP", tls: Tls | None = None,
        timeout: int = 300, connect_timeout: int = 20,
    ) -> None: ...
    def echo(self) -> dict[str, Any]: ...
    def send(
        self, paths: Path | Iterable[Path], *, jobs: int = 1, retries: int = 0, queue: Path | None = None,
        decode_lossy: bool = False, progress: Progress = None,
    ) -> dict[str, Any]: ...
    def find(
        self, level: Level = "study", *, keys: Keys = None, limit: int = 0, patient_root: bool = False,
        progress: Progress = None, **named: Any,
    ) -> Matches: ...
    def get(
        self, folder: Path, level: Level = "study", *, keys: Keys = None, replace: bool = False, patient_root: bool = False,
        progress: Progress = None, **named: Any,
    ) -> dict[str, Any]: ...
    def move(
        self, folder: Path | None = None, level: Level = "study", *, port: int = 0, destination: str = "",
        encrypted: bool = False, keys: Keys = None, replace: bool = False, patient_root: bool = False,
        progress: Progress = None, **named: Any,
    ) -> dict[str, Any]: ...

class Receiver:
    port: int | None
    running: bool
    report: dict[str, int] | None
    def __init__(
        self, folder: Path, *, port: int = 0, on_file: Callable[[dict[str, Any]], Any] | None = None,
        on_study: Callable[[dict[str, Any]], Any] | None = None, on_association: Callable[[dict[str, Any]], Any] | None = None,
        address: str = "", layout: Literal["flat", "patient", "study", "series"] = "flat", aet: str = "",
        callers: Sequence[str] = (), addresses: Sequence[str] = (), replace: bool = False, count: int = 0, limit: int = 64,
        timeout: int = 300, study_quiet: int = 0, tls: Tls | None = None,
    ) -> None: ...
    def start(self) -> Receiver: ...
    def wait(self, timeout: float | None = None) -> bool: ...
    def stop(self) -> dict[str, int] | None: ...
    def __enter__(self) -> Receiver: ...
    def __exit__(self, kind: Any, value: Any, trace: Any) -> None: ...

def from_array(
    array: Any, *, like: Volume | None = None, affine_lps: Any = None, affine_ras: Any = None, source: Series | None = None,
    rescale: tuple[float, float] = (1.0, 0.0), unit: str = "", colour: bool = False, description: str = "",
    derivation: str = "", progress: Progress = None,
) -> Volume: ...
def find(paths: Path | Iterable[Path], *, jobs: int = 0, progress: Progress = None) -> Found: ...
def load(
    series: Series, *, volume: int | Literal["all"] | None = None, irregular: Literal["keep", "reject"] = "keep",
    jobs: int = 0, progress: Progress = None,
) -> Volume: ...
def draw(
    path: Path, frame: int = 0, *, window: tuple[float, float] | None = None, size: int = 0, annotate: bool = False,
    progress: Progress = None,
) -> Picture: ...
def formats() -> list[str]: ...
def read(source: Path | bytes, *, pixels: bool = True, progress: Progress = None) -> DataSet: ...
def convert(
    source: Path, target: Path, *, syntax: str = "explicit", set: Sequence[tuple[str, str]] = (),
    remove: Sequence[str] = (), progress: Progress = None,
) -> dict[str, Any]: ...
def echo(
    host: str, port: int | str, *, aet: str = "KORVANE", aec: str = "ANY-SCP", tls: Tls | None = None,
) -> dict[str, Any]: ...
def send(
    host: str, port: int | str, paths: Path | Iterable[Path], *, aet: str = "KORVANE", aec: str = "ANY-SCP",
    tls: Tls | None = None, jobs: int = 1, retries: int = 0, queue: Path | None = None, decode_lossy: bool = False,
    progress: Progress = None,
) -> dict[str, Any]: ...
def build_medium(
    root: Path, paths: Path | Iterable[Path], *, fileset_id: str = "", transcode: bool = False, link: bool = False,
    profile: str = "", append: bool = False, icons: bool = False, invent_patient_id: bool = False,
    progress: Progress = None,
) -> dict[str, Any]: ...
def remove_from_medium(root: Path, ids: Iterable[str], *, progress: Progress = None) -> dict[str, Any]: ...
def check_medium(root: Path, *, profile: str = "", progress: Progress = None) -> dict[str, Any]: ...
def phantom(
    folder: Path, *, slices: int = 120, size: int = 256, volumes: int = 1, seed: int = 1, oblique: bool = False,
    uneven: bool = False,
) -> list[str]: ...
