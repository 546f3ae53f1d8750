"""Tests of h264tool summary, run as: summary_test.py H264TOOL [--update-golden] [unittest arguments]"""

import json
import os

import dump_stream
import runner
import sei_streams
import stream_builder as build
from picture_builder import Pps, Slice
from runner import EMPTY, NO_START_CODE, TestCase, feed
from sei_streams import Stream
from stream_builder import Sps, nal_unit

import sei_writer

SAMPLES = os.path.join(build.HERE, "..", "..", "samples")


def sps(seq_parameter_set_id=0, profile_idc=77, **elements):
    return Sps({"width": 352, "height": 288}, profile_idc, seq_parameter_set_id=seq_parameter_set_id,
               **dict({"poc": build.poc_type(0)}, **elements))


def vui(timing=(1, 50), fixed=1, nal=(), vcl=()):
    """VUI with timing and HRD schedules: bit_rate_value_minus1, cpb_size_value_minus1, cbr_flag."""

    def write(s):
        for name in ("aspect_ratio_info", "overscan_info", "video_signal_type", "chroma_loc_info"):
            s.u(1, name + "_present_flag", 0)
        s.u(1, "timing_info_present_flag", int(timing is not None))
        for name, value in zip(("num_units_in_tick", "time_scale"), timing or ()):
            s.u(32, name, value)
        if timing is not None:
            s.u(1, "fixed_frame_rate_flag", fixed)
        for name, schedules in (("nal", nal), ("vcl", vcl)):
            s.u(1, name + "_hrd_parameters_present_flag", int(bool(schedules)))
            if schedules:
                build.hrd(s, schedules)
        if nal or vcl:
            s.u(1, "low_delay_hrd_flag", 0)
        s.u(1, "pic_struct_present_flag", 0)
        s.u(1, "bitstream_restriction_flag", 0)

    return write


def sei(*messages):
    """An SEI unit of messages, each a payload type and the payload."""
    def number(value):
        return b"\xff" * (value // 255) + bytes([value % 255])

    return nal_unit(6, b"".join(number(payload_type) + number(len(payload)) + payload
                                for payload_type, payload in messages) + b"\x80", nal_ref_idc=0)


class SummaryTestCase(TestCase):
    def summary(self, *units, status=0):
        result = feed("summary", b"".join(units), "--json")
        self.assertEqual(result.returncode, status, result.stderr)
        return json.loads(result.stdout)

    def text(self, *units):
        return feed("summary", b"".join(units)).stdout.decode()

    def video(self, *units):
        """The only video of a stream."""
        video, = self.summary(*units)["videos"]
        return video

    def of_set(self, parameter_set):
        """What is said of a sequence parameter set that has one picture."""
        pps = Pps(parameter_set)
        return self.video(parameter_set.unit(), pps.unit(), Slice(pps, 7, unit_type=5).unit())


class Samples(TestCase):
    """The figures of the golden files are those that ffprobe gives, where it gives them."""

    def test_interlaced_hrd(self):
        with open(os.path.join(SAMPLES, "interlaced_hrd.h264"), "rb") as sample:
            stream = sample.read()
        result = feed("summary", stream)
        self.assert_result(result, 0, "")
        self.assert_golden("summary.txt", result)
        result = feed("summary", stream, "--json")
        self.assert_result(result, 0, "")
        self.assert_golden("summary.json", result)

    def test_stream_of_the_dump_tests(self):
        result = feed("summary", dump_stream.dump_stream())
        self.assert_result(result, 1, "h264tool: standard input: 7 units could not be parsed, first unit 14 at offset "
                                      "431\n")
        self.assert_golden("summary_damaged.txt", result)


class ParameterSets(SummaryTestCase):
    def test_profiles(self):
        for profile_idc, constraint_flags, name in (
                (66, 0x80, "Baseline"), (66, 0xC0, "Constrained Baseline"), (77, 0, "Main"), (88, 0, "Extended"),
                (100, 0, "High"), (100, 0x08, "Progressive High"), (100, 0x0C, "Constrained High"), (100, 0x04, "High"),
                (110, 0, "High 10"), (110, 0x08, "Progressive High 10"), (110, 0x10, "High 10 Intra"),
                (122, 0, "High 4:2:2"), (122, 0x10, "High 4:2:2 Intra"), (244, 0, "High 4:4:4 Predictive"),
                (244, 0x10, "High 4:4:4 Intra"), (44, 0x10, "CAVLC 4:4:4 Intra"), (83, 0, "Scalable Baseline"),
                (83, 0x04, "Scalable Constrained Baseline"), (86, 0, "Scalable High"),
                (86, 0x04, "Scalable Constrained High"), (86, 0x10, "Scalable High Intra"), (118, 0, "Multiview High"),
                (128, 0, "Stereo High"), (134, 0, "MFC High"), (135, 0, "MFC Depth High"),
                (138, 0, "Multiview Depth High"), (139, 0, "Enhanced Multiview Depth High"),
                (99, 0xFC, "profile_idc 99")):
            chroma = build.chroma_format(1) if profile_idc in (100, 110, 122, 244, 44, 83, 86, 118, 128) else None
            video = self.of_set(sps(profile_idc=profile_idc, constraint_flags=constraint_flags, chroma=chroma))
            self.assertEqual((video["profile"], video["profile_idc"]), (name, profile_idc))

    def test_levels(self):
        for profile_idc, constraint_flags, level_idc, name in (
                (77, 0, 10, "1"), (77, 0, 11, "1.1"), (77, 0x10, 11, "1b"), (66, 0x10, 11, "1b"), (88, 0x10, 11, "1b"),
                (77, 0x10, 12, "1.2"), (100, 0x10, 11, "1.1"), (100, 0, 9, "1b"), (77, 0, 20, "2"), (77, 0, 42, "4.2"),
                (77, 0, 62, "6.2"), (77, 0, 63, "level_idc 63"), (77, 0, 0, "level_idc 0")):
            chroma = build.chroma_format(1) if profile_idc == 100 else None
            video = self.of_set(sps(profile_idc=profile_idc, constraint_flags=constraint_flags, level_idc=level_idc,
                                    chroma=chroma))
            self.assertEqual((video["level"], video["level_idc"]), (name, level_idc))

    def test_picture(self):
        for profile_idc, chroma, fields, crop, name, size in (
                (77, None, None, (1, 2, 3, 4), "4:2:0", (346, 274)), (77, None, 0, (1, 2, 3, 4), "4:2:0", (346, 548)),
                (100, 0, None, (1, 2, 3, 4), "monochrome", (349, 281)), (122, 2, 1, (1, 2, 3, 4), "4:2:2", (346, 562)),
                (244, 3, None, (1, 0, 0, 0), "4:4:4", (351, 288)), (77, None, None, (176, 0, 0, 0), "4:2:0", None)):
            chroma = None if chroma is None else build.chroma_format(chroma)
            video = self.of_set(sps(profile_idc=profile_idc, chroma=chroma, fields=fields, crop=crop))
            self.assertEqual(video["chroma_format"], name)
            self.assertEqual((video.get("width"), video.get("height")), size or (None, None))
            depths = (10, 9) if chroma else (8, 8)  # those that chroma_format writes
            self.assertEqual((video["bit_depth_luma"], video["bit_depth_chroma"]), depths)

    def test_timing(self):
        for timing, numerator, denominator in (((1, 50), 25, 1), ((1001, 60000), 30000, 1001),
                                               ((1001, 48000), 24000, 1001), ((2, 1), 1, 4),
                                               ((4294967295, 4294967295), 1, 2)):
            video = self.of_set(sps(vui=vui(timing)))
            self.assertEqual(video["frame_rate"], {"numerator": numerator, "denominator": denominator})
            self.assertAlmostEqual(video["duration"], denominator / numerator)
            self.assertAlmostEqual(video["bit_rate"], 8 * video["bytes"] * numerator / denominator)
        self.assertEqual([self.of_set(sps(vui=vui(fixed=fixed)))["fixed_frame_rate_flag"] for fixed in (0, 1)], [0, 1])

    def test_no_timing(self):
        for without in (None, vui(timing=None), vui(timing=(0, 50)), vui(timing=(1, 0))):
            parameter_set = sps(vui=without)
            pps = Pps(parameter_set)
            stream = (parameter_set.unit(), pps.unit(), Slice(pps, 7, unit_type=5).unit())
            summary = self.summary(*stream)
            for name in ("duration", "bit_rate", "frame_rate"):
                self.assertNotIn(name, summary)
                self.assertNotIn(name, summary["videos"][0])
            self.assertIn("\n  Frame rate      not signalled\n", self.text(*stream))
            self.assertIn("\nDuration          unknown, since the stream does not signal its frame rate\n",
                          self.text(*stream))
        self.assertNotIn("Duration", self.text(sps().unit()))

    def test_hrd(self):
        nal, vcl = [(9374, 4999, 1), (0, 0, 0)], [(4294967294, 7, 0)]
        self.assertEqual(self.of_set(sps(vui=vui(nal=nal, vcl=vcl)))["hrd"], [
            {"hrd": "nal", "bit_rate": 9375 << 7, "cpb_size": 5000 << 19, "cbr_flag": 1},
            {"hrd": "nal", "bit_rate": 1 << 7, "cpb_size": 1 << 19, "cbr_flag": 0},
            {"hrd": "vcl", "bit_rate": 4294967295 << 7, "cpb_size": 8 << 19, "cbr_flag": 0}])
        self.assertEqual(self.of_set(sps())["hrd"], [])

    def test_changes(self):
        first, second, other = sps(), sps(fields=0), sps(1)
        units = [first.unit(), first.unit(nal_ref_idc=1), second.unit(), first.unit(), other.unit(),
                 Pps(first).unit(), Pps(first, pps_id=7).unit(), Pps(first, cabac=1).unit(), Pps(first).unit()]
        summary = self.summary(*units)
        self.assertEqual(summary["sequence_parameter_sets"], {"ids": [0, 1], "changes": 2})
        self.assertEqual(summary["picture_parameter_sets"], {"ids": [0, 7], "changes": 2})
        self.assertIn("\nSPS               5 units, ids 0 1, 2 changes of content\n", self.text(*units))

    def test_videos(self):
        slow, fast = sps(vui=vui((1, 50))), sps(vui=vui((1, 100)))
        pps = Pps(slow)
        gop = [Slice(pps, 7, unit_type=5).unit(), Slice(pps, 5, frame_num=1).unit(), Slice(pps, 5, frame_num=2).unit()]
        delimiter = nal_unit(9, b"\xf0")
        stream = [slow.unit(), pps.unit(), *gop, delimiter, fast.unit(), pps.unit(), *gop,
                  slow.unit(), Slice(pps, 7, unit_type=5, idr_pic_id=1).unit() + b"\x00\x00"]
        summary = self.summary(*stream)
        self.assertEqual([(video["frames"], video["duration"]) for video in summary["videos"]], [(4, 0.16), (3, 0.06)])
        self.assertAlmostEqual(summary["duration"], 0.22)
        self.assertEqual(summary["videos"][1]["bytes"], sum(map(len, stream[5:-2])))
        self.assertEqual(sum(video["bytes"] for video in summary["videos"]), summary["size"])
        self.assertEqual(summary["zero_bytes"], 2)
        self.assertIn("\nVideo 2 of 2\n", self.text(*stream))
        without = sps()
        self.assertNotIn("duration", self.summary(*stream, without.unit(), Slice(pps, 7, idr_pic_id=2).unit()))

    def test_bounded_number_of_videos(self):
        pps = Pps(sps())
        units = [sps().unit(), pps.unit()]
        for i in range(105):
            units += [sps(size=(i, 9)).unit(), Slice(pps, 7, unit_type=5, idr_pic_id=i % 2).unit()]
        summary = self.summary(*units)
        self.assertEqual((len(summary["videos"]), summary["more_videos"], summary["frames"]), (100, True, 105))
        self.assertIn("left out", self.text(*units))


class Durations(SummaryTestCase):
    def test_repeated_fields(self):
        for present, fields in ((1, 2 + 3 + 3 + 4 + 6 + 2), (0, 12)):
            stream = Stream(sei_streams.sps(build.timing_vui((1, 50), pic_struct=present)))
            for i, pic_struct in enumerate((0, 5, 6, 7, 8, 4)):
                units = [sei_writer.unit(sei_writer.pic_timing((), pic_struct, [None] * 3))] if present else []
                if i == 0:
                    stream.idr(*units)
                else:
                    stream.p(i, i, *units)
            self.assertAlmostEqual(self.summary(stream.bytes)["duration"], fields / 50)
            self.assertIn("\n  Duration        %.3f s\n" % (fields / 50), self.text(stream.bytes))

    def test_single_fields(self):
        stream = Stream(sei_streams.sps(build.timing_vui((1, 50)), fields=0)).idr()
        stream.p(1, 1, field=0)
        stream.p(1, 1, field=1)
        stream.p(2, 2, field=0)
        self.assertAlmostEqual(self.summary(stream.bytes)["duration"], 5 / 50)


class Pictures(SummaryTestCase):
    def pictures(self, *slices, parameter_set=None):
        parameter_set = parameter_set or sps(fields=0)
        pps = slices[0][0]
        return self.summary(pps.sps.unit(), pps.unit(), *(one.unit() if isinstance(one, Slice) else one
                                                          for _, one in slices))

    def test_frames_and_slices(self):
        pps = Pps(sps())
        slices = [Slice(pps, 7, unit_type=5, ref_idc=3), Slice(pps, 7, unit_type=5, ref_idc=3, first_mb=20),
                  Slice(pps, 5, frame_num=1), Slice(pps, 7, frame_num=1, first_mb=50),
                  Slice(pps, 0, unit_type=2, frame_num=2), nal_unit(3, b"\x80"), nal_unit(4, b"\x80"),
                  Slice(pps, 1, frame_num=3, ref_idc=0, poc_lsb=2),
                  Slice(pps, 2, frame_num=3, ref_idc=0, poc_lsb=2, first_mb=9),
                  Slice(pps, 6, frame_num=3, ref_idc=0, poc_lsb=4), Slice(pps, 4, frame_num=3),
                  Slice(pps, 3, frame_num=4)]
        summary = self.pictures(*((pps, one) for one in slices))
        self.assertEqual(summary["frames"], 7)
        self.assertEqual(summary["pictures"], {"I": 2, "P": 3, "B": 2, "IDR": 1})
        self.assertEqual(summary["slices"], {"P": 2, "B": 2, "I": 4, "SP": 1, "SI": 1})

    def test_field_pairs_are_one_frame(self):
        pps = Pps(sps(fields=0))
        slices = [Slice(pps, 7, unit_type=5, ref_idc=3, field=0), Slice(pps, 5, field=1),
                  Slice(pps, 5, frame_num=1, field=1), Slice(pps, 5, frame_num=1, field=0, first_mb=0),
                  Slice(pps, 5, frame_num=1, field=0, first_mb=4),
                  Slice(pps, 1, frame_num=2, ref_idc=0, field=0), Slice(pps, 1, frame_num=2, ref_idc=0, field=1),
                  Slice(pps, 1, frame_num=2, ref_idc=0, field=0, poc_lsb=9),
                  Slice(pps, 5, frame_num=2), Slice(pps, 5, frame_num=3, field=0), Slice(pps, 5, frame_num=4, field=1)]
        summary = self.pictures(*((pps, one) for one in slices))
        video, = summary["videos"]
        self.assertEqual({name: video[name] for name in ("frames", "frame_pictures", "field_pairs", "single_fields")},
                         {"frames": 7, "frame_pictures": 1, "field_pairs": 3, "single_fields": 3})
        self.assertEqual(summary["pictures"], {"I": 1, "P": 6, "B": 3, "IDR": 1})
        text = self.text(pps.sps.unit(), pps.unit(), *(one.unit() for one in slices))
        self.assertIn("\n  Coding          interlaced (no MBAFF): 1 frame, 3 field pairs, 3 single fields\n", text)

    def test_fields_by_different_sequence_parameter_sets_are_no_pair(self):
        first, second = sps(fields=0), sps(fields=1)
        pps = Pps(first)
        summary = self.summary(first.unit(), pps.unit(), Slice(pps, 5, field=0).unit(), second.unit(),
                               Slice(pps, 5, field=1).unit())
        self.assertEqual([(video["field_pairs"], video["single_fields"]) for video in summary["videos"]],
                         [(0, 1), (0, 1)])

    def test_pictures_by_different_picture_parameter_sets(self):
        sets = Pps(sps()), Pps(sps(), pps_id=1)
        slices = [Slice(pps, 7, first_mb=first_mb).unit() for pps, first_mb in zip(sets, (0, 5))]
        self.assertEqual(self.summary(sps().unit(), *(pps.unit() for pps in sets), *slices)["frames"], 2)

    def test_what_tells_pictures_apart(self):
        def poc_1(s):
            s.ue("pic_order_cnt_type", 1)
            s.u(1, "delta_pic_order_always_zero_flag", 0)
            s.se("offset_for_non_ref_pic", 0)
            s.se("offset_for_top_to_bottom_field", 0)
            s.ue("num_ref_frames_in_pic_order_cnt_cycle", 0)

        for poc, changes in ((build.poc_type(0), [{"poc_lsb": 1}, {"delta_bottom": 1}]),
                             (poc_1, [{"deltas": (1, 0)}, {"deltas": (0, 1)}]), (build.poc_type(2), [])):
            pps = Pps(sps(poc=poc), bottom=1)
            first = dict(first_mb=5, frame_num=1)
            changes = changes + [{"frame_num": 2}, {"ref_idc": 0}, {"unit_type": 5}, {"first_mb": 0}]
            for change in changes:
                slices = [Slice(pps, 7, **dict(first, first_mb=0)), Slice(pps, 7, **first),
                          Slice(pps, 7, **dict(first, **change))]
                self.assertEqual(self.pictures(*((pps, one) for one in slices))["frames"], 2, change)
            same = [Slice(pps, 7, **first), Slice(pps, 7, **dict(first, ref_idc=3, first_mb=0))]
            self.assertEqual(self.pictures(*((pps, one) for one in same))["frames"], 1)

    def test_idr_pictures_and_delimiters(self):
        pps = Pps(sps())
        idr = [Slice(pps, 7, unit_type=5, first_mb=7, idr_pic_id=i) for i in (0, 0, 1)]
        self.assertEqual(self.pictures(*((pps, one) for one in idr))["frames"], 2)
        for unit in (nal_unit(9, b"\xf0"), nal_unit(10, b""), nal_unit(11, b"")):
            self.assertEqual(self.pictures((pps, idr[0]), (pps, unit), (pps, idr[1]))["frames"], 2)
        self.assertEqual(self.pictures((pps, idr[0]), (pps, nal_unit(12, b"\xff\x80")), (pps, idr[1]))["frames"], 1)

    def test_redundant_pictures_do_not_count(self):
        pps = Pps(sps(), redundant=1)
        slices = [Slice(pps, 7, unit_type=5), Slice(pps, 7, unit_type=5, redundant_pic_cnt=1),
                  Slice(pps, 5, frame_num=1)]
        summary = self.pictures(*((pps, one) for one in slices))
        self.assertEqual((summary["frames"], summary["slices"]["I"]), (2, 2))

    def test_colour_planes_are_one_picture(self):
        planes = Sps({"ChromaArrayType": 0}, 244, chroma=build.chroma_format(3, separate_colour_plane_flag=1))
        pps = Pps(planes)
        slices = [Slice(pps, 7, unit_type=5, colour_plane_id=plane, first_mb=first_mb, idr_pic_id=picture)
                  for picture in (0, 1) for plane in range(3) for first_mb in (0, 9)]
        self.assertEqual(self.pictures(*((pps, one) for one in slices))["frames"], 2)

    def test_gop_lengths(self):
        pps = Pps(sps())
        slices, frame_num, idr_pic_id = [], 0, 0
        for kind in "iPPIPiPPPIPPIi":
            frame_num = 0 if kind == "i" else frame_num + 1
            idr_pic_id += kind == "i"
            slices.append(Slice(pps, 5 if kind == "P" else 7, unit_type=5 if kind == "i" else 1, frame_num=frame_num,
                                idr_pic_id=idr_pic_id % 2))
        self.assertEqual(self.pictures(*((pps, one) for one in slices))["gops"],
                         {"idr": {"count": 2, "min": 5, "mean": 6.5, "max": 8},
                          "intra": {"count": 5, "min": 1, "mean": 2.6, "max": 4}})
        self.assertEqual(self.pictures((pps, slices[0]), (pps, slices[1]))["gops"],
                         {"idr": {"count": 0}, "intra": {"count": 0}})


class Sei(SummaryTestCase):
    def test_messages(self):
        def registered(identifier):
            return 4, b"\xb5\x00\x31" + identifier + b"\x03\xd4\xff\xfc\x80\x80\xff"

        units = [sei((0, b"\x80" * 3), (1, b"\x12\x34")), sei((1, b"\x12")),
                 sei(registered(b"GA94"), registered(b"DTG1")), sei(registered(b"GA94")),
                 sei(registered(b"ABCD"), (4, b"\x26\x00\x04GA94"), (4, b"")),
                 sei((5, b"\x01" * 600), (6, b"\xff")), sei((137, b"\x00" * 24)),
                 sei((46, b"\x00\x00\x01\x02"), (999, b"")),
                 nal_unit(6, b"\x80")]
        entries = [(0, "buffering_period", None, 1), (1, "pic_timing", None, 2),
                   (4, "user_data_registered_itu_t_t35", "DTG1", 1), (4, "user_data_registered_itu_t_t35", "GA94", 2),
                   (4, "user_data_registered_itu_t_t35", "other", 3), (5, "user_data_unregistered", None, 1),
                   (6, "recovery_point", None, 1), (46, "multiview_view_position", None, 1),
                   (137, "mastering_display_colour_volume", None, 1), (999, "reserved_sei_message", None, 1)]
        self.assertEqual([(entry["payload_type"], entry["name"], entry.get("user_identifier"), entry["count"])
                          for entry in self.summary(*units)["sei"]], entries)
        self.assertIn("\n    4 user_data_registered_itu_t_t35, GA94          2\n", self.text(*units))
        self.assertIn("\nSEI messages: none\n", self.text(nal_unit(9, b"\xf0")))

    def test_damage(self):
        for payload in (b"\x05\x02\x80", b"\x05\xff", b"\x05\x00\xff\xff", b"\x01\x01\x55\x01"):
            self.assertEqual(self.summary(nal_unit(6, payload), status=1)["damaged_units"], 1)

    def test_message_longer_than_what_is_looked_at(self):
        self.assertEqual(self.summary(sei((1, b"\x55"), (5, b"\x55" * 100000), (6, b"\x55")))["sei"],
                         [{"payload_type": 1, "name": "pic_timing", "count": 1},
                          {"payload_type": 5, "name": "user_data_unregistered", "count": 1}])


class Streams(SummaryTestCase):
    def test_units_and_bytes(self):
        stream = [b"\x00\x00text", nal_unit(12, b"\xff" * 100), nal_unit(9, b"\xf0", start_code_length=3),
                  b"\x00" * 5, b"\x00\x00\x01", nal_unit(12, b"\xff\x80")]
        summary = self.summary(*stream, status=1)
        self.assertEqual(summary["nal_units"], [
            {"nal_unit_type": 9, "nal_unit_type_name": "Access unit delimiter", "units": 1, "bytes": 5},
            {"nal_unit_type": 12, "nal_unit_type_name": "Filler data", "units": 2, "bytes": 112}])
        self.assertEqual({name: summary[name] for name in ("size", "units", "units_without_header", "zero_bytes",
                                                           "stray_bytes", "damaged_units", "frames", "videos")},
                         {"size": len(b"".join(stream)), "units": 4, "units_without_header": 1, "zero_bytes": 6,
                          "stray_bytes": 4, "damaged_units": 1, "frames": 0, "videos": []})

    def test_missing_sets_and_damage(self):
        pps = Pps(sps())
        one = Slice(pps, 7, unit_type=5)
        for units, frames in (([one.unit()], 0), ([sps().unit(), one.unit()], 0),
                              ([sps().unit(), pps.unit(), one.unit()[:6], one.unit()], 1)):
            summary = self.summary(*units, status=1)
            self.assertEqual((summary["damaged_units"], summary["frames"]), (1, frames))
            self.assertIn("\nDamage            1 unit could not be parsed", self.text(*units))

    def test_no_unit_at_all(self):
        for stream in (b"", b"\x00" * 9, b"text"):
            result = feed("summary", stream)
            self.assert_result(result, 1, "h264tool: standard input: %s\n" % (NO_START_CODE if any(stream) else EMPTY))
            self.assertEqual(result.stdout, b"")

    def test_every_start_of_a_stream(self):
        stream = dump_stream.dump_stream()
        for size in range(0, len(stream), 7):
            self.assertIn(feed("summary", stream[:size], "--json").returncode, (0, 1), size)


if __name__ == "__main__":
    runner.main()
