"""Builds sequence parameter sets and says what a dump of them must show."""

import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "interop"))

from h264_writer import BitWriter, nal_unit  # noqa: E402


class Syntax:
    """Writes elements and keeps them as a dump shows them, in order."""

    def __init__(self, writer=None):
        self.writer = writer or BitWriter()
        self.elements = {}

    def u(self, count, name, value):
        self.writer.u(count, value)
        self.elements[name] = value

    def ue(self, name, value):
        self.writer.ue(value)
        self.elements[name] = value

    def se(self, name, value):
        self.writer.se(value)
        self.elements[name] = value

    def structure(self, name):
        inner = Syntax(self.writer)
        self.elements[name] = inner.elements
        return inner


class Sps:
    """A sequence parameter set: payload is its RBSP, elements what its JSON object must be."""

    def __init__(self, derived, profile_idc, constraint_flags=0, level_idc=30, seq_parameter_set_id=0, chroma=None,
                 poc=None, frames=None, size=(21, 17), fields=None, crop=None, vui=None):
        s = Syntax()
        s.u(8, "profile_idc", profile_idc)
        for i in range(6):
            s.u(1, "constraint_set%d_flag" % i, constraint_flags >> (7 - i) & 1)
        s.u(2, "reserved_zero_2bits", constraint_flags & 3)
        s.u(8, "level_idc", level_idc)
        s.ue("seq_parameter_set_id", seq_parameter_set_id)
        if chroma is not None:
            chroma(s)
        s.ue("log2_max_frame_num_minus4", 2)
        (poc or poc_type(2))(s)
        s.ue("max_num_ref_frames", frames or 1)
        s.u(1, "gaps_in_frame_num_value_allowed_flag", 1)
        s.ue("pic_width_in_mbs_minus1", size[0])
        s.ue("pic_height_in_map_units_minus1", size[1])
        s.u(1, "frame_mbs_only_flag", int(fields is None))
        if fields is not None:
            s.u(1, "mb_adaptive_frame_field_flag", fields)
        s.u(1, "direct_8x8_inference_flag", 1)
        s.u(1, "frame_cropping_flag", int(crop is not None))
        for side, offset in zip(("left", "right", "top", "bottom"), crop or ()):
            s.ue("frame_crop_%s_offset" % side, offset)
        s.u(1, "vui_parameters_present_flag", int(vui is not None))
        if vui is not None:
            vui(s.structure("vui_parameters"))
        self.payload = s.writer.with_trailing_bits()
        self.elements = dict(s.elements, derived=derived)

    def unit(self, **header):
        return nal_unit(7, self.payload, **header)


def chroma_format(chroma_format_idc, scaling_lists=None, separate_colour_plane_flag=0):
    """The elements of the high profiles; a scaling list is None, or the deltas that are transmitted."""

    def write(s):
        s.ue("chroma_format_idc", chroma_format_idc)
        if chroma_format_idc == 3:
            s.u(1, "separate_colour_plane_flag", separate_colour_plane_flag)
        s.ue("bit_depth_luma_minus8", 2)
        s.ue("bit_depth_chroma_minus8", 1)
        s.u(1, "qpprime_y_zero_transform_bypass_flag", 1)
        s.u(1, "seq_scaling_matrix_present_flag", int(scaling_lists is not None))
        if scaling_lists is None:
            return
        s.elements["scaling_list"] = []
        for deltas in scaling_lists:
            one = Syntax(s.writer)
            one.u(1, "seq_scaling_list_present_flag", int(deltas is not None))
            if deltas is not None:
                one.elements["delta_scale"] = deltas
                for delta in deltas:
                    s.writer.se(delta)
            s.elements["scaling_list"].append(one.elements)

    return write


def poc_type(number, offsets=()):
    def write(s):
        s.ue("pic_order_cnt_type", number)
        if number == 0:
            s.ue("log2_max_pic_order_cnt_lsb_minus4", 4)
        elif number == 1:
            s.u(1, "delta_pic_order_always_zero_flag", 1)
            s.se("offset_for_non_ref_pic", -1)
            s.se("offset_for_top_to_bottom_field", 70000)
            s.ue("num_ref_frames_in_pic_order_cnt_cycle", len(offsets))
            for offset in offsets:
                s.writer.se(offset)
            s.elements["offset_for_ref_frame"] = list(offsets[:256])

    return write


def hrd(s, schedules):
    s.ue("cpb_cnt_minus1", len(schedules) - 1)
    s.u(4, "bit_rate_scale", 1)
    s.u(4, "cpb_size_scale", 15)
    for bit_rate_value_minus1, cpb_size_value_minus1, cbr_flag in schedules:
        s.writer.ue(bit_rate_value_minus1)
        s.writer.ue(cpb_size_value_minus1)
        s.writer.u(1, cbr_flag)
    for i, name in enumerate(("bit_rate_value_minus1", "cpb_size_value_minus1", "cbr_flag")):
        s.elements[name] = [schedule[i] for schedule in schedules[:32]]
    s.u(5, "initial_cpb_removal_delay_length_minus1", 23)
    s.u(5, "cpb_removal_delay_length_minus1", 22)
    s.u(5, "dpb_output_delay_length_minus1", 21)
    s.u(5, "time_offset_length", 24)


def timing_vui(timing=(1001, 60000), pic_struct=1, fixed_frame_rate=1, nal_hrd=False, vcl_hrd=False):
    """Timing, where it is not None, picture structure and HRD parameters."""
    def write(s):
        for name in ("aspect_ratio_info", "overscan_info", "video_signal_type", "chroma_loc_info"):
            s.u(1, name + "_present_flag", 0)
        s.u(1, "timing_info_present_flag", int(timing is not None))
        if timing is not None:
            s.u(32, "num_units_in_tick", timing[0])
            s.u(32, "time_scale", timing[1])
            s.u(1, "fixed_frame_rate_flag", fixed_frame_rate)
        for name, present in (("nal", nal_hrd), ("vcl", vcl_hrd)):
            s.u(1, name + "_hrd_parameters_present_flag", int(present))
            if present:
                hrd(s.structure(name + "_hrd_parameters"), [(0, 0, 0)])
        if nal_hrd or vcl_hrd:
            s.u(1, "low_delay_hrd_flag", 0)
        s.u(1, "pic_struct_present_flag", pic_struct)
        s.u(1, "bitstream_restriction_flag", 0)
    return write


def full_vui(nal_schedules, vcl_schedules, timing=(1001, 60000)):
    def write(s):
        s.u(1, "aspect_ratio_info_present_flag", 1)
        s.u(8, "aspect_ratio_idc", 255)
        s.u(16, "sar_width", 40000)
        s.u(16, "sar_height", 33)
        s.u(1, "overscan_info_present_flag", 1)
        s.u(1, "overscan_appropriate_flag", 1)
        s.u(1, "video_signal_type_present_flag", 1)
        s.u(3, "video_format", 5)
        s.u(1, "video_full_range_flag", 1)
        s.u(1, "colour_description_present_flag", 1)
        s.u(8, "colour_primaries", 9)
        s.u(8, "transfer_characteristics", 16)
        s.u(8, "matrix_coefficients", 10)
        s.u(1, "chroma_loc_info_present_flag", 1)
        s.ue("chroma_sample_loc_type_top_field", 2)
        s.ue("chroma_sample_loc_type_bottom_field", 3)
        s.u(1, "timing_info_present_flag", 1)
        s.u(32, "num_units_in_tick", timing[0])
        s.u(32, "time_scale", timing[1])
        s.u(1, "fixed_frame_rate_flag", 1)
        s.u(1, "nal_hrd_parameters_present_flag", 1)
        hrd(s.structure("nal_hrd_parameters"), nal_schedules)
        s.u(1, "vcl_hrd_parameters_present_flag", 1)
        hrd(s.structure("vcl_hrd_parameters"), vcl_schedules)
        s.u(1, "low_delay_hrd_flag", 1)
        s.u(1, "pic_struct_present_flag", 1)
        s.u(1, "bitstream_restriction_flag", 1)
        s.u(1, "motion_vectors_over_pic_boundaries_flag", 1)
        s.ue("max_bytes_per_pic_denom", 2)
        s.ue("max_bits_per_mb_denom", 1)
        s.ue("log2_max_mv_length_horizontal", 16)
        s.ue("log2_max_mv_length_vertical", 15)
        s.ue("num_reorder_frames", 3)
        s.ue("max_decoder_frame_buffering", 4294967294)

    return write


def baseline_sps():
    return Sps({"width": 352, "height": 288}, 66, constraint_flags=0xC1, vui=None)


def high_sps():
    """Every branch at once. The deltas of list 1 end at once, those of list 8 in the middle."""
    lists = [None, [-8], None, [2] * 16, None, None, [0] * 64, None, [1, 1, -300, 34], None, None, [255] + [0] * 63]
    return Sps({"ChromaArrayType": 3, "width": 347, "height": 564, "MaxFPS": 30}, 244, constraint_flags=0x3E,
               level_idc=51, seq_parameter_set_id=31, chroma=chroma_format(3, lists),
               poc=poc_type(1, [-3, 0, 2147483647]), frames=4, fields=1, crop=(2, 3, 4, 2),
               vui=full_vui([(9999, 4999, 1), (0, 4294967294, 0)], [(7, 8, 0)]))


def auxiliary_sps():
    """A profile whose chroma elements are read and not displayed."""
    return Sps({"ChromaArrayType": 1, "width": 352, "height": 288}, 128, chroma=chroma_format(1), poc=poc_type(0),
               vui=timing_vui(None, 0))
