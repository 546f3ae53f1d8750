#!/usr/bin/env python3
"""Measures the library and h264tool, and prints a table: bench.py [--check] BUILD_DIRECTORY

Every figure stands beside one that was measured just before or behind it. Programs are pinned to one processor and run
several times, and medians are taken: of the times, and of the quotients of each run. --check counts instructions alone
and fails when one of the main calls needs more than the committed table says; --update writes that table.
"""

import argparse
import json
import pathlib
import statistics
import subprocess
import sys

import commands
import instructions

RUNS = 9

# Name of the benchmark, what it is compared with, and the most that the quotient of their times shall be.
UNITS = [("sps", 0.5), ("pps", 0.4), ("slice_200B", 0.8), ("slice_20KB", 0.8), ("slice_1MB", 0.8),
         ("sei_pic_timing", 0.6), ("sei_buffering_period", 0.6), ("sei_four_messages", 0.6)]  # fmt: skip
SIZES = ["64B", "1KB", "64KB", "1MB"]
# Nanoseconds a call.
TIMES = [("write_pic_timing", 150), ("write_captions", 150), ("write_afd", 150), ("write_user_data", 150),
         ("write_precision_time", 150), ("rewrite_sps", 500), ("rewrite_pic_timing", 500)]  # fmt: skip
FIELDS = [("get_8", 3), ("get_32", 3), ("get_64", 3), ("set_32", None), ("get_ue", 6), ("set_ue", None)]
CALLS_A_ROUND = 4096  # of the fields' benchmarks


class Row:
    def __init__(self, name, figure, reference, ratio, aim=None, met=None):
        self.name, self.figure, self.reference = name, figure, reference
        self.ratio, self.aim, self.met = ratio, aim, met

    def text(self):
        verdict = "" if self.met is None else "met" if self.met else "NOT MET"
        figures = f"{self.figure:>14} {self.reference:>32} {self.ratio:>8.3f} {self.aim or '':>14}"
        return f"{self.name:36} {figures} {verdict}"


def time_text(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def run_benchmarks(program, pattern, *, seconds=0.02, pinned=True):
    """CPU times in ns (real time of threads) of each run, by benchmark."""
    times = {}
    for _ in range(RUNS):
        out = subprocess.run(
            [program, f"--benchmark_filter={pattern}", f"--benchmark_min_time={seconds}", "--benchmark_format=json"],
            check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, preexec_fn=commands.pin if pinned else None,
        )  # fmt: skip
        for entry in json.loads(out.stdout)["benchmarks"]:
            if entry.get("error_occurred"):
                sys.exit(f"{entry['name']}: {entry['error_message']}")
            key = "real_time" if "threads" in entry["name"] else "cpu_time"
            times.setdefault(entry["run_name"], []).append(entry[key])
    return times


def median(times, name):
    return statistics.median(times[name])


def quotient(times, name, other):
    return statistics.median(a / b for a, b in zip(times[name], times[other]))


def compare(times, name, kind, aim, text):
    """A row for call/NAME against KIND/NAME; none when the other was not measured."""
    ours, other = f"call/{name}", f"{kind}/{name}"
    if ours not in times or other not in times:
        return []
    ratio = quotient(times, ours, other)
    limit = f"<= {aim:.3g}" if aim else None
    return [Row(text, time_text(median(times, ours)), f"{kind} {time_text(median(times, other))}", ratio, limit,
                ratio <= aim if aim else None)]  # fmt: skip


def rate_row(times, name, size, other, other_text, aim):
    """A row for the bytes per second of call/NAME, which moves so many bytes."""
    rate = size / median(times, f"call/{name}")
    return Row(name, f"{rate:.3g} GB/s", f"{other_text} {time_text(median(times, other))}",
               quotient(times, f"call/{name}", other), f">= {aim} GB/s", rate >= aim)  # fmt: skip


def unit_rows(times):
    rows = []
    for name, aim in UNITS:
        rows += compare(times, name, "gstreamer", aim, name)
    for name in ("sps_cached", "pps_cached"):
        rows += compare(times, name, "copy", 1.5, name)
    return rows + [time_row(times, name, 1, most) for name, most in TIMES]


def time_row(times, name, calls, most):
    """A row for the time of one of so many calls that call/NAME makes."""
    time = median(times, f"call/{name}") / calls
    return Row(name, time_text(time), f"calibration {time_text(median(times, 'calibration'))}",
               quotient(times, f"call/{name}", "calibration") / calls, f"<= {most} ns" if most else None,
               time <= most if most else None)  # fmt: skip


def byte_rows(times):
    rows = []
    for function in ("encapsulation", "deencapsulation"):
        for data in ("real", "zeros", "half_zeros"):
            for size in SIZES:
                name = f"{function}_{data}_{size}"
                # 0.8 of the rate of the best loop: where the bytes that matter are dense that may be the one by bytes.
                best = min(("plain", "bytewise"), key=lambda kind: median(times, f"{kind}/{name}"))
                rows += compare(times, name, best, 1 / 0.8, name)
                if data == "real":
                    rows += compare(times, name, "bytewise", 1 / 10, name)
                else:
                    size_in_bytes = {"64B": 64, "1KB": 1024, "64KB": 65536, "1MB": 1_000_000}[size]
                    rows.append(rate_row(times, name, size_in_bytes, f"bytewise/{name}", "bytewise", 1))
    return rows


def field_rows(times):
    rows = [time_row(times, name, CALLS_A_ROUND, most) for name, most in FIELDS]
    for access in ("get", "set"):
        ratio = quotient(times, f"call/{access}_string_aligned", "memcpy/string")
        copy = median(times, "memcpy/string")
        rows.append(Row(f"{access}_string_aligned", f"{65536 / (copy * ratio):.3g} GB/s", f"memcpy {time_text(copy)}",
                        ratio, "<= 1.25", ratio <= 1.25))  # fmt: skip
        rows.append(rate_row(times, f"{access}_string_unaligned", 65536, "memcpy/string", "memcpy", 2))
    return rows


def thread_rows(program):
    times = run_benchmarks(program, "^read_units", seconds=0.2, pinned=False)
    one, two = (f"read_units/real_time/threads:{threads}" for threads in (1, 2))
    # Real time by the iteration of all threads together.
    gain = quotient(times, one, two)
    return [Row("two threads", time_text(median(times, two)), f"one thread {time_text(median(times, one))}", 1 / gain,
                "gain >= 1.9", gain >= 1.9)]  # fmt: skip


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--check", action="store_true", help="only compare instruction counts with the committed ones")
    parser.add_argument("--update", action="store_true", help="write the committed instruction counts")
    parser.add_argument("--json", type=pathlib.Path, help="also write the table here")
    arguments = parser.parse_args()
    programs = arguments.build / "benchmarks"
    if arguments.check or arguments.update:
        return instructions.check(programs / "count_calls", update=arguments.update)

    benchmarks = programs / "h264_benchmarks"
    times = run_benchmarks(benchmarks, "-^read_units")
    rows = unit_rows(times) + byte_rows(times) + field_rows(times) + thread_rows(benchmarks)
    rows += [Row(*row) for row in instructions.levels(programs / "count_calls")]
    rows += [Row(*row) for row in commands.measure(arguments.build / "components/tools/h264tool/h264tool")]
    print(f"{'':36} {'here':>14} {'compared with':>32} {'ratio':>8} {'aim':>14}")
    for row in rows:
        print(row.text())
    missed = [row.name for row in rows if row.met is False]
    print(f"{len(rows)} figures, {len(missed)} aims not met" + (": " + ", ".join(missed) if missed else ""))
    if arguments.json:
        arguments.json.write_text(json.dumps([vars(row) for row in rows], indent=1) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
