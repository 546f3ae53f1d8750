"""Reads the data of a report, and tells from a dump what they must be."""

import json
import re


def page_data(page):
    """The data in the bytes of a page, as the object that they are there."""
    found = re.findall(rb'<script type="application/json" id="data">(.*)</script>', page)
    assert len(found) == 1, len(found)
    return json.loads(found[0])


def decoded(column):
    """The numbers of a column: differences, runs of them as [difference, count], null for nothing."""
    numbers, last = [], 0
    for entry in column:
        difference, count = entry if isinstance(entry, list) else (entry, 1)
        for _ in range(count):
            last += difference or 0
            numbers.append(None if difference is None else last)
    return numbers


def timecode_number(timestamp):
    """Of a full timestamp."""
    seconds = (timestamp["hours_value"] * 60 + timestamp["minutes_value"]) * 60 + timestamp["seconds_value"]
    return seconds * 256 + timestamp["n_frames"]


def add_message(picture, message):
    timing = message.get("pic_timing", {})
    for name in ("cpb_removal_delay", "dpb_output_delay"):
        if name in timing:
            picture[name] = timing[name]
    for timestamp in timing.get("clock_timestamp_info", ()):
        if timestamp["clock_timestamp_flag"] and "timecode" not in picture:
            picture["timecode"] = timecode_number(timestamp)
            picture["drop_frame"] = int(timestamp["counting_type"] == 4 or timestamp["cnt_dropped_flag"])
            picture["discontinuity"] = timestamp["discontinuity_flag"]
    if "closed_captions" in message:
        picture["cc_count"] = message["closed_captions"]["cc_count"]
        picture["cc_active"] = sum(triple["cc_valid"] and (triple["cc_data_1"] | triple["cc_data_2"]) & 0x7F != 0
                                   for triple in message["closed_captions"]["cc_data_pkts"])
    if "active_format_description" in message:
        picture["active_format"] = message["active_format_description"].get("active_format", -1)
    stamp = message.get("user_data_unregistered", {}).get("precision_time_stamp")
    if stamp is not None:
        picture["microseconds"], picture["time_status"] = stamp["microseconds"], stamp["status"]


def pictures_of(units):
    """The pictures that the objects of a dump tell of, each of whose first slices has macroblock 0."""
    pictures, waiting = [], []
    for unit in units:
        waiting.append(unit)
        header = unit.get("slice")
        if header is not None and header["first_mb_in_slice"] == 0:
            structure = 1 + header.get("bottom_field_flag", 0) if header.get("field_pic_flag") else 0
            pictures.append({"unit": unit["unit"], "offset": waiting[0]["offset"], "bytes": 0, "kinds": set(),
                             "structure": structure, "nal_ref_idc": unit["nal_ref_idc"], "idr": False})
            for before in waiting:
                for message in before.get("sei_messages", ()):
                    add_message(pictures[-1], message)
        if header is not None:
            pictures[-1]["kinds"].add(header["slice_type_name"])
            pictures[-1]["idr"] = unit["nal_unit_type"] == 5
        if pictures and unit["nal_unit_type"] not in (6, 7, 8, 9):
            pictures[-1]["bytes"] += sum(one["length"] + one.get("trailing_zero_8bits", 0) for one in waiting)
            waiting = []
    if pictures:
        pictures[-1]["bytes"] += sum(one["length"] + one.get("trailing_zero_8bits", 0) for one in waiting)
    for picture in pictures:
        picture["type"] = "B" if "B" in picture["kinds"] else "P" if picture["kinds"] & {"P", "SP"} else \
            "D" if picture["idr"] else "I"
    return pictures
