"""Instructions that the main calls take, counted by valgrind."""

import json
import pathlib
import re
import subprocess

TABLE = pathlib.Path(__file__).with_name("instructions.json")
MOST_GROWTH = 1.05
FEW, MANY = 10, 110


def run(program, name, times, setting):
    out = subprocess.run(
        ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", program, name, str(times), setting],
        check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
    )  # fmt: skip
    return int(re.search(r"Collected : (\d+)", out.stderr).group(1))


def count(program, name, setting):
    """Of one call: what start-up takes is in both runs."""
    return (run(program, name, MANY, setting) - run(program, name, FEW, setting)) / (MANY - FEW)


def names(program):
    return subprocess.run([program], check=True, stdout=subprocess.PIPE, text=True).stdout.split()


def check(program, *, update):
    """Compares all calls with the table. The exit status."""
    counts = {name: round(count(program, name, "3")) for name in names(program)}
    if update:
        TABLE.write_text(json.dumps(counts, indent=1) + "\n")
        return 0
    table = json.loads(TABLE.read_text())
    grown = []
    for name, instructions in counts.items():
        before = table.get(name)
        print(f"{name:24} {instructions:>8} {before or '':>8}")
        if before is None or instructions > before * MOST_GROWTH:
            grown.append(name)
    gone = sorted(table.keys() - counts.keys())
    if gone:
        print("In benchmarks/instructions.json but not measured: " + ", ".join(gone))
    if grown:
        print("More than 5 % above benchmarks/instructions.json, or not in it: " + ", ".join(grown))
    return 1 if grown or gone else 0


def levels(program):
    """Rows of calls without a handle, at level 0 and at level 6 as far as they have nothing to print there."""
    rows = []
    for name, nothing_to_print in (("sps", False), ("slice_200B", False), ("slice_type", True), ("pps_cached", True),
                                   ("write_captions", True)):  # fmt: skip
        none = count(program, name, "none")
        for level in ("0", "6") if nothing_to_print else ("0",):
            instructions = count(program, name, level)
            ratio = instructions / none
            rows.append((f"{name} at level {level}", f"{instructions:.0f} instr", f"no handle {none:.0f} instr", ratio,
                         "<= 1.02", ratio <= 1.02))  # fmt: skip
    return rows
