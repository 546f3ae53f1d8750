"""The stream of the golden files. As a script it writes tests/data/dump.h264."""

import os

import stream_builder as build
from picture_builder import Pps, Slice
from stream_builder import nal_unit

DATA_FILE = os.path.join(build.HERE, "..", "data", "dump.h264")


def plain_pps():
    """Refers to the auxiliary set, which comes last with id 0; ends with the byte."""
    return Pps(build.auxiliary_sps(), bottom=1)


def matrix_pps():
    """Every element behind the basic ones. Lists have deltas where the sequence parameter set's have."""
    lists = [(1, None), (0, [-8]), (0, None), (1, [1] * 16), (1, None), (0, None), (1, [0] * 64), (0, None),
             (1, [5, -13]), (1, None), (0, None), (0, [-1] * 7 + [-1])]
    return Pps(build.high_sps(), pps_id=255, cabac=1, references=(2, 1), weighted_pred_flag=1, weighted_bipred_idc=1,
               qp=(-3, 4, -12), deblocking=1, redundant=1, tail=(1, lists, -7))


def idr_slice():
    return Slice(plain_pps(), 7, unit_type=5, ref_idc=3, idr_pic_id=9, poc_lsb=254, delta_bottom=-1, qp=-5,
                 data=b"\x00\x00\x01\x00\x00\x03\x12")


def p_slice():
    marking = [(1, {"difference_of_pic_nums_minus1": 3}), (2, {"long_term_pic_num": 1}),
               (3, {"difference_of_pic_nums_minus1": 0, "long_term_frame_idx": 2}),
               (4, {"max_long_term_frame_idx_plus1": 3}), (5, {}), (6, {"long_term_frame_idx": 0})]
    return Slice(plain_pps(), 5, first_mb=100, frame_num=63, references=(3,), modifications=([(0, 4), (2, 5)],),
                 marking=marking)


def b_slice():
    return Slice(matrix_pps(), 1, ref_idc=0, frame_num=1, field=1, redundant_pic_cnt=1,
                 modifications=(None, [(1, 70000), (0, 2)]), weights=([(-128, 127), None, (1, -1)], [None, (33, 0)]),
                 cabac_init_idc=2, qp=26, deblocking=(2, -6, 6))


def sp_partition():
    return Slice(plain_pps(), 3, unit_type=2, ref_idc=1, qp=1)


def dump_stream():
    """Units of many types, damaged ones among them."""
    return b"".join((
        b"\x00\x00",  # leading zero bytes
        nal_unit(9, b"\x50", nal_ref_idc=0),
        build.baseline_sps().unit(start_code_length=3),
        build.high_sps().unit(),
        build.high_sps().unit(),
        build.auxiliary_sps().unit(nal_ref_idc=1),
        plain_pps().unit(),
        matrix_pps().unit(),
        nal_unit(6, b"\x05\x00\x80", nal_ref_idc=0, start_code_length=3),
        idr_slice().unit(),
        b"\x00\x00\x00",  # trailing zero bytes
        p_slice().unit(start_code_length=3),
        b_slice().unit(start_code_length=3),
        sp_partition().unit(start_code_length=3),
        nal_unit(20, b"\x00\x00\x00\x88"),
        # Damage.
        matrix_pps().unit()[:20],
        b_slice().unit(),  # its picture parameter set was damaged
        build.high_sps().unit()[:30],
        b"\x00\x00\x01",  # no header
        b"\x00\x00\x01\x67",
        nal_unit(7, build.high_sps().payload + b"\xff" * 200, start_code_length=3),
        p_slice().unit()[:9],
        nal_unit(9, b"", nal_ref_idc=0),
        b"\x00\x00\x01\xff",  # forbidden_zero_bit
        nal_unit(31, b"", nal_ref_idc=0),
        nal_unit(10, b"", nal_ref_idc=0, start_code_length=3),
        nal_unit(11, b"", nal_ref_idc=0, start_code_length=3),
        nal_unit(12, b"\xff\xff\x80", nal_ref_idc=0, start_code_length=3),
        b"\x00",
    ))


if __name__ == "__main__":
    with open(DATA_FILE, "wb") as data:
        data.write(dump_stream())
