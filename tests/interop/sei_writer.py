"""Writes SEI messages (ITU-T H.264 7.3.2.3, D.1; ATSC A/53; MISB ST 0604)."""

from h264_writer import BitWriter, nal_unit

ATSC = b"\xb5\x00\x31"
PRECISION_TIME = b"MISPmicrosectime"


def _number(value):
    return b"\xff" * (value // 255) + bytes([value % 255])


def message(payload_type, payload):
    return _number(payload_type) + _number(len(payload)) + payload


def unit(*messages, **header):
    """An SEI unit of messages."""
    return nal_unit(6, b"".join(messages) + b"\x80", **dict({"nal_ref_idc": 0}, **header))


def _aligned(w):
    if len(w.bits) % 8:
        w.u(1, 1)
        w.u(-len(w.bits) % 8, 0)
    return bytes(int("".join(map(str, w.bits[i:i + 8])), 2) for i in range(0, len(w.bits), 8))


def buffering_period(sps_id, schedules, length=24):
    """schedules: pairs of initial_cpb_removal_delay and its offset, of the NAL HRD first."""
    w = BitWriter()
    w.ue(sps_id)
    for pair in schedules:
        for value in pair:
            w.u(length, value)
    return message(0, _aligned(w))


def pic_timing(delays=(), pic_struct=None, timestamps=(), time_offset_length=24):
    """delays: pairs of a length and a value. timestamps: a dictionary of elements each, or None; hours_value,
    minutes_value and seconds_value are transmitted when they are there."""
    w = BitWriter()
    for length, value in delays:
        w.u(length, value)
    if pic_struct is not None:
        w.u(4, pic_struct)
    for timestamp in timestamps:
        w.u(1, int(timestamp is not None))
        if timestamp is not None:
            _timestamp(w, timestamp, time_offset_length)
    return message(1, _aligned(w))


def _timestamp(w, timestamp, time_offset_length):
    get = timestamp.get
    w.u(2, get("ct_type", 0))
    w.u(1, get("nuit_field_based_flag", 0))
    w.u(5, get("counting_type", 0))
    w.u(1, get("full_timestamp_flag", 0))
    w.u(1, get("discontinuity_flag", 0))
    w.u(1, get("cnt_dropped_flag", 0))
    w.u(8, get("n_frames", 0))
    for name, length in (("seconds", 6), ("minutes", 6), ("hours", 5)):
        value = get(name + "_value")
        if not get("full_timestamp_flag", 0):
            w.u(1, int(value is not None))
        if value is None:
            break
        w.u(length, value)
    w.u(time_offset_length, get("time_offset", 0) % (1 << time_offset_length))


def full_timestamp(hours, minutes, seconds, frames, **elements):
    return dict({"full_timestamp_flag": 1, "hours_value": hours, "minutes_value": minutes, "seconds_value": seconds,
                 "n_frames": frames}, **elements)


def captions(triples, process=1):
    """triples: (cc_valid, cc_type, cc_data_1, cc_data_2) each."""
    data = bytes([process << 6 | len(triples), 0xFF])
    for valid, kind, first, second in triples:
        data += bytes([0xF8 | valid << 2 | kind, first, second])
    return message(4, ATSC + b"GA94\x03" + data + b"\xff")


def afd(active_format):
    """None: without a format."""
    data = b"\x01" if active_format is None else bytes([0x41, 0xF0 | active_format])
    return message(4, ATSC + b"DTG1" + data)


def precision_time(microseconds, status=0x1F):
    time = microseconds.to_bytes(8, "big")
    return message(5, PRECISION_TIME + bytes([status]) + b"\xff".join(time[i:i + 2] for i in range(0, 8, 2)))
