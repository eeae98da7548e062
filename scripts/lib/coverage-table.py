# SPDX-License-Identifier: Apache-2.0
# gcovr's JSON summary as a table of percentages, a line for each file and one for all.
import json
import sys


def share(part, whole):
    return 100.0 if whole == 0 else 100.0 * part / whole


files = json.load(sys.stdin)["files"]
rows = sorted((f["filename"], f["line_covered"], f["line_total"], f["branch_covered"], f["branch_total"]) for f in files)
rows.append(("all",) + tuple(sum(row[i] for row in rows) for i in range(1, 5)))
print("# What the tests reach, in percent; scripts/coverage --update writes this table.")
print("%-44s %7s %9s" % ("# file", "lines", "branches"))
for name, lines, all_lines, branches, all_branches in rows:
    print("%-44s %7.1f %9.1f" % (name, share(lines, all_lines), share(branches, all_branches)))
