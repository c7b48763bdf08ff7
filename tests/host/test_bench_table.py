"""The quick look at the speed: what is slower each time is found, what was disturbed once is not, and a processor that nobody has
measured is given more room; a table goes between the marks of its page and nowhere else."""

import contextlib
import io
import json
import pathlib
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "bench"))

import table

KEPT = tempfile.TemporaryDirectory(prefix="korvane-host-test-")
WORK = pathlib.Path(KEPT.name)


class Parts:
    """Measures that are known: of each row its ratios, one for each time, the last one from then on."""

    def __init__(self, *parts):
        self.times = [0] * len(parts)
        self.known = parts

    def measure(self, number):
        time = self.times[number]
        self.times[number] += 1
        return {row: ratios[min(time, len(ratios) - 1)] for row, ratios in self.known[number].items()}

    def parts(self):
        yield from (lambda number=number: self.measure(number) for number in range(len(self.known)))


def compare(limits, *parts):
    table.BASELINE = WORK / "baseline.json"
    table.BASELINE.write_text(json.dumps(limits))
    quick, said = Parts(*parts), io.StringIO()
    with contextlib.redirect_stdout(said):
        status = table.compare(quick)
    return status, quick.times, said.getvalue()


here = {table.processor(): {"a": 2.0, "b": 4.0}}
assert compare(here, {"a": [2.5]}, {"b": [5.1]})[:2] == (0, [1, 1])
# Disturbed at first: measured again until it is as fast as it was, its part alone.
assert compare(here, {"a": [4, 3, 2.7, 2.5]}, {"b": [4]})[:2] == (0, [4, 1])
status, times, text = compare(here, {"a": [3.0]}, {"b": [4], "unknown": [100]})
assert status == 1 and times == [1 + table.AGAIN, 1] and "SLOWER a: 3.00" in text and "SLOWER b" not in text, text
# Of two rows of a part each may have had its own good round.
assert compare(here, {"a": [3, 2], "b": [4, 9]})[0] == 0
# A machine on which all is slower by a fifth, and a row that is by more.
many = {table.processor(): {row: 1.0 for row in "abcde"}}
slower = {row: [1.2] for row in "bcde"}
assert compare(many, {"a": [1.5], **slower})[0] == 0 and compare(many, {"a": [1.6], **slower})[0] == 1
assert compare(many, {row: [1.8] for row in "abcde"})[0] == 1
others = {"one": {"a": 2.0}, "another": {"a": 3.0, "b": 1.0}}
assert compare(others, {"a": [5.9], "b": [1.9]})[0] == 0 and compare(others, {"a": [6.1]})[0] == 1
try:
    compare(here, {"unknown": [1]})
    raise AssertionError("nothing was compared, and nothing was said")
except SystemExit as nothing:
    assert nothing.code not in (0, None)

page = WORK / "page.md"
page.write_text(f"before\n{table.BEGIN}\nold\n{table.END}\nafter é\n", encoding="utf-8")
table.write(page, ["| new |"])
assert page.read_text(encoding="utf-8") == f"before\n{table.BEGIN}\n| new |\n{table.END}\nafter é\n"
assert [table.time_text(seconds) for seconds in (2.5, 0.0215, 0.00002)] == ["2.50 s", "21.5 ms", "20.0 µs"]
print("passed")
