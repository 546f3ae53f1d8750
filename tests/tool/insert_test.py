"""Tests of the command line, timecodes and files of h264tool insert, run as: insert_test.py H264TOOL [unittest
arguments]"""

import errno
import os
import signal
import subprocess
import tempfile

import runner
import stream_builder as build
from h264_writer import split
from insert_support import AFD, PLACES, PRECISION, TIMING, UUID, InsertTestCase, Stream, kind_of, messages, reordered
from insert_support import vui
from picture_builder import Pps, Slice
from runner import TOOL, feed, run

import sei_writer as sei


class CommandLine(InsertTestCase):
    def assert_usage_error(self, reason, *options):
        """The input does not exist, which is not noticed."""
        result = run("insert", "no/such/file", "-o", "no/such/output", *options)
        self.assertEqual((result.returncode, result.stdout), (2, b""))
        self.assertIn(reason, result.stderr.decode())

    def test_wrong_arguments_are_refused_before_input_is_read(self):
        self.assert_usage_error("nothing to insert")
        for timecode in ("1:00:00:00", "10:00:00", "10:00:00.00"):
            self.assert_usage_error("is no timecode HH:MM:SS:FF", "--timecode", timecode)
        self.assert_usage_error("no timecode 24:00:00:00", "--timecode", "24:00:00:00", "--frame-rate", "25")
        self.assert_usage_error("no timecode 10:01:00;01", "--timecode", "10:01:00;01", "--frame-rate", "30000/1001")
        self.assert_usage_error("no timecode 10:01:00;01", "--timecode", "10:01:00:01", "--drop-frame", "--frame-rate",
                                "30000/1001")
        for rate in ("24", "25", "30", "24000/1001", "50"):
            self.assert_usage_error("drop frame counting", "--timecode", "10:00:00;00", "--frame-rate", rate)
        self.assert_usage_error("whole frames a second", "--timecode", "10:00:00:00", "--frame-rate", "25/2")
        self.assert_usage_error("up to 86 frames a second", "--timecode", "10:00:00:00", "--frame-rate", "120")
        for rate in ("0", "25/0", "-25", "x", "25/", "/25", "25/1/1", "", "29.97", "4294967296"):
            self.assert_usage_error("--frame-rate", "--timecode", "10:00:00:00", "--frame-rate", rate)
        self.assert_usage_error("--timecode", "--drop-frame", "--aud")
        self.assert_usage_error("--frame-rate", "--frame-rate", "25", "--aud")
        self.assert_usage_error("the name of a file is empty", "--captions", "")
        for code in ("16", "-1", "x", ""):
            self.assert_usage_error("--afd", "--afd", code)
        for time in ("-1", "9223372036854775808", "now"):
            self.assert_usage_error("--precision-time", "--precision-time", time)
        self.assert_usage_error("no/such.scc", "--captions", "no/such.scc")

    def test_wrong_user_data_is_refused(self):
        for data, reason in ((UUID, "no colon"), (UUID + ":", "no text"), (UUID[1:] + ":text", "is no UUID"),
                             (UUID.replace("-", "", 1) + ":text", "is no UUID"), ("g" * 32 + ":text", "is no UUID"),
                             (UUID + ":" + "x" * 239, "239 bytes, 238 fit"),
                             ("1" * 20 + "000001" + "1" * 6 + ":text", "zero bytes"),
                             ("1" * 20 + "000003" + "1" * 6 + ":text", "zero bytes"),
                             (b"MISPmicrosectime".hex() + ":text", "that of precision time stamps"),
                             ("ff" * 16 + ":text", "begins with FF"), ("0" * 32 + ":text", "zero bytes"),
                             ("1" * 28 + "0000:\x03", "zero bytes")):
            self.assert_usage_error(reason, "--user-data", data)

    def test_an_option_is_given_once(self):
        for options in (("--afd", "4"), ("--timecode", "10:00:00:00"), ("--precision-time", "1"),
                        ("--user-data", UUID + ":text"), ("--captions", "x.scc"), ("--frame-rate", "25")):
            self.assert_usage_error(options[0], *options, *options)

    def test_missing_arguments(self):
        for arguments in (("insert",), ("insert", "in"), ("insert", "-o", "out")):
            self.assertEqual(run(*arguments, "--aud").returncode, 2)


class Timecodes(InsertTestCase):
    def test_the_message_is_the_writers(self):
        stream = self.insert(Stream().plain(1), "--timecode", "01:02:03:04")
        self.assertEqual(messages(stream, TIMING), [bytes.fromhex("0109 080c040c2080000040 80")])

    def test_output_order(self):
        stream = Stream()
        for before in (b"", stream.plain(1)):
            count = len(split(before)) and 1
            output = self.insert(before + stream.sets() + b"".join(reordered(stream)), "--timecode", "00:00:59:24")
            self.assertEqual(self.texts(output)[count:],
                             [["00:00:59:24", "00:01:00:00", "00:01:00:01", "00:01:00:02", "00:01:00:03", "00:01:00:04",
                               "00:01:00:05", "00:01:00:06"][place + count] for place in PLACES])

    def test_a_reset_of_the_order_behind_chroma_weights(self):
        for entry in ((1, 2), (1, 2, 3, 4, 5, 6)):
            for modifications in (None, [(0, 1), (2, 3)]):
                sps = build.Sps({}, 77, poc=build.poc_type(0), vui=vui(pic_struct=1))
                pps = Pps(sps, weighted_pred_flag=1, references=(1, 0))
                weights = ([entry, None],)
                slices = [Slice(pps, 7, unit_type=5), Slice(pps, 5, frame_num=1, poc_lsb=12, weights=weights),
                          Slice(pps, 5, frame_num=2, poc_lsb=8, weights=weights, modifications=(modifications, None),
                                marking=[(1, {"difference_of_pic_nums_minus1": 0}),
                                         (3, {"difference_of_pic_nums_minus1": 0, "long_term_frame_idx": 0}), (5, {})]),
                          Slice(pps, 5, frame_num=1, poc_lsb=4, references=(0,), weights=([entry],)),
                          Slice(pps, 5, frame_num=2, poc_lsb=2, ref_idc=0, weights=weights)]
                stream = sps.unit() + pps.unit() + b"".join(one.unit() for one in slices)
                self.assertEqual(self.texts(self.insert(stream, "--timecode", "00:00:00:00")),
                                 ["00:00:00:%02d" % number for number in (0, 1, 2, 4, 3)])

    def test_a_picture_that_is_no_reference_resets_nothing(self):
        """What follows the tables of its slice looks like operation 5."""
        sps = build.Sps({}, 77, poc=build.poc_type(0), vui=vui(pic_struct=1))
        pps = Pps(sps, deblocking=1)
        slices = [Slice(pps, 7, unit_type=5), Slice(pps, 5, frame_num=1, poc_lsb=12),
                  Slice(pps, 5, frame_num=2, poc_lsb=8, ref_idc=0, deblocking=(5, 0, 0)),
                  Slice(pps, 5, frame_num=2, poc_lsb=4, ref_idc=0)]
        stream = sps.unit() + pps.unit() + b"".join(one.unit() for one in slices)
        self.assertEqual(self.texts(self.insert(stream, "--timecode", "00:00:00:00")),
                         ["00:00:00:%02d" % number for number in (0, 3, 2, 1)])

    def test_frames_that_do_not_last_alike(self):
        stream = Stream(timing=(1001, 60000))
        for pic_struct in range(9):
            data = stream.sets() + sei.unit(sei.pic_timing((), pic_struct, [None] * 3)) + b"".join(stream.frames(2))
            options = ("--precision-time", "0")
            if pic_struct > 4:
                self.refuse(data, "IN: unit 4 at offset %d: pic_struct %d of the picture repeats a field or the frame, so "
                            "that frames do not last alike: give how many there are in a second with --frame-rate" %
                            (data.index(stream.frames(1)[0]), pic_struct), *options)
                options += ("--frame-rate", "24000/1001")
            self.assertEqual(len(messages(self.insert(data, *options), PRECISION)), 2)
            self.insert(data, "--afd", "8")

    def test_midnight(self):
        self.assertEqual(self.texts(self.insert(Stream().plain(2), "--timecode", "23:59:59:24")),
                         ["23:59:59:24", "00:00:00:00"])

    def test_drop_frame(self):
        stream = Stream(timing=(1001, 60000)).plain(4)
        for options in (("--timecode", "10:00:59;28"), ("--timecode", "10:00:59:28", "--drop-frame")):
            timings = self.timings(self.insert(stream, *options))
            self.assertEqual([(timing.text, timing.counting_type, timing.dropped) for timing in timings],
                             [("10:00:59:28", 4, 0), ("10:00:59:29", 4, 0), ("10:01:00:02", 4, 1),
                              ("10:01:00:03", 4, 0)])
        timings = self.timings(self.insert(stream, "--timecode", "10:00:59:28"))
        self.assertEqual([(timing.text, timing.counting_type, timing.dropped) for timing in timings][2:],
                         [("10:01:00:00", 1, 0), ("10:01:00:01", 1, 0)])
        self.assertEqual(self.texts(self.insert(stream, "--timecode", "10:09:59;29"))[1], "10:10:00:00")
        fast = self.timings(self.insert(Stream(timing=(1001, 120000)).plain(2), "--timecode", "10:00:59;59"))
        self.assertEqual((fast[1].text, fast[1].dropped), ("10:01:00:04", 1))

    def test_frame_rate(self):
        stream = Stream(timing=None).plain(2)
        self.refuse(stream, "IN: unit 3 at offset %d: sequence parameter set 0 has no frame rate: give it with "
                            "--frame-rate" % stream.index(Stream(timing=None).frames(1)[0]),
                    "--timecode", "10:00:00:00")
        for rate, last in (("24", 23), ("24000/1001", 23), ("25", 24), ("50", 49), ("60000/1001", 59), ("60/2", 29)):
            first = "10:00:00:%02d" % last
            self.assertEqual(self.texts(self.insert(stream, "--timecode", first, "--frame-rate", rate)),
                             [first, "10:00:01:00"])
        self.assertEqual(self.texts(self.insert(Stream().plain(2), "--timecode", "10:00:00:29", "--frame-rate", "30")),
                         ["10:00:00:29", "10:00:01:00"], "the option wins")
        self.refuse(Stream().plain(1), "--timecode: there is no timecode 10:00:00:25 at 25/1 frames a second",
                    "--timecode", "10:00:00:25")

    def test_frame_rate_that_changes(self):
        stream = Stream().plain(1) + Stream(timing=(1, 60)).plain(1)
        number, offset = 6, len(stream) - len(Stream().frames(1)[0])
        self.refuse(stream, "IN: unit %d at offset %d: the frame rate changes here: give one for the whole stream with "
                            "--frame-rate" % (number, offset), "--timecode", "10:00:00:00")
        self.assertEqual(len(self.texts(self.insert(stream, "--timecode", "10:00:00:00", "--frame-rate", "25"))), 2)

    def test_fields(self):
        for timing, rate in (((1, 50), 25), ((1001, 60000), 30), ((1, 100), 50)):
            stream = Stream(timing=timing, fields=0)
            fields = [stream.slice("I", 0, field=0), stream.slice("P", 1, field=1),
                      stream.slice("P", 3, field=1, frame_num=1), stream.slice("P", 2, field=0, frame_num=1)]
            output = self.insert(stream.sets() + b"".join(fields), "--timecode", "10:00:00:%02d" % (rate - 1))
            self.assertEqual([(timing.text, timing.pic_struct, timing.ct_type) for timing in self.timings(output)],
                             [("10:00:00:%02d" % (rate - 1), 1, 1), ("10:00:00:%02d" % (rate - 1), 2, 1),
                              ("10:00:01:00", 2, 1), ("10:00:01:00", 1, 1)])

    def test_frames_of_two_fields(self):
        for delta, pic_struct, ct_type, second in ((1, 3, 1, 0), (-1, 4, 1, 0), (0, 0, 0, None)):
            stream = Stream(fields=1, bottom=1)
            output = self.insert(stream.sets() + stream.slice("I", 0, delta_bottom=delta), "--timecode", "01:02:03:04")
            timing = self.timings(output)[0]
            self.assertEqual((timing.text, timing.pic_struct, timing.ct_type, timing.second_flag, timing.time_offset),
                             ("01:02:03:04", pic_struct, ct_type, second, 0))
            self.assertEqual((timing.flag, timing.full, timing.counting_type), (1, 1, 1))

    def test_every_timecode_of_frames_of_two_fields(self):
        stream = Stream(fields=1, bottom=1)
        frames = [stream.slice("I", 0, delta_bottom=1, idr_pic_id=i % 2) for i in range(30)]
        for start in ("00:00:00:00", "00:00:00:24", "23:59:59:00"):
            output = self.insert(stream.sets() + b"".join(frames), "--timecode", start)
            first = [int(number) for number in start.split(":")]
            count = ((first[0] * 60 + first[1]) * 60 + first[2]) * 25 + first[3]
            self.assertEqual(self.texts(output),
                             ["%02d:%02d:%02d:%02d" % (n // 90000 % 24, n // 1500 % 60, n // 25 % 60, n % 25)
                              for n in range(count, count + 30)])


class SequenceParameterSets(InsertTestCase):
    def test_flag_is_set_in_place(self):
        stream = Stream(pic_struct=0)
        wanted = Stream(pic_struct=1)
        for start_code_length in (3, 4):
            before = [stream.sps.unit(start_code_length=start_code_length), stream.pps.unit()] + stream.frames(2)
            after = split(self.insert(b"".join(before + before), "--timecode", "10:00:00:00"))
            self.assertEqual([unit for unit in after if kind_of(unit) != TIMING],
                             2 * ([wanted.sps.unit(start_code_length=start_code_length)] + before[1:]))

    def test_length_may_change_with_emulation_prevention(self):
        lengths = set()
        for timing in ((1, 50), (1 << 16, 50 << 16), (1 << 20, 50 << 20)):
            for size in ((1, 1), (1, 3), (3, 3), (3, 7), (7, 7), (119, 67)):
                sets = [build.Sps({}, 77, poc=build.poc_type(0), size=size, vui=vui(timing, flag)) for flag in (0, 1)]
                stream = Stream()
                stream.sps, stream.pps = sets[0], Pps(sets[0])
                output = split(self.insert(stream.plain(1), "--timecode", "10:00:00:00"))
                self.assertEqual(output[0], sets[1].unit())
                lengths.add(len(sets[1].unit()) - len(sets[0].unit()))
        self.assertEqual(lengths, {0, -1})

    def test_sets_without_pictures_stay_as_they_are(self):
        other = build.Sps({}, 77, seq_parameter_set_id=3, poc=build.poc_type(0), vui=vui((1, 50), 0)).unit()
        stream = Stream(pic_struct=0)
        output = self.insert(other + stream.plain(1), "--timecode", "10:00:00:00")
        self.assertTrue(output.startswith(other + Stream(pic_struct=1).sets()))

    def test_set_stays_as_it_is_without_timecodes(self):
        stream = Stream(pic_struct=0).plain(1)
        self.assertTrue(self.insert(stream, "--afd", "8").startswith(Stream(pic_struct=0).sets()))

    def test_sets_that_are_refused(self):
        for stream, reason in (
                (Stream(with_vui=False), "has no VUI, by which picture timing messages are read"),
                (Stream(nal_hrd=True), "has HRD parameters, so that picture timing messages have delays, which are not "
                                       "known"),
                (Stream(vcl_hrd=True, pic_struct=0), "has HRD parameters, so that picture timing messages have delays, "
                                                     "which are not known")):
            self.refuse(stream.plain(1), "IN: unit 3 at offset %d: sequence parameter set 0 %s: --timecode cannot be "
                                         "inserted" % (len(stream.sets()), reason),
                        "--timecode", "10:00:00:00", "--frame-rate", "25")
            self.assertEqual(len(messages(self.insert(stream.plain(1), "--afd", "8"), AFD)), 1)

    def test_what_a_frame_rate_does_not_cure_is_said_first(self):
        for options, reason in (({"with_vui": False}, "has no VUI"), ({"nal_hrd": True}, "has HRD parameters"), ({},
                                "has no frame rate: give it")):
            result = feed("insert", Stream(timing=None, **options).plain(1), "-o", "-", "--timecode", "10:00:00:00")
            self.assertEqual((result.returncode, result.stdout), (2, b""))
            self.assertIn(reason, result.stderr.decode())

    def test_picture_timing_with_delays_is_for_rewrite(self):
        stream = Stream(nal_hrd=True)
        timing = build.nal_unit(6, b"\x01\x08" + bytes(range(1, 9)) + b"\x80", nal_ref_idc=0)
        self.refuse(stream.sets() + timing + stream.frames(1)[0],
                    "IN: unit 3 at offset %d: the stream has picture timing messages already: --timecode cannot be "
                    "inserted, rewrite --timecode changes those that are there" % len(stream.sets()),
                    "--timecode", "10:00:00:00")


class Files(InsertTestCase):
    def test_pipes_and_files_give_the_same(self):
        stream = Stream().plain(100)
        options = ("--timecode", "10:00:00:00", "--aud")
        wanted = self.insert(stream, *options)
        with tempfile.TemporaryDirectory() as directory:
            path, output = os.path.join(directory, "in"), os.path.join(directory, "out")
            with open(path, "wb") as file:
                file.write(stream)
            self.assertEqual(run("insert", path, "-o", "-", *options).stdout, wanted)
            for target in (output, output, path):  # a new file, one that is there, the input itself
                self.assert_result(run("insert", path, "-o", target, *options), 0, "")
                with open(target, "rb") as file:
                    self.assertEqual(file.read(), wanted)
            self.assertEqual(sorted(os.listdir(directory)), ["in", "out"])

    def test_output_that_cannot_be_written(self):
        stream = Stream().plain(2)
        for target, reason in (("no/such/directory/out", "cannot create"), (build.HERE, "cannot open"),
                               ("/dev/full", "cannot write")):
            result = feed("insert", stream, "-o", target, "--aud")
            self.assertEqual(result.returncode, 2)
            self.assertIn("h264tool: %s %s: " % (reason, target), result.stderr.decode())
        with open("/dev/full", "wb") as full:
            process = subprocess.run([TOOL, "insert", "-", "-o", "-", "--aud"], input=stream, stdout=full,
                                     stderr=subprocess.PIPE, timeout=120)
        self.assertEqual(process.returncode, 2)
        self.assertIn("cannot write standard output", process.stderr.decode())

    def test_input_that_cannot_be_read(self):
        for path, reason in (("no/such/file", "cannot open"), (build.HERE, "cannot read")):
            with tempfile.TemporaryDirectory() as directory:
                result = run("insert", path, "-o", os.path.join(directory, "out"), "--aud")
                self.assertEqual(result.returncode, 2)
                self.assertIn("%s %s" % (reason, path), result.stderr.decode())
                self.assertEqual(os.listdir(directory), [])

    def test_captions_that_cannot_be_read(self):
        for path, reason in (("no/such.scc", "cannot open"), (build.HERE, "cannot read")):
            result = run("insert", "no/such/file", "-o", "-", "--captions", path)
            self.assert_result(result, 2, "h264tool: %s %s: %s\n" % (reason, path, os.strerror(
                errno.ENOENT if reason == "cannot open" else errno.EISDIR)))

    def test_empty_name_of_the_output(self):
        result = feed("insert", Stream().plain(1), "-o", "", "--aud")
        self.assertEqual((result.returncode, result.stdout), (2, b""))
        self.assertIn("the name of a file is empty", result.stderr.decode())

    def test_reader_that_goes_away(self):
        """A stream that was cut off is no success."""
        process = subprocess.Popen(
            [TOOL, "insert", "-", "-o", "-", "--aud"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, preexec_fn=lambda: signal.signal(signal.SIGPIPE, signal.SIG_IGN))
        process.stdout.close()
        process.stdin.write(Stream().plain(10))
        process.stdin.close()
        self.assertEqual((process.wait(timeout=120), process.stderr.read().decode()),
                         (2, "h264tool: cannot write standard output: %s\n" % os.strerror(errno.EPIPE)))
        process.stderr.close()

    def test_termination_leaves_nothing(self):
        """The input is a pipe that ends only when the process is gone."""
        with tempfile.TemporaryDirectory() as directory:
            environment = dict(os.environ, TMPDIR=directory)
            process = subprocess.Popen([TOOL, "insert", "-", "-o", os.path.join(directory, "out"), "--aud"],
                                       stdin=subprocess.PIPE, env=environment)
            process.stdin.write(Stream().plain(10))
            process.stdin.flush()
            process.terminate()
            self.assertEqual(process.wait(timeout=120), -15)
            process.stdin.close()
            self.assertEqual(os.listdir(directory), [])

    def test_memory_stays_flat(self):
        stream = Stream(timing=(1001, 60000))
        group = b"".join(stream.frames(50))
        # Memory that a sanitizer keeps after it was freed does not count.
        environment = dict(os.environ, ASAN_OPTIONS=os.environ.get("ASAN_OPTIONS", "") + ":quarantine_size_mb=1")
        kilobytes = []
        for groups in (10, 2000):
            with tempfile.NamedTemporaryFile(suffix=".h264") as file, tempfile.TemporaryDirectory() as directory:
                file.write(stream.sets() + group * groups)
                file.flush()
                process = subprocess.Popen([TOOL, "insert", file.name, "-o", os.path.join(directory, "out"), "--aud",
                                            "--timecode", "10:00:00;00", "--precision-time", "0"], env=environment)
                _, status, usage = os.wait4(process.pid, 0)
                process.returncode = os.waitstatus_to_exitcode(status)
                self.assertEqual(process.returncode, 0)
                kilobytes.append(usage.ru_maxrss)
        most = 20000 * (1 + int(os.environ.get("H264_TEST_SHADOW_BYTES", "0")))
        self.assertLess(kilobytes[1] - kilobytes[0], most, "for 100,000 pictures")


if __name__ == "__main__":
    runner.main()
