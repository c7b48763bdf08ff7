"""A whole archive as files of a research format, on all cores or on a cluster.

    import korvane.batch

    korvane.batch.convert("/archive", "/nifti", format="nifti", compress=True)

    from dask.distributed import Client
    korvane.batch.convert("/archive", "/nifti", client=Client("scheduler:8786"))

The work is a plan: a folder that says which series there are, shared out into shards of about the same bytes, and that gets a
line for each series that was begun and each that ended. `plan`, `run` and `report` are its three steps, for Slurm and the like.
Series are written whole or not at all; one that fails, or ends the process that works on it, is told in the report, and the
others go on. The same call again goes on where an earlier one ended.
"""

import argparse
import os
import sys

from . import _korvane
from ._errors import Damaged, Error

__all__ = ["convert", "plan", "report", "run", "table"]


def plan(paths, plan, out, *, shards=1, format="nifti", name="%s_%d", compress=False, sidecar=False, irregular="keep",
         jobs=0, progress=None):
    """Finds the series under `paths` and writes a plan into the new folder `plan`; nothing is converted yet.

    out: folder of the outputs. shards: how many; 0 for one for each series. name: pattern of the outputs' names (%s series
    number, %d description, %p protocol, %e echo, %m modality, %t study date, %n name and %i ID of the patient, %u UID).
    Returns counts: shards, tasks, bytes, largest (bytes of the largest shard), without_images, unreadable.
    """
    return _korvane._plan_batch(paths, plan, out, shards, format, name, compress, sidecar, irregular, jobs, progress)


def run(plan, shard, *, retry=False, jobs=0, progress=None):
    """Converts the series of a shard (from 1), and goes on where an earlier run was ended.

    retry: refused and crashed series are tried once more. jobs: threads. Returns counts: written, whole (by an earlier run),
    refused, crashed. Raises Refused while another process works on the shard.
    """
    return _korvane._run_shard(plan, shard, retry, jobs, progress)


def report(plan):
    """What has come of a plan so far: counts by status, and 'tasks', one for each series."""
    return _korvane._report_batch(plan)


def table(plan):
    """The same as a table in CSV, for pandas.read_csv(io.StringIO(...))."""
    return _korvane._batch_table(plan)


def convert(paths, out, *, plan=None, client=None, workers=None, retry=False, progress=None, **options):
    """Converts all series under `paths` into files below `out`; returns the report.

    client: a dask.distributed.Client, whose workers must see `paths`, `out` and `plan` under the same names and have
    korvane; without one, `workers` processes of this machine (one for each core). plan: the plan's folder, OUT/plan by
    itself; where it holds a plan already the work goes on with that one, and `paths` and `options` say nothing. options: as
    of `plan`. progress: called as progress("converting shards", ended, shards).
    """
    folder = os.path.abspath(os.fspath(plan) if plan is not None else os.path.join(os.fspath(out), "plan"))
    count = workers or os.cpu_count() or 1
    if not os.path.exists(os.path.join(folder, "plan.json")):
        # Small shards, so that whoever is done early takes another one.
        _make_plan(paths, folder, out, shards=0 if client is not None else 8 * count, **options)
    shards = sorted({task["shard"] for task in report(folder)["tasks"]})
    if client is not None:
        _on_dask(client, folder, shards, retry, progress or (lambda label, done, total: None))
    else:
        _on_processes(folder, shards, count, retry, progress)
    return report(folder)


_make_plan = plan


def _work(folder, shard, retry):
    """A shard in one thread: there are as many of these at work as there are cores."""
    try:
        return run(folder, shard, retry=retry, jobs=1)
    except Error as error:
        return str(error)


def _on_dask(client, folder, shards, retry, step):
    from dask.distributed import as_completed

    futures = [client.submit(_work, folder, shard, retry, pure=False, key=f"korvane-{os.path.basename(folder)}-{shard}")
               for shard in shards]
    # A worker that is killed takes nothing with it: the scheduler gives its shards to others. A series that kills whoever works
    # on it is left out by the third, which is how often the scheduler tries by itself.
    for done, _ in enumerate(as_completed(futures, raise_errors=False), 1):
        step("converting shards", done, len(futures))
    for future in futures:
        future.release()


def _on_processes(folder, shards, count, retry, progress):
    # Whoever works finds this package where it is now.
    here = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    path = os.pathsep.join(filter(None, [here, os.environ.get("PYTHONPATH")]))
    command = [sys.executable, "-m", "korvane.batch", "run", folder, "--quiet", "--jobs", "1", "--shard"]
    _korvane._run_shards(folder, shards, command, ["--retry"] if retry else [], {"PYTHONPATH": path}, count, progress)


def _main(arguments=None):
    parser = argparse.ArgumentParser(prog="python3 -m korvane.batch", description="Steps of a plan, as 'korvane batch'.")
    verbs = parser.add_subparsers(dest="verb", required=True)
    one = verbs.add_parser("run", help="convert the series of a shard")
    one.add_argument("plan")
    one.add_argument("--shard", type=int, required=True)
    one.add_argument("--jobs", type=int, default=0)
    one.add_argument("--retry", action="store_true")
    one.add_argument("--quiet", action="store_true")
    verbs.add_parser("report", help="what came of each series, as CSV").add_argument("plan")
    chosen = parser.parse_args(arguments)
    if chosen.verb == "report":
        sys.stdout.write(table(chosen.plan))
        return 0
    counts = run(chosen.plan, chosen.shard, retry=chosen.retry, jobs=chosen.jobs)
    if not chosen.quiet:
        print(", ".join(f"{count} {name}" for name, count in counts.items()))
    if counts["refused"] + counts["crashed"]:
        raise Damaged("not all series are written", kind="damaged")
    return 0


if __name__ == "__main__":
    try:
        sys.exit(_main())
    except Error as error:
        sys.exit(f"korvane: {error}")
