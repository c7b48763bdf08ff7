#!/usr/bin/env python3
"""All that is measured, as one table: our time on one and two threads, the floor's, each peer's, ratios, and peak memory.

usage: table.py BUILD [--rounds N] [--only TEXT] [--write PAGE]
       table.py BUILD --quick [--record]

BUILD is a folder with the built program and benchmarks (build/release). Jobs of the program are whole processes in a memory file
system, each round runs ours, the floor and the peers in turn, and the best of the rounds counts; rows of the benchmarks (`bench_*`)
are processor time of one thread, by the clock of the same process. Peers that are not installed are named. --write puts the table
between the marks of a page.

--quick takes a part of it, and compares the processor time beside that of the floors with the ratios in baseline.json, which
belong to a kind of processor; where most rows are slower than theirs, the machine is, and that much is allowed to all. A row that is more than 1.3 times its ratio is measured up to five times more when all have been, and
fails when it is so each time; on a processor that no ratios belong to, at twice the largest of all of them. --record puts this machine's
ratios there.
"""

import argparse
import datetime
import json
import os
import pathlib
import platform
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

import jobs

HERE = pathlib.Path(__file__).resolve().parent
BASELINE = HERE / "baseline.json"
BEGIN, END = "<!-- table: written by bench/table.py -->", "<!-- end of the table -->"
SLOWER, STRANGER, DRIFT = 1.3, 2.0, 1.3
AGAIN = 5
SHORTEST = 1e-3, 1e-4  # seconds of ours and of a floor: below, what else the machine does is seen more than what we do
ROOM = 3 << 30  # bytes that the inputs and outputs of all jobs take at the most
BUSY = " Others used the machine meanwhile: processor time was shared, and the gain of a second thread says nothing."
LONG = 2.0  # seconds: what a peer takes so long for is measured once
# Each benchmark, what it is called with for the whole table and for the quick one.
BENCHES = {"bench_speed": ((), ("--alone", "--rounds=3", "elements", "headers", "whole", "private", "export")),
           "bench_codec": ((), ("--alone", "--rounds=9", "--frames=60")),
           "bench_slice": ((), ("--rounds=15", "--planes=1")),
           "bench_slicer": ((), None),
           "bench_reformat": ((), ("--rounds=5",)),
           "bench_picture": ((), ("--rounds=15",)),
           "bench_export": ((), ("--rounds=5",)),
           "bench_math": ((), None)}


def processor():
    """What tells one kind of processor from another, and whether programs get huge pages of it."""
    known = {}
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        key, _, value = line.partition(":")
        known.setdefault(key.strip(), value.strip())
    pages = pathlib.Path("/sys/kernel/mm/transparent_hugepage/enabled")
    chosen = pages.read_text().partition("[")[2].partition("]")[0] if pages.exists() else "never"
    return (f"{known.get('model name', platform.machine())}, family {known.get('cpu family')}, model {known.get('model')}, "
            f"huge pages: {chosen}")


def run(command, sink=subprocess.DEVNULL):
    """Seconds, processor seconds and peak memory in bytes; the memory is at least this script's own."""
    start = time.monotonic()
    process = subprocess.Popen([str(word) for word in command], stdout=sink, stderr=subprocess.PIPE, env=jobs.QUIET["env"])
    error = process.stderr.read()
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    process.stderr.close()
    if process.returncode != 0:
        raise RuntimeError(f"{command[0]} {command[1]} failed: {error.decode(errors='replace')[-500:]}")
    return time.monotonic() - start, usage.ru_utime + usage.ru_stime, usage.ru_maxrss * 1024


class Best:
    """The least of each figure, and the most memory."""

    def __init__(self):
        self.wall = self.processor = float("inf")
        self.peak = 0

    def add(self, figures):
        self.wall, self.processor = min(self.wall, figures[0]), min(self.processor, figures[1])
        self.peak = max(self.peak, figures[2])


def clear(job, make):
    if job.out is not None:
        shutil.rmtree(job.out, ignore_errors=True)
        if make:
            job.out.mkdir()


def measure(job, rounds, threads=(1, 2), with_peers=True):
    """A `Best` for each number of threads, for "floor" and for each peer that is there."""
    commands = {n: job.ours(n) for n in threads if job.ours(n) is not None}
    commands["floor"] = job.floor
    if with_peers and 2 in commands:
        commands["floor on two"] = job.floor_on_two()
    commands.update((peer.name, peer.command) for peer in job.peers if with_peers and jobs.is_there(peer))
    best, own = {key: Best() for key in commands}, (*threads, "floor", "floor on two")
    with job.around():
        for round_ in range(rounds):
            for key, command in commands.items():
                if round_ > 0 and key not in own and best[key].wall > LONG:
                    continue
                clear(job, job.is_folder or key not in own)
                try:
                    best[key].add(run(command))
                except RuntimeError as error:
                    if key in own:
                        raise
                    print(f"{key}: {error}", file=sys.stderr)
                    best[key].wall = float("inf")
    clear(job, False)
    return best


def bench_rows(build, name, words):
    """The rows that a benchmark tells; it may miss an aim, which is said when it is run alone."""
    with tempfile.TemporaryDirectory() as folder:
        rows = pathlib.Path(folder) / "rows"
        environment = {**os.environ, "KORVANE_BENCH_ROWS": str(rows), "TMPDIR": memory() or folder}
        program = build / "bin" / name
        if not program.exists():
            return []
        process = subprocess.run([str(program), *words], capture_output=True, text=True, env=environment)
        if not rows.exists():
            sys.exit(f"{name} failed: {process.stderr[-500:]}")
        return [json.loads(line) for line in rows.read_text().splitlines()]


def memory():
    """Where files lie in memory, if there is room: the speed of disks varies from run to run."""
    return "/dev/shm" if os.path.isdir("/dev/shm") and shutil.disk_usage("/dev/shm").free > ROOM else None


# The table

def time_text(seconds):
    if seconds >= 1:
        return f"{seconds:.2f} s"
    return f"{seconds * 1e3:.1f} ms" if seconds >= 1e-3 else f"{seconds * 1e6:.1f} µs"


def floor_text(job, best):
    """The floor's time, and what a second thread gives the floor: no gain of ours can be much more."""
    text = time_text(best["floor"].wall)
    if "floor on two" in best:
        second = best["floor on two"].wall
        text += f" / {time_text(second)}, gain {best['floor'].wall / second:.2f}"
    return f"{text}: {job.floor_text}"


def job_line(job, best):
    ours = [best.get(n) for n in (1, 2)]
    cells = [job.name, *(time_text(each.wall) if each else "–" for each in ours),
             f"{ours[0].wall / ours[1].wall:.2f}" if all(ours) else "–",
             floor_text(job, best), f"{ours[0].wall / best['floor'].wall:.2f}"]
    peers = []
    for peer in job.peers:
        if peer.name in best and best[peer.name].wall < float("inf"):
            times = " / ".join(f"{best[peer.name].wall / each.wall:.1f}" for each in ours if each)
            peers.append(f"{peer.name} {time_text(best[peer.name].wall)}, {times} ×")
    peaks = " / ".join(f"{each.peak / 1e6:.0f}" for each in ours if each)
    return [*cells, "; ".join(peers) or "–", peaks]


def bench_line(row):
    ours = min(row["ours"])
    floor = min(row["floor_seconds"], default=0)
    peers = [f"{name} {time_text(min(seconds))}, {min(seconds) / ours:.1f} ×" for name, seconds in row["peers"].items()]
    second = min(row["two_threads"], default=0)
    rates = " / ".join(f"{row['bytes'] / seconds / 1e9:.0f}" for seconds in (ours, second) if row.get("bytes") and seconds)
    of_two = min(row.get("floor_of_two", []), default=0)
    floor_cell = time_text(floor) + (f" / {time_text(of_two)}, gain {floor / of_two:.2f}" if of_two else "")
    return [row["job"] + (f", {rates} GB/s" if rates else ""), time_text(ours), time_text(second) if second else "–",
            f"{ours / second:.2f}" if second else "–", f"{floor_cell}: {row['floor']}" if floor else "–",
            f"{ours / floor:.2f}" if floor else "–", "; ".join(peers) or "–", "–"]


def missing_peers(all_jobs, rows, is_whole):
    missing = {peer.name.split(",")[0] for job in all_jobs for peer in job.peers if not jobs.is_there(peer)}
    measured = {name for row in rows for name in row["peers"]}
    if is_whole:
        missing |= {f"{peer} (its library)" for peer in ("DCMTK", "GDCM", "VTK", "Eigen") if peer not in measured}
    return sorted(missing)


def machine():
    with open("/proc/meminfo", encoding="ascii") as lines:
        megabytes = int(next(lines).split()[1]) / 1e6
    return (f"{datetime.date.today()}, {processor()}, {os.cpu_count()} cores, {megabytes:.0f} GB, "
            f"Linux {platform.release().split('-')[0]}; load before it began {os.getloadavg()[0]:.1f}")


def whole_table(build, work, options):
    note = BUSY if os.getloadavg()[0] > 0.5 else ""
    lines = [f"Measured {machine()}; the best of {options.rounds} rounds.{note}", "",
             "| job | 1 thread | 2 threads | gain | floor | of the floor | peers: time, and times ours on 1 / 2 threads | peak MB |",
             "|---|---|---|---|---|---|---|---|"]
    seen, rows = [], []

    def tell(cells):
        lines.append("| " + " | ".join(cells) + " |")
        print(lines[-1], flush=True)

    print("\n".join(lines), flush=True)
    for job in jobs.Jobs(build, work).all():
        seen.append(job)
        if options.only in job.name:
            tell(job_line(job, measure(job, options.rounds)))
    for name, (words, _) in BENCHES.items():
        if options.only and options.only not in name:
            continue
        for row in bench_rows(build, name, words):
            rows.append(row)
            tell(bench_line(row))
    lines += ["", "Not measured, since not installed: " + (", ".join(missing_peers(seen, rows, not options.only)) or "none") + "."]
    print("\n".join(lines[-2:]))
    return lines


def write(page, lines):
    text = page.read_text(encoding="utf-8")
    before, found, rest = text.partition(BEGIN)
    after = rest.partition(END)[2]
    if not found:
        sys.exit(f"{page}: no mark {BEGIN}")
    page.write_text(before + BEGIN + "\n" + "\n".join(lines) + "\n" + END + after, encoding="utf-8")


# The quick comparison

class Quick:
    """Rows of one machine: the ratio of each, and how to measure it again. Rows too short to be compared are not among them."""

    def __init__(self, build, work):
        self.jobs = list(jobs.Jobs(build, work).quick())
        self.build = build

    def bench(self, name):
        ratios = {}
        for row in bench_rows(self.build, name, BENCHES[name][1]):
            ours, floor = min(row["ours"]), min(row["floor_seconds"], default=0)
            if ours >= SHORTEST[0] and floor >= SHORTEST[1]:
                ratios[f"{name}: {row['job']}"] = ours / floor
        return ratios

    def job(self, job):
        best = measure(job, 5, with_peers=False)
        return {f"{job.name}, {n} thread{'s' if n > 1 else ''}": best[n].processor / best["floor"].processor
                for n in (1, 2) if n in best}

    def parts(self):
        """Functions, each of which measures some rows."""
        yield from (lambda name=name: self.bench(name) for name in BENCHES if BENCHES[name][1] is not None)
        yield from (lambda job=job: self.job(job) for job in self.jobs)


def limits_of_here():
    """The most that each row's ratio may be, and whether they are this kind of processor's."""
    known = json.loads(BASELINE.read_text(encoding="utf-8"))
    here = known.get(processor())
    if here is not None:
        return {row: ratio * SLOWER for row, ratio in here.items()}, True
    rows = {row for kind in known.values() for row in kind}
    return {row: STRANGER * max(kind[row] for kind in known.values() if row in kind) for row in rows}, False


def drift_of(least, limits):
    """What most rows are slower by, which is the machine's doing and not that of one of them; at most `DRIFT`."""
    return min(max(1, statistics.median_low(least[row] / limits[row] * SLOWER for row in least)), DRIFT) if least else 1


def compare(quick):
    limits, is_known = limits_of_here()
    print(f"{processor()}: " + ("its own ratios" if is_known else "no ratios of its own, so twice those of others are allowed"))
    least = {}  # of each row
    rows_of = {}
    slow = {part: None for part in quick.parts()}  # parts to measure: all, then those with a row that seems slower
    for again in range(AGAIN + 1):
        for part in list(slow):
            found = {row: ratio for row, ratio in part().items() if row in limits}
            least.update((row, min(ratio, least.get(row, ratio))) for row, ratio in found.items())
            rows_of[part] = list(found)
            for row, ratio in found.items():
                if again == 0 or ratio > limits[row]:
                    print(f"{row}: {ratio:.2f} of the floor, at most {limits[row]:.2f}", flush=True)
        if again == 0 and is_known and (drift := drift_of(least, limits)) > 1:
            print(f"most rows are {drift:.2f} times their ratios: the machine is slower, and so much is allowed to all")
            limits = {row: limit * drift for row, limit in limits.items()}
        slow = {part: slower for part in slow if (slower := [row for row in rows_of[part] if least[row] > limits[row]])}
    if not least:
        sys.exit("no row was compared")
    rows = [row for part in slow.values() for row in part]
    for row in rows:
        print(f"SLOWER {row}: {least[row]:.2f} of the floor, at most {limits[row]:.2f}, measured {AGAIN + 1} times")
    print(f"{len(least)} rows compared, {len(rows)} slower than they may be")
    return 1 if rows else 0


def record(quick, rounds=5):
    """The median of each row's ratios; rows that vary by more than a fifth about it are left out."""
    parts = list(quick.parts())
    ratios = {}
    for _ in range(rounds):
        for part in parts:
            for row, ratio in part().items():
                ratios.setdefault(row, []).append(ratio)
    kept = {}
    for row, all_of_it in ratios.items():
        middle = statistics.median(all_of_it)
        if max(all_of_it) / middle < 1.2 and middle / min(all_of_it) < 1.2:
            kept[row] = round(middle, 3)
        else:
            print(f"left out, since it varies: {row}: {min(all_of_it):.2f} to {max(all_of_it):.2f}")
    known = json.loads(BASELINE.read_text(encoding="utf-8")) if BASELINE.exists() else {}
    known[processor()] = kept
    BASELINE.write_text(json.dumps(known, indent=1) + "\n", encoding="utf-8")
    print(f"{len(kept)} ratios of {processor()} are in {BASELINE}")
    return 0


def main():
    words = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    words.add_argument("build", type=pathlib.Path)
    words.add_argument("--quick", action="store_true")
    words.add_argument("--record", action="store_true")
    words.add_argument("--rounds", type=int, default=7)
    words.add_argument("--only", default="", help="rows of the program whose names, and benchmarks whose names hold this text")
    words.add_argument("--write", type=pathlib.Path)
    options = words.parse_args()
    with tempfile.TemporaryDirectory(prefix="korvane-bench-", dir=memory()) as folder:
        if options.quick:
            quick = Quick(options.build.resolve(), pathlib.Path(folder))
            return record(quick) if options.record else compare(quick)
        lines = whole_table(options.build.resolve(), pathlib.Path(folder), options)
    if options.write:
        write(options.write, lines)
    return 0


if __name__ == "__main__":
    sys.exit(main())
