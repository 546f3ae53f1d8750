"""Reads what ffmpeg's trace_headers bitstream filter prints.

The filter prints, behind its name, the title of each NAL unit and SEI message and a line an element:

    [trace_headers @ 0x55d0] Packet: 62 bytes, key frame, no pts, dts -48000, duration 48000.
    [trace_headers @ 0x55d0] Sequence Parameter Set
    [trace_headers @ 0x55d0] 0           forbidden_zero_bit                         0 = 0
    [trace_headers @ 0x55d0] 160         bit_rate_value_minus1[0]       0001111010100 = 979

that is the bit position from the NAL unit's header on (emulation prevention removed), the name with its indices, the
bits and the value. Parameter sets are printed once more as "Extradata" before the first packet; these are left out.
"""

import re
import subprocess
from dataclasses import dataclass, field

_PREFIX = re.compile(r"\[trace_headers @ [^\]]*\] (.*)")
_ELEMENT = re.compile(r"(\d+) +(\S+) +([01]*) *= (-?\d+)$")
_FAILURE = re.compile(r"Failed to|Invalid|out of range|overflow|Error", re.IGNORECASE)


class TraceError(Exception):
    """The filter did not accept the stream, or printed something that is not understood."""


@dataclass
class Element:
    position: int
    name: str
    bits: str
    value: int


@dataclass
class Unit:
    title: str
    elements: list = field(default_factory=list)

    def value(self, name):
        return next(element.value for element in self.elements if element.name == name)


def run(ffmpeg, stream):
    """The NAL units of the stream that trace_headers knows, in order."""
    command = [ffmpeg, "-nostdin", "-hide_banner", "-nostats", "-loglevel", "repeat+info", "-f", "h264", "-i", stream,
               "-copyinkf:v", "-c", "copy", "-bsf:v", "trace_headers", "-f", "null", "-"]
    result = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, check=False)
    text = result.stderr.decode("utf-8", "replace")
    if result.returncode != 0:
        raise TraceError("ffmpeg ends with status %d: %s" % (result.returncode, text[-500:]))
    return parse(text)


def parse(text):
    units = []
    title = ""
    in_packet = False
    for line in text.splitlines():
        match = _PREFIX.match(line)
        if not match:
            continue
        content = match.group(1)
        element = _ELEMENT.match(content)
        if not element:
            if _FAILURE.search(content):
                raise TraceError(content)
            in_packet = in_packet or content.startswith("Packet:")
            title = content
        elif in_packet:
            position, name, bits, value = element.groups()
            if name == "forbidden_zero_bit":
                units.append(Unit(title))
            elif not units:
                raise TraceError("an element outside of a unit: " + content)
            units[-1].elements.append(Element(int(position), name, bits, int(value)))
    for unit in units:
        _check_positions(unit)
    return units


def _check_positions(unit):
    """The elements of a unit follow each other without a gap, so that no line went lost."""
    position = 0
    for element in unit.elements:
        if element.position != position:
            raise TraceError("%s at bit %d of %s, bit %d was expected" %
                             (element.name, element.position, unit.title, position))
        position += len(element.bits)
