#!/usr/bin/env python3
"""Writes inputs for the fuzz targets that are made from streams: make_seeds.py DIRECTORY STREAM..."""

import pathlib
import re
import sys

SPS, PPS, SEI, AUD = 7, 8, 6, 9
MOST_BYTES = 400


def units_of(stream):
    starts = [m.start() for m in re.finditer(rb"\x00?\x00\x00\x01", stream)]
    return [stream[a:b].rstrip(b"\0") for a, b in zip(starts, starts[1:] + [len(stream)])]


def type_of(unit):
    return unit[unit.index(1) + 1] & 0x1F if len(unit) > unit.index(1) + 1 else 0


def chunk(unit):
    unit = unit[:MOST_BYTES]
    return len(unit).to_bytes(2, "big") + unit


def seeds(stream):
    units = units_of(stream)
    readers = {SPS: 0, PPS: 1, 1: 2, 5: 2, AUD: 3}
    read = [bytes([readers[type_of(u)]]) + chunk(u) for u in units if type_of(u) in readers]
    for first in range(0, min(len(read), 12), 3):
        yield "nal_units", b"".join(read[:2] + read[first : first + 3])
    sets = [u for u in units if type_of(u) in (SPS, PPS)][:8]
    yield "contexts", b"".join(b"\7" + bytes([type_of(u) == SPS]) + chunk(u) for u in sets) + b"\0\1\1\0"
    sps = next((u for u in units if type_of(u) == SPS), b"")
    for unit in [u for u in units if type_of(u) == SEI][:6]:
        hostile = bytes([1]) + (20).to_bytes(4, "big") + b"\0\2" + b"\0\0" + b"\0\0"
        yield "sei", b"\0" + chunk(sps) + hostile + unit[:MOST_BYTES]
        yield "rewriters", b"\1" + chunk(sps) + chunk(unit)
    yield "rewriters", b"\0" + chunk(sps)
    yield "encapsulation", b"\5\0\0" + stream[:MOST_BYTES]
    yield "stream_splitter", b"\7\5\2" + stream[:2000]
    for command in range(6):
        yield "commands", bytes([command]) + stream[:6000]


def main():
    root = pathlib.Path(sys.argv[1])
    for number, name in enumerate(sys.argv[2:]):
        for index, (target, seed) in enumerate(seeds(pathlib.Path(name).read_bytes())):
            directory = root / target
            directory.mkdir(parents=True, exist_ok=True)
            (directory / f"seed_{number}_{index}").write_bytes(seed)


if __name__ == "__main__":
    main()
