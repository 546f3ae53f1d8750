"""Brings what trace_headers and h264tool say about a NAL unit to one form, and compares it.

That form is a dictionary from an element's path to its value, in bitstream order. A path is the element's name behind
those of the structures that hold it: "vui_parameters.nal_hrd_parameters.bit_rate_value_minus1[0]".
"""

import re

import sei_elements

# NAL units that are compared element by element: nal_unit_type -> member of h264tool's object.
STRUCTURES = {7: "sps", 8: "pps", 1: "slice", 5: "slice", 6: "sei_messages"}

# Elements that editions of the standard name differently: trace_headers' name -> ours.
NAMES = {
    "gaps_in_frame_num_allowed_flag": "gaps_in_frame_num_value_allowed_flag",
    "max_num_reorder_frames": "num_reorder_frames",
    "max_dec_frame_buffering": "max_decoder_frame_buffering",
}

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

_PPS_ELEMENTS = ("pic_parameter_set_id", "seq_parameter_set_id", "entropy_coding_mode_flag",
                 "bottom_field_pic_order_in_frame_present_flag", "num_slice_groups_minus1", "slice_group_map_type",
                 "run_length_minus1", "top_left", "bottom_right", "slice_group_change_direction_flag",
                 "slice_group_change_rate_minus1", "pic_size_in_map_units_minus1", "slice_group_id",
                 "num_ref_idx_l0_default_active_minus1", "num_ref_idx_l1_default_active_minus1",
                 "weighted_pred_flag", "weighted_bipred_idc", "pic_init_qp_minus26", "pic_init_qs_minus26",
                 "chroma_qp_index_offset", "deblocking_filter_control_present_flag", "constrained_intra_pred_flag",
                 "redundant_pic_cnt_present_flag", "transform_8x8_mode_flag", "pic_scaling_matrix_present_flag",
                 "scaling_list.pic_scaling_list_present_flag", "scaling_list.delta_scale",
                 "second_chroma_qp_index_offset")

_MODIFICATION_ELEMENTS = ("modification_of_pic_nums_idc", "abs_diff_pic_num_minus1", "long_term_pic_num")
_MARKING_ELEMENTS = ("memory_management_control_operation", "difference_of_pic_nums_minus1", "long_term_pic_num",
                     "long_term_frame_idx", "max_long_term_frame_idx_plus1")
_WEIGHT_ELEMENTS = ("luma_log2_weight_denom", "chroma_log2_weight_denom", "luma_weight_l0_flag", "luma_weight_l0",
                    "luma_offset_l0", "chroma_weight_l0_flag", "luma_weight_l1_flag", "luma_weight_l1",
                    "luma_offset_l1", "chroma_weight_l1_flag")
_SLICE_ELEMENTS = ("first_mb_in_slice", "slice_type", "pic_parameter_set_id", "colour_plane_id", "frame_num",
                   "field_pic_flag", "bottom_field_flag", "idr_pic_id", "pic_order_cnt_lsb",
                   "delta_pic_order_cnt_bottom", "delta_pic_order_cnt", "redundant_pic_cnt",
                   "direct_spatial_mv_pred_flag", "num_ref_idx_active_override_flag", "num_ref_idx_l0_active_minus1",
                   "num_ref_idx_l1_active_minus1", "ref_pic_list_modification.ref_pic_list_modification_flag_l0",
                   "ref_pic_list_modification.ref_pic_list_modification_flag_l1",
                   "dec_ref_pic_marking.no_output_of_prior_pics_flag", "dec_ref_pic_marking.long_term_reference_flag",
                   "dec_ref_pic_marking.adaptive_ref_pic_marking_mode_flag", "cabac_init_idc", "slice_qp_delta",
                   "sp_for_switch_flag", "slice_qs_delta", "disable_deblocking_filter_idc",
                   "slice_alpha_c0_offset_div2", "slice_beta_offset_div2")

# The elements that the streams must hold, as (structure, path without indices).
ELEMENTS = [("sps", name) for name in _SPS_ELEMENTS]
ELEMENTS += [("sps", "vui_parameters." + name) for name in _VUI_ELEMENTS]
ELEMENTS += [("sps", "vui_parameters.%s_hrd_parameters.%s" % (kind, name))
             for kind in ("nal", "vcl") for name in _HRD_ELEMENTS]
ELEMENTS += [("pps", name) for name in _PPS_ELEMENTS]
ELEMENTS += [("slice", name) for name in _SLICE_ELEMENTS]
ELEMENTS += [("slice", "pred_weight_table." + name) for name in _WEIGHT_ELEMENTS]
ELEMENTS += [("slice", "ref_pic_list_modification.%s.%s" % (kind, name))
             for kind in ("l0", "l1") for name in _MODIFICATION_ELEMENTS]
ELEMENTS += [("slice", "dec_ref_pic_marking.memory_management_control_operation." + name)
             for name in _MARKING_ELEMENTS]
ELEMENTS += [("sei_messages", name) for name in sei_elements.ELEMENTS]

# Members of h264tool's objects that are neither elements nor positions of elements.
_NOT_COMPARED = ("slice_type_name", "rbsp_stop_one_bit")
_NOT_COMPARED_OF_SPS = ("derived",)

# What frames the elements: the NAL unit header, compared by itself, and the bits that fill the last byte.
_FRAME = ("forbidden_zero_bit", "nal_ref_idc", "nal_unit_type", "rbsp_stop_one_bit", "rbsp_alignment_zero_bit",
          "cabac_alignment_one_bit")


def without_indices(path):
    return re.sub(r"\[\d+\]", "", path)


def from_trace(unit):
    """The elements of a unit of trace_headers. Names that occur in several structures are told apart by what precedes
    them."""
    if unit.value("nal_unit_type") == 6:
        return sei_elements.from_trace(unit)
    elements = {}
    context = _Context()
    for element in unit.elements:
        name, bracket, indices = element.name.partition("[")
        if name in _FRAME:
            continue
        name = NAMES.get(name, name)
        path = context.structure_of(name, indices) + name
        if not name.endswith("_scaling_list_present_flag"):
            path += bracket + indices
        if path in elements:
            raise ValueError("trace_headers prints %s twice" % path)
        elements[path] = element.value
    return elements


class _Context:
    """The structure in which the elements of a unit stand."""

    def __init__(self):
        self.scaling_list = self.vui = self.hrd = ""
        self.modified_list = ""
        self.entry = -1
        self.in_marking = False

    def structure_of(self, name, indices):
        if name.endswith("_scaling_list_present_flag"):
            self.scaling_list = "scaling_list[%s." % indices
            return self.scaling_list
        if name == "delta_scale":
            return self.scaling_list
        if name in _HRD_ELEMENTS:
            return self.vui + self.hrd
        if name in _WEIGHT_ELEMENTS or name.startswith(("chroma_weight_l", "chroma_offset_l")):
            return "pred_weight_table."
        if name.startswith("ref_pic_list_modification_flag_"):
            self.modified_list = name[-2:]
            self.entry = 0
            return "ref_pic_list_modification."
        if name in ("no_output_of_prior_pics_flag", "long_term_reference_flag", "adaptive_ref_pic_marking_mode_flag"):
            self.in_marking = True
            self.entry = -1
            return "dec_ref_pic_marking."
        if self.in_marking and name in _MARKING_ELEMENTS:
            self.entry += name == "memory_management_control_operation"
            return "dec_ref_pic_marking.memory_management_control_operation[%d]." % self.entry
        if name in _MODIFICATION_ELEMENTS:
            self.entry += name == "modification_of_pic_nums_idc"
            return "ref_pic_list_modification.%s[%d]." % (self.modified_list, self.entry - 1)
        structure = self.vui
        if name == "vui_parameters_present_flag":
            self.vui = "vui_parameters."
        elif name in ("nal_hrd_parameters_present_flag", "vcl_hrd_parameters_present_flag"):
            self.hrd = name[:len("nal_hrd_parameters")] + "."
        return structure


def from_tool(structure, value):
    """The elements of an object of h264tool."""
    if structure == "sei_messages":
        return _elements_of(sei_elements.from_tool(value), "", ())
    left_out = _NOT_COMPARED_OF_SPS if structure == "sps" else _NOT_COMPARED
    return _elements_of(value, "", left_out)


def _elements_of(value, path, left_out):
    if isinstance(value, dict):
        members = ((path + "." + name if path else name, member) for name, member in value.items()
                   if name not in left_out)
    elif isinstance(value, list):
        members = (("%s[%d]" % (path, i), member) for i, member in enumerate(value))
    else:
        return {} if value is None else {path: value}
    elements = {}
    for member_path, member in members:
        elements.update(_elements_of(member, member_path, left_out))
    return elements


def compare(theirs, ours, rest_is_undefined=False):
    """Differences between the elements of a unit, as lines of text. Of an undefined rest nothing is compared."""
    differences = []
    more = [] if rest_is_undefined else [path for path in ours if path not in theirs]
    for path in list(theirs) + more:
        if path not in theirs or path not in ours or theirs[path] != ours[path]:
            differences.append("%s: trace_headers %s, h264tool %s" %
                               (path, theirs.get(path, "has none"), ours.get(path, "has none")))
    # Lists that are transmitted in turns are one list after the other in an object: the order is that of their starts.
    their_order = list(dict.fromkeys(map(without_indices, theirs)))
    our_order = list(dict.fromkeys(without_indices(path) for path in ours if path in theirs))
    if not differences and their_order != our_order:
        differences.append("order of the elements: trace_headers %s, h264tool %s" % (their_order, our_order))
    return differences
