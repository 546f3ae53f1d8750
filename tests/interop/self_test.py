#!/usr/bin/env python3
"""Checks the comparison itself: it reads what ffmpeg prints, and every kind of difference makes it fail."""

import copy
import re
import unittest
from unittest import mock

import compare_with_ffmpeg
import deliberate
import elements
import h264_writer
import trace_headers

# From an ffmpeg run, shortened; in the middle the scaling lists and both HRDs that a VUI may hold.
HEAD = """\
Input #0, h264, from 'a.h264':
[trace_headers @ 0x55ea2a96f2c0] Extradata
[trace_headers @ 0x55ea2a96f2c0] Sequence Parameter Set
[trace_headers @ 0x55ea2a96f2c0] 0           forbidden_zero_bit                                          0 = 0
[trace_headers @ 0x55ea2a96f2c0] 1           nal_ref_idc                                                11 = 3
[trace_headers @ 0x55ea2a96f2c0] 3           nal_unit_type                                           00111 = 7
Press [q] to stop, [?] for help
[trace_headers @ 0x55ea2a96f2c0] Packet: 1641 bytes, key frame, no pts, dts -96000, duration 48000.
"""
DELIMITER = """\
[trace_headers @ 0x55ea2a96f2c0] Access Unit Delimiter
[trace_headers @ 0x55ea2a96f2c0] 0           forbidden_zero_bit                                          0 = 0
[trace_headers @ 0x55ea2a96f2c0] 1           nal_ref_idc                                                00 = 0
[trace_headers @ 0x55ea2a96f2c0] 3           nal_unit_type                                           01001 = 9
[trace_headers @ 0x55ea2a96f2c0] 8           primary_pic_type                                          000 = 0
[trace_headers @ 0x55ea2a96f2c0] 11          rbsp_stop_one_bit                                           1 = 1
"""
PARAMETER_SET = """\
[trace_headers @ 0x55ea2a96f2c0] Sequence Parameter Set
[trace_headers @ 0x55ea2a96f2c0] 0           forbidden_zero_bit                                          0 = 0
[trace_headers @ 0x55ea2a96f2c0] 1           nal_ref_idc                                                11 = 3
[trace_headers @ 0x55ea2a96f2c0] 3           nal_unit_type                                           00111 = 7
[trace_headers @ 0x55ea2a96f2c0] 8           profile_idc                                          01100100 = 100
[trace_headers @ 0x55ea2a96f2c0] 16          seq_scaling_list_present_flag[0]                            0 = 0
[trace_headers @ 0x55ea2a96f2c0] 17          seq_scaling_list_present_flag[1]                            1 = 1
[trace_headers @ 0x55ea2a96f2c0] 18          delta_scale[0]                                        0001001 = -4
[trace_headers @ 0x55ea2a96f2c0] 25          delta_scale[1]                                        0001001 = -4
[trace_headers @ 0x55ea2a96f2c0] 32          gaps_in_frame_num_allowed_flag                              0 = 0
[trace_headers @ 0x55ea2a96f2c0] 33          vui_parameters_present_flag                                 1 = 1
[trace_headers @ 0x55ea2a96f2c0] 34          num_units_in_tick            00000000000000000000000000000001 = 1
[trace_headers @ 0x55ea2a96f2c0] 66          nal_hrd_parameters_present_flag                             1 = 1
[trace_headers @ 0x55ea2a96f2c0] 67          cpb_cnt_minus1                                            010 = 1
[trace_headers @ 0x55ea2a96f2c0] 70          bit_rate_value_minus1[0]            0000000000001111010000100 = 7809
[trace_headers @ 0x55ea2a96f2c0] 95          cbr_flag[0]                                                 0 = 0
[trace_headers @ 0x55ea2a96f2c0] 96          bit_rate_value_minus1[1]                                  010 = 1
[trace_headers @ 0x55ea2a96f2c0] 99          cbr_flag[1]                                                 1 = 1
[trace_headers @ 0x55ea2a96f2c0] 100         vcl_hrd_parameters_present_flag                             1 = 1
[trace_headers @ 0x55ea2a96f2c0] 101         cpb_cnt_minus1                                              1 = 0
[trace_headers @ 0x55ea2a96f2c0] 102         low_delay_hrd_flag                                          0 = 0
[trace_headers @ 0x55ea2a96f2c0] 103         max_num_reorder_frames                                    011 = 2
[trace_headers @ 0x55ea2a96f2c0] 106         rbsp_stop_one_bit                                           1 = 1
[trace_headers @ 0x55ea2a96f2c0] 107         rbsp_alignment_zero_bit                                     0 = 0
"""

OURS = [
    {"unit": 1, "offset": 0, "nal_unit_type": 9, "nal_ref_idc": 0},
    {"unit": 2, "offset": 6, "nal_unit_type": 14, "nal_ref_idc": 0},
    {"unit": 3, "offset": 20, "nal_unit_type": 7, "nal_ref_idc": 3, "sps": {
        "profile_idc": 100,
        "scaling_list": [{"seq_scaling_list_present_flag": 0},
                         {"seq_scaling_list_present_flag": 1, "delta_scale": [-4, -4]}],
        "gaps_in_frame_num_value_allowed_flag": 0,
        "vui_parameters_present_flag": 1,
        "vui_parameters": {
            "num_units_in_tick": 1,
            "nal_hrd_parameters_present_flag": 1,
            "nal_hrd_parameters": {"cpb_cnt_minus1": 1, "bit_rate_value_minus1": [7809, 1], "cbr_flag": [0, 1]},
            "vcl_hrd_parameters_present_flag": 1,
            "vcl_hrd_parameters": {"cpb_cnt_minus1": 0},
            "low_delay_hrd_flag": 0,
            "num_reorder_frames": 2},
        "derived": {"MaxFPS": 25}}},
]


def differences(ours, text=HEAD + DELIMITER + PARAMETER_SET):
    comparison = compare_with_ffmpeg.Comparison()
    comparison.add_stream("stream", trace_headers.parse(text), ours)
    return comparison.differences


class TraceTest(unittest.TestCase):
    def test_units_of_packets_only(self):
        units = trace_headers.parse(HEAD + DELIMITER + PARAMETER_SET)
        self.assertEqual([(unit.title, unit.value("nal_unit_type")) for unit in units],
                         [("Access Unit Delimiter", 9), ("Sequence Parameter Set", 7)])
        self.assertEqual(units[1].elements[7], trace_headers.Element(25, "delta_scale[1]", "0001001", -4))

    def test_lost_line_is_refused(self):
        lines = PARAMETER_SET.splitlines(keepends=True)
        with self.assertRaisesRegex(trace_headers.TraceError, "bit 16 of Sequence Parameter Set, bit 8"):
            trace_headers.parse(HEAD + "".join(lines[:4] + lines[5:]))

    def test_failure_of_the_filter_is_refused(self):
        with self.assertRaisesRegex(trace_headers.TraceError, "Failed to read unit 1"):
            trace_headers.parse(HEAD + "[trace_headers @ 0x1] Failed to read unit 1 (type 7).\n")

    def test_paths(self):
        paths = list(elements.from_trace(trace_headers.parse(HEAD + PARAMETER_SET)[0]))
        hrd = "vui_parameters.nal_hrd_parameters."
        self.assertEqual(paths, [
            "profile_idc", "scaling_list[0].seq_scaling_list_present_flag",
            "scaling_list[1].seq_scaling_list_present_flag", "scaling_list[1].delta_scale[0]",
            "scaling_list[1].delta_scale[1]", "gaps_in_frame_num_value_allowed_flag", "vui_parameters_present_flag",
            "vui_parameters.num_units_in_tick", "vui_parameters.nal_hrd_parameters_present_flag",
            hrd + "cpb_cnt_minus1", hrd + "bit_rate_value_minus1[0]", hrd + "cbr_flag[0]",
            hrd + "bit_rate_value_minus1[1]", hrd + "cbr_flag[1]", "vui_parameters.vcl_hrd_parameters_present_flag",
            "vui_parameters.vcl_hrd_parameters.cpb_cnt_minus1", "vui_parameters.low_delay_hrd_flag",
            "vui_parameters.num_reorder_frames"])


class ComparisonTest(unittest.TestCase):
    def setUp(self):
        self.ours = copy.deepcopy(OURS)
        self.sps = self.ours[2]["sps"]

    def test_equal(self):
        self.assertEqual(differences(self.ours), [])

    def test_every_value_counts(self):
        for path in elements.from_tool("sps", self.sps):
            changed = copy.deepcopy(self.ours)
            holder = changed[2]["sps"]
            *steps, last = (int(step) if step.isdigit() else step for step in re.findall(r"\w+", path))
            for step in steps:
                holder = holder[step]
            holder[last] += 1
            found = differences(changed)
            self.assertEqual(len(found), 1, path)
            self.assertIn("stream, unit 3 at offset 20: %s: " % path, found[0])

    def test_element_of_trace_headers_alone(self):
        del self.sps["vui_parameters"]["num_reorder_frames"]
        self.assertEqual(differences(self.ours), ["stream, unit 3 at offset 20: vui_parameters.num_reorder_frames: "
                                                  "trace_headers 2, h264tool has none"])

    def test_element_of_h264tool_alone(self):
        self.sps["scaling_list"][1]["delta_scale"].append(0)
        self.assertEqual(differences(self.ours), ["stream, unit 3 at offset 20: scaling_list[1].delta_scale[2]: "
                                                  "trace_headers has none, h264tool 0"])

    def test_order(self):
        self.sps["profile_idc"] = self.sps.pop("profile_idc")
        self.assertIn("order of the elements", "".join(differences(self.ours)))

    def test_number_of_units(self):
        self.assertEqual(differences(self.ours[1:]), ["stream: trace_headers has 2 NAL units, h264tool 1"])

    def test_header(self):
        self.ours[0]["nal_ref_idc"] = 1
        self.assertEqual(differences(self.ours),
                         ["stream, unit 1 at offset 0: nal_ref_idc: trace_headers 0, h264tool 1"])

    def test_unit_that_could_not_be_parsed(self):
        del self.ours[2]["sps"]
        self.assertIn("h264tool has no sps", "".join(differences(self.ours)))

    def test_deliberate_difference_must_occur(self):
        comparison = compare_with_ffmpeg.Comparison()
        with mock.patch.object(deliberate, "DELIBERATE", {"sps.reason": "a text"}):
            comparison.add_stream("stream", trace_headers.parse(HEAD + DELIMITER + PARAMETER_SET), self.ours)
            comparison.check_amount()
            self.assertIn("sps.reason is listed as a difference and does not occur", comparison.differences)

    def test_refused_unit(self):
        self.ours[0]["error"] = "too short"
        self.assertIn("h264tool refuses the unit: too short", "".join(differences(self.ours)))
        self.ours = copy.deepcopy(OURS)
        self.ours[2]["error"] = "too long"
        self.assertIn("h264tool has no sps", "".join(differences(self.ours)))

    def test_too_little_is_a_failure(self):
        comparison = compare_with_ffmpeg.Comparison()
        comparison.add_stream("stream", trace_headers.parse(HEAD + DELIMITER + PARAMETER_SET), self.ours)
        comparison.check_amount()
        self.assertIn("only 1 streams compared", comparison.differences)
        self.assertIn("only 1 units compared: sps", comparison.differences)
        self.assertIn("only 18 elements compared: sps", comparison.differences)
        self.assertIn("offset_for_ref_frame of sps has 0 different values in all streams", comparison.differences)


class WriterTest(unittest.TestCase):
    def test_codes(self):
        writer = h264_writer.BitWriter()
        writer.u(3, 5)
        writer.ue(0)
        writer.ue(4)
        writer.se(-1)
        writer.se(2)
        self.assertEqual("".join(map(str, writer.bits)), "101" "1" "00101" "011" "00100")
        self.assertEqual(writer.with_trailing_bits(), bytes([0b10110010, 0b10110010, 0b01000000]))

    def test_emulation_prevention(self):
        unit = h264_writer.nal_unit(7, b"\x00\x00\x01\x00\x00\x00\x00\x00\x04", start_code_length=3)
        self.assertEqual(unit.hex(), "000001" "67" "00000301" "000003000003" "0004")
        self.assertEqual(h264_writer.split(b"\x00" + unit + unit), [b"\x00" + unit, unit])
        self.assertEqual(h264_writer.nal_unit_type(unit), 7)


if __name__ == "__main__":
    unittest.main()
