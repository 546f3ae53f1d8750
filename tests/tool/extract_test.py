"""Tests of h264tool extract, run as: extract_test.py H264TOOL [unittest arguments]"""

import csv
import errno
import os
import subprocess
import tempfile

import runner
import sei_streams
import stream_builder as build
from picture_builder import Pps, Slice
from runner import EMPTY, TOOL, TestCase, feed, run
from sei_streams import HRD, TIMING, Stream
from stream_builder import nal_unit

import sei_writer as sei

TIMECODES = "picture,output_picture,slice_type,clock_timestamp,timecode,discontinuity\n"
AFD = "picture,output_picture,active_format,name\n"
TIMES = "picture,output_picture,microseconds,time,status\n"
SCC = "Scenarist_SCC V1.0\n"


def timing(*timestamps, pic_struct=0):
    return sei.unit(sei.pic_timing((), pic_struct, timestamps))


def pair(first, second=0x80):
    return (1, 0, first, second)


class ExtractTestCase(TestCase):
    def extract(self, stream, output, *options, status=0, stderr=""):
        result = feed("extract", stream, output, "-", *options)
        self.assert_result(result, status, stderr)
        return result.stdout

    def text(self, stream, output, *options, **expected):
        return self.extract(stream, output, *options, **expected).decode()


class Timecodes(ExtractTestCase):
    def timecodes(self, *units):
        text = self.text(Stream().idr(*units).bytes, "--timecodes")
        self.assertTrue(text.startswith(TIMECODES))
        return [row["timecode"] for row in csv.DictReader(text.splitlines())]

    def test_pictures_in_both_orders(self):
        stream = Stream().idr(timing(sei.full_timestamp(10, 20, 30, 0)))
        stream.p(3, 1, timing(sei.full_timestamp(10, 20, 30, 3, discontinuity_flag=1)))
        stream.b(1, 2, timing(sei.full_timestamp(10, 20, 30, 1)))
        stream.b(2, 2, timing(None))
        stream.idr(timing(sei.full_timestamp(11, 0, 0, 0)), idr_pic_id=1)
        self.assertEqual(self.text(stream.bytes, "--timecodes"), TIMECODES +
                         "0,0,I,0,10:20:30:00,0\n1,3,P,0,10:20:30:03,1\n2,1,B,0,10:20:30:01,0\n4,4,I,0,11:00:00:00,0\n")

    def test_several_timestamps_of_a_picture(self):
        stream = Stream().idr(timing(sei.full_timestamp(0, 0, 1, 2), None, sei.full_timestamp(0, 0, 1, 3),
                                     pic_struct=5))
        self.assertEqual(self.text(stream.bytes, "--timecodes"), TIMECODES +
                         "0,0,I,0,00:00:01:02,0\n0,0,I,2,00:00:01:03,0\n")

    def test_drop_frame(self):
        self.assertEqual(self.timecodes(timing(sei.full_timestamp(0, 1, 0, 2, counting_type=4, cnt_dropped_flag=1),
                                               sei.full_timestamp(0, 1, 0, 3, counting_type=4),
                                               sei.full_timestamp(0, 1, 0, 4, cnt_dropped_flag=1), pic_struct=8)),
                         ["00:01:00;02", "00:01:00;03", "00:01:00;04"])
        self.assertEqual(self.timecodes(timing(sei.full_timestamp(0, 1, 0, 2, counting_type=1))), ["00:01:00:02"])

    def test_parts_that_are_not_transmitted_are_the_last_ones(self):
        timestamps = ({"n_frames": 1}, {"n_frames": 2, "seconds_value": 9},
                      {"n_frames": 3, "seconds_value": 10, "minutes_value": 11},
                      {"n_frames": 4, "seconds_value": 10, "minutes_value": 12, "hours_value": 13},
                      {"n_frames": 5}, {"n_frames": 6, "seconds_value": 59}, sei.full_timestamp(1, 2, 3, 7),
                      {"n_frames": 8, "seconds_value": 4, "minutes_value": 5}, {"n_frames": 255})
        self.assertEqual(self.timecodes(*(timing(timestamp) for timestamp in timestamps)),
                         ["--:--:--:01", "--:--:09:02", "--:11:10:03", "13:12:10:04", "13:12:10:05", "13:12:59:06",
                          "01:02:03:07", "01:05:04:08", "01:05:04:255"])

    def test_fields_are_pictures(self):
        stream = Stream(sei_streams.sps(sei_streams.timing_vui(), fields=0))
        stream.p(0, 0, timing(sei.full_timestamp(0, 0, 0, 0), pic_struct=1), field=1)
        stream.add(Slice(stream.pps, 5, field=0, poc_lsb=1), [timing(sei.full_timestamp(0, 0, 0, 1), pic_struct=2)])
        stream.add(Slice(stream.pps, 6, field=0, ref_idc=0, frame_num=1, poc_lsb=3))
        stream.add(Slice(stream.pps, 6, field=1, ref_idc=0, frame_num=1, poc_lsb=2),
                   [timing(sei.full_timestamp(0, 0, 0, 2), pic_struct=2)])
        self.assertEqual(self.text(stream.bytes, "--timecodes"), TIMECODES +
                         "0,0,P,0,00:00:00:00,0\n1,1,P,0,00:00:00:01,0\n3,2,B,0,00:00:00:02,0\n")

    def test_slices_and_redundant_slices_of_a_picture(self):
        pps = Pps(TIMING, redundant=1)
        stream = Stream()
        stream.bytes = TIMING.unit() + pps.unit()
        for first_mb, redundant in ((0, 0), (100, 0), (0, 1)):
            stream.add(Slice(pps, 7, unit_type=5, first_mb=first_mb, redundant_pic_cnt=redundant))
        stream.add(Slice(pps, 5, frame_num=1, poc_lsb=2), [timing(sei.full_timestamp(0, 0, 0, 1))])
        self.assertEqual(self.text(stream.bytes, "--timecodes"), TIMECODES + "1,1,P,0,00:00:00:01,0\n")

    def test_delays_in_front_of_the_timestamps(self):
        message = sei.unit(sei.pic_timing([(23, 5), (22, 9)], 0, [sei.full_timestamp(1, 1, 1, 1, time_offset=-5)]))
        text = self.text(Stream(HRD).idr(message).bytes, "--timecodes")
        self.assertIn(",01:01:01:01,", text)

    def test_stream_without(self):
        self.assertEqual(self.text(Stream().idr().bytes, "--timecodes"), TIMECODES)


class Captions(ExtractTestCase):
    def pictures(self, captions, order=None, vui=(1001, 60000)):
        """A stream of P pictures in the output order given; captions by decoding order."""
        stream = Stream(sei_streams.sps(sei_streams.timing_vui(vui)))
        for i, triples in enumerate(captions):
            units = [] if triples is None else [sei.unit(sei.captions(triples))]
            if i == 0:
                stream.idr(*units)
            else:
                stream.p(order[i] if order else i, i % 64, *units)
        return stream.bytes

    def scc(self, captions, *options, **stream):
        text = self.text(self.pictures(captions, **stream), "--captions", *options)
        self.assertTrue(text.startswith(SCC))
        return [line for line in text.splitlines()[1:] if line]

    def test_lines_are_runs_of_pairs(self):
        self.assertEqual(self.scc([[pair(0x94, 0x20)], [pair(0x94, 0x2c)], [pair(0x80)], None, [pair(0xc8, 0xe5)]]),
                         ["00:00:00;00\t9420 942c", "00:00:00;04\tc8e5"])
        self.assertEqual(self.text(self.pictures([[pair(1, 2)], None, [pair(3, 4)]]), "--captions"),
                         SCC + "\n00:00:00;00\t0102\n\n00:00:00;02\t0304\n")

    def test_output_order(self):
        captions = [[pair(1)], [pair(4)], [pair(2)], [pair(3)]]
        self.assertEqual(self.scc(captions, order=(0, 3, 1, 2)), ["00:00:00;00\t0180 0280 0380 0480"])
        self.assertEqual(self.extract(self.pictures(captions, order=(0, 3, 1, 2)), "--cc-data"),
                         b"".join(bytes([0xFC, i, 0x80]) for i in (1, 2, 3, 4)))

    def test_repeated_fields_last(self):
        stream = Stream()
        for i, pic_struct in enumerate((5, 4, 6, 8, 0)):  # 3, 2, 3, 6 and 2 fields
            units = (timing(None, None, None, pic_struct=pic_struct), sei.unit(sei.captions([pair(i + 1)])))
            if i == 0:
                stream.idr(*units)
            else:
                stream.p(i, i, *units)
        start = ("--captions", "--captions-start", "00:00:00;00")
        self.assertEqual(self.text(stream.bytes, *start),
                         SCC + "\n00:00:00;00\t0180\n\n00:00:00;02\t0280 0380 0480\n\n00:00:00;07\t0580\n")
        self.assertEqual(self.text(stream.bytes, *start, "--frame-rate", "30000/1001"),
                         SCC + "\n00:00:00;00\t0180 0280 0380 0480 0580\n")

    def test_field_1_alone(self):
        triples = [(0, 0, 1, 1), (1, 1, 2, 2), (1, 3, 3, 3), pair(4, 4), (1, 2, 5, 5)]
        self.assertEqual(self.scc([triples]), ["00:00:00;00\t0404"])

    def test_null_pairs_without_parity(self):
        self.assertEqual(self.scc([[pair(1)], [(1, 0, 0, 0)], [pair(2)]]), ["00:00:00;00\t0180", "00:00:00;02\t0280"])

    def test_captions_that_are_not_to_be_processed(self):
        units = [sei.unit(sei.captions([pair(1)], process=0))]
        self.assertEqual(self.text(Stream().idr(*units).bytes, "--captions"), SCC)
        self.assertEqual(self.extract(Stream().idr(*units).bytes, "--cc-data"), b"\xfc\x01\x80")

    def test_slow_pictures_carry_several_pairs(self):
        # 15000/1001 frames a second: two pairs each.
        captions = [[pair(1), pair(2)], [pair(0x80), pair(3)], [pair(4), pair(0x80)]]
        self.assertEqual(self.scc(captions, vui=(1001, 30000)), ["00:00:00;00\t0180 0280", "00:00:00;03\t0380 0480"])

    def test_fast_pictures_share_a_frame(self):
        # 60000/1001 frames a second.
        captions = [[pair(1)], None, [pair(2)], None, None, None, [pair(3)]]
        self.assertEqual(self.scc(captions, vui=(1001, 120000)), ["00:00:00;00\t0180 0280", "00:00:00;03\t0380"])
        self.assertEqual(self.scc([[pair(1)], [pair(2)], [pair(3)]], vui=(1001, 120000)),
                         ["00:00:00;00\t0180 0280 0380"])

    def test_other_rates_are_converted_by_time(self):
        # Picture 25 of 25 a second begins after 29.97 frames.
        captions = [None] * 25 + [[pair(1)]]
        self.assertEqual(self.scc(captions, vui=(1, 50)), ["00:00:01;00\t0180"])
        self.assertEqual(self.scc([None] * 24 + [[pair(1)]], vui=(1001, 48000)), ["00:00:01;00\t0180"])

    def test_frame_rate_given(self):
        self.assertEqual(self.scc([None] * 3 + [[pair(1)]], "--frame-rate", "15000/1001"), ["00:00:00;06\t0180"])
        self.assertEqual(self.scc([None] * 3 + [[pair(1)]], "--frame-rate", "30000/1001", vui=None),
                         ["00:00:00;03\t0180"])

    def test_rate_that_changes(self):
        slow, fast = (sei_streams.sps(sei_streams.timing_vui((1001, scale)), i) for i, scale in
                      enumerate((30000, 60000)))
        first, second = Stream(slow), Stream(fast, pps_id=1)
        first.idr(sei.unit(sei.captions([pair(1)]))).p(1, 1)
        second.idr(sei.unit(sei.captions([pair(2)])), idr_pic_id=1).p(1, 1, sei.unit(sei.captions([pair(3)])))
        self.assertEqual(self.text(first.bytes + second.bytes, "--captions"),
                         SCC + "\n00:00:00;00\t0180\n\n00:00:00;04\t0280 0380\n")

    def test_missing_rate(self):
        self.text(self.pictures([None, [pair(1)]], vui=None), "--captions", status=2,
                  stderr="h264tool: picture 1 has captions and its stream no frame rate: --frame-rate gives one\n")
        self.assertEqual(self.scc([[pair(0x80)]], vui=None), [])

    def test_minute_boundaries(self):
        captions = [None] * 5 + [[pair(1)]]
        self.assertEqual(self.scc(captions, "--captions-start", "00:00:59;25"), ["00:01:00;02\t0180"])
        self.assertEqual(self.scc(captions, "--captions-start", "00:09:59;25"), ["00:10:00;00\t0180"])
        self.assertEqual(self.scc(captions, "--captions-start", "00:00:59:25"), ["00:01:00:00\t0180"])
        self.assertEqual(self.scc(captions, "--captions-start", "23:59:59:25"), ["00:00:00:00\t0180"])

    def test_start_is_the_timecode_of_the_first_picture(self):
        def start(vui=(1001, 60000), **timestamp):
            stream = Stream(sei_streams.sps(sei_streams.timing_vui(vui)))
            stream.idr(timing(sei.full_timestamp(**dict({"hours": 1, "minutes": 2, "seconds": 3}, **timestamp))),
                       sei.unit(sei.captions([pair(1)])))
            return self.text(stream.bytes, "--captions").splitlines()[2].split("\t")[0]

        self.assertEqual(start(frames=4), "01:02:03:04")
        self.assertEqual(start(frames=4, counting_type=4), "01:02:03;04")
        self.assertEqual(start(frames=20, vui=(1, 50)), "01:02:03:24")
        self.assertEqual(start(frames=40, vui=(1001, 120000)), "01:02:03:20")
        # No timecode that a Scenarist file can have.
        self.assertEqual(start(frames=200), "00:00:00;00")
        self.assertEqual(start(frames=1, hours=31), "00:00:00;00")

    def test_captions_in_a_unit_that_the_library_does_not_walk_to_its_end(self):
        unit = sei.unit(sei.message(5, bytes(16) + b"\x55" * 500), sei.captions([pair(i) for i in range(1, 32)]))
        self.assertEqual(len(self.extract(Stream().idr(unit).bytes, "--cc-data")), 93)


class OtherOutputs(ExtractTestCase):
    def test_active_formats(self):
        stream = Stream().idr(sei.unit(sei.afd(8))).p(2, 1).b(1, 2, sei.unit(sei.afd(None))).p(3, 2, sei.unit(
            sei.afd(15)))
        self.assertEqual(self.text(stream.bytes, "--afd"), AFD +
                         "0,0,8,full frame\n2,1,,no active format\n"
                         "3,3,15,16:9 (with shoot and protect 4:3 centre)\n")

    def test_every_active_format_has_a_name(self):
        stream = Stream()
        for code in range(16):
            stream.p(code, code, sei.unit(sei.afd(code)))
        rows = list(csv.DictReader(self.text(stream.bytes, "--afd").splitlines()))
        self.assertEqual([row["active_format"] for row in rows], [str(code) for code in range(16)])
        self.assertTrue(all(row["name"] for row in rows))

    def test_precision_times(self):
        stream = Stream().idr(sei.unit(sei.precision_time(0)))
        stream.p(2, 1, sei.unit(sei.precision_time(1700000000123456, 0x9F)))
        stream.b(1, 2, sei.unit(sei.message(5, bytes(40))), sei.unit(sei.precision_time(1 << 32, 0x3F)))
        self.assertEqual(self.text(stream.bytes, "--precision-time"), TIMES +
                         "0,0,0,1970-01-01T00:00:00.000000Z,0x1f\n"
                         "1,2,1700000000123456,2023-11-14T22:13:20.123456Z,0x9f\n"
                         "2,1,4294967296,1970-01-01T01:11:34.967296Z,0x3f\n")


class Damage(ExtractTestCase):
    def assert_damage(self, stream, reason, number, unit, output="--timecodes"):
        offset = stream.index(unit)
        self.extract(stream, output, status=1,
                     stderr="h264tool: standard input: unit %d at offset %d: %s\n" % (number, offset, reason) +
                     "h264tool: standard input: 1 unit could not be parsed, first unit %d at offset %d\n" %
                     (number, offset))

    def test_units_that_cannot_be_parsed(self):
        for unit, reason in ((timing(pic_struct=12), "pic_timing message cannot be parsed"),
                             (sei.unit(b"\x01\x09\x00"), "SEI message at 0 runs past the end of the unit")):
            self.assert_damage(Stream().idr(unit).bytes, reason, 3, unit)

    def test_damage_in_what_is_not_wanted_does_not_count(self):
        self.extract(Stream().idr(timing(pic_struct=12)).bytes, "--afd")
        for options in (("--cc-data",), ("--captions", "--captions-start", "00:00:00;00", "--frame-rate", "25")):
            self.extract(Stream().idr(timing(pic_struct=12)).bytes, *options)

    def test_messages_without_picture(self):
        unit = timing(sei.full_timestamp(1, 2, 3, 4))
        self.assert_damage(Stream().idr().bytes + unit, "no picture follows", 4, unit)

    def test_messages_of_a_picture_that_cannot_be_read(self):
        unit = timing(sei.full_timestamp(1, 2, 3, 4))
        lost = Slice(Pps(TIMING, pps_id=7), 7).unit()
        stream = Stream().idr()
        before = len(stream.bytes)
        stream.bytes += unit + lost
        stream.p(1, 1)
        self.assertEqual(self.text(stream.bytes, "--timecodes", status=1, stderr=(
            "h264tool: standard input: unit 5 at offset %d: picture parameter set 7, to which it refers, is missing\n"
            "h264tool: standard input: 1 unit could not be parsed, first unit 5 at offset %d\n" %
            ((before + len(unit),) * 2))), TIMECODES)

    def test_damaged_messages_of_a_picture_that_cannot_be_read(self):
        unit = sei.unit(b"\x01\x09\x00")
        lost = Slice(Pps(TIMING, pps_id=7), 7).unit()
        stream = Stream().idr()
        before = len(stream.bytes)
        self.assert_result(feed("extract", stream.bytes + unit + lost, "--timecodes", "-"), 1, (
            "h264tool: standard input: unit 4 at offset %d: SEI message at 0 runs past the end of the unit\n"
            "h264tool: standard input: unit 5 at offset %d: picture parameter set 7, to which it refers, is missing\n"
            "h264tool: standard input: 2 units could not be parsed, first unit 4 at offset %d\n" %
            (before, before + len(unit), before)))

    def test_complaints_are_bounded(self):
        result = feed("extract", Stream().idr(*[timing(pic_struct=12)] * 50).bytes, "--timecodes", "-")
        self.assertEqual(result.returncode, 1)
        self.assertEqual(len(result.stderr.splitlines()), 11)

    def test_units_that_wait_for_a_picture_are_bounded(self):
        units = [sei.unit(sei.message(5, bytes([7] * 60000)))] * 50
        result = feed("extract", Stream().idr(*units).bytes, "--timecodes", "-")
        self.assertIn(b"too many SEI units without a picture", result.stderr)

    def test_no_unit(self):
        self.extract(b"", "--afd", status=1, stderr="h264tool: standard input: %s\n" % EMPTY)

    def test_every_start_of_a_stream(self):
        stream = Stream().idr(timing(sei.full_timestamp(1, 2, 3, 4)), sei.unit(sei.captions([pair(1)]), sei.afd(3)))
        stream.p(2, 1, sei.unit(sei.precision_time(5))).b(1, 2)
        for size in range(len(stream.bytes)):
            for output in ("--timecodes", "--cc-data"):
                self.assertIn(feed("extract", stream.bytes[:size], output, "-").returncode, (0, 1), size)


class Files(ExtractTestCase):
    STREAM = Stream().idr(timing(sei.full_timestamp(1, 2, 3, 4)), sei.unit(sei.captions([pair(1)]), sei.afd(3)),
                          sei.unit(sei.precision_time(5))).bytes
    NAMES = ("timecodes", "captions", "cc-data", "afd", "precision-time")

    def test_all_at_once(self):
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "in.h264")
            with open(path, "wb") as stream:
                stream.write(self.STREAM)
            options = [word for name in self.NAMES for word in ("--" + name, os.path.join(directory, name))]
            result = run("extract", path, *options)
            self.assert_result(result, 0, "")
            self.assertEqual(result.stdout, b"")
            self.assertEqual(sorted(os.listdir(directory)), sorted(self.NAMES + ("in.h264",)))
            for name in self.NAMES:
                with open(os.path.join(directory, name), "rb") as file:
                    alone = feed("extract", self.STREAM, "--" + name, "-").stdout
                    self.assertEqual(file.read(), alone)
                    self.assertTrue(alone)

    def test_all_files_or_none(self):
        with tempfile.TemporaryDirectory() as directory:
            missing = os.path.join(directory, "no", "file")
            result = feed("extract", self.STREAM, "--afd", os.path.join(directory, "afd"), "--timecodes", missing)
            self.assertEqual(result.returncode, 2)
            self.assertIn(missing, result.stderr.decode())
            self.assertIn(os.strerror(errno.ENOENT), result.stderr.decode())
            self.assertEqual(os.listdir(directory), [])

    def test_a_file_that_fails_later_leaves_none(self):
        with tempfile.TemporaryDirectory() as directory:
            for names in ("timecodes", "captions", "cc-data"):
                result = feed("extract", self.STREAM, "--" + names, os.path.join(directory, "out"), "--afd",
                              "/dev/full")
                self.assert_result(result, 2, "h264tool: cannot write /dev/full: %s\n" % os.strerror(errno.ENOSPC))
                self.assertEqual(os.listdir(directory), [])

    def test_missing_rate_leaves_standard_output_empty(self):
        stream = Stream(sei_streams.sps(sei_streams.timing_vui(None)))
        for i in range(12000):
            stream.idr(timing(sei.full_timestamp(1, 2, 3, 4)), sei.unit(sei.captions([pair(1)])), idr_pic_id=i % 2)
        with tempfile.TemporaryDirectory() as directory:
            result = feed("extract", stream.bytes, "--timecodes", "-", "--captions", os.path.join(directory, "out"))
            self.assertEqual((result.returncode, result.stdout, os.listdir(directory)), (2, b"", []))
        self.assertGreater(len(self.text(stream.bytes, "--timecodes")), 262144)

    def test_files_that_are_one(self):
        with tempfile.TemporaryDirectory() as directory:
            path, hard, link = (os.path.join(directory, name) for name in ("in", "hard", "link"))
            with open(path, "wb") as stream:
                stream.write(self.STREAM)
            os.link(path, hard)
            os.symlink("new", link)
            for output in (path, hard, os.path.join(directory, ".", "in")):
                result = run("extract", path, "--timecodes", output)
                self.assertEqual(result.returncode, 2)
                self.assertIn("'%s' is the input" % output, result.stderr.decode())
            with open(path, "rb") as stream:
                self.assertIn("'%s' is the input" % hard, subprocess.run(
                    [TOOL, "extract", "-", "--timecodes", hard], stdin=stream, stdout=subprocess.PIPE,
                    stderr=subprocess.PIPE, timeout=120).stderr.decode())
            new = os.path.join(directory, "new")
            for output in (new, os.path.join(directory, ".", "new"), link):
                result = run("extract", path, "--timecodes", new, "--afd", output)
                self.assertEqual(result.returncode, 2)
                self.assertIn("is to be written twice", result.stderr.decode())
            self.assertEqual(sorted(os.listdir(directory)), ["hard", "in", "link"])
            with open(path, "rb") as stream:
                self.assertEqual(stream.read(), self.STREAM)

    def test_wrong_usage(self):
        for options, names in (((), "--timecodes"), (("--afd", "a", "--timecodes", "a"), "'a'"),
                               (("--afd", ""), "--afd"), (("--afd", "-", "--frame-rate", "25"), "--captions"),
                               (("--captions", "-", "--frame-rate", "x"), "--frame-rate"),
                               (("--captions", "-", "--captions-start", "1:2"), "--captions-start"),
                               (("--captions", "-", "--captions-start", "00:01:00;01"), "00:01:00;01")):
            result = feed("extract", self.STREAM, *options)
            self.assertEqual((result.returncode, result.stdout), (2, b""), options)
            self.assertIn(names, result.stderr.decode())
        self.assertIn("FILE", run("extract", "--afd", "-").stderr.decode())

    def test_missing_input(self):
        self.assert_result(run("extract", "no/such/file", "--afd", "-"), 2,
                           "h264tool: cannot open no/such/file: %s\n" % os.strerror(errno.ENOENT))


if __name__ == "__main__":
    runner.main()
