#!/usr/bin/env python3
"""without_throw_branches.py REPORT: removes the branches that only an exception takes from gcovr's JSON report.

The compiler makes such a branch for every call. gcov marks it only at the place of the call, so the marks can be used only after the
reports of all sources were merged.
"""
import json
import sys
from pathlib import Path

path = Path(sys.argv[1])
report = json.loads(path.read_text())
for source in report["files"]:
    for line in source["lines"]:
        line["branches"] = [branch for branch in line["branches"] if not branch["throw"]]
path.write_text(json.dumps(report))
