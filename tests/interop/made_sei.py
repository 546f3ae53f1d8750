"""SEI messages that libx264 does not write: clock timestamps, HRDs of both kinds with delays of many lengths, captions,
active format descriptions, user data of many sizes; and some hundred at random."""

import random

import h264_writer
import sei_writer as sei
from slice_writer import I, slice_nal

RANDOM_STREAMS = 4
_PICTURES_OF_A_STREAM = 40

_PPS = {"pic_parameter_set_id": 1, "seq_parameter_set_id": 1}
_TIMESTAMPS = (1, 1, 1, 2, 2, 3, 3, 2, 3)  # of a picture, by pic_struct


def _sps(**vui):
    return {"profile_idc": 100, "seq_parameter_set_id": 1, "vui_parameters": vui}


def _hrd(lengths, schedules=1):
    """lengths: of the initial CPB removal delay, the CPB removal delay, the DPB output delay and the time offset."""
    initial, removal, output, offset = lengths
    return {"schedules": [(i + 5, i + 7, i % 2) for i in range(schedules)],
            "lengths": [initial - 1, removal - 1, output - 1, offset]}


def _picture(sps, idr_pic_id, *units):
    return list(units) + [slice_nal(sps, _PPS, {"slice_type": I, "idr_pic_id": idr_pic_id}, 5)]


def _random_timestamp(rng):
    if rng.random() < 0.2:
        return None
    timestamp = {"ct_type": rng.randint(0, 2), "nuit_field_based_flag": rng.randint(0, 1),
                 "counting_type": rng.randint(0, 6), "full_timestamp_flag": rng.randint(0, 1),
                 "discontinuity_flag": rng.randint(0, 1), "cnt_dropped_flag": rng.randint(0, 1),
                 "n_frames": rng.randint(0, 255)}
    parts = 3 if timestamp["full_timestamp_flag"] else rng.randint(0, 3)
    for name, most in (("seconds_value", 59), ("minutes_value", 59), ("hours_value", 23))[:parts]:
        timestamp[name] = rng.randint(0, most)
    return timestamp


def _random_pic_timing(rng, vui):
    hrd = vui.get("nal_hrd_parameters", vui.get("vcl_hrd_parameters"))
    offset_length = hrd["lengths"][3] if hrd else 24
    delays = [(length + 1, rng.getrandbits(length + 1)) for length in hrd["lengths"][1:3]] if hrd else ()
    if not vui["pic_struct_present_flag"]:
        return sei.pic_timing(delays)
    pic_struct = rng.randint(0, 8)
    timestamps = [_random_timestamp(rng) for _ in range(_TIMESTAMPS[pic_struct])]
    for timestamp in filter(None, timestamps):
        if offset_length:
            most = 1 << (offset_length - 1)
            timestamp["time_offset"] = rng.choice((0, -most + 1, most - 1, rng.randrange(-most + 1, most)))
    return sei.pic_timing(delays, pic_struct, timestamps, offset_length)


def _random_buffering_period(rng, vui):
    hrds = [vui[name] for name in ("nal_hrd_parameters", "vcl_hrd_parameters") if name in vui]
    length = hrds[0]["lengths"][0] + 1 if hrds else 0
    count = sum(len(hrd["schedules"]) for hrd in hrds)
    return sei.buffering_period(1, [(rng.randrange(1, 1 << length), rng.getrandbits(length)) for _ in range(count)],
                                length)


def _random_user_data(rng):
    kind = rng.randrange(5)
    if kind == 0:
        count = rng.randint(0, 31)
        return sei.captions([(rng.randint(0, 1), rng.randint(0, 3), rng.randint(0, 255), rng.randint(0, 255))
                             for _ in range(count)], rng.randint(0, 1))
    if kind == 1:
        return sei.afd(rng.choice((None, *range(16))))
    if kind == 2:
        return sei.precision_time(rng.getrandbits(63), rng.randrange(8) << 5 | 31)
    # From 255 bytes on the library does not find the message.
    size = rng.choice((0, 1, 100, 238, 239, 400))
    return sei.message(5, bytes(rng.randrange(255) for _ in range(16)) + bytes(rng.randrange(256) for _ in range(size)))


def _random_vui(rng):
    vui = {"pic_struct_present_flag": rng.choice((0, 1, 1, 1))}
    lengths = [rng.randint(4, 32), rng.randint(1, 32), rng.randint(1, 32), rng.choice((0, *range(2, 32)))]
    for name in ("nal_hrd_parameters", "vcl_hrd_parameters"):
        if rng.random() < 0.5:
            vui[name] = _hrd(lengths, rng.choice((1, 1, 2, 5, 32)))
    return vui


def random_units(seed):
    """Parameter sets and pictures with messages, the same for the same seed."""
    rng = random.Random(seed)
    result = []
    for i in range(_PICTURES_OF_A_STREAM):
        vui = _random_vui(rng)
        sps = _sps(**vui)
        result += [h264_writer.sps(sps), h264_writer.pps(_PPS)]
        messages = [_random_buffering_period(rng, vui), _random_pic_timing(rng, vui), _random_user_data(rng)]
        units = [sei.unit(*messages)] if rng.random() < 0.5 else [sei.unit(message) for message in messages]
        result += _picture(sps, i, *units)
    return result
