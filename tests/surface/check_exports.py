#!/usr/bin/env python3
"""The shared library exports what the public headers declare and nothing
else: every dynamic symbol it defines must be a name of the public headers
(a function or a module variable).

Usage: check_exports.py SHARED_LIBRARY HEADER...
"""
import re
import subprocess
import sys


def main():
    library, headers = sys.argv[1], sys.argv[2:]
    names = set()
    for header in headers:
        with open(header, encoding="utf-8") as f:
            names.update(re.findall(r"[A-Za-z_][A-Za-z0-9_]*", f.read()))
    out = subprocess.run(["nm", "-D", "--defined-only", library], capture_output=True, text=True,
                         check=True).stdout
    exported = [line.split()[-1] for line in out.splitlines() if len(line.split()) >= 3]
    stray = sorted(name for name in exported if name not in names)
    for name in stray:
        print(f"exported but not public: {name}")
    print(f"{len(exported)} symbols exported, {len(stray)} not declared in the public headers")
    # The public surface itself must be there: a few names from each family.
    missing = [name for name in ("RsvMod_init", "RsvTimeTbl_addEntry", "ResPlanner_map", "RsvEnt_ToString",
                                 "RsvTimeTbl_verify", "h_addEnt_", "miscFuncs", "rsvIdTbl", "qob_errno")
               if name not in exported]
    for name in missing:
        print(f"public but not exported: {name}")
    return 1 if stray or missing else 0


if __name__ == "__main__":
    sys.exit(main())
