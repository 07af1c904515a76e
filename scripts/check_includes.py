#!/usr/bin/env python3
"""Checks that includes run one way: every folder includes only itself and
the folders below it, and no file reaches itself through its includes (a
header and its source count as one). Exit 1 with the offending includes."""

import os
import re
import sys

# Each folder and what it may include besides itself and the public header.
BELOW = {
    "kernels": set(),
    "deepnet": {"kernels"},
    "saliency": {"kernels"},
    "analysis": {"saliency", "kernels"},
    "faces": {"deepnet", "kernels"},
    "source": {"analysis", "saliency", "faces", "deepnet", "kernels"},
    "host": {"kernels"},
}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)


def main(root: str) -> int:
    units = {}  # "host/photograph" -> set of units it includes
    problems = []
    for folder in BELOW:
        for dirpath, _, files in os.walk(os.path.join(root, folder)):
            for name in files:
                if not name.endswith((".h", ".cpp")):
                    continue
                path = os.path.join(dirpath, name)
                unit = os.path.relpath(path, root).rsplit(".", 1)[0]
                with open(path, encoding="utf-8") as f:
                    targets = INCLUDE.findall(f.read())
                edges = units.setdefault(unit, set())
                for target in targets:
                    top = target.split("/", 1)[0]
                    if "/" not in target:
                        continue  # the public headers
                    if top != folder and top not in BELOW[folder]:
                        problems.append(f"{unit}: includes {target}, which {folder}/ may not see")
                    edges.add(target.rsplit(".", 1)[0])
    # A unit's own header is where its source starts, not a way back.
    for unit, edges in units.items():
        edges.discard(unit)
    state = {}

    def visit(unit, trail):
        state[unit] = "open"
        for nxt in sorted(units.get(unit, ())):
            if state.get(nxt) == "open":
                cycle = trail[trail.index(nxt):] + [nxt] if nxt in trail else [unit, nxt]
                problems.append("include circle: " + " -> ".join(cycle))
            elif nxt not in state:
                visit(nxt, trail + [nxt])
        state[unit] = "done"

    for unit in sorted(units):
        if unit not in state:
            visit(unit, [unit])
    for p in problems:
        print(p)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.dirname(os.path.abspath(__file__)))))
