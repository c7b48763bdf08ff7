"""Types of korvane.batch; the docstrings are in the module."""

from typing import Any, Iterable

from . import Path, Policy, Progress

def plan(
    paths: Path | Iterable[Path], plan: Path, out: Path, *, shards: int = 1, format: str = "nifti", name: str = "%s_%d",
    compress: bool = False, sidecar: bool = False, irregular: Policy = "keep", jobs: int = 0, progress: Progress = None,
) -> dict[str, Any]: ...
def run(plan: Path, shard: int, *, retry: bool = False, jobs: int = 0, progress: Progress = None) -> dict[str, int]: ...
def report(plan: Path) -> dict[str, Any]: ...
def table(plan: Path) -> str: ...
def convert(
    paths: Path | Iterable[Path], out: Path, *, plan: Path | None = None, client: Any = None, workers: int | None = None,
    retry: bool = False, progress: Progress = None, **options: Any,
) -> dict[str, Any]: ...
