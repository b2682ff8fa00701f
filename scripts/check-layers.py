#!/usr/bin/env python3
"""Fails when the src/ folders include each other in a cycle.

The build already refuses an include that reaches up a layer; this check also names the cycle,
so that a folder added without its place in the layers is caught before anyone builds it."""
import pathlib
import re
import sys

src = pathlib.Path(__file__).resolve().parent.parent / "src"
include = re.compile(r'^\s*#\s*include\s+"([a-z0-9_]+)/', re.M)
edges = {d.name: set() for d in src.iterdir() if d.is_dir()}
for folder in edges:
    for f in (src / folder).glob("*.[ch]*"):
        for target in include.findall(f.read_text(errors="replace")):
            if target != folder and target in edges:
                edges[folder].add(target)

# Depth-first search; a grey node met again closes a cycle.
state, stack = {}, []
def visit(node):
    state[node] = "grey"
    stack.append(node)
    for nxt in sorted(edges[node]):
        if state.get(nxt) == "grey":
            cycle = stack[stack.index(nxt):] + [nxt]
            sys.exit("include cycle between src/ folders: " + " -> ".join(cycle))
        if nxt not in state:
            visit(nxt)
    stack.pop()
    state[node] = "black"

for folder in sorted(edges):
    if folder not in state:
        visit(folder)
print(f"layers: {len(edges)} src/ folders, no include cycle")
