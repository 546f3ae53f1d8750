"""Sequence parameter sets that libx264 does not write: separate colour planes, scaling lists, picture order count types
1 and 2, VCL HRD, the ends of the ranges; and a few hundred at random."""

import random

import h264_writer

MOST = 2**32 - 2  # the largest ue(v)
FARTHEST = 2**31 - 1  # the largest se(v)

_FLAT = [8] + [0] * 15
_DEFAULT = [-8]
_SHORT = [12, -3, 5, -22]  # the fourth delta gives 0: the last value is kept to the end of the list
_WRAPPING = [-128, 127, -128, 127] + [3, -3] * 6
_RAMP_8X8 = [1] * 64
_FALLING_8X8 = [127] + [-2] * 63

_ALL_SCHEDULES = [(i * 1000, 7 * i, i % 2) for i in range(32)]


def _vui(**fields):
    vui = {"aspect_ratio_idc": 255, "sar_width": 65535, "sar_height": 1, "overscan_appropriate_flag": 0,
           "video_format": 5, "video_full_range_flag": 1, "colour_description": (9, 16, 9),
           "chroma_sample_loc_type": (2, 5), "num_units_in_tick": 1001, "time_scale": 60000, "fixed_frame_rate_flag": 1,
           "pic_struct_present_flag": 1, "bitstream_restriction": (0, 16, 15, 16, 14, 3, 16)}
    vui.update(fields)
    return vui


def _hrd(*schedules, **fields):
    return dict(fields, schedules=list(schedules))


def _high(**fields):
    return dict({"profile_idc": 100}, **fields)


# One stream each; the parameter sets in it get the ids 1, 2, 3 ...
MADE = {
    "profiles": [dict(profile_idc=profile, level_idc=level, **{"constraint_set%d_flag" % i: 1})
                 for i, (profile, level) in enumerate(((66, 11), (77, 9), (88, 13), (100, 40), (110, 51), (122, 62)))] +
                [dict(profile_idc=profile, level_idc=30) for profile in (244, 44, 83, 86, 118, 128)],
    "colour_planes": [
        dict(profile_idc=244, chroma_format_idc=3, separate_colour_plane_flag=1, bit_depth_luma_minus8=6,
             bit_depth_chroma_minus8=6, qpprime_y_zero_transform_bypass_flag=1, vui_parameters=_vui()),
        dict(profile_idc=244, chroma_format_idc=3, separate_colour_plane_flag=0, bit_depth_chroma_minus8=2),
        dict(profile_idc=44, chroma_format_idc=3, separate_colour_plane_flag=1, bit_depth_luma_minus8=5),
        dict(profile_idc=122, chroma_format_idc=2, bit_depth_luma_minus8=2, bit_depth_chroma_minus8=1),
    ],
    "scaling_lists": [
        _high(scaling_list=[None] * 8),
        _high(scaling_list=[_FLAT, None, _DEFAULT, _SHORT, _WRAPPING, None, _RAMP_8X8, _DEFAULT]),
        _high(scaling_list=[None, _SHORT, None, None, _DEFAULT, _FLAT, None, _FALLING_8X8], vui_parameters=_vui()),
        dict(profile_idc=244, chroma_format_idc=3,
             scaling_list=[_WRAPPING, _DEFAULT, None, _FLAT, _SHORT, None, _RAMP_8X8, None, _DEFAULT, _SHORT,
                           [4] * 20 + [-88], _FALLING_8X8]),
        dict(profile_idc=244, chroma_format_idc=3, separate_colour_plane_flag=1, scaling_list=[_DEFAULT] * 12),
        dict(profile_idc=122, chroma_format_idc=2, scaling_list=[_FLAT] * 6 + [_RAMP_8X8, None]),
        dict(profile_idc=110, chroma_format_idc=0, scaling_list=[None] * 7 + [_RAMP_8X8]),
    ],
    "picture_order": [
        dict(profile_idc=77, pic_order_cnt_type=1),
        dict(profile_idc=77, pic_order_cnt_type=1, delta_pic_order_always_zero_flag=1, offset_for_non_ref_pic=-2,
             offset_for_top_to_bottom_field=1, offset_for_ref_frame=[2, -4, 6, 0, 1]),
        _high(pic_order_cnt_type=1, offset_for_non_ref_pic=FARTHEST, offset_for_top_to_bottom_field=-FARTHEST,
              offset_for_ref_frame=[FARTHEST, -FARTHEST, FARTHEST - 1], vui_parameters=_vui()),
        dict(profile_idc=66, pic_order_cnt_type=1, offset_for_ref_frame=[i % 7 - 3 for i in range(255)]),
        dict(profile_idc=66, pic_order_cnt_type=2, max_num_ref_frames=16),
        dict(profile_idc=66, pic_order_cnt_type=0, log2_max_frame_num_minus4=12, log2_max_pic_order_cnt_lsb_minus4=12,
             max_num_ref_frames=0, gaps_in_frame_num_value_allowed_flag=1),
    ],
    "pictures": [
        dict(profile_idc=77, frame_mbs_only_flag=0),
        dict(profile_idc=77, frame_mbs_only_flag=0, mb_adaptive_frame_field_flag=1, frame_crop=(0, 0, 0, 2)),
        dict(profile_idc=77, direct_8x8_inference_flag=0),
        dict(profile_idc=77, pic_width_in_mbs_minus1=119, pic_height_in_map_units_minus1=67, frame_crop=(0, 0, 0, 4)),
        dict(profile_idc=77, level_idc=62, pic_width_in_mbs_minus1=1054, pic_height_in_map_units_minus1=100,
             frame_crop=(16, 1, 15, 3)),
        dict(profile_idc=77, pic_width_in_mbs_minus1=0, pic_height_in_map_units_minus1=0, frame_crop=(1, 2, 3, 4)),
    ],
    "vui": [
        _high(vui_parameters={}),
        _high(vui_parameters=_vui()),
        dict(profile_idc=66, vui_parameters={"aspect_ratio_idc": 255, "sar_width": 0, "sar_height": 65535}),
        dict(profile_idc=66, vui_parameters={"aspect_ratio_idc": 254}),
        dict(profile_idc=66, vui_parameters={"overscan_appropriate_flag": 1}),
        dict(profile_idc=66, vui_parameters={"video_format": 7}),
        dict(profile_idc=66, vui_parameters={"video_format": 0, "colour_description": (255, 0, 255)}),
        dict(profile_idc=66, vui_parameters={"chroma_sample_loc_type": (5, 0)}),
        dict(profile_idc=66, vui_parameters={"num_units_in_tick": 2**32 - 1, "time_scale": 2**32 - 1}),
        # Zero bytes, behind which emulation prevention bytes stand.
        dict(profile_idc=66, vui_parameters={"num_units_in_tick": 1, "time_scale": 2}),
        dict(profile_idc=66, vui_parameters={"num_units_in_tick": 1 << 24, "time_scale": 3 << 16}),
        dict(profile_idc=66, vui_parameters={"pic_struct_present_flag": 1}),
        dict(profile_idc=66, vui_parameters={"bitstream_restriction": (1, 0, 0, 0, 0, 0, 0)}),
        dict(profile_idc=66, vui_parameters={"bitstream_restriction": (0, 16, 16, 15, 15, 16, 16)}),
    ],
    "hrd": [
        _high(vui_parameters={"vcl_hrd_parameters": _hrd((1000, 2000, 1))}),
        _high(vui_parameters=_vui(vcl_hrd_parameters=_hrd((0, 0, 0), bit_rate_scale=15, cpb_size_scale=1),
                                  low_delay_hrd_flag=1)),
        _high(vui_parameters=_vui(nal_hrd_parameters=_hrd((4, 5, 0), (6, 7, 1), bit_rate_scale=3, cpb_size_scale=4,
                                                          lengths=[0, 1, 2, 3]),
                                  vcl_hrd_parameters=_hrd((8, 9, 1), (10, 11, 0), (12, 13, 1), bit_rate_scale=5,
                                                          cpb_size_scale=6, lengths=[31, 30, 29, 28]))),
        _high(vui_parameters=_vui(nal_hrd_parameters=_hrd((MOST, MOST, 1), bit_rate_scale=15, cpb_size_scale=15,
                                                          lengths=[31, 31, 31, 31]))),
        _high(vui_parameters={"nal_hrd_parameters": _hrd(*_ALL_SCHEDULES), "low_delay_hrd_flag": 1}),
        _high(vui_parameters={"vcl_hrd_parameters": _hrd(*reversed(_ALL_SCHEDULES), lengths=[0, 0, 0, 0])}),
    ],
}


def units(name):
    """The NAL units of an entry of MADE, with all start codes and nal_ref_idc in turn."""
    return [h264_writer.sps(dict(fields, seq_parameter_set_id=i), nal_ref_idc=1 + i % 3, start_code_length=3 + i % 2)
            for i, fields in enumerate(MADE[name], 1)]


def random_units(count, seed):
    """Parameter sets with any values that trace_headers takes, the same for the same seed."""
    rng = random.Random(seed)
    result = []
    while len(result) < count:
        fields = _random_fields(rng)
        fields["seq_parameter_set_id"] = 1 + len(result) % 31
        unit = h264_writer.sps(fields, nal_ref_idc=rng.randint(1, 3), start_code_length=rng.randint(3, 4))
        if len(unit) <= 4 + 256:  # h264_lib does not read longer ones
            result.append(unit)
    return result


def _number(rng, most):
    """Small numbers, large ones and the ends of the range alike."""
    return rng.choice((0, most, rng.randint(0, most), rng.getrandbits(rng.randint(0, most.bit_length())) % (most + 1)))


def _offset(rng):
    return rng.choice((-1, 1)) * _number(rng, FARTHEST)


def _scaling_list(rng, size):
    """Deltas up to the one after which the next scale is 0, which is the last that is transmitted."""
    if rng.random() < 0.4:
        return None
    deltas = []
    scale = 8
    spread = rng.choice((1, 4, 128))
    while len(deltas) < size and scale != 0:
        delta = -scale if rng.random() < 0.1 and scale <= 128 else rng.randint(-spread, min(spread, 127))
        deltas.append(delta)
        scale = (scale + delta) % 256
    return deltas


def _random_fields(rng):
    fields = {"profile_idc": rng.choice((66, 77, 88) + h264_writer.HIGH_PROFILES), "level_idc": rng.randint(0, 255)}
    for i in range(6):
        fields["constraint_set%d_flag" % i] = rng.randint(0, 1)
    for name, most in (("chroma_format_idc", 3), ("separate_colour_plane_flag", 1), ("bit_depth_luma_minus8", 6),
                       ("bit_depth_chroma_minus8", 6), ("qpprime_y_zero_transform_bypass_flag", 1),
                       ("log2_max_frame_num_minus4", 12), ("pic_order_cnt_type", 2),
                       ("log2_max_pic_order_cnt_lsb_minus4", 12), ("delta_pic_order_always_zero_flag", 1),
                       ("max_num_ref_frames", 16), ("gaps_in_frame_num_value_allowed_flag", 1),
                       ("pic_width_in_mbs_minus1", 1054), ("pic_height_in_map_units_minus1", 500),
                       ("frame_mbs_only_flag", 1), ("mb_adaptive_frame_field_flag", 1),
                       ("direct_8x8_inference_flag", 1)):
        fields[name] = _number(rng, most)
    if rng.random() < 0.5:
        fields["scaling_list"] = [_scaling_list(rng, 16 if i < 6 else 64)
                                  for i in range(12 if fields["chroma_format_idc"] == 3 else 8)]
    fields["offset_for_non_ref_pic"] = _offset(rng)
    fields["offset_for_top_to_bottom_field"] = _offset(rng)
    fields["offset_for_ref_frame"] = [_offset(rng) for _ in range(rng.choice((0, 1, 3, 20)))]
    if rng.random() < 0.5:
        fields["frame_crop"] = [_number(rng, 2000) for _ in range(4)]
    if rng.random() < 0.8:
        fields["vui_parameters"] = _random_vui(rng)
    return fields


def _random_vui(rng):
    vui = {"video_full_range_flag": rng.randint(0, 1), "sar_width": _number(rng, 65535),
           "sar_height": _number(rng, 65535), "time_scale": 1 + _number(rng, 2**32 - 2),
           "fixed_frame_rate_flag": rng.randint(0, 1), "low_delay_hrd_flag": rng.randint(0, 1),
           "pic_struct_present_flag": rng.randint(0, 1)}
    optional = {"aspect_ratio_idc": rng.choice((255, rng.randint(0, 254))),
                "overscan_appropriate_flag": rng.randint(0, 1), "video_format": rng.randint(0, 7),
                "colour_description": [rng.randint(0, 255) for _ in range(3)],
                "chroma_sample_loc_type": [rng.randint(0, 5) for _ in range(2)],
                "num_units_in_tick": 1 + _number(rng, 2**32 - 2), "nal_hrd_parameters": _random_hrd(rng),
                "vcl_hrd_parameters": _random_hrd(rng),
                "bitstream_restriction": [_number(rng, most) for most in (1, 16, 16, 15, 15, 16, 16)]}
    vui.update((name, value) for name, value in optional.items() if rng.random() < 0.6)
    return vui


def _random_hrd(rng):
    return {"schedules": [(_number(rng, MOST), _number(rng, MOST), rng.randint(0, 1))
                          for _ in range(rng.choice((1, 1, 2, 5, 12)))],
            "bit_rate_scale": rng.randint(0, 15), "cpb_size_scale": rng.randint(0, 15),
            "lengths": [rng.randint(0, 31) for _ in range(4)]}
