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
from runner import HEADER, TOOL, TestCase, run
from stream_builder import nal_unit


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


if __name__ == "__main__":
    runner.main()
