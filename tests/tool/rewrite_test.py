"""Tests of h264tool rewrite, run as: rewrite_test.py H264TOOL [unittest arguments]"""

import os
import subprocess
import tempfile

import runner
from picture_builder import Slice
from rewrite_support import DELAYS, RewriteTestCase, hrd_vui, stamp, timing_unit
from runner import TOOL, run
from sei_streams import HRD, Stream, sps, timing_vui
from stream_builder import nal_unit

import h264_writer
import sei_writer as sei

HRD_FIELDS = {"schedules": [(1, 2, 0), (3, 4, 1)]}
FULL_VUI = {"aspect_ratio_idc": 255, "sar_width": 40000, "sar_height": 33, "overscan_appropriate_flag": 1,
            "video_format": 2, "video_full_range_flag": 1, "colour_description": (9, 16, 10),
            "chroma_sample_loc_type": (2, 5), "num_units_in_tick": 1001, "time_scale": 60000,
            "fixed_frame_rate_flag": 1, "nal_hrd_parameters": HRD_FIELDS, "vcl_hrd_parameters": HRD_FIELDS,
            "low_delay_hrd_flag": 1, "pic_struct_present_flag": 1, "bitstream_restriction": (1, 2, 1, 16, 15, 3, 4)}
RESTRICTED = {"bitstream_restriction": (1, 2, 1, 16, 15, 3, 4)}


class RewriteSpsTestCase(RewriteTestCase):
    def assert_sps(self, before, after, *options):
        """A unit of these elements becomes one of those, in a stream with other units and bytes around it."""
        for start_code_length in (3, 4):
            units = [h264_writer.sps(fields, 1, start_code_length) for fields in (before, after)]
            around = b"\0\0" + nal_unit(9, b"\x10"), b"\0\0\0" + nal_unit(12, b"\xff\xff\x80") + b"\0"
            self.assertEqual(self.rewrite(around[0] + units[0] + around[1], *options),
                             around[0] + units[1] + around[1])

    def assert_vui(self, before, after, *options):
        self.assert_sps(fields(before), fields(after), *options)


def fields(vui=None, **elements):
    all_fields = dict({"profile_idc": 100, "level_idc": 30}, **elements)
    return all_fields if vui is None else dict(all_fields, vui_parameters=vui)


class CommandLine(RewriteTestCase):
    def assert_usage_error(self, reason, *options):
        """The input does not exist, which is not noticed."""
        result = run("rewrite", "no/such/file", "-o", "no/such/output", *options)
        self.assertEqual((result.returncode, result.stdout), (2, b""))
        self.assertIn(reason, result.stderr.decode())

    def test_wrong_arguments_are_refused_before_input_is_read(self):
        self.assert_usage_error("nothing to change")
        for option, texts in (
                ("--timing", ("0/1", "1/0", "1", "1/", "/1", "1:2", "4294967296/1", "1/2/3", "-1/2", "")),
                ("--colour", ("1:1", "1:1:256", "1:1:1:1", "a:1:1", "1/1/1")),
                ("--sar", ("0:1", "1:0", "65536:1", "4/3", "4")), ("--level", ("1.4", "7", "4.1.", "b", "1.b", "41")),
                ("--crop", ("1,2,3", "1,2,3,4,5", "-1,0,0,0", "1, 2,3,4")),
                ("--timecode", ("1:00:00:00", "10:00:00.00", "24:00:00:00", "00:60:00:00", "00:00:60;00")),
                ("--fixed-frame-rate", ("2", "x")),
                ("--full-range", ("2", "-1")),
                ("--initial-cpb-removal-delay", ("0", "=1", "0=", "0=0", "32=1", "0=1,", "0=1,2,3", "0=4294967296"))):
            for text in texts:
                self.assert_usage_error(option, option + "=" + text)
        self.assert_usage_error("a second time", "--initial-cpb-removal-delay", "1=2", "--initial-cpb-removal-delay",
                                "1=3")
        self.assert_usage_error("--hrd", "--hrd", "nal", "--level", "4")
        self.assert_usage_error("--hrd", "--hrd", "both", "--initial-cpb-removal-delay", "0=1")
        for arguments in (("rewrite",), ("rewrite", "in", "--level", "4"), ("rewrite", "-o", "out", "--level", "4")):
            self.assertEqual(run(*arguments).returncode, 2)

    def test_a_missing_input(self):
        result = run("rewrite", "no/such/file", "-o", "no/such/output", "--level", "4")
        self.assertEqual(result.returncode, 2)
        self.assertIn("no/such/file", result.stderr.decode())


class ParameterSets(RewriteSpsTestCase):
    def test_timing(self):
        self.assert_vui(FULL_VUI, dict(FULL_VUI, num_units_in_tick=1, time_scale=2**32 - 1), "--timing", "1/4294967295")
        self.assert_vui(RESTRICTED, dict(RESTRICTED, num_units_in_tick=1, time_scale=50), "--timing", "1/50")
        self.assert_vui({}, {"num_units_in_tick": 1, "time_scale": 50, "fixed_frame_rate_flag": 1}, "--timing", "1/50",
                        "--fixed-frame-rate", "1")
        self.assert_vui(FULL_VUI, dict(FULL_VUI, fixed_frame_rate_flag=0), "--fixed-frame-rate", "0")
        self.refuse(h264_writer.sps(fields({})), "unit 1 at offset 0: --fixed-frame-rate: sequence parameter set 0 has "
                    "no timing: give it with --timing", "--fixed-frame-rate", "1")

    def test_colour_and_range(self):
        self.assert_vui(FULL_VUI, dict(FULL_VUI, colour_description=(1, 2, 3)), "--colour", "1:2:3")
        self.assert_vui(FULL_VUI, dict(FULL_VUI, video_full_range_flag=0), "--full-range", "0")
        self.assert_vui({}, {"video_format": 5, "colour_description": (255, 0, 1)}, "--colour", "255:0:1")
        self.assert_vui({}, {"video_format": 5, "video_full_range_flag": 1}, "--full-range", "1")
        self.assert_vui({"video_format": 1}, {"video_format": 1, "video_full_range_flag": 1,
                                              "colour_description": (9, 16, 9)},
                        "--full-range", "1", "--colour", "9:16:9")

    def test_gbr_is_for_full_chroma(self):
        full = dict(profile_idc=244, chroma_format_idc=3)
        self.assert_sps(fields({}, **full), fields({"video_format": 5, "colour_description": (1, 1, 0)}, **full),
                        "--colour", "1:1:0")
        for profile in (77, 100):
            self.refuse(h264_writer.sps(fields({}, profile_idc=profile)),
                        "unit 1 at offset 0: --colour: matrix_coefficients 0 (GBR) is for 4:4:4 only, and sequence "
                        "parameter set 0 has 4:2:0", "--colour", "1:1:0")

    def test_sample_aspect_ratio(self):
        for ratio, idc in (("1:1", 1), ("12:11", 2), ("40:33", 5), ("24:22", 2), ("160:99", 13), ("4:3", 14),
                           ("2:1", 16)):
            self.assert_vui(FULL_VUI, dict(FULL_VUI, aspect_ratio_idc=idc), "--sar", ratio)
        self.assert_vui(RESTRICTED, dict(RESTRICTED, aspect_ratio_idc=255, sar_width=14, sar_height=10), "--sar",
                        "14:10")

    def test_level(self):
        for text, level_idc in (("1", 10), ("1.0", 10), ("1.1", 11), ("4.1", 41), ("6.2", 62), ("1b", 9)):
            self.assert_sps(fields(), fields(level_idc=level_idc), "--level", text)
            self.assert_sps(fields(constraint_set3_flag=1), fields(constraint_set3_flag=1, level_idc=level_idc),
                            "--level", text)
        for profile in (66, 77, 88):
            self.assert_sps(fields(profile_idc=profile), fields(profile_idc=profile, level_idc=11), "--level", "1.1")

    def test_level_1b_of_the_early_profiles(self):
        one_b = fields(profile_idc=77, constraint_set3_flag=1, level_idc=11)
        self.assert_sps(one_b, one_b, "--level", "1b")
        for profile in (66, 77, 88):
            level_2 = fields(profile_idc=profile, constraint_set3_flag=1, level_idc=20)
            self.assert_sps(level_2, dict(level_2, level_idc=30), "--level", "3")
            self.assert_sps(level_2, dict(level_2, level_idc=11), "--level", "1b")
            for stream in (one_b, level_2):
                self.refuse(h264_writer.sps(stream), "unit 1 at offset 0: --level: level 1.1 would be read as level "
                            "1b, because constraint_set3_flag of sequence parameter set 0 is 1, which cannot be changed",
                            "--level", "1.1")
        self.refuse(h264_writer.sps(one_b), "unit 1 at offset 0: --level: level 1b of sequence parameter set 0 is told "
                    "by constraint_set3_flag, which has to be 0 at level 2 and cannot be changed", "--level", "2")
        self.refuse(h264_writer.sps(fields(profile_idc=88)), "unit 1 at offset 0: --level: level 1b of the Extended "
                    "profile is told by constraint_set3_flag, which cannot be changed", "--level", "1b")

    def test_cropping(self):
        formats = {(100, 1): (2, 2), (122, 2): (2, 1), (244, 3): (1, 1), (100, 0): (1, 1), (77, 1): (2, 2)}
        for (profile, chroma), (x, y) in formats.items():
            for frames_only in (1, 0):
                elements = dict(profile_idc=profile, chroma_format_idc=chroma, frame_mbs_only_flag=frames_only)
                height = y * (2 - frames_only)
                pixels = "%d,%d,%d,%d" % (3 * x, x, 2 * height, 4 * height)
                for vui in (None, FULL_VUI):
                    for old in ({}, {"frame_crop": (0, 0, 0, 0)}, {"frame_crop": (30, 0, 20, 1)}):
                        self.assert_sps(fields(vui, **elements, **old),
                                        fields(vui, **elements, frame_crop=(3, 1, 2, 4)), "--crop", pixels)
        planes = dict(profile_idc=244, chroma_format_idc=3, separate_colour_plane_flag=1)
        self.assert_sps(fields(**planes), fields(**planes, frame_crop=(1, 0, 0, 0)), "--crop", "1,0,0,0")
        self.assert_sps(fields(), fields(), "--crop", "0,0,0,0")
        self.assert_sps(fields(frame_crop=(1, 1, 1, 1)), fields(frame_crop=(0, 0, 0, 0)), "--crop", "0,0,0,0")

    def test_cropping_that_is_refused(self):
        # 64x48 pixels
        for crop, side, count in (("1,0,0,0", "left", 1), ("0,3,0,0", "right", 3), ("0,0,5,0", "top", 5),
                                  ("0,0,0,7", "bottom", 7)):
            self.refuse(h264_writer.sps(fields()), "unit 1 at offset 0: --crop: %s on the %s %s no multiple of 2, "
                        "which is the crop unit of 4:2:0 frames" %
                        ("1 pixel" if count == 1 else "%d pixels" % count, side, "is" if count == 1 else "are"),
                        "--crop", crop)
        self.refuse(h264_writer.sps(fields(frame_mbs_only_flag=0)), "unit 1 at offset 0: --crop: 2 pixels on the top "
                    "are no multiple of 4, which is the crop unit of 4:2:0 pictures that may be fields", "--crop",
                    "0,0,2,0")
        self.assert_sps(fields(), fields(frame_crop=(0, 31, 0, 23)), "--crop", "0,62,0,46")
        for crop in ("64,0,0,0", "32,32,0,0", "0,0,24,24", "0,4294967294,0,0"):
            self.refuse(h264_writer.sps(fields()), "unit 1 at offset 0: --crop: nothing is left of the 64x48 pixels of "
                        "sequence parameter set 0", "--crop", crop)

    def test_all_at_once(self):
        self.assert_sps(fields(FULL_VUI, profile_idc=122, chroma_format_idc=2, scaling_list=[[12, -3, 5, -22]] * 8),
                        fields(dict(FULL_VUI, num_units_in_tick=1, time_scale=48, fixed_frame_rate_flag=0,
                                    video_full_range_flag=0, colour_description=(1, 1, 1), aspect_ratio_idc=1),
                               profile_idc=122, chroma_format_idc=2, scaling_list=[[12, -3, 5, -22]] * 8,
                               frame_crop=(1, 2, 3, 4), level_idc=52),
                        "--timing", "1/48", "--fixed-frame-rate", "0", "--full-range", "0", "--colour", "1:1:1",
                        "--sar", "1:1", "--crop", "2,4,3,4", "--level", "5.2", "--pic-struct")

    def test_every_set_of_the_stream_changes(self):
        def stream(scale, *ids):
            return b"".join(h264_writer.sps(fields({"num_units_in_tick": 1, "time_scale": scale + 4 * same},
                                                   level_idc=30 + i, seq_parameter_set_id=i)) + b"\0"
                            for i in ids for same in (0, 0 if scale == 50 else 1))
        before = stream(24, 0, 31, 0, 7)
        after = self.rewrite(before, "--timing", "1/50")
        self.assertEqual(after, stream(50, 0, 31, 0, 7))

    def test_subset_sets_stay(self):
        other = nal_unit(15, h264_writer.sps(fields({}))[5:])
        self.assertEqual(self.rewrite(other + h264_writer.sps(fields({})), "--level", "4"),
                         other + h264_writer.sps(fields({}, level_idc=40)))

    def test_a_set_that_is_so_already_stays_with_its_bytes(self):
        # An emulation prevention byte that is not needed, and a prefix that is.
        unit = bytearray(h264_writer.sps(fields(dict(FULL_VUI, num_units_in_tick=1, time_scale=2))))
        self.assertIn(b"\0\0\3", unit[4:])
        self.assertEqual(self.rewrite(bytes(unit), "--timing", "1/2", "--level", "3", "--pic-struct"), bytes(unit))

    def test_sets_that_cannot_be_changed(self):
        plain = h264_writer.sps(fields({}))
        for option, values in (("--timing", ["1/50"]), ("--colour", ["1:1:1"]), ("--sar", ["1:1"]),
                               ("--full-range", ["1"]), ("--fixed-frame-rate", ["1"]), ("--pic-struct", [])):
            self.refuse(plain + b"\0" + h264_writer.sps(fields(seq_parameter_set_id=5)) if option == "--sar" else
                        h264_writer.sps(fields(seq_parameter_set_id=5)),
                        "unit %s: %s: sequence parameter set 5 has no VUI, and none can be added" %
                        ("2 at offset %d" % (len(plain) + 1) if option == "--sar" else "1 at offset 0", option),
                        option, *values)
        self.refuse(nal_unit(7, b"\x64"), "unit 1 at offset 0: sequence parameter set too short: 2 bytes behind the "
                    "start code", "--level", "4")
        self.refuse(nal_unit(7, b"\x64\0\x1e\xff\xff\0"), "unit 1 at offset 0: sequence parameter set cannot be parsed",
                    "--level", "4")
        self.refuse(nal_unit(7, h264_writer.sps(fields(profile_idc=66))[5:] + b"\x01"), "unit 1 at offset 0: sequence "
                    "parameter set 0 does not end where its elements do, so that it is not understood", "--level", "4")
        self.refuse(nal_unit(9, b"\x10"), "there is no sequence parameter set to change", "--level", "4")

    def test_sets_that_are_too_long(self):
        lists = [[1] * 16] * 6 + [[1 + i % 7 for i in range(64)]] * 2
        schedules = {"schedules": [(2**20 + i, 2**20 + i, 0) for i in range(7)]}
        vui = {"nal_hrd_parameters": schedules}
        unit = h264_writer.sps(fields(vui, scaling_list=lists))
        self.assertGreater(len(unit), 4 + 200)
        self.assertLess(len(unit), 4 + 250)
        self.assertEqual(self.rewrite(unit, "--crop", "0,2,0,0"),
                         h264_writer.sps(fields(vui, scaling_list=lists, frame_crop=(0, 1, 0, 0))))
        self.refuse(unit, "unit 1 at offset 0: sequence parameter set 0 is too long to be changed: there is no room for "
                    "the result behind its %d bytes" % (len(unit) - 4), "--timing", "1/50")
        schedules["schedules"] = schedules["schedules"] * 2
        unit = h264_writer.sps(fields(vui, scaling_list=lists))
        self.refuse(unit, "unit 1 at offset 0: sequence parameter set too long: %d bytes behind the start code, 256 can "
                    "be parsed" % (len(unit) - 4), "--level", "4")


class Timecodes(RewriteTestCase):
    TIMING_25 = sps(timing_vui((1, 50)))

    def both(self, texts, places, sps_of=TIMING_25, unit=lambda text: timing_unit(0, stamp(text))):
        """Streams of I P B B whose pictures have arbitrary timecodes, and those that are wanted."""
        made = []
        for listed in (["01:01:01:%02d" % i for i in range(len(places))], texts):
            stream = Stream(sps_of)
            units = [unit(listed[place]) for place in places]
            stream.idr(units[0])
            stream.p(3, 1, units[1]).b(1, 2, units[2]).b(2, 2, units[3])
            made.append(stream.bytes)
        return made

    def test_in_output_order(self):
        before, after = self.both(["10:00:00:23", "10:00:00:24", "10:00:01:00", "10:00:01:01"], (0, 3, 1, 2))
        self.assertEqual(self.rewrite(before, "--timecode", "10:00:00:23"), after)
        self.assertEqual(self.rewrite(after, "--timecode", "10:00:00:23"), after)

    def test_drop_frame(self):
        texts = ["00:00:59;28", "00:00:59;29", "00:01:00;02", "00:01:00;03"]

        def unit(text):
            if text.startswith("01:01"):
                return timing_unit(0, stamp(text))
            return timing_unit(0, stamp(text, counting_type=4, cnt_dropped_flag=int(text == "00:01:00;02")))
        before, after = self.both(texts, (0, 3, 1, 2), sps(timing_vui()), unit)
        self.assertEqual(self.rewrite(before, "--timecode", "00:00:59;28"), after)
        # Counted without dropping again.
        before, after = self.both(["00:00:59:%d" % i for i in range(20, 24)], (0, 3, 1, 2), sps(timing_vui()))
        self.assertEqual(self.rewrite(self.rewrite(before, "--timecode", "00:00:59;28"), "--timecode", "00:00:59:20"),
                         after)

    def test_midnight_is_a_discontinuity(self):
        before, after = self.both(["23:59:59:23", "23:59:59:24", "00:00:00:00", "00:00:00:01"], (0, 3, 1, 2),
                                  unit=lambda text: timing_unit(0, stamp(text, discontinuity_flag=int(
                                      text == "00:00:00:00"))))
        self.assertEqual(self.rewrite(before, "--timecode", "23:59:59:23"), after)
        self.assertEqual(self.rewrite(before, "--timecode", "00:00:00:00"),
                         self.both(["00:00:00:0%d" % i for i in range(4)], (0, 3, 1, 2))[1])

    def test_what_else_the_message_says_stays(self):
        kept = dict(ct_type=2, nuit_field_based_flag=1, time_offset=-5)
        for old in (stamp("01:02:03:04", counting_type=0, **kept),
                    dict({"n_frames": 9, "seconds_value": 8, "discontinuity_flag": 1, "cnt_dropped_flag": 1}, **kept)):
            before = Stream(HRD).idr(timing_unit(3, None, old, delays=DELAYS)).bytes
            counting_type = old.get("counting_type", 0)
            after = Stream(HRD).idr(timing_unit(3, None, stamp("10:00:00:00", counting_type=counting_type, **kept),
                                                delays=DELAYS)).bytes
            self.assertEqual(self.rewrite(before, "--timecode", "10:00:00:00"), after)

    def test_messages_without_a_timestamp_get_one(self):
        for pic_struct, flags, ct_type in ((0, 1, 0), (1, 1, 1), (2, 1, 1), (3, 2, 1), (4, 2, 1)):
            before = Stream(HRD).idr(timing_unit(pic_struct, *[None] * flags, delays=DELAYS)).bytes
            stamps = [stamp("10:00:00:00", ct_type=ct_type)] + [None] * (flags - 1)
            self.assertEqual(self.rewrite(before, "--timecode", "10:00:00:00"),
                             Stream(HRD).idr(timing_unit(pic_struct, *stamps, delays=DELAYS)).bytes)

    def test_both_timestamps_of_a_frame(self):
        streams = [Stream(self.TIMING_25).idr(timing_unit(4, *[stamp(text, ct_type=1)] * 2)).bytes
                   for text in ("01:02:03:04", "10:00:00:00")]
        self.assertEqual(self.rewrite(streams[0], "--timecode", "10:00:00:00"), streams[1])

    def test_fields_have_the_timecode_of_their_frame(self):
        streams = []
        for texts in (["01:02:03:04"] * 4, ["10:00:00:24"] * 2 + ["10:00:01:00"] * 2):
            stream = Stream(sps(timing_vui((1, 50)), fields=0))
            units = [timing_unit(1 + i % 2, stamp(text, ct_type=1)) for i, text in enumerate(texts)]
            for i, unit in enumerate(units):
                stream.add(Slice(stream.pps, 7 if i == 0 else 5, unit_type=5 if i == 0 else 1, field=i % 2, poc_lsb=i,
                                 frame_num=i // 2), [unit])
            streams.append(stream.bytes)
        self.assertEqual(self.rewrite(streams[0], "--timecode", "10:00:00:24"), streams[1])

    def test_the_rate_is_that_of_the_new_timing(self):
        made = []
        for timing, texts in (((1, 50), ("01:01:01:01", "01:01:01:02")), ((1, 48), ("10:00:00:23", "10:00:01:00"))):
            stream = Stream(sps(timing_vui(timing)))
            stream.idr(timing_unit(0, stamp(texts[0]))).p(1, 1, timing_unit(0, stamp(texts[1])))
            made.append(stream.bytes)
        self.assertEqual(self.rewrite(made[0], "--timing", "1/48", "--timecode", "10:00:00:23"), made[1])
        self.refuse(made[0], "unit 4 at offset %d: there is no timecode 10:00:00:25 at 25/1 frames a second" %
                    (len(Stream(self.TIMING_25).bytes) + len(timing_unit(0, stamp("01:01:01:01")))), "--timecode",
                    "10:00:00:25")

    def test_pictures_without_message_count(self):
        streams = []
        for texts in (("01:01:01:01", "01:01:01:02"), ("10:00:00:00", "10:00:00:02")):
            stream = Stream(self.TIMING_25).idr(timing_unit(0, stamp(texts[0]))).p(1, 1)
            streams.append(stream.p(2, 2, timing_unit(0, stamp(texts[1]))).bytes)
        self.assertEqual(self.rewrite(streams[0], "--timecode", "10:00:00:00"), streams[1])


class RefusedTimecodes(RewriteTestCase):
    def refuse_unit(self, reason, *units, sps_of=Timecodes.TIMING_25, options=(), number=3):
        stream = Stream(sps_of)
        offset = len(stream.bytes) + sum(map(len, units[:number - 3]))
        self.refuse(stream.idr(*units).bytes, "unit %d at offset %d: %s" % (number, offset, reason), "--timecode",
                    "10:00:00:00", *options)

    def test_units_of_several_messages(self):
        timing = sei.pic_timing((), 0, [stamp("01:02:03:04")])
        self.refuse_unit("the picture timing message shares its unit with 1 other message, which cannot be carried over",
                         sei.unit(timing, sei.message(6, b"\x80")))
        self.refuse_unit("the picture timing message shares its unit with 2 other messages, which cannot be carried "
                         "over", sei.unit(sei.message(6, b"\x80"), timing, timing))

    def test_units_that_are_too_long(self):
        long = sei.unit(sei.pic_timing((), 0, [stamp("01:02:03:04")]) + b"")
        self.refuse_unit("the unit of the picture timing message is too long: 33 bytes behind the start code, 32 can be "
                         "changed", nal_unit(6, sei.message(1, long[7:16] + bytes([255] * 20)) + b"\x80", nal_ref_idc=0))
        stamps = [stamp("01:02:03:04", ct_type=1)] * 2
        self.refuse_unit("the picture timing message does not fit the 32 bytes that can be written",
                         timing_unit(3, *stamps, delays=DELAYS), sps_of=HRD)

    def test_messages_of_another_form(self):
        message = sei.pic_timing((), 0, [stamp("01:02:03:04")])
        self.refuse_unit("the picture timing message does not have the form that can be written, so that more of it "
                         "would change", sei.unit(sei.message(1, message[2:] + b"\x55")))
        self.refuse_unit("pic_timing message cannot be parsed", timing_unit(9, stamp("01:02:03:04")))

    def test_damaged_units(self):
        self.refuse_unit("a message runs past the unit's end",
                         nal_unit(6, sei.pic_timing((), 0, [stamp("01:02:03:04")]) + b"\x05\x20\x80", nal_ref_idc=0))

    def test_repeated_fields_and_frames(self):
        for pic_struct, count in ((5, 3), (6, 3), (7, 2), (8, 3)):
            self.refuse_unit("pic_struct %d repeats a field or the frame, so that timecodes cannot be counted by frames" %
                             pic_struct, timing_unit(pic_struct, stamp("01:02:03:04"), *[None] * (count - 1)))

    def test_without_picture_structure(self):
        self.refuse_unit("the picture timing message has no timecode, because pic_struct_present_flag of sequence "
                         "parameter set 0 is 0: set it with --pic-struct", sei.unit(sei.pic_timing([(23, 5), (22, 6)])),
                         sps_of=sps(hrd_vui(pic_struct=0)))

    def test_without_a_frame_rate(self):
        self.refuse_unit("sequence parameter set 0 has no frame rate by which timecodes are counted: give it with "
                         "--timing", timing_unit(0, stamp("01:02:03:04")), sps_of=sps(timing_vui(None)), number=4)

    def test_a_changing_frame_rate(self):
        stream = Stream(Timecodes.TIMING_25).idr(timing_unit(0, stamp("01:02:03:04")))
        other = Stream(sps(timing_vui((1, 48))))
        offset = len(stream.bytes) + len(other.bytes)
        other.idr()
        self.refuse(stream.bytes + other.bytes, "unit 7 at offset %d: the frame rate changes here, so that timecodes "
                    "cannot be counted: give one with --timing" % offset, "--timecode", "10:00:00:00")
        self.rewrite(stream.bytes + other.bytes, "--timecode", "10:00:00:00", "--timing", "1/50")

    def test_messages_without_their_picture(self):
        unit = timing_unit(0, stamp("01:02:03:04"))
        self.refuse_unit("it is the second picture timing message since the last picture that can be read", unit, unit,
                         number=4)
        stream = Stream(Timecodes.TIMING_25).idr(unit).bytes
        self.refuse(stream + unit, "unit 5 at offset %d: there is no picture behind the picture timing message" %
                    len(stream), "--timecode", "10:00:00:00")
        self.refuse(stream + unit + nal_unit(1, b"\0"), "unit 5 at offset %d: the slice behind the picture timing "
                    "message, unit 6, cannot be read: slice header too short: 1 byte behind the start code" %
                    len(stream), "--timecode", "10:00:00:00")
        slices = Stream(Timecodes.TIMING_25)
        second = Slice(slices.pps, 7, unit_type=5, first_mb=40).unit()
        self.refuse(stream + unit + second, "unit 5 at offset %d: the picture timing message stands between the slices "
                    "of a picture" % len(stream), "--timecode", "10:00:00:00")

    def test_a_stream_without_messages(self):
        self.refuse(Stream(Timecodes.TIMING_25).idr().bytes, "there is no picture timing message to renumber: h264tool "
                    "insert --timecode writes them", "--timecode", "10:00:00:00")

    def test_units_that_are_too_long_to_be_looked_through(self):
        unit = nal_unit(6, sei.message(5, b"\xff" * 1100000) + b"\x80", nal_ref_idc=0)
        self.refuse_unit("the SEI unit is too long to be looked through: %d bytes, 1048576 are kept" % len(unit), unit)


class PictureStructure(RewriteTestCase):
    def test_messages_get_the_structure_of_their_picture(self):
        streams = []
        for flag in (0, 1):
            stream = Stream(sps(hrd_vui(flag)))
            units = [sei.unit(sei.pic_timing(DELAYS, 0 if flag else None, [None] * flag)) for _ in range(2)]
            streams.append(stream.idr(units[0]).p(1, 1, units[1]).bytes)
        self.assertEqual(self.rewrite(streams[0], "--pic-struct"), streams[1])
        self.assertEqual(self.rewrite(streams[1], "--pic-struct"), streams[1])

    def test_with_a_timecode(self):
        before = Stream(sps(hrd_vui(0))).idr(sei.unit(sei.pic_timing(DELAYS))).bytes
        after = Stream(sps(hrd_vui(1))).idr(timing_unit(0, stamp("10:00:00:00"), delays=DELAYS)).bytes
        self.assertEqual(self.rewrite(before, "--pic-struct", "--timecode", "10:00:00:00"), after)

    def test_a_picture_without_message(self):
        stream = Stream(sps(hrd_vui(0))).idr(sei.unit(sei.pic_timing(DELAYS)))
        offset = len(stream.bytes)
        self.refuse(stream.p(1, 1).bytes, "unit 5 at offset %d: the picture has no picture timing message, which every "
                    "picture has where pic_struct_present_flag is 1: h264tool insert --timecode writes both" % offset,
                    "--pic-struct")


class BufferingPeriods(RewriteTestCase):
    SCHEDULES = [(1, 2), (3, 4), (5, 6)]

    def assert_delays(self, before, after, *options, sps_of=HRD, others=()):
        streams = [Stream(sps_of).idr(sei.unit(*others, sei.buffering_period(0, pairs), *others)).bytes
                   for pairs in (before, after)]
        self.assertEqual(self.rewrite(streams[0], *options), streams[1])

    def refuse_delay(self, reason, *options, unit=None, sps_of=HRD):
        stream = Stream(sps_of)
        offset = len(stream.bytes)
        stream.idr(unit or sei.unit(sei.buffering_period(0, self.SCHEDULES)))
        self.refuse(stream.bytes, "unit 3 at offset %d: %s" % (offset, reason), *options)

    def test_schedules_of_the_nal_hrd(self):
        self.assert_delays(self.SCHEDULES, [(7, 2), (3, 4), (5, 6)], "--initial-cpb-removal-delay", "0=7")
        self.assert_delays(self.SCHEDULES, [(1, 2), (65536, 0), (5, 6)], "--initial-cpb-removal-delay", "1=65536,0",
                           "--hrd", "nal")
        self.assert_delays(self.SCHEDULES, [(7, 8), (9, 10), (5, 6)], "--initial-cpb-removal-delay", "1=9,10",
                           "--initial-cpb-removal-delay", "0=7,8")
        self.assert_delays(self.SCHEDULES, [(16777215, 2), (3, 4), (5, 6)], "--initial-cpb-removal-delay",
                           "0=16777215")

    def test_other_messages_of_the_unit_stay(self):
        others = [sei.message(5, b"\0" * 300), sei.pic_timing(DELAYS, 0, [None])]
        self.assert_delays(self.SCHEDULES, [(1, 2), (7, 8), (5, 6)], "--initial-cpb-removal-delay", "1=7,8",
                           others=others)

    def test_a_vcl_hrd(self):
        vcl = sps(hrd_vui(1, vcl=True, schedules=((1, 2, 0), (3, 4, 0))))
        self.assert_delays([(1, 2), (3, 4)], [(1, 2), (7, 8)], "--initial-cpb-removal-delay", "1=7,8", "--hrd", "vcl",
                           sps_of=vcl)

    def test_what_cannot_be_changed(self):
        self.refuse_delay("there is no schedule 2: the NAL HRD has 2 schedules, counted from 0",
                          "--initial-cpb-removal-delay", "2=1")
        for value in ("0=16777216", "0=1,16777216"):
            self.refuse_delay("the value 16777216 does not fit the 24 bits of the NAL HRD's initial delays",
                              "--initial-cpb-removal-delay", value)
        self.refuse_delay("the VCL HRD's delays cannot be changed where there is a NAL HRD, whose delays stand before "
                          "them", "--initial-cpb-removal-delay", "0=1", "--hrd", "vcl")
        self.refuse_delay("sequence parameter set 0 has no VCL HRD, whose delays are to be changed",
                          "--initial-cpb-removal-delay", "0=1", "--hrd", "vcl", sps_of=sps(hrd_vui(1)))
        self.refuse_delay("sequence parameter set 0 has no NAL HRD, whose delays are to be changed: choose with --hrd",
                          "--initial-cpb-removal-delay", "0=1", sps_of=sps(hrd_vui(1, vcl=True)))
        self.refuse_delay("buffering_period message cannot be parsed: its sequence parameter set is missing",
                          "--initial-cpb-removal-delay", "0=1", unit=sei.unit(sei.buffering_period(9, self.SCHEDULES)))
        self.refuse_delay("buffering_period message cannot be parsed", "--initial-cpb-removal-delay", "0=1",
                          unit=sei.unit(sei.buffering_period(0, self.SCHEDULES[:2])))
        self.refuse(Stream(HRD).idr().bytes, "there is no buffering period message to change",
                    "--initial-cpb-removal-delay", "0=1")


class Streams(RewriteTestCase):
    def test_damaged_units_and_stray_bytes_are_copied(self):
        damaged = b"\x55\x66" + Stream(HRD).bytes + nal_unit(1, b"\0") + b"\0\0" + nal_unit(6, b"\5\x20\x80") + b"\0"
        after = self.rewrite(damaged, "--level", "4", status=1, stderr="h264tool: standard input: 2 bytes before the "
                             "first start code\nh264tool: standard input: 2 units could not be parsed, first unit 3 at "
                             "offset %d\n" % (2 + len(Stream(HRD).bytes)))
        self.assertEqual(after.replace(b"\x67\x4d\0\x28", b"\x67\x4d\0\x1e"), damaged)
        self.assertNotEqual(after, damaged)

    def test_pipes_and_files_are_treated_alike(self):
        stream = Stream(Timecodes.TIMING_25)
        for i in range(200):
            unit = timing_unit(0, stamp("01:02:03:04"))
            if i % 50 == 0:
                stream.idr(unit, idr_pic_id=i // 50)
            else:
                stream.p(i % 50, i % 50, unit)
            stream.bytes += b"\0" * (i % 4)
        options = ("--timecode", "23:59:58:00", "--level", "5")
        expected = self.rewrite(stream.bytes, *options)
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "stream")
            with open(path, "wb") as file:
                file.write(b"skipped" + stream.bytes)
            with open(path, "rb") as file:
                os.lseek(file.fileno(), 7, os.SEEK_SET)
                result = subprocess.run([TOOL, "rewrite", "-", "-o", path + ".new", *options], stdin=file,
                                        stderr=subprocess.PIPE, timeout=120, check=False)
            self.assert_result(result, 0, "")
            with open(path + ".new", "rb") as file:
                self.assertEqual(file.read(), expected)
            # In place.
            with open(path, "wb") as file:
                file.write(stream.bytes)
            self.assert_result(run("rewrite", path, "-o", path, *options), 0, "")
            with open(path, "rb") as file:
                self.assertEqual(file.read(), expected)
            self.assertEqual(sorted(os.listdir(directory)), ["stream", "stream.new"])

    def test_a_stream_without_a_sequence_parameter_set(self):
        self.refuse(nal_unit(9, b"\x10"), "there is no sequence parameter set to change", "--level", "4")


if __name__ == "__main__":
    runner.main()
