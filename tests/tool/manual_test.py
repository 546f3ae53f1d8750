"""Compares manual page, bash completion and --help of h264tool, run as: manual_test.py H264TOOL [unittest arguments]"""

import os
import re
import subprocess

import runner
import stream_builder as build
from runner import TOOL, TestCase, run

ROOT = os.path.dirname(os.path.dirname(build.HERE))
COMMON = {"--help", "--quiet"}


def subcommands():
    text = run("--help").stdout.decode().partition("Subcommands:\n")[2].partition("\n\n")[0]
    return re.findall(r"(?m)^  ([a-z]+) ", text)


def options_of(command):
    return set(re.findall(r"(?m)^  (?:-[a-z],)?(--[a-z-]+)", run(command, "--help").stdout.decode())) - COMMON


def sections():
    """Options of each subcommand's section of the manual page."""
    with open(os.path.join(ROOT, "docs", "man", "h264tool.1.in"), encoding="utf-8") as file:
        text = file.read().replace("\\-", "-")
    subcommands = text.partition(".Sh SUBCOMMANDS\n")[2].partition(".Sh ")[0]
    parts = re.split(r"(?m)^\.Ss ([a-z]+)\n", subcommands)[1:]
    return {name: set("--" + option for line in re.findall(r"(?m)^\.It (.*)$", part)
                      for option in re.findall(r"Fl Fl ([a-z-]+)", line))
            for name, part in zip(parts[::2], parts[1::2])}


def complete(*words):
    script = ('source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _h264tool; '
              'printf "%s\\n" "${COMPREPLY[@]}"')
    completion = os.path.join(ROOT, "packaging", "h264tool.bash")
    result = subprocess.run(["bash", "-c", script, "bash", completion, os.path.abspath(TOOL), *words], stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, timeout=120, cwd=ROOT)
    return result.stdout.decode().split(), result.stderr.decode()


class Manual(TestCase):
    def test_subcommands(self):
        self.assertEqual(sorted(sections()), sorted(subcommands()))
        self.assertGreaterEqual(len(subcommands()), 6)

    def test_options(self):
        for command, options in sections().items():
            self.assertEqual(options, options_of(command), command)


class Completion(TestCase):
    def test_subcommands(self):
        words, errors = complete("")
        self.assertEqual((sorted(words), errors), (sorted(subcommands() + ["--help", "--quiet", "--version"]), ""))
        self.assertEqual(complete("su"), (["summary"], ""))
        self.assertEqual(complete("--quiet", "su"), (["summary"], ""))

    def test_options(self):
        for command in subcommands():
            words, errors = complete(command, "--")
            self.assertEqual((set(words), errors), (options_of(command) | COMMON, ""), command)

    def test_values(self):
        self.assertEqual(complete("rewrite", "--hrd", ""), (["nal", "vcl"], ""))
        self.assertEqual(complete("dump", "--types", "s"), (["slice", "sei", "sps", "sps-ext", "subset-sps", "slice-aux",
                                                           "slice-ext", "slice-ext-3d"], ""))
        for word in complete("dump", "--types", "")[0]:
            self.assertEqual(run("dump", "--types", word, os.path.join("/dev", "null")).returncode, 1, word)

    def test_files(self):
        self.assertEqual(complete("dump", "samples/inter"), (["samples/interlaced_hrd.h264"], ""))


if __name__ == "__main__":
    runner.main()
