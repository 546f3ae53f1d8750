#!/usr/bin/env python3
"""Lets ffmpeg read what h264tool insert put into streams, frame by frame.

Usage: insert_test.py H264TOOL WORK_DIRECTORY

Exit status: 0 all is read as it was inserted, 1 differences, 77 ffmpeg or its libx264 encoder is missing.
"""

import json
import os
import re
import shutil
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from fractions import Fraction

SKIPPED = 77
UUID = "0123456789abcdef0123456789abcdef"
MISP = b"MISPmicrosectime".hex()
TEXT = "frame by frame"
START = 1700000000123456
SECONDS = 5

# Name: frame rate, first timecode, AFD, encoder options, whether SEI units are removed from the encoder's stream (it
# writes picture timing into interlaced ones).
STREAMS = {
    "24_no_b": ("24", "23:59:59:20", 8, "bframes=0:slices=2", False),
    "23_976_b": ("24000/1001", "00:00:59:23", 9, "bframes=2", False),
    "25_pyramid": ("25", "10:00:00:00", 10, "bframes=4:b-pyramid=normal:b-adapt=0:aud=1", False),
    "25_open_gop": ("25", "01:02:03:04", 11, "bframes=3:keyint=12:open-gop=1", False),
    "29_97_drop": ("30000/1001", "00:08:59;10", 10, "bframes=2:b-adapt=0:keyint=20", False),
    "29_97_drop_ten": ("30000/1001", "00:09:59;10", 10, "bframes=1", False),
    "29_97_non_drop": ("30000/1001", "00:08:59:10", 10, "bframes=3:b-adapt=0", False),
    "50": ("50", "00:00:00:48", 13, "bframes=2", False),
    "59_94_drop": ("60000/1001", "00:00:58;50", 14, "bframes=3", False),
    "60": ("60", "12:34:56:50", 15, "bframes=0:aud=1", False),
    "25_interlaced": ("25", "09:59:59:24", 8, "tff=1:bframes=3:b-adapt=0", True),
    "29_97_interlaced": ("30000/1001", "00:00:59;20", 10, "bff=1:bframes=0", True),
}


class Different(Exception):
    pass


def expect(what, found, expected):
    if found != expected:
        raise Different("%s: found %r, expected %r" % (what, found, expected))


def run(*command):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          check=False)


def ffmpeg(*options):
    result = run("ffmpeg", "-v", "error", "-y", "-nostdin", *options)
    if result.returncode != 0:
        raise Different("ffmpeg failed: " + result.stderr.decode("utf-8", "replace")[-500:])
    return result.stdout


def missing_part():
    if shutil.which("ffmpeg") is None or shutil.which("ffprobe") is None:
        return "ffmpeg is not installed"
    if b" libx264 " not in run("ffmpeg", "-hide_banner", "-encoders").stdout:
        return "ffmpeg is built without libx264"
    return None


def encode(path, rate, options, without_sei):
    filters = ["-bsf:v", "filter_units=remove_types=6"] if without_sei else []
    flags = ["-flags", "+ildct+ilme"] if without_sei else []
    ffmpeg("-f", "lavfi", "-i", "testsrc2=size=64x64:rate=%s" % rate, "-t", str(SECONDS), "-pix_fmt", "yuv420p",
           "-c:v", "libx264", "-preset", "veryfast", "-threads", "1", *flags, "-x264-params", options, *filters,
           "-f", "h264", path)


# Timecodes, counted the slow way.

def timecodes(first, rate, count):
    """count timecodes from the first one on, number by number."""
    nominal = round(rate)
    drop = nominal // 15 if ";" in first else 0
    hours, minutes, seconds, frames = (int(number) for number in re.split("[:;]", first))
    listed = []
    while len(listed) < count:
        if not (drop and seconds == 0 and minutes % 10 and frames < drop):
            listed.append("%02d:%02d:%02d%s%02d" % (hours, minutes, seconds, ";" if drop else ":", frames))
        frames += 1
        if frames == nominal:
            frames, seconds = 0, seconds + 1
        if seconds == 60:
            seconds, minutes = 0, minutes + 1
        if minutes == 60:
            minutes, hours = 0, (hours + 1) % 24
    return listed


# Captions.

def with_parity(byte):
    return byte | (0x80 if bin(byte).count("1") % 2 == 0 else 0)


def pairs_of(text):
    """Pop-on caption: load, address row 15, characters, show."""
    pairs = [(0x14, 0x20)] * 2 + [(0x14, 0x70)] * 2
    codes = text.encode("ascii") + b"\0" * (len(text) % 2)
    pairs += list(zip(codes[::2], codes[1::2])) + [(0x14, 0x2F)] * 2
    return ["%02x%02x" % (with_parity(a), with_parity(b)) for a, b in pairs]


def write_scc(path, first, rate):
    """Two captions and their end, from half a second behind a first timecode on. Returns all pairs that it sends."""
    nominal = round(rate)
    drop = ";" in first
    starts = timecodes(first, rate, 4 * nominal)
    lines = [(starts[nominal // 2], pairs_of("Hello, world")), (starts[2 * nominal], pairs_of("It's frame %d!" % 25)),
             (starts[3 * nominal + 7], ["942c", "942c"])]
    with open(path, "w", encoding="ascii") as scc:
        scc.write("Scenarist_SCC V1.0\n")
        for start, pairs in lines:
            frame = int(start[-2:]) * 30 // nominal
            if drop and frame < 2 and int(start[3:5]) % 10 and start[6:8] == "00":
                frame = 2
            scc.write("\n%s%02d\t%s\n" % (start[:-2], frame, " ".join(pairs)))
    return [pair for _, pairs in lines for pair in pairs]


def to_matroska(path, rate):
    """The decoded pictures with their captions once more encoded: with time stamps, which a byte stream has not."""
    copy = path + ".mkv"
    ffmpeg("-i", path, "-vf", "setpts=N*%d/(%d*TB)" % (rate.denominator, rate.numerator), "-c:v", "libx264",
           "-preset", "ultrafast", "-threads", "1", copy)
    return copy


def subtitle_texts(*source):
    srt = ffmpeg(*source, "-map", "0:s", "-f", "srt", "-").decode("utf-8", "replace")
    texts = [line for line in srt.splitlines() if line and not line.isdigit() and "-->" not in line]
    return [re.sub(r"<[^>]*>|\{[^}]*\}", "", text).strip() for text in texts]


def caption_triples(path):
    """The caption triples of each frame in output order."""
    packets = json.loads(run("ffprobe", "-v", "error", "-f", "lavfi", "-i", "movie=%s[out0+subcc]" % path,
                             "-select_streams", "s", "-show_packets", "-show_data", "-of", "json").stdout)["packets"]
    frames = []
    for packet in packets:
        digits = "".join(line.split(": ")[1][:40].replace(" ", "") for line in packet["data"].splitlines() if line)
        frames.append([digits[i:i + 6] for i in range(0, len(digits), 6)])
    return frames


# The checks.

def frames_of(path):
    return json.loads(run("ffprobe", "-v", "error", "-show_frames", "-of", "json", path).stdout)["frames"]


def side_data(frame, kind):
    return [data for data in frame.get("side_data_list", []) if data["side_data_type"] == kind]


def user_data(path):
    """Pairs of UUID and payload of each frame, in hexadecimal digits."""
    log = run("ffmpeg", "-nostdin", "-i", path, "-vf", "showinfo", "-f", "null", "-").stderr.decode("utf-8", "replace")
    frames = []
    for line in log.splitlines():
        if re.search(r"\] n: *\d+ ", line):
            frames.append([])
        found = re.search(r"UUID=([0-9a-f-]+)", line)
        if found:
            frames[-1].append([found.group(1).replace("-", ""), None])
        found = re.search(r"User Data=([0-9a-f]*)", line)
        if found:
            frames[-1][-1][1] = found.group(1)
    return [[tuple(entry) for entry in frame] for frame in frames]


def picture_hashes(path):
    lines = ffmpeg("-i", path, "-f", "framemd5", "-").decode().splitlines()
    return [line.split(",")[-1].strip() for line in lines if not line.startswith("#")]


def precision_payload(time):
    octets = time.to_bytes(8, "big")
    return (b"\x9f" + b"\xff".join(octets[i:i + 2] for i in range(0, 8, 2))).hex()


def as_marked(frames, listed):
    """The timecodes of frames as ffmpeg shows them: with the semicolon from the frame on, in decoding order, that has
    cnt_dropped_flag 1, which is the first one behind numbers that were left out."""
    positions = [int(frame["pkt_pos"]) for frame in frames]
    marks = [position for position, before, timecode in zip(positions[1:], listed, listed[1:])
             if before[6:8] == "59" and timecode[6:] in ("00;02", "00;04")]
    return [timecode if marks and position >= min(marks) else timecode.replace(";", ":")
            for position, timecode in zip(positions, listed)]


def check_frames(frames, name, count):
    rate_text, first, afd, _, interlaced = STREAMS[name]
    expect("number of frames", len(frames), count)
    expect("timecodes", [data["timecodes"][0]["value"] for frame in frames
                         for data in side_data(frame, "SMPTE 12-1 timecode")],
           as_marked(frames, timecodes(first, Fraction(rate_text), count)))
    expect("active formats", [data["active_format"] for frame in frames
                              for data in side_data(frame, "Active format description")], [afd] * count)
    expect("interlaced frames", {frame["interlaced_frame"] for frame in frames}, {int(interlaced)})
    captions = [data for frame in frames for data in side_data(frame, "ATSC A53 Part 4 Closed Captions")]
    expect("units of captions", len(captions), count)


def check_captions(path, scc, sent, rate):
    expect("caption texts", subtitle_texts("-f", "lavfi", "-i", "movie=%s[out0+subcc]" % to_matroska(path, rate)),
           subtitle_texts("-i", scc))
    frames = caption_triples(path)
    expect("triples in each frame", {len(frame) for frame in frames}, {round(600 / rate)})
    carried = [triple[2:] for frame in frames for triple in frame if triple[:2] == "fc"]
    expect("caption pairs", [pair for pair in carried if pair != "8080"], sent)
    expect("pairs in all", abs(len(carried) - SECONDS * 30000 / 1001) < 2, True)
    expect("padding", {triple for frame in frames for triple in frame if triple[:2] != "fc"} - {"fa0000", "f80000"},
           set())


def check_user_data(path, rate, count):
    wanted = [(UUID, TEXT.encode().hex())]
    found = user_data(path)
    expect("frames with user data", len(found), count)
    for i, entries in enumerate(found):
        time = START + i * 1000000 * rate.denominator // rate.numerator
        expect("user data of frame %d" % i, sorted(entry for entry in entries if entry[0] in (UUID, MISP)),
               sorted(wanted + [(MISP, precision_payload(time))]))


def check_stream(tool, directory, name):
    rate_text, first, afd, options, without_sei = STREAMS[name]
    rate = Fraction(rate_text)
    before, after, scc = (os.path.join(directory, name + end) for end in (".h264", ".inserted.h264", ".scc"))
    encode(before, rate_text, options, without_sei)
    sent = write_scc(scc, first, rate)
    result = run(tool, "insert", before, "-o", after, "--timecode", first, "--captions", scc, "--afd", str(afd),
                 "--user-data", "%s:%s" % (UUID, TEXT), "--precision-time", str(START), "--aud", "--end-of-sequence")
    expect("exit status and messages", (result.returncode, result.stderr.decode()), (0, ""))
    hashes = picture_hashes(before)
    expect("decoded pictures", picture_hashes(after), hashes)
    check_frames(frames_of(after), name, len(hashes))
    check_captions(after, scc, sent, rate)
    with open(scc, "rb") as file:
        expect("extracted captions", run(tool, "extract", "--captions", "-", after).stdout, file.read())
    check_user_data(after, rate, len(hashes))
    log = run("ffmpeg", "-v", "warning", "-nostdin", "-i", after, "-f", "null", "-").stderr.decode()
    expect("complaints of the decoder", log, "")
    return len(hashes)


def main():
    if len(sys.argv) != 3:
        sys.exit("Usage: %s H264TOOL WORK_DIRECTORY" % sys.argv[0])
    missing = missing_part()
    if missing is not None:
        print("Skipped: %s." % missing)
        sys.exit(SKIPPED)
    tool, directory = sys.argv[1:]
    os.makedirs(directory, exist_ok=True)

    def result_of(name):
        try:
            return check_stream(tool, directory, name)
        except Different as difference:
            print("DIFFERENT: %s: %s" % (name, difference))
            return 0

    with ThreadPoolExecutor(max_workers=os.cpu_count()) as workers:
        frames = list(workers.map(result_of, STREAMS))
    print("ffmpeg read what was inserted into %d of %d streams, %d frames." %
          (sum(count > 0 for count in frames), len(STREAMS), sum(frames)))
    sys.exit(0 if all(frames) else 1)


if __name__ == "__main__":
    main()
