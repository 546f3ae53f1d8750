"""Runs the command h264tool for the tests."""

import json
import os
import re
import subprocess
import sys
import tempfile
import unittest

import stream_builder as build

UPDATE_GOLDEN = "--update-golden" in sys.argv
TOOL = next((argument for argument in sys.argv[1:] if not argument.startswith("-")), None)
GOLDEN = os.path.join(build.HERE, "golden")
EMPTY = "no NAL unit found: the input is empty or holds nothing but zero bytes"
CONVERSION = "convert with ffmpeg -i FILE -c copy -bsf:v h264_mp4toannexb OUT.h264"
NO_START_CODE = "no start code found: is this an MP4 or transport stream? " + CONVERSION
HEADER = "  unit      offset    length start_code ref_idc  nal_unit_type\n"


def feed(command, stream, *options):
    """The finished run of a subcommand that reads bytes from standard input."""
    return subprocess.run([TOOL, command, *options, "-"], input=stream, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          timeout=120)


def dump(stream, *options):
    return feed("dump", stream, *options)


def run(*arguments, **keywords):
    return subprocess.run([TOOL, *arguments], stdin=subprocess.DEVNULL, stdout=keywords.pop("stdout", subprocess.PIPE),
                          stderr=subprocess.PIPE, timeout=120, **keywords)


def json_lines(result):
    return [json.loads(line) for line in result.stdout.decode().splitlines()]


def in_order(value):
    """A form of JSON values in which the order of members counts."""
    if isinstance(value, dict):
        return [(name, in_order(member)) for name, member in value.items()]
    if isinstance(value, list):
        return ["list"] + [in_order(item) for item in value]
    return value


def without_addresses(text):
    return re.sub(r"0x[0-9a-f]+", "0xADDRESS", text)


class TestCase(unittest.TestCase):
    maxDiff = None

    def assert_result(self, result, status, stderr):
        self.assertEqual((result.returncode, result.stderr.decode()), (status, stderr))

    def assert_refused(self, command, stream, message, *options):
        """The run writes nothing: nothing is left behind, and what was there is still there. IN in the message is the
        input's name."""
        with tempfile.TemporaryDirectory() as directory:
            names = [os.path.join(directory, name) for name in ("in", "new", "old")]
            for name, content in ((names[0], stream), (names[2], b"old")):
                with open(name, "wb") as file:
                    file.write(content)
            for name in names[1:]:
                self.assert_result(run(command, names[0], "-o", name, *options), 2,
                                   "h264tool: %s\n" % message.replace("IN", names[0]))
            self.assertEqual(sorted(os.listdir(directory)), ["in", "old"])
            with open(names[2], "rb") as file:
                self.assertEqual(file.read(), b"old")

    def assert_golden(self, name, result):
        text = without_addresses(result.stdout.decode())
        path = os.path.join(GOLDEN, name)
        if UPDATE_GOLDEN:
            with open(path, "w", encoding="utf-8") as golden:
                golden.write(text)
        with open(path, encoding="utf-8") as golden:
            self.assertEqual(text, golden.read())


def main():
    """Runs the tests of the calling script, whose first argument is the path of h264tool; unittest gets the others.

    --update-golden writes what the command prints now to the golden files; look at their differences before committing.
    """
    if TOOL is None:
        sys.exit("Usage: %s H264TOOL [--update-golden] [unittest arguments]" % sys.argv[0])
    # A sanitizer's report must not look like one of the command's own exit statuses.
    for sanitizer in ("ASAN", "UBSAN", "TSAN", "LSAN"):
        name = sanitizer + "_OPTIONS"
        os.environ[name] = os.environ.get(name, "") + ":exitcode=99"
    os.environ.pop("DBGTRACE_LEVEL", None)
    os.environ.pop("DBGTRACE_ASSERT", None)
    arguments = [argument for argument in sys.argv[1:] if argument not in (TOOL, "--update-golden")]
    unittest.main(module="__main__", argv=[sys.argv[0]] + arguments)
