"""Streams of any length, made fast: each second an IDR picture and 59 P and B pictures, with NAL and VCL HRD, timecodes
and nothing in the slices."""

import stream_builder as build
from h264_writer import nal_unit
from picture_builder import Pps, Slice

RATE = 60
BIT_RATE, CPB_SIZE = 64 * 4000, 16 * 32000  # of both HRDs, whose rate is variable


def hrd(s, cpb_size):
    s.ue("cpb_cnt_minus1", 0)
    s.u(4, "bit_rate_scale", 0)
    s.u(4, "cpb_size_scale", 0)
    s.writer.ue(BIT_RATE // 64 - 1)
    s.writer.ue(cpb_size // 16 - 1)
    s.writer.u(1, 0)
    for name in ("initial_cpb_removal_delay_length_minus1", "cpb_removal_delay_length_minus1",
                 "dpb_output_delay_length_minus1"):
        s.u(5, name, 23)
    s.u(5, "time_offset_length", 0)


def vui(cpb_size):
    def write(s):
        for name in ("aspect_ratio_info", "overscan_info", "video_signal_type", "chroma_loc_info"):
            s.u(1, name + "_present_flag", 0)
        s.u(1, "timing_info_present_flag", 1)
        s.u(32, "num_units_in_tick", 1)
        s.u(32, "time_scale", 2 * RATE)
        s.u(1, "fixed_frame_rate_flag", 1)
        for name in ("nal", "vcl"):
            s.u(1, name + "_hrd_parameters_present_flag", 1)
            hrd(s.structure(name + "_hrd_parameters"), cpb_size)
        s.u(1, "low_delay_hrd_flag", 0)
        s.u(1, "pic_struct_present_flag", 1)
        s.u(1, "bitstream_restriction_flag", 0)
    return write


def message(payload_type, *fields):
    """fields: their lengths and values"""
    bits = length = 0
    for count, value in fields:
        bits, length = bits << count | value, length + count
    if length % 8:
        padding = -length % 8
        bits, length = (bits << 1 | 1) << padding - 1, length + padding
    payload = bytes([payload_type, length // 8]) + bits.to_bytes(length // 8, "big") + b"\x80"
    return nal_unit(6, payload, nal_ref_idc=0)


def buffering_period(delay, offset):
    return message(0, (1, 1), *((24, value) for value in (delay, offset) * 2))


def picture_timing(cpb_removal_delay, dpb_output_delay, second, frame):
    return message(1, (24, cpb_removal_delay), (24, dpb_output_delay), (4, 0), (1, 1), (2, 0), (1, 1), (5, 1), (1, 1),
                   (1, 0), (1, 0), (8, frame), (6, second % 60), (6, second // 60 % 60), (5, second // 3600))


def place_of(i):
    """In output order, of a second's picture in decoding order: I P B B P B B ... P P"""
    if i == 0 or i >= RATE - 2:
        return i
    return i + 2 if i % 3 == 1 else i - 1


def slices_of_a_second(pps):
    """For each picture its slice in seconds with an even and with an odd number."""
    slices = []
    for i in range(RATE):
        kind, size = (7, 2000) if i == 0 else (5, 500) if i % 3 == 1 or i >= RATE - 2 else (6, 100)
        slices.append([Slice(pps, kind, unit_type=5 if i == 0 else 1, ref_idc=0 if kind == 6 else 2,
                             poc_lsb=2 * place_of(i), frame_num=(i + 2) // 3, idr_pic_id=parity,
                             data=b"\xab" * (size + i * 7 % 90)).unit() for parity in (0, 1)])
    return slices


def long_stream(seconds, jump_at=None, initial_delay=90000, cpb_size=CPB_SIZE):
    """jump_at: the second from which timecodes are 10 seconds ahead."""
    sps = build.Sps({}, 77, poc=build.poc_type(0), vui=vui(cpb_size))
    pps = Pps(sps)
    slices = slices_of_a_second(pps)
    stream = []
    for second in range(seconds):
        shown = second + (10 if jump_at is not None and second >= jump_at else 0)
        if second % 10 == 0:
            stream += [sps.unit(), pps.unit()]
        for i in range(RATE):
            if i == 0:
                stream.append(buffering_period(initial_delay, 0))
            delay = 2 * i if i > 0 else 2 * RATE if second > 0 else 0
            stream.append(picture_timing(delay, 2 * (place_of(i) - i + 2), shown, place_of(i)))
            stream.append(slices[i][second % 2])
    return b"".join(stream)
