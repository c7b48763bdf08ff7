#!/usr/bin/env python3
"""The README's program is the compiled example, line by line, and the README's links lead somewhere.

usage: check_readme.py SOURCE_ROOT
"""

import re
import sys
from pathlib import Path

root = Path(sys.argv[1])
wrong = []
readme = (root / "README.md").read_text(encoding="utf-8")
programs = re.findall(r"```cpp\n(.*?)```", readme, re.DOTALL)
if programs != [(root / "examples/series_to_volume.cpp").read_text(encoding="utf-8")]:
    wrong.append("README.md: the program differs from examples/series_to_volume.cpp")
for page in sorted(root.rglob("*.md")):
    if page.relative_to(root).parts[0] in ("build", "out"):
        continue
    for link in re.findall(r"\]\(([^)#:]+)\)", page.read_text(encoding="utf-8")):
        if not (page.parent / link).exists():
            wrong.append(f"{page.relative_to(root)}: no such page: {link}")
print("\n".join(wrong) or "README and docs are true to the tree")
sys.exit(1 if wrong else 0)
