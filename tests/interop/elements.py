"""Brings what trace_headers and h264tool say about a NAL unit to one form, and compares it.

That form is a dictionary from an element's path to its value, in bitstream order. A path is the element's name behind
those of the structures that hold it: "vui_parameters.nal_hrd_parameters.bit_rate_value_minus1[0]".
"""

import re

# NAL units that are compared element by element: nal_unit_type -> member of h264tool's object.
STRUCTURES = {7: "sps"}

# Elements that editions of the standard name differently: trace_headers' name -> ours.
NAMES = {
    "gaps_in_frame_num_allowed_flag": "gaps_in_frame_num_value_allowed_flag",
    "max_num_reorder_frames": "num_reorder_frames",
    "max_dec_frame_buffering": "max_decoder_frame_buffering",
}

# Elements that differ on purpose: (structure, element without indices) -> reason. Each must occur.
DELIBERATE = {}

_HRD_ELEMENTS = ("cpb_cnt_minus1", "bit_rate_scale", "cpb_size_scale", "bit_rate_value_minus1",
                 "cpb_size_value_minus1", "cbr_flag", "initial_cpb_removal_delay_length_minus1",
                 "cpb_removal_delay_length_minus1", "dpb_output_delay_length_minus1", "time_offset_length")

_VUI_ELEMENTS = ("aspect_ratio_info_present_flag", "aspect_ratio_idc", "sar_width", "sar_height",
                 "overscan_info_present_flag", "overscan_appropriate_flag", "video_signal_type_present_flag",
                 "video_format", "video_full_range_flag", "colour_description_present_flag", "colour_primaries",
                 "transfer_characteristics", "matrix_coefficients", "chroma_loc_info_present_flag",
                 "chroma_sample_loc_type_top_field", "chroma_sample_loc_type_bottom_field",
                 "timing_info_present_flag", "num_units_in_tick", "time_scale", "fixed_frame_rate_flag",
                 "nal_hrd_parameters_present_flag", "vcl_hrd_parameters_present_flag", "low_delay_hrd_flag",
                 "pic_struct_present_flag", "bitstream_restriction_flag", "motion_vectors_over_pic_boundaries_flag",
                 "max_bytes_per_pic_denom", "max_bits_per_mb_denom", "log2_max_mv_length_horizontal",
                 "log2_max_mv_length_vertical", "num_reorder_frames", "max_decoder_frame_buffering")

_SPS_ELEMENTS = ("profile_idc", "constraint_set0_flag", "constraint_set1_flag", "constraint_set2_flag",
                 "constraint_set3_flag", "constraint_set4_flag", "constraint_set5_flag", "reserved_zero_2bits",
                 "level_idc", "seq_parameter_set_id", "chroma_format_idc", "separate_colour_plane_flag",
                 "bit_depth_luma_minus8", "bit_depth_chroma_minus8", "qpprime_y_zero_transform_bypass_flag",
                 "seq_scaling_matrix_present_flag", "scaling_list.seq_scaling_list_present_flag",
                 "scaling_list.delta_scale", "log2_max_frame_num_minus4", "pic_order_cnt_type",
                 "log2_max_pic_order_cnt_lsb_minus4", "delta_pic_order_always_zero_flag", "offset_for_non_ref_pic",
                 "offset_for_top_to_bottom_field", "num_ref_frames_in_pic_order_cnt_cycle", "offset_for_ref_frame",
                 "max_num_ref_frames", "gaps_in_frame_num_value_allowed_flag", "pic_width_in_mbs_minus1",
                 "pic_height_in_map_units_minus1", "frame_mbs_only_flag", "mb_adaptive_frame_field_flag",
                 "direct_8x8_inference_flag", "frame_cropping_flag", "frame_crop_left_offset",
                 "frame_crop_right_offset", "frame_crop_top_offset", "frame_crop_bottom_offset",
                 "vui_parameters_present_flag")

# The elements that the streams must hold, as (structure, path without indices).
ELEMENTS = [("sps", name) for name in _SPS_ELEMENTS]
ELEMENTS += [("sps", "vui_parameters." + name) for name in _VUI_ELEMENTS]
ELEMENTS += [("sps", "vui_parameters.%s_hrd_parameters.%s" % (kind, name))
             for kind in ("nal", "vcl") for name in _HRD_ELEMENTS]

# Members of h264tool's objects that were not transmitted.
_NOT_TRANSMITTED = ("derived",)

# What frames the elements: the NAL unit header, compared by itself, and the bits that fill the last byte.
_FRAME = ("forbidden_zero_bit", "nal_ref_idc", "nal_unit_type", "rbsp_stop_one_bit", "rbsp_alignment_zero_bit")


def without_indices(path):
    return re.sub(r"\[\d+\]", "", path)


def from_trace(unit):
    """The elements of a unit of trace_headers. Names that occur in several structures are told apart by what precedes
    them."""
    elements = {}
    scaling_list = hrd = ""
    vui = ""
    for element in unit.elements:
        name, bracket, indices = element.name.partition("[")
        if name in _FRAME:
            continue
        name = NAMES.get(name, name)
        if name.endswith("_scaling_list_present_flag"):
            scaling_list = "scaling_list[%s." % indices
            path = scaling_list + name
        elif name == "delta_scale":
            path = scaling_list + name + bracket + indices
        elif name in _HRD_ELEMENTS:
            path = vui + hrd + name + bracket + indices
        else:
            path = vui + name + bracket + indices
        if path in elements:
            raise ValueError("trace_headers prints %s twice" % path)
        elements[path] = element.value
        if name == "vui_parameters_present_flag":
            vui = "vui_parameters."
        elif name in ("nal_hrd_parameters_present_flag", "vcl_hrd_parameters_present_flag"):
            hrd = name[:len("nal_hrd_parameters")] + "."
    return elements


def from_tool(value, path=""):
    """The elements of an object of h264tool."""
    if isinstance(value, dict):
        members = ((path + "." + name if path else name, member) for name, member in value.items()
                   if name not in _NOT_TRANSMITTED)
    elif isinstance(value, list):
        members = (("%s[%d]" % (path, i), member) for i, member in enumerate(value))
    else:
        return {path: value}
    elements = {}
    for member_path, member in members:
        elements.update(from_tool(member, member_path))
    return elements


def compare(structure, theirs, ours):
    """Differences between the elements of a unit, as lines of text, and the deliberate ones met."""
    differences = []
    deliberate = set()
    for path in list(theirs) + [path for path in ours if path not in theirs]:
        if path in theirs and path in ours and theirs[path] == ours[path]:
            continue
        key = (structure, without_indices(path))
        if key in DELIBERATE:
            deliberate.add(key)
        else:
            differences.append("%s: trace_headers %s, h264tool %s" %
                               (path, theirs.get(path, "has none"), ours.get(path, "has none")))
    # Lists that are transmitted in turns are one list after the other in an object: the order is that of their starts.
    their_order = list(dict.fromkeys(map(without_indices, theirs)))
    our_order = list(dict.fromkeys(map(without_indices, ours)))
    if not differences and not deliberate and their_order != our_order:
        differences.append("order of the elements: trace_headers %s, h264tool %s" % (their_order, our_order))
    return differences, deliberate
