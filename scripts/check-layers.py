#!/usr/bin/env python3
"""Holds every #include of the daemon and the rig to the direction of their layers.

Each folder below may include its own headers and those of the folders it builds on, directly or
through another; an include that reaches anywhere else points up or across a layer and is reported
with its file and line. The rig includes its own headers as "folder/header.h" from emulator/; the
daemon includes by name, resolved here as its include path does.

Usage: check-layers.py [SOURCE_DIR]
"""

import pathlib
import re
import sys

# What each folder builds on, bottom first.
LAYERS = {
    "proto": [],
    "platform": [],
    "ril": [],
    # The message handler, its services and its test handler call one another by design, so the
    # three are one layer; only what they share with the RIL binding sits below them.
    "core": ["service", "tput", "ril", "platform", "proto"],
    "service": ["core", "tput", "ril", "platform", "proto"],
    "tput": ["core", "service", "ril", "platform", "proto"],
    # The rig knows the daemon only by its schema, its property store and its binary.
    "emulator/device": [],
    "emulator/process": [],
    "emulator/ril_library": [],
    "emulator/nodes": ["emulator/device", "emulator/process"],
    "emulator/sandbox": ["emulator/device", "emulator/process", "emulator/ril_library", "platform"],
    "emulator/peers": ["emulator/nodes", "emulator/ril_library", "proto"],
    "emulator/rig": ["emulator/peers", "emulator/sandbox"],
    "emulator/measure": ["emulator/rig"],
    "emulator/scenario": ["emulator/rig"],
    "emulator/capture": ["emulator/scenario"],
    "emulator/soak": ["emulator/scenario"],
    "emulator/cli": ["emulator/capture", "emulator/soak", "emulator/scenario", "emulator/measure"],
}

# The daemon's folders, where an include by bare name is looked up.
DAEMON_FOLDERS = ["core", "service", "ril", "tput", "platform"]
# Headers that the build generates, by the folder whose schema they come from.
GENERATED = {"scenario.pb.h": "emulator/scenario"}

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')


def reachable(layer):
    seen = set()
    pending = [layer]
    while pending:
        for below in LAYERS[pending.pop()]:
            if below not in seen:
                seen.add(below)
                pending.append(below)
    return seen


def folder_of(path, root):
    relative = path.parent.relative_to(root).as_posix()
    return relative if relative in LAYERS else None


def resolve(name, including_folder, root):
    """The folder that an include names, or None when nothing in the tree has it."""
    first = name.split("/")[0]
    if "/" in name:
        if f"emulator/{first}" in LAYERS:
            return f"emulator/{first}"
        return first if first in LAYERS else None
    if (root / including_folder / name).exists():
        return including_folder
    if name in GENERATED:
        return GENERATED[name]
    owners = [folder for folder in DAEMON_FOLDERS if (root / folder / name).exists()]
    return owners[0] if len(owners) == 1 else None


def check(root):
    problems = []
    emulator = root / "emulator"
    for child in sorted(emulator.iterdir()):
        if child.is_dir() and f"emulator/{child.name}" not in LAYERS:
            problems.append(f"{child.relative_to(root)}/: a folder that no layer names; add it to "
                            f"LAYERS in {pathlib.Path(__file__).name}")
    for folder in LAYERS:
        base = root / folder
        if not base.is_dir():
            continue
        allowed = reachable(folder) | {folder}
        for path in sorted(list(base.glob("*.h")) + list(base.glob("*.cpp"))):
            for number, line in enumerate(path.read_text().splitlines(), start=1):
                match = INCLUDE.match(line)
                if not match:
                    continue
                name = match.group(1)
                target = resolve(name, folder, root)
                where = f"{path.relative_to(root)}:{number}"
                if target is None:
                    problems.append(f'{where}: "{name}" is in no layer of the tree')
                elif target not in allowed:
                    below = ", ".join(sorted(allowed - {folder})) or "nothing"
                    problems.append(f'{where}: "{name}" is in {target}/, which {folder}/ does not '
                                    f"build on (it builds on {below})")
    return problems


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
    problems = check(root)
    for problem in problems:
        print(problem)
    if problems:
        print(f"{len(problems)} include(s) against the layers")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
