# SPDX-License-Identifier: Apache-2.0
# gcovr's JSON summary as a table of percentages: a line for each file, and one for each folder. Branches are counted in
# the library alone: in the others most belong to exceptions and to what templates make.
#   coverage-table.py <summary >table         makes the table
#   coverage-table.py --compare OLD NEW       tells which figures fell, which rose, and what is new or gone
import json
import sys

FOLDERS = ("src", "sim", "tools")


def share(part, whole):
    return "%.1f" % (100.0 if whole == 0 else 100.0 * part / whole)


def row(name, files):
    def total(key):
        return sum(f[key] for f in files)

    branches = share(total("branch_covered"), total("branch_total")) if name.startswith("src") else "-"
    return "%-44s %7s %9s" % (name, share(total("line_covered"), total("line_total")), branches)


def make():
    files = sorted(json.load(sys.stdin)["files"], key=lambda f: f["filename"])
    print("# What the tests reach, in percent; scripts/coverage --update writes this table.")
    print("%-44s %7s %9s" % ("# file", "lines", "branches"))
    for f in files:
        print(row(f["filename"], [f]))
    for folder in FOLDERS:
        print(row(folder, [f for f in files if f["filename"].startswith(folder + "/")]))


def read(path):
    with open(path) as lines:
        rows = [line.split() for line in lines if not line.startswith("#")]
    return {name: (float(lines), float(branches.replace("-", "0"))) for name, lines, branches in rows}


def compare(old_path, new_path):
    old, new = read(old_path), read(new_path)
    count = {"fell": 0, "rose": 0, "new": 0, "gone": 0}
    for name in sorted(old.keys() | new.keys()):
        before, now = old.get(name), new.get(name)
        if before == now:
            continue
        if before is None or now is None:
            what = "new" if before is None else "gone"
        else:
            what = "fell" if any(a < b for a, b in zip(now, before)) else "rose"
        count[what] += 1
        print("%s %s: %s, was %s" % (name, what, now, before))
    folders = ", ".join("%s %.1f %%" % (name, new[name][0]) for name in FOLDERS)
    changes = ", ".join("%d %s" % (number, what) for what, number in count.items() if number > 0)
    print("coverage: lines: %s; branches of src %.1f %%; %s" % (folders, new["src"][1], changes or "as in " + old_path))


if len(sys.argv) == 4 and sys.argv[1] == "--compare":
    compare(sys.argv[2], sys.argv[3])
else:
    make()
