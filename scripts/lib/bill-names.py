# SPDX-License-Identifier: Apache-2.0
"""Whether a bill of materials (SPDX, compressed JSON) names what the packages depend on (lines of Depends on the standard
input) and describes what is shipped, all of one version.

  bill-names.py FILE VERSION
"""
import gzip
import json
import re
import sys

with gzip.open(sys.argv[1], "rt", encoding="utf-8") as file:
    bill = json.load(file)
named = {package["name"]: package for package in bill["packages"]}
described = {relation["relatedSpdxElement"] for relation in bill["relationships"]
             if relation["relationshipType"] == "DESCRIBES"}
own = {package["name"]: package["versionInfo"] for package in bill["packages"] if package["SPDXID"] in described}
problems = []
if own != dict.fromkeys(("ICC_COMM_VORN.so", "vorn", "libifdvorn.so"), sys.argv[2]):
    problems.append(f"describes {own}")
for name in {re.split(r"[ :(|]", part)[0] for part in re.split(r",\s*", sys.stdin.read().replace("\n", ","))} - {""}:
    if name != "libicc-comm-vorn" and name not in named:
        problems.append(f"does not name {name}")
problems += [f"{name} has no licence" for name, package in named.items() if not package["licenseDeclared"]]
print("\n".join(problems))
sys.exit(bool(problems))
