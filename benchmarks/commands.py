"""Times h264tool as a whole process against other programs on the same stream."""

import os
import pathlib
import shutil
import statistics
import subprocess
import tempfile
import time

REPETITIONS = 5
SECONDS_OF_VIDEO = 60


def make_stream(path):
    subprocess.run(
        ["ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"testsrc2=size=640x360:rate=50:duration={SECONDS_OF_VIDEO}",
         "-vf", "noise=alls=20:allf=t", "-c:v", "libx264", "-preset", "ultrafast", "-b:v", "4M", "-x264-params",
         "nal-hrd=vbr:vbv-maxrate=5000:vbv-bufsize=5000:pic-struct=1:aud=1:keyint=50", path],
        check=True,
    )  # fmt: skip


def seconds(command):
    """User and system time of a run."""
    before = os.times()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    after = os.times()
    return after.children_user + after.children_system - before.children_user - before.children_system


def wall_seconds(command):
    start = time.perf_counter()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return time.perf_counter() - start


def medians(commands, clock=seconds):
    times = {name: [] for name in commands}
    for _ in range(REPETITIONS):
        for name, command in commands.items():
            times[name].append(clock(command))
    return {name: statistics.median(values) for name, values in times.items()}


def peak_memory(command):
    """In KiB."""
    program = "import resource,subprocess,sys; subprocess.run(sys.argv[1:],stdout=subprocess.DEVNULL,check=True); print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)"
    out = subprocess.run(["python3", "-c", program, *command], check=True, stdout=subprocess.PIPE, text=True)
    return int(out.stdout)


def measure(tool):
    tool = str(tool)
    with tempfile.TemporaryDirectory() as directory:
        return measure_in(tool, pathlib.Path(directory))


def row(name, megabyte, other_name, other, aim):
    ratio = megabyte / other
    return (name, f"{1000 * megabyte:.3g} ms/MB", f"{other_name} {1000 * other:.3g} ms/MB", ratio, f"<= {aim}", ratio <= aim)


def measure_in(tool, directory):
    stream = str(directory / "stream.h264")
    make_stream(stream)
    megabytes = os.path.getsize(stream) / 1e6
    out = str(directory / "out.h264")
    commands = {
        "dump": [tool, "dump", stream],
        "summary": [tool, "summary", stream],
        "insert": [tool, "insert", stream, "-o", out, "--afd", "10"],
        "rewrite": [tool, "rewrite", stream, "-o", out, "--sar", "1:1"],
        "trace_headers": ["ffmpeg", "-v", "verbose", "-i", stream, "-c", "copy", "-bsf:v", "trace_headers", "-f", "null", "-"],
        "ffprobe": ["ffprobe", "-v", "error", "-show_packets", stream],
        "h264_metadata": ["ffmpeg", "-v", "error", "-y", "-i", stream, "-c", "copy", "-bsf:v",
                          "h264_metadata=sample_aspect_ratio=1/1", out],
    }  # fmt: skip
    if shutil.which("gst-launch-1.0"):
        commands["h264parse"] = ["gst-launch-1.0", "-q", "filesrc", f"location={stream}", "!", "h264parse", "!", "fakesink"]
    times = {name: value / megabytes for name, value in medians(commands).items()}
    rows = [
        row("dump", times["dump"], "trace_headers", times["trace_headers"], 0.2),
        row("summary", times["summary"], "ffprobe -show_packets", times["ffprobe"], 0.2),
        row("insert", times["insert"], "h264_metadata", times["h264_metadata"], 0.2),
        row("rewrite", times["rewrite"], "h264_metadata", times["h264_metadata"], 0.2),
    ]
    if "h264parse" in times:
        rows.append(row("summary", times["summary"], "h264parse", times["h264parse"], 0.2))

    # Start-up, beside that of a program that does nothing.
    starts = medians({"tool": [tool, "--version"], "true": ["true"]}, wall_seconds)
    rows.append(("start-up", f"{1000 * starts['tool']:.3g} ms", f"true {1000 * starts['true']:.3g} ms",
                 starts["tool"] / starts["true"], "<= 10 ms", starts["tool"] <= 0.010))  # fmt: skip

    # Time and memory by the megabyte of a stream of 1 GB against one of a sixteenth.
    small, large = str(directory / "small.h264"), str(directory / "large.h264")
    content = pathlib.Path(stream).read_bytes()
    for path, size in ((small, 64), (large, 1024)):
        with open(path, "wb") as file:
            for _ in range(max(1, round(size / megabytes))):
                file.write(content)
    scaling = medians({path: [tool, "summary", path] for path in (small, large)})
    by_megabyte = {path: scaling[path] / os.path.getsize(path) for path in (small, large)}
    ratio = by_megabyte[large] / by_megabyte[small]
    rows.append(("summary of 1 GB", f"{1e9 * by_megabyte[large]:.3g} ms/MB", f"64 MB {1e9 * by_megabyte[small]:.3g} ms/MB",
                 ratio, "<= 1.1", ratio <= 1.1))  # fmt: skip
    memory = {path: peak_memory([tool, "summary", path]) for path in (small, large)}
    ratio = memory[large] / memory[small]
    rows.append(("memory at 1 GB", f"{memory[large]} KiB", f"64 MB {memory[small]} KiB", ratio, "<= 1.1", ratio <= 1.1))
    return rows
