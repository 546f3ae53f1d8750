#!/usr/bin/env python3
"""Checks what the comparison makes of SEI messages: it reads what trace_headers prints, and no difference passes."""

import copy
import re
import unittest

import compare_with_ffmpeg
import elements
import sei_writer
from self_test_slices import u, unit_of

TIMING = (u("last_payload_type_byte", 1, 8), u("last_payload_size_byte", 9, 8), u("cpb_removal_delay", 2, 9),
          u("dpb_output_delay", 3, 7), u("pic_struct", 3, 4), u("clock_timestamp_flag[0]", 1), u("ct_type", 2, 2),
          u("nuit_field_based_flag", 1), u("counting_type", 4, 5), u("full_timestamp_flag", 0),
          u("discontinuity_flag", 0), u("cnt_dropped_flag", 1), u("n_frames", 24, 8), u("seconds_flag", 1),
          u("seconds_value", 59, 6), u("minutes_flag", 0), ("time_offset", "1111", -1),
          u("clock_timestamp_flag[1]", 0), u("bit_equal_to_one", 1))
PERIOD = (u("last_payload_type_byte", 0, 8), u("last_payload_size_byte", 9, 8), u("seq_parameter_set_id", 1),
          u("initial_cpb_removal_delay[0]", 1, 8), u("initial_cpb_removal_delay_offset[0]", 2, 8),
          u("initial_cpb_removal_delay[1]", 3, 8), u("initial_cpb_removal_delay_offset[1]", 4, 8),
          u("initial_cpb_removal_delay[0]", 5, 8), u("initial_cpb_removal_delay_offset[0]", 6, 8))


def user_data(message):
    """A message of user data as trace_headers prints it."""
    payload_type, data = message[0], message[2:]
    names = (["itu_t_t35_country_code"] + ["itu_t_t35_payload_byte[%d]" % i for i in range(1, len(data))]
             if payload_type == 4 else
             ["uuid_iso_iec_11578[%d]" % i for i in range(16)] + ["user_data_payload_byte[%d]" % i for i in
                                                                  range(len(data) - 16)])
    return (u("last_payload_type_byte", payload_type, 8), u("last_payload_size_byte", len(data), 8),
            *(u(name, byte, 8) for name, byte in zip(names, data)))


LONG = (u("ff_byte", 255, 8), u("last_payload_type_byte", 1, 8), u("ff_byte", 255, 8), u("ff_byte", 255, 8),
        u("last_payload_size_byte", 7, 8))

UNIT = unit_of(6, *PERIOD, *TIMING, *user_data(sei_writer.captions([(1, 2, 3, 4), (0, 1, 5, 6)])),
               *user_data(sei_writer.afd(9)), *user_data(sei_writer.afd(None)),
               *user_data(sei_writer.precision_time(0x0102030405060708, 0x5F)),
               *user_data(sei_writer.message(4, b"\xb5\x00\x3c1234567")), *LONG)

_ATSC = {"itu_t_t35_country_code": 0xB5, "itu_t_t35_provider_code": 0x31}
OURS = {"unit": 1, "offset": 0, "nal_unit_type": 6, "nal_ref_idc": 1, "sei_messages": [
    {"payload_type": 0, "payload_type_name": "buffering_period", "payload_size": 9, "payload_index": 2,
     "buffering_period": {
         "seq_parameter_set_id": 1,
         "nal_hrd_parameters": {"initial_cpb_removal_delay": [1, 3], "initial_cpb_removal_delay_offset": [2, 4]},
         "vcl_hrd_parameters": {"initial_cpb_removal_delay": [5], "initial_cpb_removal_delay_offset": [6]}}},
    {"payload_type": 1, "payload_size": 9, "classification": "SEI_SUID_PIC_TIMING", "pic_timing": {
        "cpb_removal_delay": 2, "dpb_output_delay": 3, "pic_struct": 3, "clock_timestamp_info": [
            {"clock_timestamp_flag": 1, "ct_type": 2, "nuit_field_based_flag": 1, "counting_type": 4,
             "full_timestamp_flag": 0, "discontinuity_flag": 0, "cnt_dropped_flag": 1, "n_frames": 24,
             "seconds_flag": 1, "seconds_value": 59, "minutes_flag": 0, "time_offset": -1},
            {"clock_timestamp_flag": 0}]}},
    {"payload_type": 4, "payload_size": 17, "closed_captions": dict(
        _ATSC, user_identifier=0x47413934, user_data_type_code=3, process_cc_data_flag=1, cc_count=2, cc_data_pkts=[
            {"cc_valid": 1, "cc_type": 2, "cc_data_1": 3, "cc_data_2": 4},
            {"cc_valid": 0, "cc_type": 1, "cc_data_1": 5, "cc_data_2": 6}])},
    {"payload_type": 4, "payload_size": 9, "active_format_description": dict(
        _ATSC, user_identifier=0x44544731, active_format_flag=1, active_format=9)},
    {"payload_type": 4, "payload_size": 8, "active_format_description": dict(
        _ATSC, user_identifier=0x44544731, active_format_flag=0)},
    {"payload_type": 5, "payload_size": 28, "user_data_unregistered": {
        "uuid_iso_iec_11578": "4d495350-6d69-6372-6f73-656374696d65",
        "precision_time_stamp": {"status": 0x5F, "microseconds": 0x0102030405060708, "utc": "not compared"}}},
    {"payload_type": 4, "payload_size": 10},
    {"payload_type": 256, "payload_size": 517},
]}


def differences(ours):
    comparison = compare_with_ffmpeg.Comparison()
    comparison.add_stream("stream", [UNIT], [ours])
    return comparison.differences


class SeiTest(unittest.TestCase):
    def test_equal(self):
        self.assertEqual(differences(OURS), [])

    def test_paths(self):
        paths = list(elements.from_trace(UNIT))
        self.assertEqual(paths[:5], ["message[0]." + name for name in (
            "payload_type", "payload_size", "seq_parameter_set_id", "hrd[0].initial_cpb_removal_delay[0]",
            "hrd[0].initial_cpb_removal_delay_offset[0]")])
        self.assertIn("message[0].hrd[1].initial_cpb_removal_delay_offset[0]", paths)
        self.assertIn("message[1].clock_timestamp_info[1].clock_timestamp_flag", paths)

    def test_every_value_counts(self):
        def numbers(value, steps):
            if isinstance(value, (dict, list)):
                for key, inner in value.items() if isinstance(value, dict) else enumerate(value):
                    yield from numbers(inner, steps + [key])
            elif isinstance(value, int) and steps[-1] != "payload_index":
                yield steps

        count = 0
        for steps in numbers(OURS["sei_messages"], []):
            changed = copy.deepcopy(OURS)
            holder = changed["sei_messages"]
            for step in steps[:-1]:
                holder = holder[step]
            holder[steps[-1]] += 1
            self.assertEqual(len(differences(changed)), 1, steps)
            count += 1
        self.assertGreater(count, 60)

    def test_uuid_counts(self):
        changed = copy.deepcopy(OURS)
        data = changed["sei_messages"][5]["user_data_unregistered"]
        data["uuid_iso_iec_11578"] = re.sub("^4d", "4e", data["uuid_iso_iec_11578"])
        self.assertEqual(differences(changed), ["stream, unit 1 at offset 0: message[5].uuid_iso_iec_11578[0]: "
                                                "trace_headers 77, h264tool 78"])

    def test_missing_message_and_record(self):
        for i in range(len(OURS["sei_messages"])):
            changed = copy.deepcopy(OURS)
            del changed["sei_messages"][i]
            self.assertNotEqual(differences(changed), [], i)
        changed = copy.deepcopy(OURS)
        del changed["sei_messages"][1]["pic_timing"]
        self.assertEqual(len(differences(changed)), 16)

    def test_unit_that_could_not_be_parsed(self):
        self.assertIn("h264tool has no sei_messages", "".join(differences(dict(OURS, error="cannot be parsed"))))


if __name__ == "__main__":
    unittest.main()
