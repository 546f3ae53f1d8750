"""Tests of the command line, input and output of h264tool, run as: command_test.py H264TOOL [unittest arguments]"""

import errno
import os
import pty
import re
import signal
import subprocess
import tempfile
import time

import runner
import stream_builder as build
from dump_stream import DATA_FILE
from runner import CONVERSION, EMPTY, HEADER, NO_START_CODE, TOOL, TestCase, feed, run, without_addresses
from stream_builder import nal_unit


SAMPLE = os.path.join(os.path.dirname(os.path.dirname(build.HERE)), "samples", "interlaced_hrd.h264")

# What makes each subcommand run.
COMMANDS = {"dump": (), "extract": ("--timecodes", "-"), "insert": ("-o", "-", "--aud"), "report": ("-o", "-"),
            "rewrite": ("-o", "-", "--timing", "1001/60000"), "summary": ()}


class CommandLine(TestCase):
    def assert_usage_error(self, *arguments, names):
        result = run(*arguments)
        self.assertEqual((result.returncode, result.stdout), (2, b""))
        self.assertIn(names, result.stderr.decode())

    def test_usage_errors(self):
        self.assert_usage_error(names="subcommand")
        self.assert_usage_error("no-such-subcommand", names="subcommand")
        self.assert_usage_error("dump", names="FILE")
        self.assert_usage_error("dump", DATA_FILE, DATA_FILE, names="dump.h264")
        self.assert_usage_error("dump", "--no-such-option", DATA_FILE, names="--no-such-option")
        self.assert_usage_error("dump", "--level", "9", DATA_FILE, names="--level")
        self.assert_usage_error("dump", "--level", "-1", DATA_FILE, names="--level")
        self.assert_usage_error("dump", "--level", "high", DATA_FILE, names="--level")
        self.assert_usage_error("dump", "--types", "sps,nonsense", DATA_FILE, names="'nonsense'")
        self.assert_usage_error("dump", "--types", "32", DATA_FILE, names="'32'")
        self.assert_usage_error("dump", "--types", "", DATA_FILE, names="--types")
        self.assert_usage_error("dump", "--json", "--level", "3", DATA_FILE, names="--level")
        self.assert_usage_error("summary", names="FILE")
        self.assert_usage_error("summary", "--level", "3", DATA_FILE, names="--level")

    def test_version(self):
        result = run("--version")
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        self.assertRegex(result.stdout.decode(), r"\Ah264tool \d+\.\d+\.\d+\n\Z")

    def test_help(self):
        result = run("--help")
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        self.assertIn("dump", result.stdout.decode())
        self.assertIn("summary", result.stdout.decode())
        result = run("dump", "--help")
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        for option in ("FILE", "--json", "--level", "--types"):
            self.assertIn(option, result.stdout.decode())

    def test_help_of_every_subcommand_tells_the_exit_status(self):
        for arguments in [()] + [(command,) for command in COMMANDS]:
            text = run(*arguments, "--help").stdout.decode()
            self.assertIn("--quiet", text)
            self.assertIn("\nExit status: 0 fine, 1 something in the input could not be parsed, 2 wrong usage, failed "
                          "input or output, or a stream that cannot be changed as asked for.\n", text)

    def test_options_may_follow_the_file(self):
        self.assertEqual(run("dump", DATA_FILE, "--json").stdout.splitlines()[0],
                         run("dump", "--json", DATA_FILE).stdout.splitlines()[0])


class InputAndOutput(TestCase):
    def test_missing_file(self):
        for command in ("dump", "summary"):
            self.assert_result(run(command, "no/such/file"), 2,
                               "h264tool: cannot open no/such/file: %s\n" % os.strerror(errno.ENOENT))

    def test_directory(self):
        self.assert_result(run("dump", build.HERE), 2,
                           "h264tool: cannot read %s: %s\n" % (build.HERE, os.strerror(errno.EISDIR)))

    FULL = "h264tool: cannot write standard output: %s\n" % os.strerror(errno.ENOSPC)

    def test_full_disk_is_noticed_at_the_end(self):
        for command in (("dump",), ("dump", "--json"), ("summary",), ("summary", "--json")):
            with tempfile.NamedTemporaryFile(suffix=".h264") as stream, open("/dev/full", "wb") as full:
                stream.write(nal_unit(9, b"\x10"))
                stream.flush()
                self.assert_result(run(*command, stream.name, stdout=full), 2, self.FULL)

    def test_full_disk_ends_the_run(self):
        with open("/dev/full", "wb") as full:
            process = subprocess.Popen([TOOL, "dump", "-"], stdin=subprocess.PIPE, stdout=full, stderr=subprocess.PIPE)
        with self.assertRaises(BrokenPipeError):
            for _ in range(10000):
                process.stdin.write(nal_unit(9, b"\x10") * 1000)
        try:
            process.stdin.close()
        except BrokenPipeError:
            pass
        self.assertEqual((process.wait(timeout=120), process.stderr.read().decode()), (2, self.FULL))
        process.stderr.close()

    def test_full_disk_below_help_and_version(self):
        for arguments in (("--help",), ("--version",), ("dump", "--help")):
            with open("/dev/full", "wb") as full:
                self.assert_result(run(*arguments, stdout=full), 2, "h264tool: cannot write standard output\n")

    def test_closed_pipe(self):
        with tempfile.NamedTemporaryFile(suffix=".h264") as long_stream:
            long_stream.write(nal_unit(9, b"\x10") * 50000)
            long_stream.flush()
            for ignored, status in ((False, -signal.SIGPIPE), (True, 0)):
                process = subprocess.Popen(
                    [TOOL, "dump", long_stream.name], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                    preexec_fn=lambda: signal.signal(signal.SIGPIPE, signal.SIG_IGN if ignored else signal.SIG_DFL))
                process.stdout.readline()
                process.stdout.close()
                self.assertEqual((process.wait(timeout=120), process.stderr.read()), (status, b""))
                process.stderr.close()

    def test_memory_does_not_grow_with_units_and_stream(self):
        for command in ("dump", "summary"):
            for nal_unit_type, exit_status in ((5, 1), (6, 0), (7, 1), (12, 0)):
                unit = nal_unit(nal_unit_type, b"\xab" * 10000000)
                process = subprocess.Popen([TOOL, command, "-"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                           stderr=subprocess.DEVNULL)
                for _ in range(10):
                    process.stdin.write(unit)
                process.stdin.close()
                _, status, usage = os.wait4(process.pid, 0)
                process.returncode = os.waitstatus_to_exitcode(status)
                self.assertEqual(process.returncode, exit_status, (command, nal_unit_type))
                self.assertLess(usage.ru_maxrss, 100000, "kilobytes for units of 10 MB")

    def test_units_are_shown_as_soon_as_they_are_written_to_a_terminal(self):
        ours, theirs = pty.openpty()
        process = subprocess.Popen([TOOL, "dump", "-"], stdin=subprocess.PIPE, stdout=theirs, stderr=subprocess.PIPE)
        os.close(theirs)
        process.stdin.write(nal_unit(9, b"\x10") + nal_unit(10, b""))
        process.stdin.flush()
        text = b""
        while b"Access unit delimiter" not in text:  # the end of the second is not known yet
            text += os.read(ours, 1000)
        process.stdin.close()
        while b"End of sequence" not in text:
            text += os.read(ours, 1000)
        self.assertEqual((process.wait(timeout=120), process.stderr.read()), (0, b""))
        process.stderr.close()
        os.close(ours)

    def start_slow_run(self, **streams):
        """A run whose input takes so long that progress is due; it has three units."""
        process = subprocess.Popen([TOOL, "dump", "-"], stdin=subprocess.PIPE, **streams)
        for _ in range(2):
            process.stdin.write(nal_unit(12, b"\xff" * 3000000))
            process.stdin.flush()
            time.sleep(1.1)
        process.stdin.write(nal_unit(11, b""))
        process.stdin.close()
        return process

    def read_terminal(self, descriptor):
        text = b""
        try:
            while data := os.read(descriptor, 1000):
                text += data
        except OSError as error:  # how a terminal that was closed ends
            self.assertEqual(error.errno, errno.EIO)
        os.close(descriptor)
        return text

    def test_progress_is_shown_at_a_terminal_and_erased(self):
        ours, theirs = pty.openpty()
        process = self.start_slow_run(stdout=subprocess.PIPE, stderr=theirs)
        os.close(theirs)
        self.assertEqual(len(process.stdout.read().splitlines()), 4)
        process.stdout.close()
        self.assertEqual(process.wait(timeout=120), 0)
        self.assertRegex(self.read_terminal(ours), rb"\A(\r\x1b\[K\d+ MB)+\r\x1b\[K\Z")

    def test_progress_makes_room_for_output_at_the_same_terminal(self):
        ours, theirs = pty.openpty()
        process = self.start_slow_run(stdout=theirs, stderr=theirs)
        os.close(theirs)
        self.assertEqual(process.wait(timeout=120), 0)
        text = self.read_terminal(ours)
        self.assertRegex(text, rb"\d MB\r\x1b\[K {5}2 ")
        self.assertEqual(re.sub(rb"(\r\x1b\[K\d+ MB)+\r\x1b\[K", b"", text).replace(b"\r\n", b"\n").decode(), HEADER +
                         "     1           0   3000005          4       3  12 Filler data\n"
                         "     2     3000005   3000005          4       3  12 Filler data\n"
                         "     3     6000010         5          4       3  11 End of stream\n")

    def test_no_progress_without_terminal(self):
        process = self.start_slow_run(stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        self.assertEqual((process.wait(timeout=120), process.stderr.read()), (0, b""))
        process.stderr.close()


    def test_every_subcommand_shows_progress_and_none_when_quiet(self):
        with open(SAMPLE, "rb") as file:
            sample = file.read()
        runs = []
        for command, options in COMMANDS.items():
            for quiet in ((), ("--quiet",)):
                ours, theirs = pty.openpty()
                runs.append((command, quiet, ours, subprocess.Popen(
                    [TOOL, command, *options, *quiet, "-"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                    stderr=theirs)))
                os.close(theirs)
        for part in (sample, nal_unit(12, b"\xff" * 1000000) * 3, nal_unit(12, b"\xff"), nal_unit(11, b"")):
            for _, _, _, process in runs:
                process.stdin.write(part)
                process.stdin.flush()
            time.sleep(1.1)
        for command, quiet, ours, process in runs:
            process.stdin.close()
            self.assertEqual(process.wait(timeout=120), 0, command)
            shown = self.read_terminal(ours)
            if quiet:
                self.assertEqual(shown, b"", command)
            else:
                self.assertRegex(shown, rb"\A(\r\x1b\[K\d+ MB)+\r\x1b\[K", command)


class Streams(TestCase):
    """Every subcommand with inputs of every kind."""

    def test_a_pipe_gives_what_the_file_gives(self):
        with open(SAMPLE, "rb") as file:
            sample = file.read()
        for command, options in COMMANDS.items():
            from_file = run(command, *options, SAMPLE)
            from_pipe = feed(command, sample, *options)
            self.assertEqual((from_file.returncode, from_file.stderr), (0, b""), command)
            self.assertEqual((from_pipe.returncode, from_pipe.stderr), (0, b""), command)
            self.assertGreater(len(from_file.stdout), 10, command)
            self.assertEqual(from_pipe.stdout, from_file.stdout.replace(SAMPLE.encode(), b"standard input"), command)

    def test_empty_input(self):
        for command, options in COMMANDS.items():
            for stream in (b"", b"\x00" * 100):
                result = feed(command, stream, *options)
                self.assertEqual((result.returncode, result.stdout, result.stderr.decode()),
                                 (1, b"", "h264tool: standard input: %s\n" % EMPTY), command)

    def test_no_start_code(self):
        for command, options in COMMANDS.items():
            result = feed(command, b"text" * 100, *options)
            self.assertEqual((result.returncode, result.stdout, result.stderr.decode()),
                             (1, b"", "h264tool: standard input: %s\n" % NO_START_CODE), command)

    REFUSED = ("h264tool: standard input: no start code found in the first megabyte: is this an MP4 or transport stream? "
               + CONVERSION + "\n")

    def test_no_start_code_in_the_first_megabyte(self):
        for command, options in COMMANDS.items():
            result = feed(command, b"\x47" + b"\xab" * 999999 + nal_unit(9, b"\x10"), *options)
            self.assertEqual((result.returncode, result.stdout, result.stderr.decode()), (1, b"", self.REFUSED), command)

    def test_a_start_code_that_ends_the_first_megabyte_is_found(self):
        for before in (999996, 500):
            result = feed("dump", b"\xab" * before + nal_unit(9, b"\x10") + nal_unit(12, b"\xff" * 2000000), "--json")
            self.assert_result(result, 1, "h264tool: standard input: %d bytes before the first start code\n" % before)
        result = feed("dump", b"\xab" * 999997 + nal_unit(9, b"\x10"), "--json")
        self.assertEqual((result.returncode, result.stderr.decode()), (1, self.REFUSED))

    def test_the_input_is_not_read_to_its_end_when_it_is_refused(self):
        process = subprocess.Popen([TOOL, "dump", "-"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE)
        process.stdin.write(b"\xab" * 1000000)
        process.stdin.flush()
        self.assertEqual(process.wait(timeout=120), 1)
        for stream in (process.stdin, process.stdout, process.stderr):
            stream.close()

    def test_other_formats(self):
        annex_b = nal_unit(9, b"\x10") * 1000
        packets = b"".join(b"\x47" + bytes([i]) * 100 + b"\x00\x00\x01\xe0" + bytes(83) for i in range(2, 10))
        for beginning, name in ((b"\x00\x00\x00\x20ftypisom", "an MP4 or QuickTime file"),
                                (b"\x1a\x45\xdf\xa3\x01\x00\x00\x00\x01", "a Matroska file"),
                                (packets, "a transport stream")):
            for command, options in COMMANDS.items():
                result = feed(command, beginning + annex_b, *options)
                self.assertEqual((result.returncode, result.stdout, result.stderr.decode()), (
                    1, b"", "h264tool: standard input: this is %s, no Annex B byte stream: %s\n" % (name, CONVERSION)))

    def test_a_byte_stream_may_look_like_another_format_behind_its_start_code(self):
        self.assert_result(feed("dump", nal_unit(12, b"ftyp" + b"\xff" * 400, start_code_length=3)), 0, "")

    def test_quiet_leaves_out_notes_and_nothing_else(self):
        damaged = b"stray" + nal_unit(7, b"\x42") + nal_unit(9, b"\x10")
        for command in ("dump", "summary"):
            loud = feed(command, damaged)
            quiet = feed(command, damaged, "--quiet")
            self.assertEqual((loud.returncode, len(loud.stderr.splitlines())), (1, 2))
            self.assertEqual((quiet.returncode, quiet.stderr), (1, b""))
            self.assertEqual(without_addresses(quiet.stdout.decode()), without_addresses(loud.stdout.decode()))
        self.assertEqual(run("--quiet", "dump", DATA_FILE).stderr, b"")
        self.assertEqual(run("dump", "-q", DATA_FILE).stderr, b"")
        self.assert_result(feed("dump", b"", "--quiet"), 1, "h264tool: standard input: %s\n" % EMPTY)
        self.assert_result(run("dump", "--quiet", "no/such/file"), 2,
                           "h264tool: cannot open no/such/file: %s\n" % os.strerror(errno.ENOENT))


if __name__ == "__main__":
    runner.main()
