"""Sequence parameter sets and pictures for the tests of SEI messages."""

import stream_builder as build
from picture_builder import Pps, Slice
from stream_builder import Sps, timing_vui

TYPE_0 = build.poc_type(0)


def sps(vui, sps_id=0, **elements):
    return Sps({"width": 352, "height": 288}, 77, seq_parameter_set_id=sps_id, vui=vui, **dict({"poc": TYPE_0},
                                                                                             **elements))


# All lengths: initial CPB removal delay 24, CPB removal delay 23, DPB output delay 22, time offset 24.
HRD = sps(build.full_vui([(1, 2, 0), (3, 4, 0)], [(5, 6, 0)]))
TIMING = sps(timing_vui())


class Stream:
    """A stream of one sequence: pictures by their place in output order."""

    def __init__(self, sps_of=TIMING, pps_id=0):
        self.pps = Pps(sps_of, pps_id=pps_id)
        self.bytes = sps_of.unit() + self.pps.unit()

    def idr(self, *units, idr_pic_id=0):
        return self.add(Slice(self.pps, 7, unit_type=5, idr_pic_id=idr_pic_id), units)

    def p(self, place, frame_num, *units, **elements):
        return self.add(Slice(self.pps, 5, poc_lsb=2 * place, frame_num=frame_num, **elements), units)

    def b(self, place, frame_num, *units, **elements):
        return self.add(Slice(self.pps, 6, poc_lsb=2 * place, frame_num=frame_num, ref_idc=0, **elements), units)

    def add(self, one, units=()):
        self.bytes += b"".join(units) + one.unit()
        return self
