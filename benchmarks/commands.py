"""Times h264tool as a whole process against other programs on the same stream."""

import os
import pathlib
import re
import resource
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


def pin():
    """To the last processor that this process may use; the first one serves interrupts most often."""
    os.sched_setaffinity(0, {max(os.sched_getaffinity(0))})


def seconds(command):
    """User and system time of a run."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, preexec_fn=pin)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


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


def run_on(command, content, times):
    """CPU seconds and peak memory in KiB of a command that reads so many times the content from a pipe."""
    process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    for _ in range(times):
        process.stdin.write(content)
    # Before it ends: what the kernel reports afterwards is at least the memory of Python, from which it was forked.
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
    process.stdin.close()
    _, exit_status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(exit_status)
    if process.returncode != 0:
        raise RuntimeError(f"{command} failed")
    return usage.ru_utime + usage.ru_stime, int(re.search(r"VmHWM:\s+(\d+)", status).group(1))


def scaling_rows(tool, content):
    """Time and memory by the megabyte of a stream of 4 GB against one of 64 MB, for commands that read a pipe."""
    rows = []
    times = {name: max(1, round(size / len(content))) for name, size in (("64 MB", 64e6), ("4 GB", 4e9))}
    for command in ("summary", "dump"):
        results = {name: run_on([tool, command, "-"], content, count) for name, count in times.items()}
        by_megabyte = {name: results[name][0] / (times[name] * len(content) / 1e6) for name in times}
        ratio = by_megabyte["4 GB"] / by_megabyte["64 MB"]
        rows.append((f"{command} of 4 GB", f"{1000 * by_megabyte['4 GB']:.3g} ms/MB",
                     f"64 MB {1000 * by_megabyte['64 MB']:.3g} ms/MB", ratio, "<= 1.1", ratio <= 1.1))  # fmt: skip
        memory = {name: results[name][1] for name in times}
        ratio = memory["4 GB"] / memory["64 MB"]
        rows.append((f"memory of {command} at 4 GB", f"{memory['4 GB']} KiB", f"64 MB {memory['64 MB']} KiB", ratio,
                     "<= 1.1", ratio <= 1.1))  # fmt: skip
    return rows


def measure(tool):
    tool = str(tool)
    with tempfile.TemporaryDirectory() as directory:
        return measure_in(tool, pathlib.Path(directory))


def row(name, megabyte, other_name, other, aim):
    ratio = megabyte / other
    return (name, f"{1000 * megabyte:.3g} ms/MB", f"{other_name} {1000 * other:.3g} ms/MB", ratio, f"<= {aim}",
            ratio <= aim)  # fmt: skip


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
        "trace_headers": ["ffmpeg", "-v", "verbose", "-i", stream, "-c", "copy", "-bsf:v", "trace_headers",
                          "-f", "null", "-"],
        "ffprobe": ["ffprobe", "-v", "error", "-show_packets", stream],
        "h264_metadata": ["ffmpeg", "-v", "error", "-y", "-i", stream, "-c", "copy", "-bsf:v",
                          "h264_metadata=sample_aspect_ratio=1/1", out],
    }  # fmt: skip
    if shutil.which("gst-launch-1.0"):
        commands["h264parse"] = ["gst-launch-1.0", "-q", "filesrc", f"location={stream}", "!", "h264parse",
                                 "!", "fakesink"]  # fmt: skip
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

    return rows + scaling_rows(tool, pathlib.Path(stream).read_bytes())
