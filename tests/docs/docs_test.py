"""Checks every code block of README.md and docs/*.md, run as: docs_test.py H264TOOL EXAMPLES INSTALLED WORK

H264TOOL is the command, EXAMPLES the directory of the built examples, INSTALLED an installed tree, WORK a directory that
is made anew. A fenced block is of one of these kinds:

    c       lines of a file in examples/, which are built and run by tests of their own
    cmake   a CMakeLists.txt that builds parse_sps.c with the installed library
    sh      commands, each run by itself, which succeed
    text    behind "$ ", a command and what it prints; "..." stands for lines that are left out

Indented code blocks are not allowed. The blocks of a page run one after the other in a directory of its own, which has
samples/, and examples/ with the sources; h264tool and the built examples are in its PATH. ./dev is not run, but for "./dev
demo", which prints a sample.
"""

import glob
import os
import re
import shutil
import subprocess
import sys
import textwrap
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PAGES = ["README.md"] + sorted("docs/" + os.path.basename(page) for page in glob.glob(os.path.join(ROOT, "docs", "*.md")))
KINDS = ("c", "cmake", "sh", "text")


class Failure(Exception):
    pass


def blocks(text):
    """(kind, line number, content) of each fenced block; raises Failure for indented ones."""
    found = []
    fence = None
    before = ""
    for number, line in enumerate(text.splitlines(), 1):
        if fence is None:
            if line.startswith("    ") and before == "":
                raise Failure("line %d: an indented code block" % number)
            if match := re.fullmatch(r"```(.*)", line):
                fence = (match[1], number, [])
        elif line == "```":
            found.append((fence[0], fence[1], "".join(text + "\n" for text in fence[2])))
            fence = None
        else:
            fence[2].append(line)
        before = line.strip()
    if fence is not None:
        raise Failure("line %d: a block that does not end" % fence[1])
    return found


def sources():
    return [open(path, encoding="utf-8").read() for path in glob.glob(os.path.join(ROOT, "examples", "*.c"))]


def without_indent(text):
    return textwrap.dedent(text)


def is_excerpt(block, source):
    """Whether the block's lines stand in the source one after the other, at any one indentation."""
    wanted = block.splitlines()
    lines = source.splitlines()
    return any(without_indent("\n".join(lines[i:i + len(wanted)])) == without_indent("\n".join(wanted))
               for i in range(len(lines) - len(wanted) + 1))


def matches(shown, printed):
    """Whether the parts between lines "..." are in what was printed, whole lines in this order, all of it but for them."""
    parts = [part.splitlines() for part in re.split(r"(?m)^\.\.\.\n", shown)]
    lines = printed.splitlines()
    position = 0
    for i, part in enumerate(parts):
        if i == 0:
            if lines[:len(part)] != part:
                return False
            position = len(part)
            continue
        last = i == len(parts) - 1
        places = [j for j in range(position, len(lines) - len(part) + 1) if lines[j:j + len(part)] == part]
        if last and part:
            places = [j for j in places if j + len(part) == len(lines)]
        if not places:
            return False
        position = places[0] + len(part)
    return len(parts) > 1 or position == len(lines)


class Page:
    def __init__(self, name):
        self.name = name
        self.text = open(os.path.join(ROOT, name), encoding="utf-8").read()
        self.directory = os.path.join(WORK, name.replace("/", "_"))
        shutil.rmtree(self.directory, ignore_errors=True)
        os.makedirs(self.directory)
        for path in ("samples", "examples"):
            shutil.copytree(os.path.join(ROOT, path), os.path.join(self.directory, path))
        with open(os.path.join(self.directory, "dev"), "w", encoding="utf-8") as dev:
            dev.write('#!/bin/sh\n[ "$*" = demo ] && exec h264tool dump samples/interlaced_hrd.h264\n')
        os.chmod(os.path.join(self.directory, "dev"), 0o755)

    def run(self, command):
        libraries = os.path.dirname(glob.glob(os.path.join(INSTALLED, "**", "libh264_lib.so"), recursive=True)[0])
        environment = dict(os.environ, PATH=os.pathsep.join([os.path.dirname(TOOL), EXAMPLES, os.environ["PATH"]]),
                           PKG_CONFIG_PATH=os.path.join(libraries, "pkgconfig"), LD_LIBRARY_PATH=libraries,
                           CMAKE_PREFIX_PATH=INSTALLED)
        environment.pop("DBGTRACE_LEVEL", None)
        result = subprocess.run(["bash", "-c", command], cwd=self.directory, env=environment, timeout=120,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        return result.returncode, result.stdout.decode()

    def check(self, kind, content):
        if kind not in KINDS:
            raise Failure("a block of kind '%s'" % kind)
        getattr(self, "check_" + kind)(content)

    def check_c(self, content):
        if not any(is_excerpt(content, source) for source in sources()):
            raise Failure("these lines are in no example")

    def check_cmake(self, content):
        project = os.path.join(self.directory, "project")
        shutil.rmtree(project, ignore_errors=True)
        os.mkdir(project)
        shutil.copy(os.path.join(ROOT, "examples", "parse_sps.c"), project)
        with open(os.path.join(project, "CMakeLists.txt"), "w", encoding="utf-8") as file:
            file.write(content)
        status, output = self.run("cd project && cmake -B build . && cmake --build build && build/parse_sps")
        if status != 0 or "profile 100" not in output:
            raise Failure(output)

    def check_sh(self, content):
        for command in content.splitlines():
            # Builds of this very project are not repeated inside its own tests.
            if re.match(r"\./dev |cmake (-S|--build|--install) ", command):
                continue
            status, output = self.run(command)
            if status != 0:
                raise Failure("%s\nended with %d\n%s" % (command, status, output))

    def check_text(self, content):
        if not content.startswith("$ "):
            raise Failure("a text that shows no command")
        for part in re.split(r"(?m)^\$ ", content)[1:]:
            command, _, shown = part.partition("\n")
            status, output = self.run(command)
            if not matches(shown, output) or (status != 0 and "$?" not in command):
                raise Failure("%s\nended with %d and printed\n%s" % (command, status, output))


class Documentation(unittest.TestCase):
    def test_every_block(self):
        checked = 0
        for name in PAGES:
            page = Page(name)
            for kind, line, content in blocks(page.text):
                with self.subTest("%s:%d" % (name, line)):
                    page.check(kind, content)
                checked += 1
        self.assertGreater(checked, 20)

    def test_links_lead_somewhere(self):
        for name in PAGES:
            text = open(os.path.join(ROOT, name), encoding="utf-8").read()
            for link in re.findall(r"\]\(([^)#]+)[^)]*\)", text):
                if not link.startswith("http"):
                    with self.subTest("%s: %s" % (name, link)):
                        self.assertTrue(os.path.exists(os.path.join(ROOT, os.path.dirname(name), link)))

    def test_examples_are_short(self):
        for path in glob.glob(os.path.join(ROOT, "examples", "*.c")):
            with self.subTest(path):
                self.assertLess(len(open(path, encoding="utf-8").readlines()), 100)


class Checks(unittest.TestCase):
    """The checks themselves find what is wrong."""

    def test_blocks(self):
        self.assertEqual(blocks("a\n```c\nx\n\n```\nb\n```text\n$ y\n```\n"), [("c", 2, "x\n\n"), ("text", 7, "$ y\n")])
        for text in ("a\n\n    code\n", "```c\nx\n"):
            self.assertRaises(Failure, blocks, text)

    def test_excerpts(self):
        source = "int a;\n    if (b)\n        c;\nd;\n"
        for block in ("int a;\n", "if (b)\n    c;\n", source):
            self.assertTrue(is_excerpt(block, source), block)
        for block in ("int e;\n", "if (b)\nc;\n", "int a;\nd;\n"):
            self.assertFalse(is_excerpt(block, source), block)

    def test_outputs(self):
        printed = "a\nb\nc\nd\n"
        for shown in (printed, "a\n...\n", "...\nd\n", "...\nb\n...\n", "a\n...\nc\n...\n", "a\n...\nd\n"):
            self.assertTrue(matches(shown, printed), shown)
        for shown in ("a\n", "b\n...\n", "...\nc\n", "a\n...\ne\n...\n", "...\nc\n...\nb\n...\n", "a\nc\n...\n", ""):
            self.assertFalse(matches(shown, printed), shown)

    def test_wrong_pages(self):
        page = Page("README.md")
        for kind, content in (("c", "int no_such_line;\n"), ("sh", "false\n"), ("text", "$ echo a\nb\n"),
                              ("text", "no command\n"), ("text", "$ false\n"), ("perl", "1;\n"),
                              ("cmake", "project(nothing)\n")):
            with self.subTest(content), self.assertRaises(Failure):
                page.check(kind, content)


if __name__ == "__main__":
    if len(sys.argv) < 5:
        sys.exit(__doc__)
    TOOL, EXAMPLES, INSTALLED, WORK = (os.path.abspath(path) for path in sys.argv[1:5])
    unittest.main(argv=sys.argv[:1] + sys.argv[5:])
