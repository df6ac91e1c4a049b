"""Prints branch coverage by room from what llvm-cov has exported; see scripts/coverage.

usage: coverage_table.py FILE [--list [ROOM]]

A branch is one outcome of one condition, counted once however many instances of a template or
objects hold it. Ends with 1 where fewer than 95 in 100 branches were taken, or a mark gives no reason.
"""

import collections
import json
import pathlib
import re
import sys

LIMIT = 95
MARK = re.compile(r"// coverage:(.*)$")
# What runs on one system alone is shown by the contract tests of the platform layer.
ONE_SYSTEM = {"posix", "windows"}


def branches(export, root):
    """File to condition (line, column, end) to whether it was ever true, and ever false."""
    taken = collections.defaultdict(dict)
    for file in export["data"][0]["files"]:
        path = pathlib.Path(file["filename"]).relative_to(root)
        if path.parts[0] != "src" or ONE_SYSTEM & set(path.parts):
            continue
        for line, column, end_line, end_column, true, false, *_ in file["branches"]:
            place = (line, column, end_line, end_column)
            was = taken[path].get(place, (False, False))
            taken[path][place] = (was[0] or true > 0, was[1] or false > 0)
    return taken


def text_at(lines, place):
    line, column, end_line, end_column = place
    return lines[line - 1][column - 1:end_column - 1 if end_line == line else None]


def main():
    root = pathlib.Path.cwd()
    export = json.loads(pathlib.Path(sys.argv[1]).read_text())
    wants_list, wanted_room = "--list" in sys.argv, sys.argv[3] if len(sys.argv) > 3 else None

    rooms = collections.defaultdict(lambda: [0, 0, 0])  # branches, taken, marked
    faults = []
    for path, conditions in sorted(branches(export, root).items()):
        lines = path.read_text().splitlines()
        room = rooms[path.parts[1]]
        marks = {number: match.group(1).strip() for number, text in enumerate(lines, 1)
                 if (match := MARK.search(text))}
        # A mark that stands alone is the next line's.
        marks = {number + lines[number - 1].lstrip().startswith("//"): (number, reason)
                 for number, reason in marks.items()}
        used = set()
        for place, outcomes in sorted(conditions.items()):
            text = text_at(lines, place)
            if text == "true" or "if constexpr" in lines[place[0] - 1]:
                continue
            for outcome, was_taken in zip(("true", "false"), outcomes):
                room[0] += 1
                if was_taken:
                    room[1] += 1
                elif place[0] in marks:
                    room[2] += 1
                    used.add(place[0])
                elif wants_list and wanted_room in (None, path.parts[1]):
                    print(f"{path}:{place[0]}: never {outcome}: {text}")
        for number, (stands, reason) in marks.items():
            if not reason:
                faults.append(f"{path}:{stands}: a mark without a reason")
            elif number not in used:
                print(f"{path}:{stands}: a mark where every branch is taken")

    rooms["total"] = [sum(column) for column in zip(*rooms.values())]
    print(f"{'room':22}{'branches':>9}{'taken':>8}{'marked':>8}{'per cent':>10}")
    for name, (all_of, taken, marked) in rooms.items():
        print(f"{name:22}{all_of:9}{taken:8}{marked:8}{100 * taken / (all_of - marked):10.1f}")
    all_of, taken, marked = rooms["total"]
    if 100 * taken < LIMIT * (all_of - marked):
        faults.append(f"fewer than {LIMIT} in 100 branches are taken")
    print("\n".join(faults), file=sys.stderr, end="\n" if faults else "")
    return 1 if faults else 0


sys.exit(main())
