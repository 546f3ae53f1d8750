"""What the tests of h264tool insert share: streams to insert into, and readers of what was inserted."""

import stream_builder as build
from h264_writer import split
from picture_builder import Pps, Slice
from runner import TestCase, feed

UUID = "00112233-4455-6677-8899-aabbccddeeff"
CAPTIONS, TIMING, AFD, PRECISION, USER_DATA = "captions", "timing", "afd", "precision", "user data"


def vui(timing=(1, 50), pic_struct=0, **hrds):
    return build.timing_vui(timing, pic_struct, fixed_frame_rate=0, **hrds)


class Stream:
    """Parameter sets, and slices that use them."""

    def __init__(self, timing=(1, 50), pic_struct=1, fields=None, bottom=0, with_vui=True, redundant=0, **hrds):
        self.sps = build.Sps({}, 77, poc=build.poc_type(0), fields=fields,
                             vui=vui(timing, pic_struct, **hrds) if with_vui else None)
        self.pps = Pps(self.sps, bottom=bottom, redundant=redundant)

    def sets(self):
        return self.sps.unit() + self.pps.unit()

    def slice(self, kind, order, **fields):
        """A slice of kind "I" (of an IDR picture when the order is 0), "P" or "B", by its pic_order_cnt_lsb."""
        idr = kind == "I" and order == 0
        fields = dict({"unit_type": 5 if idr else 1, "ref_idc": 0 if kind == "B" else 2}, **fields)
        return Slice(self.pps, "PBI".index(kind) + 5, poc_lsb=order, **fields).unit()

    def frames(self, count):
        """Frames in output order: an IDR picture every 50 frames."""
        return [self.slice("I" if i % 50 == 0 else "P", i % 50 * 2, frame_num=i % 50, idr_pic_id=i // 50 % 2)
                for i in range(count)]

    def plain(self, count):
        return self.sets() + b"".join(self.frames(count))


# I0 P3 B1 B2 P6 B4 B5, whose places in output order are these.
REORDERED = (("I", 0, 0), ("P", 6, 1), ("B", 2, 2), ("B", 4, 2), ("P", 12, 2), ("B", 8, 3), ("B", 10, 3))
PLACES = (0, 3, 1, 2, 6, 4, 5)


def reordered(stream):
    return [stream.slice(kind, order, frame_num=frame_num) for kind, order, frame_num in REORDERED]


def payload(unit):
    """What follows the header byte, without emulation prevention."""
    plain = bytearray()
    zeros = 0
    for byte in unit[unit.index(b"\x01") + 2:]:
        if zeros >= 2 and byte == 3:
            zeros = 0
            continue
        plain.append(byte)
        zeros = zeros + 1 if byte == 0 else 0
    return bytes(plain)


def kind_of_header(unit):
    return unit[unit.index(b"\x01") + 1] & 31


def kind_of(unit):
    data = payload(unit)
    if kind_of_header(unit) != 6:
        return kind_of_header(unit)
    if data[0] == 1:
        return TIMING
    if data[0] == 5:
        return PRECISION if data[2:18] == b"MISPmicrosectime" else USER_DATA
    return {b"GA94": CAPTIONS, b"DTG1": AFD}[data[5:9]]


def messages(stream, kind):
    return [payload(unit) for unit in split(stream) if kind_of(unit) == kind]


class Timing:
    """A picture timing message, read bit by bit."""

    def __init__(self, data):
        bits = "".join("{:08b}".format(byte) for byte in data[2:2 + data[1]])
        self.position = 0

        def u(count):
            self.position += count
            return int(bits[self.position - count:self.position], 2)

        self.pic_struct, self.flag, self.ct_type, self.field_based = u(4), u(1), u(2), u(1)
        self.counting_type, self.full, self.discontinuity, self.dropped = u(5), u(1), u(1), u(1)
        frames, seconds, minutes, hours = u(8), u(6), u(6), u(5)
        self.text = "%02d:%02d:%02d:%02d" % (hours, minutes, seconds, frames)
        self.time_offset = u(24)
        self.second_flag = u(1) if self.pic_struct in (3, 4) else None


class InsertTestCase(TestCase):
    def insert(self, stream, *options, status=0, stderr=""):
        result = feed("insert", stream, "-o", "-", *options)
        self.assert_result(result, status, stderr)
        return result.stdout

    def refuse(self, stream, reason, *options):
        self.assert_refused("insert", stream, reason, *options)

    def kinds(self, stream):
        return [kind_of(unit) for unit in split(stream)]

    def timings(self, stream):
        return [Timing(data) for data in messages(stream, TIMING)]

    def texts(self, stream):
        return [timing.text for timing in self.timings(stream)]
