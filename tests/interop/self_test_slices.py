#!/usr/bin/env python3
"""Checks what the comparison makes of picture parameter sets and slice headers: which differences are on purpose, and
that no other passes."""

import copy
import re
import unittest

import compare_with_ffmpeg
import deliberate
import elements
import h264_writer
import slice_writer
from trace_headers import Element, Unit

SPS = {"seq_parameter_set_id": 0, "chroma_format_idc": 1}
PPS = {"pic_parameter_set_id": 0, "seq_parameter_set_id": 0}


def code_ue(value):
    writer = h264_writer.BitWriter()
    writer.ue(value)
    return "".join(map(str, writer.bits))


def code_se(value):
    writer = h264_writer.BitWriter()
    writer.se(value)
    return "".join(map(str, writer.bits))


def unit_of(nal_unit_type, *parts):
    """A unit as trace_headers prints it, from triples of name, bits and value."""
    unit = Unit("unit")
    position = 0
    for name, bits, value in (("forbidden_zero_bit", "0", 0), ("nal_ref_idc", "01", 1),
                              ("nal_unit_type", format(nal_unit_type, "05b"), nal_unit_type)) + parts:
        unit.elements.append(Element(position, name, bits, value))
        position += len(bits)
    return unit


def trailing(unit):
    end = unit.elements[-1].position + len(unit.elements[-1].bits)
    for i, bit in enumerate("1" + "0" * (-(end + 1) % 8)):
        name = "rbsp_alignment_zero_bit" if i else "rbsp_stop_one_bit"
        unit.elements.append(Element(end + i, name, bit, int(bit)))
    return unit


def ue(name, value):
    return name, code_ue(value), value


def se(name, value):
    return name, code_se(value), value


def u(name, value, count=1):
    return name, format(value, "0%db" % count), value


def pps_unit(qp=0, groups=(), tail=()):
    return trailing(unit_of(
        8, ue("pic_parameter_set_id", 0), ue("seq_parameter_set_id", 0), u("entropy_coding_mode_flag", 0),
        u("bottom_field_pic_order_in_frame_present_flag", 0),
        *(groups or (ue("num_slice_groups_minus1", 0),)),
        ue("num_ref_idx_l0_default_active_minus1", 0), ue("num_ref_idx_l1_default_active_minus1", 0),
        u("weighted_pred_flag", 0), u("weighted_bipred_idc", 0, 2), se("pic_init_qp_minus26", qp),
        se("pic_init_qs_minus26", 0), se("chroma_qp_index_offset", 0), u("deblocking_filter_control_present_flag", 0),
        u("constrained_intra_pred_flag", 0), u("redundant_pic_cnt_present_flag", 0), *tail))


def slice_unit(*middle):
    return unit_of(1, ue("first_mb_in_slice", 0), ue("slice_type", 1), ue("pic_parameter_set_id", 0),
                   u("frame_num", 3, 4), *middle, se("slice_qp_delta", 2))


def expected(structure, unit, sps=None):
    sets = deliberate.ParameterSets()
    sets.add("sps", sps or SPS)
    sets.add("pps", PPS)
    return deliberate.expected(structure, unit, elements.from_trace(unit), sets)


def differences(structure, unit, tool_unit):
    comparison = compare_with_ffmpeg.Comparison()
    sets = deliberate.ParameterSets()
    sets.add("sps", SPS)
    sets.add("pps", PPS)
    header = {"nal_ref_idc": 1, "nal_unit_type": unit.value("nal_unit_type")}
    comparison._add_unit("where", unit, dict(header, **tool_unit), sets)
    return comparison.differences


MODIFICATIONS = (u("ref_pic_list_modification_flag_l0", 1), ue("modification_of_pic_nums_idc", 0),
                 ue("abs_diff_pic_num_minus1", 4), ue("modification_of_pic_nums_idc", 2), ue("long_term_pic_num", 1),
                 ue("modification_of_pic_nums_idc", 3), u("ref_pic_list_modification_flag_l1", 1),
                 ue("modification_of_pic_nums_idc", 1), ue("abs_diff_pic_num_minus1", 6),
                 ue("modification_of_pic_nums_idc", 3))
NO_MODIFICATIONS = (u("ref_pic_list_modification_flag_l0", 0), u("ref_pic_list_modification_flag_l1", 0))
MARKING = (u("adaptive_ref_pic_marking_mode_flag", 1), ue("memory_management_control_operation", 2),
           ue("long_term_pic_num", 5), ue("memory_management_control_operation", 0))
NO_MARKING = (u("adaptive_ref_pic_marking_mode_flag", 0),)
WEIGHTS_L0 = (ue("luma_log2_weight_denom", 1), ue("chroma_log2_weight_denom", 2), u("luma_weight_l0_flag[0]", 1),
              se("luma_weight_l0[0]", 9), se("luma_offset_l0[0]", -9), u("chroma_weight_l0_flag[0]", 0),
              u("luma_weight_l0_flag[1]", 0))
WEIGHTS = WEIGHTS_L0 + (u("chroma_weight_l0_flag[1]", 0), u("luma_weight_l1_flag[0]", 0),
                        u("chroma_weight_l1_flag[0]", 0))
CHROMA_WEIGHTS = WEIGHTS_L0 + (u("chroma_weight_l0_flag[1]", 1), se("chroma_weight_l0[1][0]", 1),
                               se("chroma_offset_l0[1][0]", 2), se("chroma_weight_l0[1][1]", 3),
                               se("chroma_offset_l0[1][1]", 4), u("luma_weight_l1_flag[0]", 0),
                               u("chroma_weight_l1_flag[0]", 0))

SLICE = {"first_mb_in_slice": 0, "slice_type": 1, "slice_type_name": "B", "pic_parameter_set_id": 0, "frame_num": 3,
         "ref_pic_list_modification": {"ref_pic_list_modification_flag_l0": 1, "ref_pic_list_modification_flag_l1": 1,
                                       "modification_of_pic_nums_idc": 3, "abs_diff_pic_num_minus1": 6,
                                       "long_term_pic_num": 1},
         "pred_weight_table": {"luma_log2_weight_denom": 1, "chroma_log2_weight_denom": 2, "luma_weight_l0_flag": 0,
                               "luma_weight_l0": [9, None], "luma_offset_l0": [-9, None], "chroma_weight_l0_flag": 0,
                               "luma_weight_l1_flag": 0, "luma_weight_l1": [None], "luma_offset_l1": [None],
                               "chroma_weight_l1_flag": 0},
         "dec_ref_pic_marking": {"adaptive_ref_pic_marking_mode_flag": 1, "memory_management_control_operation": [
             {"memory_management_control_operation": 2, "long_term_pic_num": 5},
             {"memory_management_control_operation": 0}]},
         "slice_qp_delta": 2,
         "derived": {"frame_num_bitoffset": 5, "frame_num_bitlength": 4, "ref_pic_list_modification_bitoffset": 9,
                     "dec_ref_pic_marking_bitoffset": 71, "slice_header_bits": 86}}


class PpsTest(unittest.TestCase):
    def check(self, unit, reasons, changes, sps=None):
        result = expected("pps", unit, sps)
        self.assertEqual(result.reasons, reasons)
        theirs = elements.from_trace(unit)
        if changes is None:
            self.assertIsNone(result.elements)
        else:
            changed = {path: result.elements.get(path) for path in list(theirs) + list(result.elements)
                       if theirs.get(path) != result.elements.get(path)}
            self.assertEqual(changed, changes)

    def test_byte_of_the_stop_bit_alone(self):
        unit = pps_unit()
        self.assertEqual(unit.elements[-8].name, "rbsp_stop_one_bit")
        self.check(unit, set(), {})

    def test_stop_bit_is_read(self):
        self.check(pps_unit(qp=1), {"pps.stop_bit"},
                   {"transform_8x8_mode_flag": 1, "pic_scaling_matrix_present_flag": 0})

    def test_stop_bit_is_the_last(self):
        unit = pps_unit(qp=1, groups=(ue("num_slice_groups_minus1", 1), ue("slice_group_map_type", 0),
                                      ue("run_length_minus1[0]", 0), ue("run_length_minus1[1]", 0)))
        self.assertEqual(unit.elements[-1].name, "rbsp_stop_one_bit")
        self.check(unit, {"pps.one_bit"}, None)
        self.assertEqual(differences("pps", unit, {"error": "cannot be parsed"}), [])
        self.assertIn("does not refuse", differences("pps", unit, {"pps": elements.from_trace(unit)})[0])

    def test_second_offset(self):
        tail = (u("transform_8x8_mode_flag", 1), u("pic_scaling_matrix_present_flag", 0),
                se("second_chroma_qp_index_offset", 3))
        self.check(pps_unit(tail=tail), {"pps.second_offset"}, {"second_chroma_qp_index_offset": None})

    def test_list_flags(self):
        lists = tuple(u("pic_scaling_list_present_flag[%d]" % i, 0) for i in range(6))
        tail = (u("transform_8x8_mode_flag", 0), u("pic_scaling_matrix_present_flag", 1)) + lists
        result = expected("pps", pps_unit(tail=tail + (se("second_chroma_qp_index_offset", 3),)))
        self.assertEqual(result.reasons, {"pps.list_flags"})
        # se(3) is 00110: two more flags, then 1, which is 0.
        self.assertEqual(result.elements["second_chroma_qp_index_offset"], 0)
        self.assertEqual(result.elements["scaling_list[7].pic_scaling_list_present_flag"], 0)

    def test_lists_are_read_by_the_flags_of_the_sequence(self):
        lists = tuple(u("pic_scaling_list_present_flag[%d]" % i, 0) for i in range(8))
        tail = (u("transform_8x8_mode_flag", 1), u("pic_scaling_matrix_present_flag", 1)) + lists
        unit = pps_unit(tail=tail + (se("second_chroma_qp_index_offset", 0),))
        self.check(unit, set(), {})
        result = expected("pps", unit, dict(SPS, **{"scaling_list[7].seq_scaling_list_present_flag": 1}))
        self.assertEqual(result.reasons, {"pps.list_flags"})

    def test_slice_group_ids(self):
        def groups(count, ids):
            bits = (count - 1).bit_length()
            return (ue("num_slice_groups_minus1", count - 1), ue("slice_group_map_type", 6),
                    ue("pic_size_in_map_units_minus1", len(ids) - 1),
                    *(u("slice_group_id[%d]" % i, value, bits) for i, value in enumerate(ids)))
        self.assertNotIn("pps.id_bits", expected("pps", pps_unit(groups=groups(4, [3, 1, 2]))).reasons)
        tail = (u("transform_8x8_mode_flag", 1), u("pic_scaling_matrix_present_flag", 0),
                se("second_chroma_qp_index_offset", -12))
        result = expected("pps", pps_unit(groups=groups(3, [2, 1, 2]), tail=tail))
        self.assertEqual(result.reasons, {"pps.id_bits"})
        self.assertEqual([result.elements["slice_group_id[%d]" % i] for i in range(3)], [1, 0, 0])
        # Behind 1, 0 and 0 stand 110 of the ids and the elements 11000 ...
        self.assertEqual(result.elements["weighted_bipred_idc"], 3)
        self.assertIsNone(expected("pps", pps_unit(groups=groups(3, [2, 1, 2]))).elements)
        result = expected("pps", pps_unit(groups=groups(2, [1] * 66), tail=tail))
        self.assertEqual(result.reasons, {"pps.id_count"})
        self.assertNotIn("slice_group_id[64]", result.elements)

    def test_any_other_difference_counts(self):
        unit = pps_unit()
        ours = dict(expected("pps", unit).elements)
        self.assertEqual(differences("pps", unit, {"pps": ours}), [])
        for path in ours:
            self.assertEqual(len(differences("pps", unit, {"pps": dict(ours, **{path: ours[path] + 1})})), 1, path)
        self.assertIn("has no pps", differences("pps", unit, {"error": "cannot be parsed"})[0])


class SliceTest(unittest.TestCase):
    def setUp(self):
        self.unit = slice_unit(*MODIFICATIONS, *WEIGHTS, *MARKING)
        self.ours = copy.deepcopy(SLICE)

    def test_equal(self):
        self.assertEqual(differences("slice", self.unit, {"slice": self.ours}), [])
        self.assertEqual(expected("slice", self.unit).reasons, {"slice.last_modification", "slice.weight_flags"})
        plain = slice_unit(*NO_MODIFICATIONS, *NO_MARKING)
        self.assertEqual(expected("slice", plain).reasons, set())

    def test_every_value_counts(self):
        for path in elements.from_tool("slice", self.ours):
            changed = copy.deepcopy(self.ours)
            holder = changed
            *steps, last = (int(step) if step.isdigit() else step for step in re.findall(r"\w+", path))
            for step in steps:
                holder = holder[step]
            holder[last] += 1
            self.assertTrue(differences("slice", self.unit, {"slice": changed}), path)

    def test_missing_and_surplus_values(self):
        del self.ours["ref_pic_list_modification"]["long_term_pic_num"]
        self.assertEqual(len(differences("slice", self.unit, {"slice": self.ours})), 1)
        self.ours = copy.deepcopy(SLICE)
        self.ours["pred_weight_table"]["luma_weight_l1"] = [0]
        self.assertEqual(len(differences("slice", self.unit, {"slice": self.ours})), 1)

    def test_chroma_weights(self):
        unit = slice_unit(*NO_MODIFICATIONS, *CHROMA_WEIGHTS, *NO_MARKING)
        self.assertIn("slice.chroma_weights", expected("slice", unit).reasons)
        self.ours["ref_pic_list_modification"] = {"ref_pic_list_modification_flag_l0": 0,
                                                  "ref_pic_list_modification_flag_l1": 0}
        self.ours["slice_qp_delta"] = 17
        self.ours["pred_weight_table"]["luma_weight_l0"][1] = 5
        self.assertEqual(differences("slice", unit, {"slice": self.ours}), [])
        self.assertEqual(differences("slice", unit, {"error": "cannot be parsed"}), [])
        self.ours["pred_weight_table"]["luma_weight_l0"][0] = 5
        self.assertEqual(len(differences("slice", unit, {"slice": self.ours})), 1)

    def test_refused(self):
        operations = MARKING[:1] + (ue("memory_management_control_operation", 5),) * 6
        for count, reasons in ((0, set()), (1, {"slice.operations"})):
            unit = slice_unit(*NO_MODIFICATIONS, *operations, *MARKING[1:3] * count, *MARKING[3:])
            result = expected("slice", unit)
            self.assertEqual((result.elements is None, result.reasons), (bool(reasons), reasons))
        self.assertEqual(differences("slice", unit, {"error": "cannot be parsed"}), [])
        self.assertIn("does not refuse", differences("slice", unit, {"slice": self.ours})[0])
        self.assertIn("does not refuse", differences("slice", unit, {})[0])
        unit = slice_unit(*NO_MODIFICATIONS, *NO_MARKING)
        unit.elements.append(Element(0, "slice_group_change_cycle", "1", 1))
        self.assertEqual(expected("slice", unit).reasons, {"slice.change_cycle"})
        self.assertIn("has no slice", differences("slice", self.unit, {"error": "cannot be parsed"})[0])


class SliceWriterTest(unittest.TestCase):
    def test_header(self):
        fields = {"slice_type": slice_writer.P, "frame_num": 3, "modifications_l0": [(0, 4)], "operations": [(2, 5)],
                  "slice_qp_delta": 2}
        unit = slice_writer.slice_nal({}, dict(PPS), fields)
        bits = "".join(format(byte, "08b") for byte in unit[5:])
        self.assertTrue(bits.startswith("1" "1" "1" "0011" "0000" "0" "1" "1" "00101" "00100" "1" "011" "00110" "1"
                                        "00100"), bits)


if __name__ == "__main__":
    unittest.main()
