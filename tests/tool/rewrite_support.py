"""What the tests of h264tool rewrite share."""

import stream_builder as build
from runner import TestCase, feed

import sei_writer as sei

DELAYS = [(23, 1234567), (22, 7)]


def hrd_vui(pic_struct, vcl=False, schedules=((1, 2, 0),)):
    def write(s):
        for name in ("aspect_ratio_info", "overscan_info", "video_signal_type", "chroma_loc_info"):
            s.u(1, name + "_present_flag", 0)
        s.u(1, "timing_info_present_flag", 1)
        s.u(32, "num_units_in_tick", 1)
        s.u(32, "time_scale", 50)
        s.u(1, "fixed_frame_rate_flag", 1)
        for name in ("nal", "vcl"):
            s.u(1, name + "_hrd_parameters_present_flag", int(vcl == (name == "vcl")))
            if vcl == (name == "vcl"):
                build.hrd(s.structure(name + "_hrd_parameters"), schedules)
        s.u(1, "low_delay_hrd_flag", 0)
        s.u(1, "pic_struct_present_flag", pic_struct)
        s.u(1, "bitstream_restriction_flag", 0)
    return write


def timing_unit(pic_struct, *timestamps, delays=(), **keywords):
    return sei.unit(sei.pic_timing(delays, pic_struct, timestamps, **keywords))


def stamp(text, **elements):
    hours, minutes, seconds, frames = (int(number) for number in text.replace(";", ":").split(":"))
    return sei.full_timestamp(hours, minutes, seconds, frames, **dict({"counting_type": 1}, **elements))


class RewriteTestCase(TestCase):
    def rewrite(self, stream, *options, status=0, stderr=""):
        result = feed("rewrite", stream, "-o", "-", *options)
        self.assert_result(result, status, stderr)
        return result.stdout

    def refuse(self, stream, reason, *options):
        self.assert_refused("rewrite", stream, "IN: " + reason, *options)
