#!/usr/bin/env python3
"""Compares h264tool with ffmpeg's trace_headers, element by element, over many streams.

Usage: compare_with_ffmpeg.py H264TOOL SAMPLES_DIRECTORY WORK_DIRECTORY

Exit status: 0 no difference, 1 differences, 77 ffmpeg or its libx264 encoder is missing.
"""

import collections
import glob
import json
import os
import shutil
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

import deliberate
import elements
import made_sei
import made_slices
import made_sps
import streams
import trace_headers

SKIPPED = 77

# What the streams give at least; less means that something was not compared.
LEAST_STREAMS = 124
LEAST_UNITS = {"sps": 650, "pps": 375, "slice": 1800, "sei_messages": 600}
LEAST_ELEMENTS = {"sps": 39000, "pps": 6800, "slice": 37500, "sei_messages": 13000}

# Elements that keep one value in all streams: trace_headers refuses any other.
CONSTANT = {("sps", "reserved_zero_2bits")}

# Units that trace_headers does not take apart: it names neither their type nor their elements.
TYPES_OF_TRACE = (1, 5, 6, 7, 8, 9, 10, 11, 12, 13, 19)


class Comparison:
    def __init__(self):
        self.streams = 0
        self.headers = 0
        self.units = collections.Counter()
        self.elements = collections.Counter()
        self.values = collections.defaultdict(set)
        self.deliberate = collections.Counter()
        self.differences = []

    def add_stream(self, name, theirs, ours):
        """The units of a stream: trace_headers' and h264tool's objects."""
        self.streams += 1
        ours = [unit for unit in ours if unit.get("nal_unit_type") in TYPES_OF_TRACE]
        if len(theirs) != len(ours):
            self.differences.append("%s: trace_headers has %d NAL units, h264tool %d" % (name, len(theirs), len(ours)))
            return
        sets = deliberate.ParameterSets()
        for their_unit, our_unit in zip(theirs, ours):
            where = "%s, unit %s at offset %s" % (name, our_unit.get("unit"), our_unit.get("offset"))
            self._add_unit(where, their_unit, our_unit, sets)

    def _add_unit(self, where, their_unit, our_unit, sets):
        self.headers += 1
        for element in ("nal_ref_idc", "nal_unit_type"):
            if their_unit.value(element) != our_unit.get(element):
                self.differences.append("%s: %s: trace_headers %s, h264tool %s" %
                                        (where, element, their_unit.value(element), our_unit.get(element)))
        structure = elements.STRUCTURES.get(their_unit.value("nal_unit_type"))
        if structure is None:
            if "error" in our_unit:
                self.differences.append("%s: h264tool refuses the unit: %s" % (where, our_unit["error"]))
            return
        theirs = elements.from_trace(their_unit)
        sets.add(structure, theirs)
        expected = deliberate.expected(structure, their_unit, theirs, sets)
        self.deliberate.update(expected.reasons)
        self._compare_unit(where, structure, expected, our_unit)
        self.units[structure] += 1
        self.elements[structure] += len(expected.elements or ())
        for path, value in theirs.items():
            self.values[structure, elements.without_indices(path)].add(value)

    def _compare_unit(self, where, structure, expected, our_unit):
        refused = structure not in our_unit and "error" in our_unit
        if expected.elements is None:
            if not refused:
                self.differences.append("%s: h264tool does not refuse the %s: %s" %
                                        (where, structure, json.dumps(our_unit)))
            return
        if refused and expected.rest_is_undefined:
            return
        if structure not in our_unit or "error" in our_unit and not expected.ends_early:
            self.differences.append("%s: h264tool has no %s: %s" % (where, structure, json.dumps(our_unit)))
            return
        ours = elements.from_tool(structure, our_unit[structure])
        self.differences += ["%s: %s" % (where, difference)
                             for difference in elements.compare(expected.elements, ours, expected.rest_is_undefined)]

    def check_amount(self):
        if self.streams < LEAST_STREAMS:
            self.differences.append("only %d streams compared" % self.streams)
        for structure in LEAST_UNITS:
            if self.units[structure] < LEAST_UNITS[structure]:
                self.differences.append("only %d units compared: %s" % (self.units[structure], structure))
            if self.elements[structure] < LEAST_ELEMENTS[structure]:
                self.differences.append("only %d elements compared: %s" % (self.elements[structure], structure))
        for key in elements.ELEMENTS:
            if len(self.values[key]) < (1 if key in CONSTANT else 2):
                self.differences.append("%s of %s has %d different values in all streams" %
                                        (key[1], key[0], len(self.values[key])))
        for reason in deliberate.DELIBERATE:
            if reason not in self.deliberate:
                self.differences.append("%s is listed as a difference and does not occur" % reason)

    def report(self):
        for reason, text in deliberate.DELIBERATE.items():
            print("Different on purpose in %d units: %s: %s." % (self.deliberate[reason], reason, text))
        for difference in self.differences[:100]:
            print("DIFFERENT: " + difference)
        print(self.closing_line())

    def closing_line(self):
        compared = ", ".join("%d elements of %d units (%s)" %
                             (self.elements[structure], self.units[structure], structure) for structure in LEAST_UNITS)
        on_purpose = ", ".join("%s %d" % (reason, self.deliberate[reason]) for reason in deliberate.DELIBERATE)
        return ("Compared %s and the headers of %d NAL units in %d streams: %d differences. Units that differ on "
                "purpose: %s." % (compared, self.headers, self.streams, len(self.differences), on_purpose))


def missing_part(ffmpeg):
    if ffmpeg is None:
        return "ffmpeg is not installed"
    for listing, wanted in (("-encoders", " libx264 "), ("-bsfs", "trace_headers"), ("-bsfs", "h264_metadata")):
        output = subprocess.run([ffmpeg, "-hide_banner", listing], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.DEVNULL, check=False).stdout.decode("utf-8", "replace")
        if wanted not in output:
            return "ffmpeg is built without " + wanted.strip()
    return None


def make_streams(ffmpeg, directory, workers):
    """Names and paths of all generated streams."""
    streams.write_scaling_matrix(directory)
    encoded = workers.map(lambda name: streams.encode(ffmpeg, directory, name), streams.ENCODED)
    paths = dict(zip(streams.ENCODED, encoded))
    changed = workers.map(lambda name: streams.change(ffmpeg, directory, name), streams.CHANGED)
    paths.update(("changed " + name, path) for name, path in zip(streams.CHANGED, changed))
    for name in made_sps.MADE:
        paths["made " + name] = streams.splice(directory, "high", name, made_sps.units(name))
    for seed, base in enumerate(("main", "high444", "hrd_vbr_tff", "crop_422")):
        name = "random_%d" % seed
        paths["made " + name] = streams.splice(directory, base, name, made_sps.random_units(75, seed))
    for name in made_slices.MADE:
        paths["made " + name] = streams.append(directory, "main", name, made_slices.units(name))
    for seed in range(made_slices.RANDOM_STREAMS):
        name = "random_slices_%d" % seed
        paths["made " + name] = streams.append(directory, "main", name, made_slices.random_units(seed))
    for seed in range(made_sei.RANDOM_STREAMS):
        name = "random_sei_%d" % seed
        paths["made " + name] = streams.append(directory, "hrd_vbr_tff", name, made_sei.random_units(seed))
    return paths


def read_both(ffmpeg, tool, path):
    """A stream's units by trace_headers and by h264tool."""
    result = subprocess.run([tool, "dump", "--json", path], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, check=False)
    ours = [json.loads(line) for line in result.stdout.splitlines()]
    if result.returncode != int(any("error" in unit for unit in ours)):
        raise RuntimeError("h264tool ends with status %d: %s" % (result.returncode, result.stderr.decode()))
    return trace_headers.run(ffmpeg, path), ours


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    tool, samples, directory = sys.argv[1:]
    ffmpeg = shutil.which("ffmpeg")
    missing = missing_part(ffmpeg)
    if missing:
        print("Skipped: %s (Debian: ffmpeg)." % missing)
        return SKIPPED
    shutil.rmtree(directory, ignore_errors=True)
    os.makedirs(directory)

    comparison = Comparison()
    with ThreadPoolExecutor(os.cpu_count()) as workers:
        paths = make_streams(ffmpeg, directory, workers)
        paths.update(("sample " + os.path.basename(path), path)
                     for path in sorted(glob.glob(os.path.join(samples, "*.h264"))))
        pending = {name: workers.submit(read_both, ffmpeg, tool, path) for name, path in paths.items()}
        for name, result in pending.items():
            try:
                comparison.add_stream(name, *result.result())
            except (RuntimeError, trace_headers.TraceError) as error:
                comparison.differences.append("%s: %s" % (name, error))
    comparison.check_amount()
    comparison.report()
    return 1 if comparison.differences else 0


if __name__ == "__main__":
    sys.exit(main())
