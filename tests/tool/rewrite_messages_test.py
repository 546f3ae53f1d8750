"""Tests of messages and h264tool rewrite, run as: rewrite_messages_test.py H264TOOL [unittest arguments]"""

import os
import subprocess
import tempfile

import runner
from picture_builder import Slice
from rewrite_support import DELAYS, RewriteTestCase, hrd_vui, stamp, timing_unit
from runner import TOOL
from sei_streams import HRD, Stream, sps, timing_vui
from stream_builder import nal_unit

import sei_writer as sei

TIMING_25 = sps(timing_vui((1, 50)))


class SeveralMessages(RewriteTestCase):
    DELAY = ("--initial-cpb-removal-delay", "0=7,8")

    def unit(self, delay, pic_struct, timestamps):
        return sei.unit(sei.buffering_period(0, [delay, (3, 4), (5, 6)]),
                        sei.pic_timing(DELAYS, pic_struct, timestamps))

    def test_a_buffering_period_beside_a_timing_that_stays(self):
        before, after = (Stream(HRD).idr(self.unit(delay, 0, [None])).p(1, 1, timing_unit(0, None, delays=DELAYS)).bytes
                         for delay in ((1, 2), (7, 8)))
        self.assertNotEqual(before, after)
        self.assertEqual(self.rewrite(before, *self.DELAY), after)
        self.assertEqual(self.rewrite(before, *self.DELAY, "--pic-struct"), after)

    def test_a_buffering_period_in_a_unit_of_its_own(self):
        before, after = (Stream(HRD).idr(sei.unit(sei.buffering_period(0, [delay, (3, 4), (5, 6)])),
                                         timing_unit(0, stamp(text), delays=DELAYS)).bytes
                         for delay, text in (((1, 2), "01:02:03:04"), ((7, 8), "10:00:00:00")))
        self.assertEqual(self.rewrite(before, *self.DELAY, "--timecode", "10:00:00:00"), after)

    def test_both_messages_of_a_unit(self):
        stream = Stream(HRD)
        offset = len(stream.bytes)
        stream.idr(self.unit((1, 2), 0, [stamp("01:02:03:04")]))
        for options in (("--timecode", "10:00:00:00"), ("--timecode", "10:00:00:00", "--pic-struct", *self.DELAY),
                        ("--timecode", "10:00:00:00", *self.DELAY)):
            self.refuse(stream.bytes, "unit 3 at offset %d: the picture timing message shares its unit with 1 other "
                        "message, which cannot be carried over" % offset, *options)


class PictureStructure(RewriteTestCase):
    def test_streams_that_have_it_are_not_looked_at_closely(self):
        unit = timing_unit(0, stamp("01:02:03:04"))
        stream = Stream(TIMING_25).idr(unit, unit).p(1, 1).bytes + unit
        self.assertEqual(self.rewrite(stream, "--pic-struct"), stream)
        long = stream + nal_unit(6, sei.message(5, b"\xff" * 1100000) + b"\x80", nal_ref_idc=0)
        self.assertEqual(self.rewrite(long, "--pic-struct"), long)

    def test_a_second_parameter_set_that_lacks_it(self):
        with_it = Stream(sps(hrd_vui(1))).idr(sei.unit(sei.pic_timing(DELAYS, 0, [None]))).bytes
        streams = []
        for flag in (0, 1):
            one = Stream(sps(hrd_vui(flag), sps_id=3), pps_id=2)
            one.idr(sei.unit(sei.pic_timing(DELAYS, 0 if flag else None, [None] * flag)), idr_pic_id=1)
            streams.append(with_it + one.bytes)
        self.assertEqual(self.rewrite(streams[0], "--pic-struct"), streams[1])


class Midnight(RewriteTestCase):
    def stream(self, texts, order=(0, 1, 2, 3)):
        """Pictures by their places in output order, those of a text with a message."""
        stream = Stream(TIMING_25)
        for number, place in enumerate(order):
            text = texts[place]
            flag = int(text is not None and text.endswith("*"))
            units = [] if text is None else [timing_unit(0, stamp(text.rstrip("*"), discontinuity_flag=flag))]
            if number == 0:
                stream.idr(*units)
            else:
                stream.p(place, number, *units)
        return stream.bytes

    def test_the_first_message_behind_it_is_a_discontinuity(self):
        for order in ((0, 1, 2, 3), (0, 3, 1, 2)):
            for texts in (["23:59:59:24", None, "00:00:00:01*", "00:00:00:02"],
                          ["23:59:59:24", None, None, "00:00:00:02*"], ["23:59:59:24", "00:00:00:00*", None, None],
                          [None, "00:00:00:00", None, "00:00:00:02"]):
                before = [text and "01:01:01:01" for text in texts]
                self.assertEqual(self.rewrite(self.stream(before, order), "--timecode", "23:59:59:24"),
                                 self.stream(texts, order))


class Counting(RewriteTestCase):
    def test_a_slice_that_cannot_be_read(self):
        stream = Stream(TIMING_25).idr(timing_unit(0, stamp("01:02:03:04")))
        offset = len(stream.bytes)
        stream.bytes += nal_unit(1, b"\0")
        stream.p(1, 1, timing_unit(0, stamp("01:02:03:05")))
        self.refuse(stream.bytes, "unit 5 at offset %d: the slice cannot be read, so that the frames of the stream "
                    "cannot be counted: slice header too short: 1 byte behind the start code" % offset, "--timecode",
                    "10:00:00:00")

    def test_drop_frame_of_60_numbers(self):
        texts = ["00:00:59;59", "00:01:00;04", "00:01:00;05"]
        streams = []
        for after in (False, True):
            stream = Stream(sps(timing_vui((1001, 120000))))
            for i, text in enumerate(texts):
                flags = {"counting_type": 4, "cnt_dropped_flag": int(i == 1)} if after else {}
                unit = timing_unit(0, stamp(text if after else "01:01:01:01", **flags))
                stream.add(Slice(stream.pps, 7 if i == 0 else 5, unit_type=5 if i == 0 else 1, poc_lsb=2 * i,
                                 frame_num=i), [unit])
            streams.append(stream.bytes)
        self.assertEqual(self.rewrite(streams[0], "--timecode", "00:00:59;59"), streams[1])

    def test_long_user_data(self):
        data = nal_unit(6, sei.message(5, b"\xff" * 70000) + b"\x80", nal_ref_idc=0)
        before, after = (Stream(TIMING_25).idr(data, timing_unit(0, stamp(text))).bytes
                         for text in ("01:02:03:04", "10:00:00:00"))
        self.assertEqual(self.rewrite(before, "--timecode", "10:00:00:00"), after)


class GrowingFiles(RewriteTestCase):
    def test_output_appended_to_the_input(self):
        before = Stream(TIMING_25).idr(timing_unit(0, stamp("01:02:03:04"))).bytes
        after = Stream(TIMING_25).idr(timing_unit(0, stamp("10:00:00:00"))).bytes
        padding = b"\0" * 600000
        for command, expected in (("rewrite", after), ("insert", None)):
            with tempfile.TemporaryDirectory() as directory:
                path = os.path.join(directory, "stream")
                with open(path, "wb") as file:
                    file.write(before + padding)
                options = ("--timecode", "10:00:00:00") if command == "rewrite" else ("--end-of-sequence",)
                with open(path, "ab") as file:
                    result = subprocess.run([TOOL, command, path, "-o", "-", *options], stdout=file,
                                            stderr=subprocess.PIPE, timeout=60, check=False)
                self.assertEqual((result.returncode, result.stderr), (0, b""))
                with open(path, "rb") as file:
                    content = file.read()
                self.assertTrue(content.startswith(before + padding))
                appended = content[len(before + padding):]
                if expected is not None:
                    self.assertEqual(appended, expected + padding)
                else:
                    self.assertEqual(len(appended), len(before + padding) + 5)


if __name__ == "__main__":
    runner.main()
