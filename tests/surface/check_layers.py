#!/usr/bin/env python3
"""The module's layers run one way: every call from one unit of the library
to another goes to the unit's own layer or to one below it.

Usage: check_layers.py LIBRARY SOURCE_DIR

LIBRARY is the static library (its members are the units' objects);
SOURCE_DIR the source tree, which tells each object's directory. Exits 1 and
names every call that goes up.
"""
import glob
import os
import subprocess
import sys

# Lowest first.
LAYERS = ["base", "frame", "timewin", "entry", "planner", "persist", "table", "reports"]

# Units whose layer is not their directory's.
UNIT_LAYERS = {
    "table/module.cpp": "frame",
    "table/memory.cpp": "frame",
    "table/entry.cpp": "entry",
    "persist/inforeply.cpp": "reports",
    "persist/jobhooks.cpp": "reports",
}
DIR_LAYERS = {"base": "base", "timewin": "timewin", "planner": "planner", "persist": "persist", "table": "table"}


def unit_layers(source_dir):
    layers = {}
    for path in glob.glob(os.path.join(source_dir, "rsv", "*", "*.cpp")) + glob.glob(
            os.path.join(source_dir, "base", "*.cpp")):
        rel = os.path.relpath(path, source_dir)
        parts = rel.split(os.sep)
        unit = "/".join(parts[-2:])
        directory = parts[-2]
        name = os.path.basename(path) + ".o"
        if name in layers:
            sys.exit(f"two units are named {name}: the check needs unique names")
        layers[name] = (unit, UNIT_LAYERS.get(unit, DIR_LAYERS[directory]))
    return layers


def symbols(library, flag):
    out = subprocess.run(["nm", "-A", flag, library], capture_output=True, text=True, check=True).stdout
    for line in out.splitlines():
        head, _, rest = line.rpartition(":")
        member = head.split(":")[-1]
        fields = rest.split()
        if len(fields) >= 2:
            yield member, fields[-2], fields[-1]


def main():
    library, source_dir = sys.argv[1], sys.argv[2]
    layers = unit_layers(source_dir)
    defined = {}
    for member, kind, name in symbols(library, "--defined-only"):
        # Weak definitions are inline functions and templates of headers,
        # made in every unit that uses them: no call between units.
        if kind.isupper() and kind not in "WVU":
            defined[name] = member
    upward = []
    for member, kind, name in symbols(library, "--undefined-only"):
        owner = defined.get(name)
        if owner is None or owner == member or member not in layers or owner not in layers:
            continue
        user_unit, user_layer = layers[member]
        owner_unit, owner_layer = layers[owner]
        if LAYERS.index(owner_layer) > LAYERS.index(user_layer):
            upward.append(f"{user_unit} ({user_layer}) calls {name} of {owner_unit} ({owner_layer})")
    for line in sorted(set(upward)):
        print(line)
    print(f"{len(layers)} units, {len(set(upward))} calls going up")
    return 1 if upward else 0


if __name__ == "__main__":
    sys.exit(main())
