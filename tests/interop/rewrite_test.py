#!/usr/bin/env python3
"""Lets ffmpeg read what h264tool rewrite made of streams: the new values and nothing else has changed, and the pictures
are the same.

Usage: rewrite_test.py H264TOOL WORK_DIRECTORY

Exit status: 0 all is as it should be, 1 differences, 77 ffmpeg or its libx264 encoder is missing.
"""

import json
import os
import sys
from concurrent.futures import ThreadPoolExecutor
from fractions import Fraction

import trace_headers
from insert_test import (SKIPPED, Different, expect, ffmpeg, frames_of, missing_part, run, side_data, timecodes)

FRAMES = 8
SIZE = (64, 64)
HRD = "nal-hrd=vbr:bitrate=200:vbv-maxrate=300:vbv-bufsize=150:bframes=2:b-adapt=0:keyint=5:threads=1"

CBR = ":nal-hrd=cbr:vbv-maxrate=200:vbv-bufsize=100"

# Name: profile_idc, pixel format, more of the encoder's parameters, size.
PROFILES = {
    "baseline": (66, "yuv420p", ":bframes=0:cabac=0:8x8dct=0:weightp=0", SIZE),
    "main": (77, "yuv420p", ":8x8dct=0", SIZE),
    "high": (100, "yuv420p", "", SIZE),
    "high10": (110, "yuv420p10le", "", SIZE),
    "high422": (122, "yuv422p10le", "", SIZE),
    "high444": (244, "yuv444p", "", SIZE),
    "cropped": (100, "yuv420p", "", (66, 50)),
    "cbr": (100, "yuv420p", CBR, SIZE),
}
STREAMS = [(profile, False) for profile in PROFILES] + [(profile, True) for profile in ("main", "high", "high422",
                                                                                      "high444")]

# Elements that fill bytes up, and those that count them.
FILLING = {"rbsp_alignment_zero_bit", "bit_equal_to_zero", "bit_equal_to_one", "payload_bit_equal_to_one",
           "payload_bit_equal_to_zero"}
TIMESTAMP = ("clock_timestamp_flag", "ct_type", "nuit_field_based_flag", "counting_type", "full_timestamp_flag",
             "discontinuity_flag", "cnt_dropped_flag", "n_frames", "seconds_value", "minutes_value", "hours_value",
             "time_offset", "last_payload_size_byte")


def encode(path, profile, interlaced):
    _, pix_fmt, params, size = PROFILES[profile]
    ffmpeg("-f", "lavfi", "-i", "testsrc2=size=%dx%d:rate=25" % size, "-frames:v", str(FRAMES), "-pix_fmt", pix_fmt,
           "-c:v", "libx264", "-preset", "veryfast", "-x264-params", HRD + params + (":tff=1" if interlaced else ""),
           "-f", "h264", path)


def picture_hashes(path, *filters):
    """Of the decoded pictures. Without the flag ffmpeg's decoder cuts off less on the left than the stream says."""
    lines = ffmpeg("-flags", "+unaligned", "-i", path, *filters, "-f", "framemd5", "-").decode().splitlines()
    return [line.split(",")[-1].strip() for line in lines if not line.startswith("#")]


# Lists of elements, each a name and a value.

def units_of(path):
    return [(unit.title, [(element.name, element.value) for element in unit.elements if element.name not in FILLING])
            for unit in trace_headers.run("ffmpeg", path)]


def replaced(elements, **values):
    expect("elements that change", {name for name, _ in elements} & set(values), set(values))
    return [(name, values.get(name, value)) for name, value in elements]


def spliced(elements, first, behind, new):
    """The elements from one to the one in front of another are new ones."""
    names = [name for name, _ in elements]
    return elements[:names.index(first)] + new + elements[names.index(behind):]


def value_of(elements, name, absent):
    return dict(elements).get(name, absent)


def with_signal(elements, full_range=None, colour=None):
    names = ("colour_primaries", "transfer_characteristics", "matrix_coefficients")
    if colour is None and value_of(elements, "colour_description_present_flag", 0):
        colour = [value_of(elements, name, None) for name in names]
    if full_range is None:
        full_range = value_of(elements, "video_full_range_flag", 0)
    new = [("video_signal_type_present_flag", 1), ("video_format", value_of(elements, "video_format", 5)),
           ("video_full_range_flag", full_range), ("colour_description_present_flag", int(colour is not None))]
    return spliced(elements, "video_signal_type_present_flag", "chroma_loc_info_present_flag",
                   new + list(zip(names, colour or ())))


def with_crop(elements, offsets):
    new = [("frame_cropping_flag", 1)] + [("frame_crop_%s_offset" % side, offset) for side, offset
                                          in zip(("left", "right", "top", "bottom"), offsets)]
    return spliced(elements, "frame_cropping_flag", "vui_parameters_present_flag", new)


def with_ratio(elements, idc, *ratio):
    new = [("aspect_ratio_info_present_flag", 1), ("aspect_ratio_idc", idc)]
    return spliced(elements, "aspect_ratio_info_present_flag", "overscan_info_present_flag",
                   new + list(zip(("sar_width", "sar_height"), ratio)))


def is_sps(title):
    return title == "Sequence Parameter Set"


def changed_sps(units, change):
    return [(title, change(elements) if is_sps(title) else elements) for title, elements in units]


def with_delay(units, delay, offset):
    found = 0
    result = []
    for title, elements in units:
        names = [name for name, _ in elements]
        if "initial_cpb_removal_delay[0]" in names:
            found += 1
            elements = replaced(elements, **{"initial_cpb_removal_delay[0]": delay,
                                             "initial_cpb_removal_delay_offset[0]": offset})
        result.append((title, elements))
    expect("buffering periods", found > 0, True)
    return result


def with_pic_struct(units):
    """Frames of progressive video get pic_struct 0 and no timecode."""
    result = []
    for title, elements in units:
        if is_sps(title):
            elements = replaced(elements, pic_struct_present_flag=1)
        names = [name for name, _ in elements]
        if "dpb_output_delay" in names and "pic_struct" not in names:
            behind = names.index("dpb_output_delay") + 1
            elements = elements[:behind] + [("pic_struct", 0), ("clock_timestamp_flag[0]", 0)] + elements[behind:]
        result.append((title, elements))
    return result


def without(units, prefixes):
    return [(title, [element for element in elements if not element[0].startswith(prefixes)])
            for title, elements in units]


class Stream:
    def __init__(self, tool, directory, profile, interlaced):
        self.tool = tool
        self.name = profile + ("_interlaced" if interlaced else "")
        self.interlaced = interlaced
        self.path = os.path.join(directory, self.name + ".h264")
        self.result = os.path.join(directory, self.name + ".rewritten.h264")
        encode(self.path, profile, interlaced)
        self.units = units_of(self.path)
        self.hashes = picture_hashes(self.path)
        expect("pictures", len(self.hashes), FRAMES)
        self.size = PROFILES[profile][3]
        dumped = run(tool, "dump", "--json", "--types", "sps", self.path).stdout.splitlines()
        expect("profiles", {json.loads(line)["sps"]["profile_idc"] for line in dumped}, {PROFILES[profile][0]})
        expect("parameter sets", sum(is_sps(title) for title, _ in self.units) > 0, True)
        # Of the crop unit in the standard's sense: 2 and 2, 2 and 1, 1 and 1, twice the height where fields may be.
        self.crop_unit = (1 if profile == "high444" else 2,
                          (1 if profile in ("high422", "high444") else 2) * (2 if interlaced else 1))

    def rewrite(self, *options):
        result = run(self.tool, "rewrite", self.path, "-o", self.result, *options)
        expect("exit status and messages", (result.returncode, result.stderr.decode()), (0, ""))

    def check(self, expected, *options, ignored=(), hashes=None):
        """expected: what the elements of the units are then."""
        self.rewrite(*options)
        found = units_of(self.result)
        if ignored:
            found, expected = without(found, ignored), without(expected, ignored)
        expect("%s: number of units" % (options,), len(found), len(expected))
        for number, (one, other) in enumerate(zip(found, expected)):
            expect("%s: unit %d" % (options, number), one, other)
        expect("%s: decoded pictures" % (options,), picture_hashes(self.result), hashes or self.hashes)

    def check_sps(self, change, *options, shown=None, **keywords):
        """shown: what ffprobe says of the result; it is asked about one stream, to save time."""
        self.check(changed_sps(self.units, change), *options, **keywords)
        if shown is not None and self.name == "high":
            expect("%s: what ffprobe shows" % (options,), self.probe(*shown), list(shown.values()))

    def check_crop(self):
        x, y = self.crop_unit
        # What is cut off already lies on the right and at the bottom.
        hidden = [-length % 16 for length in self.size]
        offsets = (1, 2 + hidden[0] // x, 3, 4 + hidden[1] // y)
        pixels = (offsets[0] * x, offsets[1] * x, offsets[2] * y, offsets[3] * y)
        size = (self.size[0] + hidden[0] - pixels[0] - pixels[1], self.size[1] + hidden[1] - pixels[2] - pixels[3])
        hashes = picture_hashes(self.path, "-vf", "crop=%d:%d:%d:%d:exact=1" % (*size, pixels[0], pixels[2]))
        self.check_sps(lambda elements: with_crop(elements, offsets), "--crop", "%d,%d,%d,%d" % pixels, hashes=hashes)
        if any(hidden):
            self.rewrite("--crop", "0,0,0,0")
            found = self.probe("width", "height")
            expect("size without cropping", found, [self.size[0] + hidden[0], self.size[1] + hidden[1]])
            expect("pictures behind cropping", picture_hashes(self.result, "-vf", "crop=%d:%d:0:0:exact=1" % self.size),
                   self.hashes)
            expect("units without cropping", units_of(self.result),
                   changed_sps(self.units, lambda elements: with_crop(elements, (0, 0, 0, 0))))

    def probe(self, *entries):
        result = run("ffprobe", "-v", "error", "-show_entries", "stream=" + ",".join(entries), "-of", "json",
                     self.result)
        stream = json.loads(result.stdout)["streams"][0]
        return [stream.get(entry) for entry in entries]

    def check_timecodes(self, first, rate, *options):
        expected = self.units if self.interlaced else with_pic_struct(self.units)
        if "--timing" in options:
            expected = changed_sps(expected, lambda elements: replaced(elements, num_units_in_tick=rate.denominator,
                                                                       time_scale=2 * rate.numerator))
        self.check(expected, "--pic-struct", "--timecode", first, *options, ignored=TIMESTAMP)
        found = [data["timecodes"][0]["value"].replace(";", ":") for frame in frames_of(self.result)
                 for data in side_data(frame, "SMPTE 12-1 timecode")]
        expect("timecodes", found, [text.replace(";", ":") for text in timecodes(first, rate, FRAMES)])

    def check_all(self):
        if self.name == "cropped":
            self.check_crop()
            return
        if self.name == "cbr":
            self.check_sps(lambda elements: replaced(elements, level_idc=51), "--level", "5.1")
            self.check(with_delay(self.units, 12345, 678), "--initial-cpb-removal-delay", "0=12345,678")
            self.check_timecodes("09:59:59:22", Fraction(25))
            return
        self.check_sps(lambda elements: replaced(elements, num_units_in_tick=1001, time_scale=48000,
                                                 fixed_frame_rate_flag=1),
                       "--timing", "1001/48000", "--fixed-frame-rate", "1",
                       shown={"r_frame_rate": "24000/1001"})
        self.check_sps(lambda elements: with_signal(elements, colour=(9, 16, 9)), "--colour", "9:16:9",
                       shown={"color_primaries": "bt2020", "color_transfer": "smpte2084", "color_space": "bt2020nc"})
        self.check_sps(lambda elements: with_ratio(with_signal(elements, full_range=1), 5), "--full-range", "1", "--sar",
                       "40:33", shown={"color_range": "pc", "sample_aspect_ratio": "40:33"})
        self.check_sps(lambda elements: with_ratio(elements, 255, 7, 5), "--sar", "7:5",
                       shown={"sample_aspect_ratio": "7:5"})
        self.check_sps(lambda elements: replaced(elements, level_idc=51), "--level", "5.1", shown={"level": 51})
        self.check_crop()
        self.check(with_delay(self.units, 12345, 678), "--initial-cpb-removal-delay", "0=12345,678")
        if not self.interlaced:
            self.check(with_pic_struct(self.units), "--pic-struct", ignored=("last_payload_size_byte",))
        self.check_timecodes("09:59:59:22", Fraction(25))
        self.check_timecodes("00:08:59;27", Fraction(30000, 1001), "--timing", "1001/60000")
        self.check_sps(lambda elements: with_signal(with_ratio(replaced(elements, num_units_in_tick=1, time_scale=100,
                                                                        level_idc=42), 14), 0, (1, 1, 1)),
                       "--timing", "1/100", "--level", "4.2", "--sar", "4:3", "--colour", "1:1:1", "--full-range", "0",
                       shown={"r_frame_rate": "50/1", "sample_aspect_ratio": "4:3", "level": 42,
                              "color_primaries": "bt709", "color_range": "tv"})


def main():
    if len(sys.argv) != 3:
        sys.exit("Usage: %s H264TOOL WORK_DIRECTORY" % sys.argv[0])
    missing = missing_part()
    if missing is not None:
        print("Skipped: %s." % missing)
        sys.exit(SKIPPED)
    tool, directory = sys.argv[1:]
    os.makedirs(directory, exist_ok=True)

    def is_fine(stream):
        try:
            Stream(tool, directory, *stream).check_all()
        except (Different, trace_headers.TraceError) as difference:
            print("DIFFERENT: %s%s: %s" % (stream[0], ", interlaced" if stream[1] else "", difference))
            return False
        return True

    with ThreadPoolExecutor(max_workers=os.cpu_count()) as workers:
        fine = list(workers.map(is_fine, STREAMS))
    print("ffmpeg read what was rewritten of %d of %d streams." % (sum(fine), len(STREAMS)))
    sys.exit(0 if all(fine) else 1)


if __name__ == "__main__":
    main()
