"""Tests of h264tool dump, run as: dump_test.py H264TOOL [--update-golden] [unittest arguments]"""

import os
import random

import dump_stream
import runner
import stream_builder as build
from dump_stream import DATA_FILE
from runner import EMPTY, HEADER, NO_START_CODE, TestCase, dump, in_order, json_lines, run
from stream_builder import Sps, nal_unit


class DataFile(TestCase):
    DAMAGE = "h264tool: %s: 8 units could not be parsed, first unit 14 at offset 431\n"

    def test_is_what_the_builder_builds(self):
        with open(DATA_FILE, "rb") as data:
            self.assertEqual(data.read(), dump_stream.dump_stream())

    def test_text(self):
        result = run("dump", DATA_FILE)
        self.assert_result(result, 1, self.DAMAGE % DATA_FILE)
        self.assert_golden("dump.txt", result)

    def test_text_of_standard_input_is_the_same(self):
        result = dump(dump_stream.dump_stream())
        self.assert_result(result, 1, self.DAMAGE % "standard input")
        self.assert_golden("dump.txt", result)

    def test_level_5_leaves_out_hrd_and_scaling_lists(self):
        self.assert_golden("dump_level_5.txt", run("dump", "--level", "5", DATA_FILE))

    def test_low_levels_print_units_and_damage_only(self):
        for level in range(5):
            self.assert_golden("dump_level_0.txt", run("dump", "--level", str(level), DATA_FILE))

    def test_json(self):
        result = run("dump", "--json", DATA_FILE)
        self.assert_result(result, 1, self.DAMAGE % DATA_FILE)
        self.assert_golden("dump.jsonl", result)

    def test_json_shows_parameter_sets_as_they_were_written(self):
        shown = [line["sps"] for line in json_lines(run("dump", "--json", DATA_FILE)) if "sps" in line]
        written = [build.baseline_sps(), build.high_sps(), build.high_sps(), build.auxiliary_sps()]
        self.assertEqual([in_order(sps) for sps in shown], [in_order(sps.elements) for sps in written])

    def test_json_shows_pictures_as_they_were_written(self):
        lines = json_lines(run("dump", "--json", DATA_FILE))
        for name, written in (("pps", (dump_stream.plain_pps(), dump_stream.matrix_pps())),
                              ("slice", (dump_stream.idr_slice(), dump_stream.p_slice(), dump_stream.b_slice(),
                                         dump_stream.sp_partition()))):
            shown = [line[name] for line in lines if name in line]
            self.assertEqual([in_order(one) for one in shown], [in_order(one.elements) for one in written])
        self.assertEqual([line["aud"] for line in lines if "aud" in line], [{"primary_pic_type": 2}])

    def test_json_accounts_for_every_byte(self):
        end = 0
        for line in json_lines(run("dump", "--json", DATA_FILE)):
            self.assertEqual(line["offset"], end + line.get("leading_zero_8bits", 0))
            end = line["offset"] + line["length"] + line.get("trailing_zero_8bits", 0)
        self.assertEqual(end, os.path.getsize(DATA_FILE))

    def test_every_start_of_it_is_dumped(self):
        stream = dump_stream.dump_stream()
        for size in range(0, len(stream), 7):
            self.assertIn(dump(stream[:size], "--json").returncode, (0, 1), size)


class Types(TestCase):
    def units(self, types):
        return [line["unit"] for line in json_lines(run("dump", "--json", "--types", types, DATA_FILE))]

    def test_selects_by_name_and_number(self):
        self.assertEqual(self.units("pps,12,IDR"), [6, 7, 9, 14, 17, 26])

    def test_damage_in_types_left_out_does_not_count(self):
        stream = b"\x00\x00\x01\x67" + nal_unit(9, b"\x10") + b"\x00\x00\x01\x68\xce\x00\x00\x01\x41\x9a"
        for types, status in (("aud", 0), ("aud,slice", 1), ("pps", 1), ("sps", 1)):
            self.assertEqual(dump(stream, "--types", types).returncode, status, types)

    def test_parameter_sets_are_read_also_when_they_are_left_out(self):
        result = run("dump", "--json", "--types", "slice", DATA_FILE)
        shown = [line.get("slice") for line in json_lines(result) if "nal_unit_type" in line]
        self.assertEqual([in_order(one) for one in shown[:2]],
                         [in_order(one.elements) for one in (dump_stream.p_slice(), dump_stream.b_slice())])

    def test_units_without_header_are_always_shown(self):
        self.assertEqual(self.units("31"), [17, 22, 23])

    def test_text(self):
        result = run("dump", "--types", "12,sei", DATA_FILE)
        self.assertEqual(result.stdout.decode(), HEADER +
                         "     8         330         7          3       0   6 "
                         "Supplemental enhancement information (SEI)\n"
                         "        SEI user_data_unregistered: payload_type=5, payload_size=0, payload_index=2, "
                         "SEI_SUID_NONE.\n"
                         "    17         512         3          3       -   -\n"
                         "        error: no NAL unit header behind the start code\n"
                         "    26         874         7          3       0  12 Filler data, "
                         "followed by 1 trailing zero byte\n")


class Levels(TestCase):
    def lines(self, sps, level):
        result = dump(sps.unit(), "--level", str(level))
        self.assert_result(result, 0, "")
        return [line[8:] for line in result.stdout.decode().splitlines()[2:]]

    def test_4_shows_warnings(self):
        sps = Sps({}, 66, vui=build.full_vui([(0, 0, 0)], [(0, 0, 0)], timing=(999, 60000)))
        warning = "warning: VUI timescale:60000 is greater than 1000 while numTicks:999 is small."
        self.assertEqual(self.lines(sps, 3), [])
        self.assertEqual(self.lines(sps, 4), [warning])
        self.assertEqual(self.lines(sps, 5)[0], warning)

    def test_5_shows_sps_and_vui(self):
        lines = self.lines(build.high_sps(), 5)
        self.assertEqual((lines[0], lines[-1]), ("SPS structure:", "+++++++++++++++++++++++++++++"))
        self.assertIn("time_scale=60000.", lines)
        self.assertNotIn("delta_scale[0]=-8.", lines)
        self.assertNotIn("cbr_flag[0]=1.", lines)

    def test_6_is_the_default_and_shows_hrd_and_scaling_lists(self):
        lines = self.lines(build.high_sps(), 6)
        self.assertIn("delta_scale[0]=-8.", lines)
        self.assertIn("cbr_flag[0]=1.", lines)
        self.assertEqual(dump(build.high_sps().unit()).stdout, dump(build.high_sps().unit(), "--level", "6").stdout)

    def test_7_and_8_show_the_traces_of_the_parser_before_the_record(self):
        six, seven, eight = (self.lines(build.high_sps(), level) for level in (6, 7, 8))
        self.assertEqual(seven[-len(six):], six)
        self.assertEqual(eight[-len(six):], six)
        self.assertIn("parse_sps: 75 % done.", seven)
        self.assertNotIn("_GetNALTypeOffset: Found Annex-B 4 bytes start code prefix.", seven)
        self.assertIn("_GetNALTypeOffset: Found Annex-B 4 bytes start code prefix.", eight)

    def test_messages_do_not_go_to_standard_error(self):
        self.assertEqual(dump(build.high_sps().unit()[:40], "--level", "8").stderr,
                         b"h264tool: standard input: 1 unit could not be parsed, first unit 1 at offset 0\n")


class Json(TestCase):
    def shown(self, *sets):
        result = dump(b"".join(sps.unit() for sps in sets), "--json")
        self.assert_result(result, 0, "")
        return [line["sps"] for line in json_lines(result)]

    def assert_shown_as_written(self, *sets):
        for shown, written in zip(self.shown(*sets), sets, strict=True):
            self.assertEqual(in_order(shown), in_order(written.elements))

    def test_all_profiles_with_chroma_elements(self):
        self.assert_shown_as_written(*(Sps({"ChromaArrayType": 1, "width": 352, "height": 288}, profile_idc,
                                           chroma=build.chroma_format(1))
                                       for profile_idc in (100, 110, 122, 244, 44, 83, 86, 118, 128)))

    def test_profiles_without_chroma_elements(self):
        self.assert_shown_as_written(*(Sps({"width": 352, "height": 288}, profile_idc)
                                       for profile_idc in (66, 77, 88, 138, 139, 134, 135)))

    def test_eight_scaling_lists_unless_chroma_is_4_4_4(self):
        for chroma_format_idc, count in ((0, 8), (1, 8), (2, 8), (3, 12), (4, 8)):
            derived = {"ChromaArrayType": chroma_format_idc}
            if chroma_format_idc < 4:
                derived.update(width=352, height=288)
            lists = [[0] * 16] * 6 + [[0] * 64] * (count - 6)
            lists[2] = None
            lists[5] = [3, -11]
            sps = Sps(derived, 100, chroma=build.chroma_format(chroma_format_idc, lists))
            self.assert_shown_as_written(sps)

    def test_scaling_list_ends_where_the_scale_becomes_0_modulo_256(self):
        lists = [[248], [-8], [-264], [-300, 36], [300, -52], [2147483640], [-2147483647, -9], [-1, -7]]
        self.assert_shown_as_written(Sps({"ChromaArrayType": 1, "width": 352, "height": 288}, 100,
                                         chroma=build.chroma_format(1, lists)))

    def test_picture_order_count_types(self):
        derived = {"width": 352, "height": 288}
        self.assert_shown_as_written(Sps(derived, 77, poc=build.poc_type(0)), Sps(derived, 77, poc=build.poc_type(2)),
                                     Sps(derived, 77, poc=build.poc_type(7)), Sps(derived, 77, poc=build.poc_type(1)),
                                     Sps(derived, 77, poc=build.poc_type(1, [5, -2147483647])))

    def test_vui(self):
        derived = {"width": 352, "height": 288}
        self.assert_shown_as_written(
            Sps(derived, 77, vui=build.timing_vui(None, 0)),
            Sps(dict(derived, MaxFPS=30), 77, vui=build.full_vui([(1, 2, 0)], [(3, 4, 1), (5, 6, 0)])))

    def test_counts_beyond_what_the_library_keeps(self):
        schedules = [(i % 3, i % 2, i % 2) for i in range(40)]
        offsets = [i % 3 - 1 for i in range(300)]
        self.assert_shown_as_written(Sps({"width": 352, "height": 288, "MaxFPS": 30}, 77,
                                         poc=build.poc_type(1, offsets), vui=build.full_vui(schedules, schedules)))

    def test_picture_size(self):
        for chroma, fields, crop, size in (
                (None, None, (1, 2, 3, 4), (346, 274)),  # 4:2:0 is inferred
                (1, None, (1, 2, 3, 4), (346, 274)),
                (1, 0, (1, 2, 3, 4), (346, 548)),
                (2, None, (1, 2, 3, 4), (346, 281)),
                (2, 1, (1, 2, 3, 4), (346, 562)),
                (3, None, (1, 2, 3, 4), (349, 281)),
                (0, None, (1, 2, 3, 4), (349, 281)),
                (0, 0, (1, 2, 3, 4), (349, 562)),
                (1, None, (175, 0, 0, 143), (2, 2)),
                (1, None, (176, 0, 0, 0), None),
                (1, None, (0, 0, 0, 144), None),
                (1, None, (4294967294, 4294967294, 0, 0), None)):
            derived = {} if chroma is None else {"ChromaArrayType": chroma}
            if size is not None:
                derived.update(width=size[0], height=size[1])
            sps = Sps(derived, 66 if chroma is None else 100, fields=fields, crop=crop,
                      chroma=None if chroma is None else build.chroma_format(chroma))
            with self.subTest(chroma=chroma, fields=fields, crop=crop):
                self.assert_shown_as_written(sps)

    def test_separate_colour_planes_are_cropped_like_monochrome(self):
        self.assert_shown_as_written(Sps({"ChromaArrayType": 0, "width": 351, "height": 286}, 244, fields=0,
                                         size=(21, 8), crop=(1, 0, 0, 1),
                                         chroma=build.chroma_format(3, separate_colour_plane_flag=1)))

    def test_largest_picture_size(self):
        self.assert_shown_as_written(Sps({"width": 16 * 4294967295, "height": 32 * 4294967295}, 66, fields=0,
                                         size=(4294967294, 4294967294)))

    def test_nothing_is_left_over_from_an_earlier_set(self):
        self.assert_shown_as_written(build.high_sps(), build.baseline_sps(), build.auxiliary_sps(),
                                     build.baseline_sps())

    def test_repeated_sets_are_shown_again(self):
        self.assert_shown_as_written(build.high_sps(), build.high_sps(), build.baseline_sps(), build.high_sps())


class Damage(TestCase):
    def test_every_truncated_set_is_reported_and_the_run_goes_on(self):
        unit = build.high_sps().unit()
        cuts = [unit[:size] for size in range(5, len(unit))]
        end = nal_unit(11, b"")
        result = dump(b"".join(cuts) + end, "--json")
        lines = json_lines(result)
        self.assertEqual(len(lines), len(cuts) + 1)
        self.assertNotIn("error", lines[-1])
        for line in lines[:-1]:
            self.assertTrue(line["error"].startswith("sequence parameter set "), line)
            self.assertEqual(line["messages"][-1], "Failed to parse SPS NAL!")
        self.assert_result(result, 1, "h264tool: standard input: %d units could not be parsed, "
                                      "first unit 1 at offset 0\n" % len(cuts))

    def test_messages_name_the_element(self):
        line, = json_lines(dump(build.baseline_sps().unit()[:7], "--json"))
        self.assertEqual(line["error"], "sequence parameter set cannot be parsed")
        self.assertEqual(line["messages"][0], "cannot parse sps->level_idc.")

    def test_a_good_set_behind_a_damaged_one_is_shown(self):
        result = dump(build.high_sps().unit()[:40] + build.baseline_sps().unit(), "--json")
        self.assertEqual(in_order(json_lines(result)[1]["sps"]), in_order(build.baseline_sps().elements))

    def test_longest_set_that_can_be_parsed(self):
        payload = build.baseline_sps().payload
        longest = nal_unit(7, payload + b"\xff" * (255 - len(payload)))
        self.assertEqual(dump(longest, "--json").returncode, 0)
        line, = json_lines(dump(longest + b"\xff", "--json"))
        self.assertEqual(line["error"], "sequence parameter set too long: 257 bytes behind the start code, "
                                        "256 can be parsed")

    def test_data_before_the_first_start_code(self):
        stream = b"\x00garbage\x00\x00\x00\x00\x01\x6c\xce"
        result = dump(stream, "--json")
        self.assert_result(result, 1, "h264tool: standard input: 8 bytes before the first start code\n")
        self.assertEqual([in_order(line) for line in json_lines(result)], [in_order(line) for line in (
            {"offset": 1, "length": 8, "leading_zero_8bits": 1, "error": "data before the first start code"},
            {"unit": 1, "offset": 9, "length": 6, "start_code_length": 4, "nal_unit_type": 12,
             "nal_unit_type_name": "Filler data", "nal_ref_idc": 3})])
        self.assertEqual(dump(stream).stdout.decode(), HEADER +
                         "     -           1         8          -       -   -\n"
                         "        error: data before the first start code\n"
                         "     1           9         6          4       3  12 Filler data\n")

    def test_no_unit_at_all(self):
        for stream in (b"", b"\x00", b"\x00" * 1000, b"text", b"\x00\x00\x02"):
            result = dump(stream, "--json")
            self.assert_result(result, 1, "h264tool: standard input: %s\n" % (NO_START_CODE if any(stream) else EMPTY))
            self.assertEqual(result.stdout, b"")

    def test_garbage(self):
        garbage = random.Random(1)
        for _ in range(20):
            stream = bytes(garbage.choice((0, 0, 1, 0x67, garbage.randrange(256))) for _ in range(3000))
            for options in (("--json",), ("--level", "8")):
                result = dump(stream, *options)
                self.assertEqual(result.returncode, 1, result.stderr)
            end = 0
            for line in json_lines(dump(stream, "--json")):
                self.assertEqual(line["offset"], end + line.get("leading_zero_8bits", 0))
                end = line["offset"] + line["length"] + line.get("trailing_zero_8bits", 0)
            self.assertEqual(end, len(stream))


if __name__ == "__main__":
    runner.main()
