"""Tests of h264tool report, run as: report_test.py H264TOOL [unittest arguments]"""

import os
import re
import subprocess
import tempfile

import runner
import sei_streams
import stream_builder as build
from long_stream import BIT_RATE, CPB_SIZE, long_stream
from picture_builder import Pps, Slice
from report_reader import decoded, page_data, pictures_of
from runner import TOOL, TestCase, dump, feed, json_lines, run
from sei_streams import TIMING, Stream
from stream_builder import nal_unit

import sei_writer

SAMPLES = os.path.join(build.HERE, "..", "..", "samples")


def read(path):
    with open(path, "rb") as file:
        return file.read()


def sei(payload_type, payload):
    return nal_unit(6, bytes([payload_type, len(payload)]) + payload + b"\x80", nal_ref_idc=0)


class ReportTestCase(TestCase):
    def page(self, stream, *options, status=0):
        result = feed("report", stream, "-o", "-", *options)
        self.assertEqual(result.returncode, status, result.stderr)
        return result.stdout

    def data(self, stream, *options, status=0):
        return page_data(self.page(stream, *options, status=status))

    def assert_equals_dump(self, stream, data):
        pictures = pictures_of(json_lines(dump(stream, "--json")))
        self.assertGreater(len(pictures), 0)
        self.assertEqual(data["types"], "".join(picture["type"] for picture in pictures))
        for name in ("unit", "bytes", "nal_ref_idc", "structure", "cpb_removal_delay", "dpb_output_delay", "timecode",
                     "drop_frame", "discontinuity", "cc_count", "cc_active", "active_format", "microseconds",
                     "time_status"):
            self.assertEqual(decoded(data["columns"][name]), [picture.get(name) for picture in pictures], name)
        self.assertEqual(data["size"], len(stream))


class Values(ReportTestCase):
    def test_samples(self):
        for name in ("interlaced_hrd.h264", "progressive_422.h264"):
            stream = read(os.path.join(SAMPLES, name))
            data = self.data(stream)
            self.assert_equals_dump(stream, data)
            for hrd in data["hrds"]:
                self.assertEqual((hrd["underflows"], hrd["overflows"]), ([], []))
        self.assertEqual(data["hrds"], [])

    def test_every_lane(self):
        plain = read(os.path.join(SAMPLES, "progressive_422.h264"))
        captions = sei(4, b"\xb5\x00\x31GA94\x03\x42\xff\xfc\x94\x2c\xf8\x00\x00\xff")
        stream = feed("insert", plain, "-o", "-", "--timecode", "23:59:59:20", "--afd", "10", "--precision-time",
                      "1700000000000000").stdout + captions + feed("insert", plain, "-o", "-", "--timecode",
                                                                  "10:00:00:00", "--afd", "8").stdout
        data = self.data(stream)
        self.assert_equals_dump(stream, data)
        columns = {name: decoded(column) for name, column in data["columns"].items()}
        self.assertEqual(columns["active_format"], [10] * 12 + [8] * 12)
        self.assertEqual((columns["cc_count"][12], columns["cc_active"][12]), (2, 1))
        # 23:59:59:20 and 11 frames more is 00:00:00:07; one further 00:00:00:08.
        self.assertEqual(data["jumps"], [[12, 10 * 3600 * 24 - 8]])
        self.assertEqual(min(value for value in columns["microseconds"] if value is not None), 1700000000000000)

    def test_order_of_output(self):
        stream = Stream(TIMING).idr().p(3, 1).b(1, 2).b(2, 2).idr(idr_pic_id=1).bytes
        data = self.data(stream)
        self.assertEqual(decoded(data["columns"]["in_output_order"]), [0, 2, 3, 1, 4])
        self.assertEqual(data["types"], "DPBBD")
        self.assertEqual(data["frames"], 5)

    def test_hrds(self):
        data = self.data(long_stream(3))
        self.assertEqual([hrd["name"] for hrd in data["hrds"]], ["NAL", "VCL"])
        schedule = {"bit_rate": BIT_RATE, "cpb_size": CPB_SIZE, "cbr_flag": 0}
        self.assertEqual((data["sequences"][0]["nal"], data["sequences"][0]["vcl"]), (schedule, schedule))
        for hrd in data["hrds"]:
            self.assertEqual((decoded(hrd["starts"]), hrd["underflows"], hrd["overflows"]), ([0], [], []))
            removal = decoded(hrd["columns"]["removal"])
            # A second for the first picture, then a sixtieth for each.
            self.assertEqual(removal, [data["clock"] + data["clock"] // 60 * i for i in range(180)])
            sizes = decoded(hrd["columns"].get("bytes", data["columns"]["bytes"]))
            waits = decoded(hrd["columns"]["wait"])
            # Of the first picture arrives bit after bit from the beginning.
            self.assertAlmostEqual(waits[0], data["clock"] * (1 - 8 * sizes[0] / BIT_RATE), delta=1)
        vcl = decoded(data["hrds"][1]["columns"]["bytes"])
        slices = [unit["length"] - unit["start_code_length"]
                  for unit in json_lines(dump(long_stream(3), "--json", "--types", "1,5"))]
        self.assertEqual(vcl, slices)

    def test_underflow(self):
        # The first picture takes as long as this to arrive.
        stream = long_stream(2)
        arrival = -(-8 * decoded(self.data(stream)["columns"]["bytes"])[0] * 90000 // BIT_RATE)
        # The messages may differ by some bytes that prevent start codes.
        for delay, late in ((arrival + 20, False), (arrival - 20, True)):
            hrd = self.data(long_stream(1, initial_delay=delay))["hrds"][0]
            underflows = decoded(hrd["underflows"])
            self.assertEqual((0 in underflows, hrd["overflows"]), (late, []))
            self.assertEqual(underflows, [i for i, wait in enumerate(decoded(hrd["columns"]["wait"])) if wait < 0])

    def test_overflow(self):
        data = self.data(long_stream(4))
        largest = max(decoded(data["hrds"][0]["columns"]["fullness"]))
        for size, overflows in ((largest + 16, False), (largest - 16, True)):
            hrd = self.data(long_stream(4, cpb_size=size))["hrds"][0]
            fullness = decoded(hrd["columns"]["fullness"])
            size = size // 16 * 16
            self.assertEqual(decoded(hrd["overflows"]), [i for i, bits in enumerate(fullness) if bits > size])
            self.assertEqual((bool(hrd["overflows"]), hrd["underflows"]), (overflows, []))

    def test_joined_streams_begin_anew(self):
        data = self.data(long_stream(2) + long_stream(1))
        self.assertEqual([decoded(hrd["starts"]) for hrd in data["hrds"]], [[0, 120]] * 2)

    def test_jump_of_timecodes(self):
        self.assertEqual(self.data(long_stream(4, jump_at=2))["jumps"], [[120, 600]])

    def test_jump_within_a_frame(self):
        def timing(pic_struct, *frames):
            return sei_writer.unit(sei_writer.pic_timing(
                (), pic_struct, [sei_writer.full_timestamp(1, 2, 3, frame) for frame in frames]))

        for second, jumps in ((5, []), (6, []), (9, [[1, 4]]), (4, [[1, -1]])):
            stream = Stream(TIMING).idr(timing(3, 4, 4)).p(1, 1, timing(3, 5, second)).p(2, 2, timing(3, 6, 6)).bytes
            data = self.data(stream)
            self.assertEqual(data["jumps"], jumps, second)
            self.assert_equals_dump(stream, data)

            sps = sei_streams.sps(sei_streams.timing_vui(), fields=0)
            pps = Pps(sps)
            fields = [timing(1, 5), Slice(pps, 7, unit_type=5, field=0).unit(),
                      timing(2, second), Slice(pps, 5, field=1, poc_lsb=1).unit()]
            data = self.data(sps.unit() + pps.unit() + b"".join(fields))
            self.assertEqual((data["frames"], data["jumps"]), (1, [[0, by] for _, by in jumps]), second)

    def test_parameter_sets(self):
        first, second = build.Sps({}, 77, poc=build.poc_type(0)), build.Sps({}, 77, poc=build.poc_type(0), frames=3)
        pps = Pps(first)
        picture = Slice(pps, 7, unit_type=5).unit()
        stream = first.unit() + pps.unit() + picture + first.unit() + second.unit() + picture
        data = self.data(stream)
        self.assertEqual([(one["kind"], one["id"], one["unit"], one["picture"], one["units"]) for one in data["sets"]],
                         [("SPS", 0, 1, 0, 2), ("PPS", 0, 2, 0, 1), ("SPS", 0, 5, 1, 1)])
        units = json_lines(dump(stream, "--json"))
        self.assertEqual([one["elements"] for one in data["sets"]], [units[0]["sps"], units[1]["pps"], units[4]["sps"]])
        self.assertEqual([sequence["first"] for sequence in data["sequences"]], [0, 1])
        self.assertEqual([sequence["rate"] for sequence in data["sequences"]], [None, None])

    def test_bounded_number_of_parameter_sets(self):
        units = [build.Sps({}, 77, size=(i, 9)).unit() for i in range(230)]
        data = self.data(b"".join(units))
        self.assertEqual((len(data["sets"]), data["sets_left_out"], data["types"]), (200, 30, ""))

    def test_fields(self):
        sps = build.Sps({}, 77, poc=build.poc_type(0), fields=0)
        pps = Pps(sps)
        stream = sps.unit() + pps.unit() + Slice(pps, 7, unit_type=5, field=0).unit() + Slice(
            pps, 5, field=1, poc_lsb=1).unit()
        data = self.data(stream)
        self.assert_equals_dump(stream, data)
        self.assertEqual(decoded(data["columns"]["fields"]), [1, 1])
        self.assertEqual((data["frames"], data["types"]), (1, "DP"))

    def test_schedule(self):
        def vui(s):
            build.full_vui([(9999, 5, 1), (4999, 3, 0)], [(0, 0, 0)])(s)

        sps = build.Sps({}, 77, poc=build.poc_type(0), vui=vui)
        pps = Pps(sps)
        stream = sps.unit() + pps.unit() + Slice(pps, 7, unit_type=5).unit()
        for index, nal, vcl in ((0, 10000 << 7, 1 << 7), (1, 5000 << 7, None)):
            sequence = self.data(stream, "--schedule", str(index))["sequences"][0]
            self.assertEqual([schedule and schedule["bit_rate"] for schedule in (sequence["nal"], sequence["vcl"])],
                             [nal, vcl])
        for refused, index, reason in (
                (stream, 2, "the NAL HRD has 2 schedules and the VCL HRD has 1 schedule, counted from 0"),
                (Stream(TIMING).idr().bytes, 1, "no picture has HRD parameters")):
            result = feed("report", refused, "-o", "-", "--schedule", str(index))
            self.assert_result(result, 2, "h264tool: standard input: there is no schedule %d: %s\n" % (index, reason))
            self.assertEqual(result.stdout, b"")

    def test_pictures_whose_removal_is_not_known(self):
        stream = long_stream(2)
        units = json_lines(dump(stream, "--json"))
        begin = next(unit["offset"] for unit in units if unit["nal_unit_type"] == 6)
        without_messages = stream[:begin] + b"".join(
            stream[unit["offset"]:unit["offset"] + unit["length"]] for unit in units if unit["nal_unit_type"] in (1, 5))
        for one, known in ((without_messages, 0), (stream + without_messages, 120)):
            for hrd in self.data(one)["hrds"]:
                removal = decoded(hrd["columns"]["removal"])
                self.assertEqual([time is not None for time in removal], [True] * known + [False] * 120)


class Page(ReportTestCase):
    def test_nothing_is_loaded(self):
        page = self.page(long_stream(1))
        self.assertIn(b"default-src 'none'", page)
        self.assertIsNone(re.search(rb"<(link|img|iframe)|<script[^>]* src=|@import|url\(", page))
        self.assertIn(b"Copyright (c) 2022 Leon Sorokin", page)
        for line in (b"{{", b"}}\n</style>"):
            self.assertNotIn(line + b"title", page)

    def test_names_are_no_markup(self):
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "<script>alert(1)<!-- & \xe4.h264")
            with open(path, "wb") as file:
                file.write(long_stream(1))
            result = run("report", path, "-o", "-")
            self.assertEqual(page_data(result.stdout)["file"], path)
            self.assertNotIn(b"alert(1)<", result.stdout)
            self.assertNotIn(b"<script>alert", result.stdout)

    def test_file_and_standard_output_are_the_same(self):
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "page.html")
            stream = long_stream(1)
            self.assert_result(feed("report", stream, "-o", path), 0, "")
            self.assertEqual(read(path), self.page(stream))
            self.assertEqual(os.listdir(directory), ["page.html"])

    def test_damage(self):
        stream = long_stream(1) + nal_unit(7, b"\xff" * 400)
        result = feed("report", stream, "-o", "-")
        self.assertEqual(result.returncode, 1)
        self.assertIn("could not be parsed", result.stderr.decode())
        data = page_data(result.stdout)
        self.assertEqual((data["damaged_units"], len(data["complaints"]), len(data["types"])), (1, 1, 60))

    def test_messages_of_a_damaged_slice_are_no_damage(self):
        whole = Stream(TIMING).idr().bytes
        stream = whole + sei(5, bytes(16)) + Slice(Pps(TIMING, pps_id=7), 7).unit()
        data = self.data(stream, status=1)
        self.assertEqual((data["damaged_units"], len(data["complaints"])), (1, 1))
        self.assertIn("unit 5 at offset", data["complaints"][0])

    def test_every_start_of_a_stream(self):
        stream = read(os.path.join(SAMPLES, "interlaced_hrd.h264"))[:9000]
        for size in range(7, len(stream), 311):
            page_data(self.page(stream[:size], status=feed("summary", stream[:size]).returncode))


class Refusals(ReportTestCase):
    def test_usage(self):
        for arguments in (("x",), ("-o", "y"), ("x", "-o", ""), ("x", "-o", "y", "--schedule", "32"),
                          ("x", "-o", "y", "--schedule", "-1")):
            self.assertEqual(run("report", *arguments).returncode, 2, arguments)

    def test_the_input_is_not_replaced(self):
        with tempfile.TemporaryDirectory() as directory:
            path, link, other = (os.path.join(directory, name) for name in ("in.h264", "link", "other"))
            stream = long_stream(1)
            with open(path, "wb") as file:
                file.write(stream)
            os.symlink(path, link)
            os.link(path, other)
            for output in (path, link, other):
                self.assert_result(run("report", path, "-o", output), 2,
                                   "h264tool: '%s' is the input: the page would replace it\n" % output)
                self.assertEqual(read(path), stream)
            with open(path, "rb") as file:
                self.assertEqual(subprocess.run([TOOL, "report", "-", "-o", path], stdin=file, stderr=subprocess.PIPE,
                                                check=False).returncode, 2)
            self.assertEqual(read(path), stream)
            self.assertEqual(sorted(os.listdir(directory)), ["in.h264", "link", "other"])

    def test_nothing_is_left_behind(self):
        with tempfile.TemporaryDirectory() as directory:
            page = os.path.join(directory, "page.html")
            self.assertEqual(run("report", os.path.join(directory, "none"), "-o", page).returncode, 2)
            self.assertNotEqual(feed("report", b"", "-o", page).returncode, 0)
            self.assertNotEqual(feed("report", b"no video", "-o", page).returncode, 0)
            self.assertEqual(os.listdir(directory), [])
            result = feed("report", long_stream(1), "-o", os.path.join(directory, "none", "page.html"))
            self.assertEqual(result.returncode, 2)
            self.assertEqual(os.listdir(directory), [])


if __name__ == "__main__":
    runner.main()
