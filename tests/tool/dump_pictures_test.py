"""Tests of what h264tool dump shows of picture parameter sets, slices and delimiters, run as: dump_pictures_test.py
H264TOOL [unittest arguments]"""

import runner
import stream_builder as build
from picture_builder import Pps, Slice, slice_groups, ue_list
from runner import TestCase, dump, in_order, json_lines
from stream_builder import Sps, nal_unit

MAIN = Sps({"width": 352, "height": 288}, 77, poc=build.poc_type(0))


def sps(seq_parameter_set_id=0, **elements):
    return Sps({"width": 352, "height": 288}, 77, seq_parameter_set_id=seq_parameter_set_id,
               **dict({"poc": build.poc_type(0)}, **elements))


class PictureTestCase(TestCase):
    def last(self, *units):
        """What a dump shows of the last unit; all must be without damage."""
        result = dump(b"".join(units), "--json")
        self.assert_result(result, 0, "")
        return json_lines(result)[-1]

    def damage(self, *units):
        """What a dump shows of the last unit, which must be the only damaged one."""
        lines = json_lines(dump(b"".join(units), "--json"))
        self.assertEqual([line for line in lines[:-1] if "error" in line], [])
        self.assertIn("error", lines[-1])
        return lines[-1]

    def assert_pps(self, pps):
        self.assertEqual(in_order(self.last(pps.sps.unit(), pps.unit())["pps"]), in_order(pps.elements))

    def assert_slice(self, *slices):
        for one, pps in slices:
            shown = self.last(pps.sps.unit(), pps.unit(), one.unit())
            self.assertNotIn("warnings", shown)
            self.assertEqual(in_order(shown["slice"]), in_order(one.elements))

    def text(self, *units, level=6):
        """The lines of the last unit."""
        lines = dump(b"".join(units), "--level", str(level)).stdout.decode().splitlines()
        last = max(i for i, line in enumerate(lines) if not line.startswith("        "))
        return [line.strip() for line in lines[last:]]


class PictureParameterSets(PictureTestCase):
    def test_end_with_the_byte(self):
        pps = Pps(MAIN, qp=(0, 0, 0))
        self.assertNotIn("transform_8x8_mode_flag", pps.elements)
        self.assert_pps(pps)

    def test_stop_bit_that_is_read_as_an_element(self):
        for qp in ((1, 0, 0), (1, 1, 0), (1, 1, 1)):
            pps = Pps(MAIN, qp=qp)
            self.assertIn("derived", pps.elements)
            self.assert_pps(pps)
        note = "note: transform_8x8_mode_flag is the stop bit of the unit"
        self.assertIn(note, self.text(MAIN.unit(), pps.unit()))
        self.assertNotIn(note, self.text(MAIN.unit(), pps.unit(), level=5))

    def test_optional_end(self):
        for qp in ((0, 0, 0), (1, 0, 0), (1, 1, 0), (1, 1, 1)):
            for flag in (0, 1):
                pps = Pps(build.auxiliary_sps(), qp=qp, tail=(flag,))
                self.assertNotIn("derived", pps.elements)
                self.assert_pps(pps)

    def test_scaling_lists_have_deltas_where_those_of_the_sequence_parameter_set_do(self):
        flags = (1, 0, 0, 1, 0, 0, 1, 0)
        high = Sps({"ChromaArrayType": 1, "width": 352, "height": 288}, 100, chroma=build.chroma_format(
            1, [[-8] if flag else None for flag in flags]))
        self.assert_pps(Pps(high, tail=(0, [(1 - flag, [-4] * 2 if flag else None) for flag in flags], 5)))

    def test_slice_groups(self):
        def change(s):
            s.u(1, "slice_group_change_direction_flag", 1)
            s.ue("slice_group_change_rate_minus1", 98)

        def ids(count):
            def write(s):
                s.ue("pic_size_in_map_units_minus1", count - 1)
                s.elements["slice_group_id"] = [i % 4 for i in range(min(count, 64))]
                for group in s.elements["slice_group_id"]:
                    s.writer.u(2, group)
            return write

        for groups in (slice_groups(7, 0, lambda s: ue_list(s, {"run_length_minus1": range(8)})),
                       slice_groups(9, 0, lambda s: ue_list(s, {"run_length_minus1": range(20, 30)})),
                       slice_groups(2, 1),
                       slice_groups(2, 2, lambda s: ue_list(s, {"top_left": (1, 2), "bottom_right": (9, 8)})),
                       slice_groups(1, 3, change), slice_groups(1, 4, change), slice_groups(1, 5, change),
                       slice_groups(3, 6, ids(1)), slice_groups(3, 6, ids(64)), slice_groups(1, 7)):
            self.assert_pps(Pps(MAIN, groups=groups, tail=(0,)))

    def test_warning_about_slice_group_ids_that_are_not_read(self):
        def ids(s):
            s.ue("pic_size_in_map_units_minus1", 64)
            s.elements["slice_group_id"] = [1] * 64
            for _ in range(64):
                s.writer.u(1, 1)

        pps = Pps(MAIN, groups=slice_groups(1, 6, ids), tail=(0,))
        shown = self.last(MAIN.unit(), pps.unit())
        self.assertEqual(shown["warnings"], ["slice_group_id_index:64 is greater than array size."])
        self.assertEqual(in_order(shown["pps"]), in_order(pps.elements))
        warning = "warning: " + shown["warnings"][0]
        self.assertEqual(self.text(MAIN.unit(), pps.unit(), level=4)[1:], [warning])
        self.assertEqual(self.text(MAIN.unit(), pps.unit(), level=3)[1:], [])

    def test_end_inside_an_element_that_the_library_takes_for_success(self):
        pps = Pps(MAIN, pps_id=3, bottom=1, references=(5, 30), weighted_pred_flag=1)
        self.assertEqual(pps.bits_before_bipred, 24)
        shown = self.damage(MAIN.unit(), nal_unit(8, pps.payload[:3]))
        self.assertEqual(shown["error"], "picture parameter set ends inside weighted_bipred_idc")
        self.assertEqual(in_order(shown["pps"]), in_order(pps.elements)[:8])
        self.assertEqual(list(shown["pps"])[-1], "weighted_pred_flag")

        def ids(s):
            s.ue("pic_size_in_map_units_minus1", 50)
            s.elements["slice_group_id"] = [3] * 51
            for _ in range(51):
                s.writer.u(2, 3)

        pps = Pps(MAIN, groups=slice_groups(3, 6, ids))
        shown = self.damage(MAIN.unit(), pps.unit()[:-8])
        self.assertEqual(shown["error"], "picture parameter set ends inside slice_group_id")
        self.assertEqual(list(shown["pps"])[-2:], ["pic_size_in_map_units_minus1", "slice_group_id"])
        self.assertTrue(10 < len(shown["pps"]["slice_group_id"]) < 51)
        self.assertEqual(set(shown["pps"]["slice_group_id"]), {3})

    def test_damage(self):
        self.assertEqual(self.damage(Pps(sps(3)).unit())["error"],
                         "sequence parameter set 3, to which it refers, is missing")
        for pps_id, sps_id, error in ((256, 0, "picture parameter set id 256 is above 255"),
                                      (255, 32, "sequence parameter set id 32 is above 31")):
            self.assertEqual(self.damage(MAIN.unit(), Pps(sps(sps_id), pps_id=pps_id).unit())["error"], error)
        self.assertEqual(self.damage(sps(32).unit())["error"], "sequence parameter set id 32 is above 31")
        self.assertEqual(self.damage(MAIN.unit(), b"\x00\x00\x01\x68\xce")["error"],
                         "picture parameter set too short: 2 bytes behind the start code")
        self.assertEqual(self.damage(MAIN.unit(), nal_unit(8, b"\xce\x38" + b"\x55" * 300))["error"],
                         "picture parameter set too long: 303 bytes behind the start code, 256 can be parsed")
        shown = self.damage(MAIN.unit(), nal_unit(8, b"\x80\x00\x00\x00\x00"))
        self.assertEqual(shown["error"], "picture parameter set cannot be parsed")
        shown = self.damage(MAIN.unit(), nal_unit(8, b"\x80\x00\x00\x00\x01"))
        self.assertEqual(shown["messages"][0], "cannot parse seq_parameter_set_id.")
        self.assertNotIn("pps", shown)

    def test_subset_sequence_parameter_set_serves_those_that_refer_to_it(self):
        subset = nal_unit(15, sps(4).payload)
        self.assertEqual(self.last(subset, Pps(sps(4)).unit())["pps"]["seq_parameter_set_id"], 4)
        lines = json_lines(dump(subset[:7] + Pps(sps(4)).unit(), "--json"))
        self.assertEqual(["error" in line for line in lines], [False, True])


class Slices(PictureTestCase):
    def test_slice_types(self):
        pps = Pps(MAIN, bottom=1, deblocking=1)
        for slice_type in range(10):
            one = Slice(pps, slice_type, qp=-1, delta_bottom=3, deblocking=(0, 1, -1))
            self.assert_slice((one, pps))
            line = self.text(MAIN.unit(), pps.unit(), one.unit(), level=0)[0]
            self.assertTrue(line.endswith("Coded slice of a non-IDR picture, " + one.elements["slice_type_name"]), line)

    def test_unit_types(self):
        pps = Pps(MAIN)
        self.assert_slice(*((Slice(pps, 7, unit_type=unit_type, ref_idc=ref_idc), pps)
                            for unit_type, ref_idc in ((1, 0), (1, 3), (2, 0), (2, 1), (5, 1), (5, 3))))

    def test_fields_and_picture_order_count(self):
        interlaced = sps(fields=0)
        for bottom in (0, 1):
            for set_of in (interlaced, sps(fields=1, poc=build.poc_type(2))):
                pps = Pps(set_of, bottom=bottom)
                self.assert_slice(*((Slice(pps, 5, field=field, poc_lsb=255, delta_bottom=-9), pps)
                                    for field in (None, 0, 1)))

    def test_picture_order_count_type_1(self):
        def poc(s):
            s.ue("pic_order_cnt_type", 1)
            s.u(1, "delta_pic_order_always_zero_flag", 0)
            s.se("offset_for_non_ref_pic", 0)
            s.se("offset_for_top_to_bottom_field", 0)
            s.ue("num_ref_frames_in_pic_order_cnt_cycle", 0)

        for bottom in (0, 1):
            pps = Pps(sps(poc=poc), bottom=bottom)
            self.assert_slice((Slice(pps, 2, deltas=(-3, 4)), pps))

    def test_colour_planes(self):
        planes = Sps({"ChromaArrayType": 0, "width": 352, "height": 288}, 244,
                     chroma=build.chroma_format(3, separate_colour_plane_flag=1))
        pps = Pps(planes, weighted_pred_flag=1)
        self.assert_slice((Slice(pps, 0, colour_plane_id=2, weights=([(3, 4)],)), pps))

    def test_reference_lists(self):
        pps = Pps(MAIN, references=(1, 2))
        for modifications in ((None, None), ([], None), (None, []), ([(0, 1), (1, 2)], None), ([(2, 7)], [(0, 1)]),
                              ([(0, 5)], []), (None, [(2, 9), (1, 0)])):
            for references in (None, (0, 31)):
                self.assert_slice((Slice(pps, 6, modifications=modifications, references=references), pps))
        self.assert_slice((Slice(pps, 5, modifications=([(1, 3)],), references=(4,)), pps))

    def test_weights_are_counted_by_the_override_or_the_defaults(self):
        pps = Pps(MAIN, references=(1, 2), weighted_pred_flag=1, weighted_bipred_idc=1)
        entries = [(-1, 2), None, (127, -128), None]
        self.assert_slice((Slice(pps, 0, weights=(entries[:2],)), pps),
                          (Slice(pps, 0, references=(3,), weights=(entries,)), pps),
                          (Slice(pps, 1, weights=(entries[:2], entries[1:])), pps),
                          (Slice(pps, 1, references=(0, 0), weights=(entries[:1], [None])), pps),
                          (Slice(pps, 3, weights=([None, None],)), pps))
        implicit = Pps(MAIN, weighted_bipred_idc=2)
        self.assert_slice((Slice(implicit, 1), implicit), (Slice(implicit, 0), implicit))

    def test_more_weights_than_are_kept(self):
        pps = Pps(MAIN, weighted_pred_flag=1)
        self.assert_slice((Slice(pps, 0, references=(39,), weights=([(i, -i) for i in range(40)],)), pps))

    def test_warning_about_chroma_weights(self):
        pps = Pps(MAIN, weighted_pred_flag=1, weighted_bipred_idc=1)
        warning = ("chroma weights are not read: what follows in pred_weight_table() and behind it is not what was "
                   "transmitted")
        for slice_type, references, flags in ((0, (0,), (1,)), (0, (2,), (0, 0, 1)), (1, (1, 1), (0, 0, 0, 1))):
            one = Slice(pps, slice_type, references=references, modifications=([(0, 2), (2, 1)], [(1, 7)]))
            writer = build.BitWriter()
            writer.bits = one.syntax.writer.bits[:one.elements["derived"]["dec_ref_pic_marking_bitoffset"]]
            writer.ue(5)
            writer.ue(5)
            for flag in flags:
                writer.u(1, 0)
                writer.u(1, flag)
                for _ in range(4 * flag):
                    writer.se(-1)
            unit = nal_unit(1, writer.with_trailing_bits() + b"\xff" * 50)
            shown = json_lines(dump(MAIN.unit() + pps.unit() + unit, "--json"))[-1]
            self.assertEqual(shown["warnings"], [warning])
            self.assertIn("warning: " + warning, self.text(MAIN.unit(), pps.unit(), unit, level=4))
        # The same flags without any weights.
        plain = Slice(pps, 1, references=(1, 1), weights=([None, None], [None, None]))
        self.assert_slice((plain, pps))

    def test_warning_about_a_weight_table_that_cannot_be_read(self):
        pps = Pps(MAIN, weighted_pred_flag=1)
        one = Slice(pps, 0, ref_idc=0)
        bits = one.syntax.writer.bits[:one.elements["derived"]["ref_pic_list_modification_bitoffset"]] + [0]
        writer = build.BitWriter()
        writer.bits = bits + [0] * 40 + [1]
        shown = self.last(MAIN.unit(), pps.unit(), nal_unit(1, writer.with_trailing_bits() + b"\xff" * 9, 0))
        self.assertEqual(shown["warnings"][0], "Failed to parse luma_log2_weight_denom.")
        self.assertIn("slice", shown)

    def test_marking(self):
        pps = Pps(MAIN)
        self.assert_slice((Slice(pps, 7, marking=[(1, {"difference_of_pic_nums_minus1": i}) for i in range(6)]), pps),
                          (Slice(pps, 7, marking=[(5, {})]), pps))

    def test_extensions_are_listed_only(self):
        stream = nal_unit(20, b"\x00" * 9) + nal_unit(21, b"\x88" * 9) + nal_unit(19, b"\x88" * 9)
        result = dump(stream, "--json")
        self.assert_result(result, 0, "")
        self.assertEqual([set(line) & {"slice", "error", "warnings"} for line in json_lines(result)], [set()] * 3)

    def test_missing_parameter_sets(self):
        pps = Pps(sps(2), pps_id=3)
        one = Slice(pps, 7)
        self.assertEqual(self.damage(sps(2).unit(), one.unit())["error"],
                         "picture parameter set 3, to which it refers, is missing")
        lines = dump(sps(2).unit() + pps.unit() + sps(2).unit()[:9] + one.unit()).stdout.decode().splitlines()
        self.assertTrue(lines[-2].endswith("Coded slice of a non-IDR picture, I"))
        self.assertEqual(lines[-1], "        error: sequence parameter set 2, to which its picture parameter set 3 "
                                    "refers, is missing")

    def test_the_latest_set_of_an_id_counts(self):
        other = sps(fields=0)
        old, new = Pps(MAIN), Pps(other, bottom=1)
        one = Slice(new, 5, field=1)
        shown = self.last(MAIN.unit(), old.unit(), Slice(old, 7).unit(), other.unit(), new.unit(), one.unit())
        self.assertEqual(in_order(shown["slice"]), in_order(one.elements))
        lines = json_lines(dump(MAIN.unit() + old.unit() + old.unit()[:7] + b"\x80" * 300 + Slice(old, 7).unit(),
                                "--json"))
        self.assertEqual(lines[-1]["error"], "picture parameter set 0, to which it refers, is missing")

    def test_damage(self):
        pps = Pps(MAIN)
        sets = (MAIN.unit(), pps.unit())
        one = Slice(pps, 7, unit_type=5, data=b"").unit()
        self.assertEqual(self.damage(*sets, one[:8])["error"], "slice header cannot be parsed")
        self.assertEqual(self.damage(*sets, one[:8])["messages"][-1], "Failed to parse slice header NAL!")
        self.assertEqual(self.damage(*sets, b"\x00\x00\x01\x41")["error"],
                         "slice header too short: 1 byte behind the start code")
        shown = self.damage(*sets, nal_unit(1, b"\x80\x00\x00\x00\x00\x01"))
        self.assertEqual(shown["messages"][0], "Failed to parse slice_type.")
        for slice_type, pps_id, error in ((10, 0, "slice_type 10 is above 9"),
                                          (9, 256, "picture parameter set 256, to which it refers, is above 255")):
            writer = build.BitWriter()
            for value in (0, slice_type, pps_id):
                writer.ue(value)
            shown = self.damage(*sets, nal_unit(1, writer.with_trailing_bits() + b"\x55" * 9))
            self.assertEqual((shown["error"], shown["messages"]), (error, []))

    def test_header_of_a_long_slice(self):
        pps = Pps(MAIN)
        one = Slice(pps, 7, data=b"\xab" * 300000)
        self.assert_slice((one, pps))


class Delimiters(PictureTestCase):
    def test_primary_pic_type(self):
        types = ("I", "I, P", "I, P, B", "SI", "SP, SI", "I, SI", "I, SI, P, SP", "I, SI, P, SP, B")
        for number, name in enumerate(types):
            unit = nal_unit(9, bytes([number << 5 | 0x10]), nal_ref_idc=0)
            self.assertEqual(self.last(unit)["aud"], {"primary_pic_type": number})
            line, = self.text(unit)
            self.assertTrue(line.endswith("9 Access unit delimiter, primary_pic_type %d: %s" % (number, name)), line)

    def test_length(self):
        self.assertEqual(self.last(nal_unit(9, b"\xf0" + b"\x80" * 14))["aud"], {"primary_pic_type": 7})
        self.assertEqual(self.damage(nal_unit(9, b""))["error"], "access unit delimiter is empty")
        self.assertEqual(self.damage(nal_unit(9, b"\xf0" + b"\x80" * 15))["error"],
                         "access unit delimiter too long: 17 bytes behind the start code, 16 can be parsed")

    def test_traces(self):
        self.assertIn("parse_aud: Sanity Check, Bitbuffer length:16, Current offset:16.",
                      self.text(nal_unit(9, b"\xf0"), level=7))


if __name__ == "__main__":
    runner.main()
