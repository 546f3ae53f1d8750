"""Writes H.264 slices, whose headers are what matters, bit by bit (ITU-T H.264 7.3.3)."""

import h264_writer

P, B, I, SP, SI = range(5)

# Bytes in the place of slice data.
_DATA = bytes(range(0x91, 0xD1))


def slice_nal(sps, pps, fields, nal_unit_type=1, nal_ref_idc=1, start_code_length=4):
    """A slice NAL unit that refers to the parameter sets written from sps and pps. Elements that are not in fields are
    0, or absent when they are lists."""
    w = h264_writer.BitWriter()
    get = fields.get
    slice_type = fields["slice_type"]
    kind = slice_type % 5
    w.ue(get("first_mb_in_slice", 0))
    w.ue(slice_type)
    w.ue(pps["pic_parameter_set_id"])
    if sps.get("separate_colour_plane_flag", 0):
        w.u(2, get("colour_plane_id", 0))
    w.u(sps.get("log2_max_frame_num_minus4", 0) + 4, get("frame_num", 0))
    field = not sps.get("frame_mbs_only_flag", 1) and get("field_pic_flag", 0)
    if not sps.get("frame_mbs_only_flag", 1):
        w.u(1, int(field))
        if field:
            w.u(1, get("bottom_field_flag", 0))
    if nal_unit_type == 5:
        w.ue(get("idr_pic_id", 0))
    _picture_order_count(w, sps, pps, fields, field)
    if pps.get("redundant_pic_cnt_present_flag", 0):
        w.ue(get("redundant_pic_cnt", 0))
    if kind == B:
        w.u(1, get("direct_spatial_mv_pred_flag", 0))
    if kind in (P, B, SP):
        _references(w, sps, pps, fields, kind)
    if nal_ref_idc:
        _marking(w, fields, nal_unit_type)
    if pps.get("entropy_coding_mode_flag", 0) and kind not in (I, SI):
        w.ue(get("cabac_init_idc", 0))
    w.se(get("slice_qp_delta", 0))
    if kind == SP:
        w.u(1, get("sp_for_switch_flag", 0))
    if kind in (SP, SI):
        w.se(get("slice_qs_delta", 0))
    if pps.get("deblocking_filter_control_present_flag", 0):
        w.ue(get("disable_deblocking_filter_idc", 0))
        if get("disable_deblocking_filter_idc", 0) != 1:
            w.se(get("slice_alpha_c0_offset_div2", 0))
            w.se(get("slice_beta_offset_div2", 0))
    if "slice_group_change_cycle" in fields:  # the number of bits and the value
        w.u(*fields["slice_group_change_cycle"])
    if pps.get("entropy_coding_mode_flag", 0):
        w.u(-len(w.bits) % 8, (1 << -len(w.bits) % 8) - 1)
    for byte in _DATA:
        w.u(8, byte)
    return h264_writer.nal_unit(nal_unit_type, w.with_trailing_bits(), nal_ref_idc, start_code_length)


def _picture_order_count(w, sps, pps, fields, field):
    bottom = pps.get("bottom_field_pic_order_in_frame_present_flag", 0) and not field
    if sps.get("pic_order_cnt_type", 0) == 0:
        w.u(sps.get("log2_max_pic_order_cnt_lsb_minus4", 0) + 4, fields.get("pic_order_cnt_lsb", 0))
        if bottom:
            w.se(fields.get("delta_pic_order_cnt_bottom", 0))
    elif sps["pic_order_cnt_type"] == 1 and not sps.get("delta_pic_order_always_zero_flag", 0):
        for delta in fields.get("delta_pic_order_cnt", (0, 0))[:2 if bottom else 1]:
            w.se(delta)


def _references(w, sps, pps, fields, kind):
    lists = ("l0", "l1") if kind == B else ("l0",)
    override = fields.get("num_ref_idx_active_minus1")  # of both lists
    w.u(1, int(override is not None))
    for i in range(len(lists) if override else 0):
        w.ue(override[i])
    for name in lists:
        modifications = fields.get("modifications_" + name)  # pairs of modification_of_pic_nums_idc and a value
        w.u(1, int(modifications is not None))
        for idc, value in modifications or []:
            w.ue(idc)
            w.ue(value)
        if modifications is not None:
            w.ue(3)
    if pps.get("weighted_pred_flag", 0) and kind != B or pps.get("weighted_bipred_idc", 0) == 1 and kind == B:
        chroma = sps.get("chroma_format_idc", 1) != 0 and not sps.get("separate_colour_plane_flag", 0)
        w.ue(fields.get("luma_log2_weight_denom", 0))
        if chroma:
            w.ue(fields.get("chroma_log2_weight_denom", 0))
        for i, name in enumerate(lists):
            weights = fields.get("weights_" + name, [])  # of each entry None or luma, then chroma weights and offsets
            count = override[i] if override else pps.get("num_ref_idx_%s_default_active_minus1" % name, 0)
            for luma, chroma_values in (weights + [(None, None)] * (count + 1))[:count + 1]:
                for values in (luma, chroma_values) if chroma else (luma,):
                    w.u(1, int(values is not None))
                    for value in values or ():
                        w.se(value)


def _marking(w, fields, nal_unit_type):
    if nal_unit_type == 5:
        w.u(1, fields.get("no_output_of_prior_pics_flag", 0))
        w.u(1, fields.get("long_term_reference_flag", 0))
        return
    operations = fields.get("operations")  # memory_management_control_operation and its values, without the last 0
    w.u(1, int(operations is not None))
    for operation in operations or []:
        for value in operation:
            w.ue(value)
    if operations is not None:
        w.ue(0)
