"""Picture parameter sets and slice headers that libx264 does not write: slice groups, field pictures, all picture order
count types, long-term references, memory management operations, weights of both lists; and some hundred at random."""

import random

import h264_writer
from slice_writer import B, I, P, SI, SP, slice_nal

RANDOM_STREAMS = 6
_SLICES_OF_A_STREAM = 150

_LIST4 = [4, 1, -2] + [1, -1] * 6 + [2]
_LIST8 = [3] + [1, 0, -1] * 21
_END = [12, -20]  # the second delta gives 0, which ends the list


def _sps(**fields):
    return dict({"profile_idc": 100, "seq_parameter_set_id": 1, "max_num_ref_frames": 16,
                 "log2_max_frame_num_minus4": 4, "log2_max_pic_order_cnt_lsb_minus4": 2}, **fields)


def _pps(**fields):
    return dict({"pic_parameter_set_id": 1, "seq_parameter_set_id": 1}, **fields)


def _groups(map_type, groups, **fields):
    return _pps(num_slice_groups_minus1=groups - 1, slice_group_map_type=map_type, **fields)


def _ids(groups, **fields):
    """Slice group ids of the 12 map units of a picture of 64x48."""
    return _groups(6, groups, slice_group_id=[i * 5 % groups for i in range(12)], **fields)


def _slice(kind, nal_unit_type=1, nal_ref_idc=1, **fields):
    return nal_unit_type, nal_ref_idc, dict(fields, slice_type=kind)


_FIELDS = _sps(frame_mbs_only_flag=0, mb_adaptive_frame_field_flag=1, pic_height_in_map_units_minus1=1)
_LISTS = _sps(scaling_list=[_LIST4, None, _END, None, None, _LIST4, _LIST8, None])
_LISTS_444 = _sps(profile_idc=244, chroma_format_idc=3,
                  scaling_list=[_LIST4, None, None, _END, None, None, _LIST8, None, _LIST8, None, _END, None])
_MANY_IDS = [i % 2 for i in range(70)]

# One stream each: a sequence parameter set, then pairs of a picture parameter set and slices that refer to it.
MADE = {
    "pps_ends": [(_sps(), [(_pps(**{"pic_init_qp_minus26": qp, "redundant_pic_cnt_present_flag": flag}), [])
                           for qp in (0, 1, 2, 5, -9, 25, -26) for flag in (0, 1)] +
                  [(_pps(chroma_qp_index_offset=offset, pic_init_qs_minus26=3 * offset // 2, **tail), [])
                   for offset in (-12, -2, 0, 1, 12)
                   for tail in ({}, {"transform_8x8_mode_flag": 0}, {"transform_8x8_mode_flag": 1},
                                {"transform_8x8_mode_flag": 1, "second_chroma_qp_index_offset": -offset})])],
    "pps_lists": [
        (_sps(), [(_pps(transform_8x8_mode_flag=1, second_chroma_qp_index_offset=3, scaling_list=[None] * 8), []),
                  (_pps(transform_8x8_mode_flag=0, second_chroma_qp_index_offset=-3, scaling_list=[None] * 6), []),
                  (_pps(transform_8x8_mode_flag=1, scaling_list=[_LIST4] + [None] * 7), [])]),
        (_LISTS, [(_pps(transform_8x8_mode_flag=1, second_chroma_qp_index_offset=7,
                        scaling_list=[_END, None, _LIST4, None, None, _LIST4, _LIST8, None]), []),
                  (_pps(transform_8x8_mode_flag=1, scaling_list=[_LIST4, _LIST4, None, None, None, _LIST4, _LIST8,
                                                                 _LIST8]), [])]),
        (_LISTS_444, [(_pps(transform_8x8_mode_flag=1, second_chroma_qp_index_offset=-12,
                            scaling_list=[_LIST4, None, None, _LIST4, None, None, _END, None, _LIST8, None, _LIST8,
                                          None]), []),
                      (_pps(transform_8x8_mode_flag=0, second_chroma_qp_index_offset=12, scaling_list=[None] * 6),
                       [])]),
    ],
    "slice_groups": [(_sps(profile_idc=88), [
        (_groups(0, 3, run_length_minus1=[3, 1, 2]), [_slice(I), _slice(P, first_mb_in_slice=4)]),
        (_groups(0, 8, run_length_minus1=[0, 1, 2, 3, 4, 5, 6, 7]), [_slice(B)]),
        (_groups(1, 4), [_slice(I)]),
        (_groups(2, 3, rectangles=[(0, 5), (6, 11)]), [_slice(P)]),
        (_ids(2), [_slice(I), _slice(P)]),
        (_ids(4, pic_init_qp_minus26=3), [_slice(I)]),
        (_ids(8), [_slice(I)]),
        (_ids(3), []), (_ids(5, weighted_pred_flag=1), []), (_ids(6, pic_init_qp_minus26=-4), []), (_ids(7), []),
    ] + [(_groups(map_type, 2, slice_group_change_direction_flag=map_type % 2, slice_group_change_rate_minus1=rate),
          [_slice(I, slice_group_change_cycle=(bits, 4))])
         for map_type, rate, bits in ((3, 0, 4), (4, 1, 3), (5, 2, 3))]),
        (_sps(profile_idc=88, pic_width_in_mbs_minus1=9, pic_height_in_map_units_minus1=6), [
            (_groups(6, 2, slice_group_id=_MANY_IDS), []),
            (_groups(6, 3, slice_group_id=_MANY_IDS, pic_init_qp_minus26=7), [])])],
    "fields": [(_FIELDS, [(_pps(entropy_coding_mode_flag=cabac, bottom_field_pic_order_in_frame_present_flag=cabac), [
        _slice(I, 5, 3, field_pic_flag=1, idr_pic_id=65535, long_term_reference_flag=1),
        _slice(P, field_pic_flag=1, bottom_field_flag=1, pic_order_cnt_lsb=1, cabac_init_idc=2),
        _slice(P, field_pic_flag=1, frame_num=1, pic_order_cnt_lsb=2, modifications_l0=[(0, 3), (2, 1), (1, 0)]),
        _slice(P, field_pic_flag=1, bottom_field_flag=1, frame_num=1, operations=[(1, 4), (2, 1), (3, 0, 1)]),
        _slice(B, 1, 0, field_pic_flag=0, frame_num=2, delta_pic_order_cnt_bottom=-1, num_ref_idx_active_minus1=(1, 2)),
        _slice(B, 1, 0, field_pic_flag=1, frame_num=2, pic_order_cnt_lsb=63, num_ref_idx_active_minus1=(31, 31)),
    ]) for cabac in (0, 1)])],
    "references": [(_sps(profile_idc=77), [
        (_pps(num_ref_idx_l0_default_active_minus1=3, num_ref_idx_l1_default_active_minus1=2), [
            _slice(I, 5, 3, no_output_of_prior_pics_flag=1, idr_pic_id=1),
            _slice(P, operations=[(4, 5), (6, 2)], modifications_l0=[(2, 0)]),
            _slice(P, operations=[(4, 0), (3, 0, 1), (3, 7, 2), (2, 1), (1, 3), (5,)]),
            _slice(P, operations=[(1, i) for i in range(7)]),
            _slice(P, operations=[(1, i) for i in range(9)]),
            _slice(B, modifications_l0=[(0, 1), (1, 2)], modifications_l1=[(2, 5), (0, 9)]),
            _slice(B, modifications_l1=[(1, 0)]), _slice(B, modifications_l0=[(2, 15)]),
            _slice(B, modifications_l0=[(2, 3), (0, 7)], modifications_l1=[]),
            _slice(P, modifications_l0=[(i % 2, i) for i in range(16)]), _slice(P, modifications_l0=[]),
        ]),
        (_pps(redundant_pic_cnt_present_flag=1), [_slice(P, redundant_pic_cnt=i) for i in (0, 1, 127)]),
    ])],
    "switching": [(_sps(profile_idc=88), [(_pps(deblocking_filter_control_present_flag=1, weighted_pred_flag=1), [
        _slice(SP, sp_for_switch_flag=1, slice_qs_delta=-3), _slice(SP + 5, slice_qs_delta=9, slice_qp_delta=4),
        _slice(SI, slice_qs_delta=2), _slice(SI + 5, 5, 1, slice_qs_delta=-1, disable_deblocking_filter_idc=1)])])],
    "picture_order": [
        (_sps(pic_order_cnt_type=1, delta_pic_order_always_zero_flag=zero, frame_mbs_only_flag=frames),
         [(_pps(bottom_field_pic_order_in_frame_present_flag=bottom), [
             _slice(I, 5, 1), _slice(P, delta_pic_order_cnt=(-7, 3)), _slice(B, 1, 0, delta_pic_order_cnt=(2**20, -1)),
             _slice(P, field_pic_flag=1, delta_pic_order_cnt=(5, 0))]) for bottom in (0, 1)])
        for zero in (0, 1) for frames in (0, 1)] + [(_sps(pic_order_cnt_type=2), [(_pps(), [_slice(I), _slice(P)])])],
    "colour_planes": [(_sps(profile_idc=244, chroma_format_idc=3, separate_colour_plane_flag=1), [
        (_pps(weighted_pred_flag=1), [_slice(I, 5, 1, colour_plane_id=plane) for plane in (0, 1, 2)] +
         [_slice(P, colour_plane_id=1, luma_log2_weight_denom=7, weights_l0=[((-128, 127), None)])])])],
    "weights": [(_sps(profile_idc=77), [
        (_pps(weighted_pred_flag=1, weighted_bipred_idc=1, num_ref_idx_l0_default_active_minus1=2,
              entropy_coding_mode_flag=cabac), [
            _slice(P, luma_log2_weight_denom=5, weights_l0=[((3, -4), None), (None, None), ((127, -128), None)]),
            _slice(B, chroma_log2_weight_denom=7, weights_l0=[((1, 2), None)], weights_l1=[((-5, 6), None)]),
            _slice(B, num_ref_idx_active_minus1=(1, 3), weights_l1=[(None, None), ((7, 7), None), ((0, 1), None)]),
            _slice(P, weights_l0=[((3, -4), None), (None, (1, 2, 3, 4))]),
            _slice(P, weights_l0=[((9, 8), (1, 2, 3, 4))], operations=[(1, 1)]),
            _slice(B, weights_l0=[((1, 2), None)], weights_l1=[((3, 4), (-1, -2, -3, -4))]),
        ]) for cabac in (0, 1)])],
}


def units(name):
    """The NAL units of an entry of MADE."""
    result = []
    for sps, sets in MADE[name]:
        result.append(h264_writer.sps(sps))
        for pps, slices in sets:
            result.append(h264_writer.pps(pps, start_code_length=3 + len(result) % 2))
            result += [slice_nal(sps, pps, fields, nal_unit_type, nal_ref_idc, 3 + nal_ref_idc % 2)
                       for nal_unit_type, nal_ref_idc, fields in slices]
    return result


def random_units(seed):
    """Parameter sets and slices with any values that trace_headers takes, the same for the same seed."""
    rng = random.Random(seed)
    result = []
    for _ in range(_SLICES_OF_A_STREAM // 5):
        sps = _sps(profile_idc=rng.choice((77, 100)), frame_mbs_only_flag=rng.randint(0, 1),
                   log2_max_frame_num_minus4=rng.randint(0, 12), pic_order_cnt_type=rng.randint(0, 2),
                   log2_max_pic_order_cnt_lsb_minus4=rng.randint(0, 12),
                   delta_pic_order_always_zero_flag=rng.randint(0, 1))
        pps = _random_pps(rng)
        result += [h264_writer.sps(sps), h264_writer.pps(pps)]
        for _ in range(5):
            nal_unit_type = rng.choice((1, 1, 5))
            nal_ref_idc = rng.randint(0, 3) if nal_unit_type == 1 else rng.randint(1, 3)
            result.append(slice_nal(sps, pps, _random_slice(rng, sps, nal_unit_type), nal_unit_type, nal_ref_idc,
                                    rng.randint(3, 4)))
    return result


def _random_pps(rng):
    fields = {name: rng.randint(0, 1)
              for name in ("entropy_coding_mode_flag", "bottom_field_pic_order_in_frame_present_flag",
                           "weighted_pred_flag", "deblocking_filter_control_present_flag",
                           "constrained_intra_pred_flag", "redundant_pic_cnt_present_flag")}
    fields.update({name: rng.choice((0, 0, rng.randint(0, 31))) for name in
                   ("num_ref_idx_l0_default_active_minus1", "num_ref_idx_l1_default_active_minus1")})
    fields.update(weighted_bipred_idc=rng.randint(0, 2), pic_init_qp_minus26=rng.randint(-26, 25),
                  pic_init_qs_minus26=rng.randint(-26, 25), chroma_qp_index_offset=rng.randint(-12, 12))
    if rng.random() < 0.5:
        fields.update(transform_8x8_mode_flag=rng.randint(0, 1),
                      second_chroma_qp_index_offset=rng.randint(-12, 12))
    return _pps(pic_parameter_set_id=rng.choice((1, 2, 255)), **fields)


def _random_slice(rng, sps, nal_unit_type):
    kind = rng.choice((I, I + 5) if nal_unit_type == 5 else (P, B, I, P + 5, B + 5, I + 5))
    fields = {"slice_type": kind, "first_mb_in_slice": rng.choice((0, 1, 11)),
              "frame_num": rng.getrandbits(sps["log2_max_frame_num_minus4"] + 4),
              "pic_order_cnt_lsb": rng.getrandbits(sps["log2_max_pic_order_cnt_lsb_minus4"] + 4),
              "idr_pic_id": rng.randint(0, 65535), "delta_pic_order_cnt_bottom": rng.randint(-2**30, 2**30),
              "delta_pic_order_cnt": (rng.randint(-2**30, 2**30), rng.randint(-9, 9)),
              "redundant_pic_cnt": rng.randint(0, 127), "cabac_init_idc": rng.randint(0, 2),
              "slice_qp_delta": rng.randint(-20, 20), "disable_deblocking_filter_idc": rng.randint(0, 2),
              "slice_alpha_c0_offset_div2": rng.randint(-6, 6), "slice_beta_offset_div2": rng.randint(-6, 6),
              "luma_log2_weight_denom": rng.randint(0, 7), "chroma_log2_weight_denom": rng.randint(0, 7)}
    for name in ("field_pic_flag", "bottom_field_flag", "direct_spatial_mv_pred_flag",
                 "no_output_of_prior_pics_flag", "long_term_reference_flag"):
        fields[name] = rng.randint(0, 1)
    if rng.random() < 0.5:
        fields["num_ref_idx_active_minus1"] = (rng.randint(0, 31), rng.randint(0, 31))
    for name in ("l0", "l1"):
        if rng.random() < 0.5:
            fields["modifications_" + name] = [(idc, rng.randint(0, 15))
                                               for idc in rng.choices((0, 1, 2), k=rng.randint(0, 6))]
        fields["weights_" + name] = [(rng.choice((None, (rng.randint(-128, 127), rng.randint(-128, 127)))), None)
                                     for _ in range(rng.randint(0, 32))]
    if rng.random() < 0.5:
        fields["operations"] = [rng.choice(((1, rng.randint(0, 99)), (2, rng.randint(0, 15)), (5,),
                                            (3, rng.randint(0, 99), rng.randint(0, 15)), (4, rng.randint(0, 16)),
                                            (6, rng.randint(0, 15)))) for _ in range(rng.randint(0, 6))]
    return fields
