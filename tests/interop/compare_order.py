#!/usr/bin/env python3
"""Compares the order in which h264tool says that pictures are put out with that in which ffmpeg's decoder does.

Usage: compare_order.py H264TOOL WORK_DIRECTORY

Exit status: 0 no difference, 1 differences, 77 ffmpeg or its libx264 encoder is missing.
"""

import csv
import os
import shutil
import subprocess
import sys

import compare_with_ffmpeg
import h264_writer
import sei_writer
import streams

SKIPPED = compare_with_ffmpeg.SKIPPED

# Entries of streams.ENCODED, and others.
NAMES = ("main", "baseline", "tff", "fake_interlaced", "pyramid_strict", "many_references", "no_reordering", "open_gop",
         "intra_refresh", "weights", "weights_implicit", "temporal_mbaff", "hrd_vbr_tff", "stitchable", "slices_mbaff")
MORE = {
    "order_pyramid": streams.x264("bframes=7:b-pyramid=normal:b-adapt=0:ref=8:keyint=40", frames=120),
    "order_short_gops": streams.x264("bframes=3:b-adapt=0:keyint=7:min-keyint=7:scenecut=0", frames=100),
    "order_open_gops": streams.x264("open-gop=1:keyint=9:min-keyint=9:bframes=3:b-adapt=0:b-pyramid=normal",
                                    frames=100),
    "order_long": streams.x264("bframes=4:b-adapt=0:keyint=infinite", frames=300),  # pic_order_cnt_lsb wraps
    "order_long_type_2": streams.x264("bframes=0:keyint=infinite", frames=300),  # frame_num wraps
}


def mark_pictures(path):
    """Puts the number of each picture, in decoding order, in front of its first slice as a precision time stamp.
    Returns the new path and the number of pictures."""
    with open(path, "rb") as file:
        units = h264_writer.split(file.read())
    marked, count = [], 0
    for unit in units:
        # first_mb_in_slice 0 is one bit that is 1.
        if h264_writer.nal_unit_type(unit) in (1, 5) and unit[unit.index(b"\x01") + 2] & 0x80:
            marked.append(sei_writer.unit(sei_writer.precision_time(count)))
            count += 1
        marked.append(unit)
    marked_path = path + ".marked"
    with open(marked_path, "wb") as file:
        file.write(b"".join(marked))
    return marked_path, count


def order_of_ffmpeg(ffprobe, path):
    """Numbers of the pictures in output order. A frame is known by the position of its packet in the stream."""
    output = subprocess.run([ffprobe, "-v", "error", "-f", "h264", "-show_entries", "frame=pkt_pos", "-of",
                             "csv=print_section=0", path], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            check=True).stdout.decode()
    positions = [int(line.split(",")[0]) for line in output.splitlines() if line]
    if len(set(positions)) != len(positions):
        raise RuntimeError("ffprobe shows packets at the same position: %s" % positions)
    numbers = {position: number for number, position in enumerate(sorted(positions))}
    return [numbers[position] for position in positions]


def order_of_tool(tool, path):
    output = subprocess.run([tool, "extract", path, "--precision-time", "-"], stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, check=True).stdout.decode()
    rows = list(csv.DictReader(output.splitlines()))
    if any(row["picture"] != row["microseconds"] for row in rows):
        raise RuntimeError("h264tool numbers the pictures otherwise")
    return [int(row["picture"]) for row in sorted(rows, key=lambda row: int(row["output_picture"]))]


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    tool, directory = sys.argv[1:]
    ffmpeg, ffprobe = shutil.which("ffmpeg"), shutil.which("ffprobe")
    missing = compare_with_ffmpeg.missing_part(ffmpeg if ffprobe else None)
    if missing:
        print("Skipped: %s (Debian: ffmpeg)." % missing)
        return SKIPPED
    shutil.rmtree(directory, ignore_errors=True)
    os.makedirs(directory)
    streams.ENCODED.update(MORE)
    different = pictures = reordered = 0
    for name in (*NAMES, *MORE):
        path, count = mark_pictures(streams.encode(ffmpeg, directory, name))
        theirs, ours = order_of_ffmpeg(ffprobe, path), order_of_tool(tool, path)
        pictures += count
        reordered += sum(number != i for i, number in enumerate(theirs))
        if len(theirs) != count or theirs != ours:
            different += 1
            print("DIFFERENT: %s: %d pictures, ffmpeg %s, h264tool %s" % (name, count, theirs, ours))
    print("Compared the order of %d pictures, of which %d are put out at another place than they are coded, in %d "
          "streams: %d differences." % (pictures, reordered, len(NAMES) + len(MORE), different))
    return 1 if different or reordered < 400 else 0


if __name__ == "__main__":
    sys.exit(main())
