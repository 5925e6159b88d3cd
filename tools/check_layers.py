#!/usr/bin/env python3
"""Checks that modules include downwards only, by the order in tools/layers.txt.

usage: check_layers.py ROOT"""
import pathlib
import re
import sys


def read_layers(root):
    order, allowed, cores = {}, set(), set()
    for line in (root / "tools/layers.txt").read_text().splitlines():
        words = line.split("#")[0].split()
        if not words:
            continue
        if words[0] == "allow":
            allowed.add((words[1], words[2]))
        elif words[0] in order:
            sys.exit(f"tools/layers.txt lists {words[0]} twice")
        else:
            order[words[0]] = len(order)
            if words[1:] == ["core"]:
                cores.add(words[0])
    return order, allowed, cores


def module_of(path, order):
    """The module that a file below src/ belongs to: its own, or the one it begins with."""
    name = str(path.with_suffix(""))
    while name not in order and "_" in name:
        name = name[: name.rindex("_")]
    return name if name in order else None


def includes(path, root, order):
    """The modules that a file includes, without velapi.h and the macro headers of the ground."""
    for name in re.findall(r'^#include ["<]([\w/]+)\.h[">]', path.read_text(), re.M):
        if name in ("vellib/velapi", "util/vellog_macros"):
            name = "vellib/vellog" if name.endswith("macros") else None
        if name is None:
            continue
        if name.startswith("vellib/"):
            short = name[len("vellib/"):]
            yield next((m for m in order if m.endswith("/" + short)), name)
        elif (root / "src" / (name + ".h")).exists():
            yield module_of(pathlib.Path(name + ".h"), order) or name


def main():
    root = pathlib.Path(sys.argv[1])
    order, allowed, cores = read_layers(root)
    faults = []
    files = sorted((root / "src").rglob("*.cpp")) + sorted((root / "src").rglob("*.h"))
    headers = sorted((root / "include/vellib").glob("*.h"))
    for path in files + headers:
        if path.parent.name == "vellib":
            if path.stem in ("velapi", "vellib"):
                continue
            module = next((m for m in order if m.endswith("/" + path.stem)), None)
        else:
            module = module_of(path.relative_to(root / "src"), order)
        shown = path.relative_to(root)
        if module is None:
            faults.append(f"{shown} belongs to no module of tools/layers.txt")
            continue
        for other in includes(path, root, order):
            if other not in order:
                faults.append(f"{shown} includes {other}, which is no module of tools/layers.txt")
            elif order[other] > order[module] and (module, other) not in allowed:
                faults.append(f"{shown} includes {other}, which stands above {module}")
    for module in order:
        if not list((root / "src").glob(module + (".h" if module in cores else "*.cpp"))):
            faults.append(f"tools/layers.txt lists {module}, which has no source")
    print("\n".join(faults) or f"{len(order)} modules, {len(files)} files: all include downwards")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
