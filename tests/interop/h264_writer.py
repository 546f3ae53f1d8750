"""Writes H.264 parameter sets bit by bit (ITU-T H.264 7.3.2.1.1, 7.3.2.2, E.1.1 and E.1.2) and takes byte streams
apart."""

HIGH_PROFILES = (100, 110, 122, 244, 44, 83, 86, 118, 128)


class BitWriter:
    def __init__(self):
        self.bits = []

    def u(self, count, value):
        if value < 0 or value >> count:
            raise ValueError("%d does not fit %d bits" % (value, count))
        self.bits += [value >> i & 1 for i in reversed(range(count))]

    def ue(self, value):
        length = (value + 1).bit_length()
        self.u(2 * length - 1, value + 1)

    def se(self, value):
        self.ue(2 * value - 1 if value > 0 else -2 * value)

    def with_trailing_bits(self):
        bits = self.bits + [1]
        bits += [0] * (-len(bits) % 8)
        return bytes(int("".join(map(str, bits[i:i + 8])), 2) for i in range(0, len(bits), 8))


def nal_unit(nal_unit_type, payload, nal_ref_idc=3, start_code_length=4):
    unit = bytearray([nal_ref_idc << 5 | nal_unit_type])
    zeros = 0
    for byte in payload:
        if zeros == 2 and byte <= 3:
            unit.append(3)
            zeros = 0
        unit.append(byte)
        zeros = zeros + 1 if byte == 0 else 0
    return bytes(start_code_length - 1) + b"\x01" + bytes(unit)


def split(stream):
    """The NAL units of a byte stream, each with its start code."""
    starts = []
    at = stream.find(b"\x00\x00\x01")
    while at >= 0:
        starts.append(at - 1 if at > 0 and stream[at - 1] == 0 else at)
        at = stream.find(b"\x00\x00\x01", at + 3)
    return [stream[start:end] for start, end in zip(starts, starts[1:] + [len(stream)])]


def nal_unit_type(unit):
    return unit[unit.index(b"\x01") + 1] & 31


def sps(fields, nal_ref_idc=3, start_code_length=4):
    """A sequence parameter set NAL unit. Elements that are not in fields are 0, lists that are not there empty.

    scaling_list is a list with None for a list that is not present, else its deltas; vui_parameters and the HRD
    parameters in it are dictionaries, whose presence is that of the structure.
    """
    w = BitWriter()
    get = fields.get
    w.u(8, fields["profile_idc"])
    for i in range(6):
        w.u(1, get("constraint_set%d_flag" % i, 0))
    w.u(2, 0)
    w.u(8, get("level_idc", 30))
    w.ue(get("seq_parameter_set_id", 0))
    if fields["profile_idc"] in HIGH_PROFILES:
        chroma_format_idc = get("chroma_format_idc", 1)
        w.ue(chroma_format_idc)
        if chroma_format_idc == 3:
            w.u(1, get("separate_colour_plane_flag", 0))
        w.ue(get("bit_depth_luma_minus8", 0))
        w.ue(get("bit_depth_chroma_minus8", 0))
        w.u(1, get("qpprime_y_zero_transform_bypass_flag", 0))
        w.u(1, int("scaling_list" in fields))
        if "scaling_list" in fields:
            assert len(fields["scaling_list"]) == (12 if chroma_format_idc == 3 else 8)
            for deltas in fields["scaling_list"]:
                w.u(1, int(deltas is not None))
                for delta in deltas or []:
                    w.se(delta)
    w.ue(get("log2_max_frame_num_minus4", 0))
    w.ue(get("pic_order_cnt_type", 0))
    if get("pic_order_cnt_type", 0) == 0:
        w.ue(get("log2_max_pic_order_cnt_lsb_minus4", 0))
    elif fields["pic_order_cnt_type"] == 1:
        w.u(1, get("delta_pic_order_always_zero_flag", 0))
        w.se(get("offset_for_non_ref_pic", 0))
        w.se(get("offset_for_top_to_bottom_field", 0))
        offsets = get("offset_for_ref_frame", [])
        w.ue(len(offsets))
        for offset in offsets:
            w.se(offset)
    w.ue(get("max_num_ref_frames", 1))
    w.u(1, get("gaps_in_frame_num_value_allowed_flag", 0))
    w.ue(get("pic_width_in_mbs_minus1", 3))
    w.ue(get("pic_height_in_map_units_minus1", 2))
    w.u(1, get("frame_mbs_only_flag", 1))
    if not get("frame_mbs_only_flag", 1):
        w.u(1, get("mb_adaptive_frame_field_flag", 0))
    w.u(1, get("direct_8x8_inference_flag", 1))
    w.u(1, int("frame_crop" in fields))
    for offset in get("frame_crop", []):  # left, right, top, bottom
        w.ue(offset)
    w.u(1, int("vui_parameters" in fields))
    if "vui_parameters" in fields:
        _vui_parameters(w, fields["vui_parameters"])
    return nal_unit(7, w.with_trailing_bits(), nal_ref_idc, start_code_length)


def _vui_parameters(w, vui):
    get = vui.get
    w.u(1, int("aspect_ratio_idc" in vui))
    if "aspect_ratio_idc" in vui:
        w.u(8, vui["aspect_ratio_idc"])
        if vui["aspect_ratio_idc"] == 255:
            w.u(16, get("sar_width", 0))
            w.u(16, get("sar_height", 0))
    w.u(1, int("overscan_appropriate_flag" in vui))
    if "overscan_appropriate_flag" in vui:
        w.u(1, vui["overscan_appropriate_flag"])
    w.u(1, int("video_format" in vui))
    if "video_format" in vui:
        w.u(3, vui["video_format"])
        w.u(1, get("video_full_range_flag", 0))
        w.u(1, int("colour_description" in vui))
        for code in get("colour_description", []):  # primaries, transfer, matrix
            w.u(8, code)
    w.u(1, int("chroma_sample_loc_type" in vui))
    for location in get("chroma_sample_loc_type", []):  # top field, bottom field
        w.ue(location)
    w.u(1, int("num_units_in_tick" in vui))
    if "num_units_in_tick" in vui:
        w.u(32, vui["num_units_in_tick"])
        w.u(32, vui["time_scale"])
        w.u(1, get("fixed_frame_rate_flag", 0))
    for hrd in ("nal_hrd_parameters", "vcl_hrd_parameters"):
        w.u(1, int(hrd in vui))
        if hrd in vui:
            _hrd_parameters(w, vui[hrd])
    if "nal_hrd_parameters" in vui or "vcl_hrd_parameters" in vui:
        w.u(1, get("low_delay_hrd_flag", 0))
    w.u(1, get("pic_struct_present_flag", 0))
    restrictions = get("bitstream_restriction", [])  # the flag, then six numbers
    w.u(1, int(bool(restrictions)))
    for i, value in enumerate(restrictions):
        w.ue(value) if i > 0 else w.u(1, value)


def _hrd_parameters(w, hrd):
    schedules = hrd["schedules"]  # bit_rate_value_minus1, cpb_size_value_minus1, cbr_flag of each
    w.ue(len(schedules) - 1)
    w.u(4, hrd.get("bit_rate_scale", 0))
    w.u(4, hrd.get("cpb_size_scale", 0))
    for bit_rate_value_minus1, cpb_size_value_minus1, cbr_flag in schedules:
        w.ue(bit_rate_value_minus1)
        w.ue(cpb_size_value_minus1)
        w.u(1, cbr_flag)
    for length in hrd.get("lengths", [23, 23, 23, 24]):  # initial CPB removal, CPB removal, DPB output, time offset
        w.u(5, length)


def pps(fields, nal_ref_idc=3, start_code_length=4):
    """A picture parameter set NAL unit. Elements that are not in fields are 0. transform_8x8_mode_flag is that of the
    elements behind redundant_pic_cnt_present_flag."""
    w = BitWriter()
    get = fields.get
    w.ue(fields["pic_parameter_set_id"])
    w.ue(fields["seq_parameter_set_id"])
    w.u(1, get("entropy_coding_mode_flag", 0))
    w.u(1, get("bottom_field_pic_order_in_frame_present_flag", 0))
    w.ue(get("num_slice_groups_minus1", 0))
    if get("num_slice_groups_minus1", 0) > 0:
        _slice_groups(w, fields)
    w.ue(get("num_ref_idx_l0_default_active_minus1", 0))
    w.ue(get("num_ref_idx_l1_default_active_minus1", 0))
    w.u(1, get("weighted_pred_flag", 0))
    w.u(2, get("weighted_bipred_idc", 0))
    w.se(get("pic_init_qp_minus26", 0))
    w.se(get("pic_init_qs_minus26", 0))
    w.se(get("chroma_qp_index_offset", 0))
    w.u(1, get("deblocking_filter_control_present_flag", 0))
    w.u(1, get("constrained_intra_pred_flag", 0))
    w.u(1, get("redundant_pic_cnt_present_flag", 0))
    if "transform_8x8_mode_flag" in fields:
        w.u(1, fields["transform_8x8_mode_flag"])
        w.u(1, int("scaling_list" in fields))
        for deltas in get("scaling_list", []):
            w.u(1, int(deltas is not None))
            for delta in deltas or []:
                w.se(delta)
        w.se(get("second_chroma_qp_index_offset", 0))
    return nal_unit(8, w.with_trailing_bits(), nal_ref_idc, start_code_length)


def _slice_groups(w, fields):
    map_type = fields["slice_group_map_type"]
    w.ue(map_type)
    if map_type == 0:
        for run_length_minus1 in fields["run_length_minus1"]:
            w.ue(run_length_minus1)
    elif map_type == 2:
        for corners in fields["rectangles"]:  # top_left, bottom_right of each
            for corner in corners:
                w.ue(corner)
    elif map_type in (3, 4, 5):
        w.u(1, fields["slice_group_change_direction_flag"])
        w.ue(fields["slice_group_change_rate_minus1"])
    elif map_type == 6:
        ids = fields["slice_group_id"]
        w.ue(len(ids) - 1)
        for slice_group_id in ids:
            w.u(fields["num_slice_groups_minus1"].bit_length(), slice_group_id)
