#!/usr/bin/env python3
"""Compares the symbols that a shared library exports, and those that its headers declare, with a committed list.

Also checks the library's SONAME and the functions by which it allocates. Prints what differs and ends with status 1
when anything does.
"""

import argparse
import re
import subprocess
import sys
from pathlib import Path

# Functions that give memory; those of C++ begin with _Znw and _Zna.
ALLOCATORS = {"aligned_alloc", "asprintf", "calloc", "getline", "malloc", "memalign", "mmap", "open_memstream",
              "posix_memalign", "realloc", "reallocarray", "strdup", "strndup", "valloc", "vasprintf"}


def exported(nm, library):
    """Names and types of the dynamic symbols that the library defines."""
    output = subprocess.run([nm, "-D", "--defined-only", "--format=posix", library], check=True, text=True,
                            stdout=subprocess.PIPE).stdout
    return {fields[0]: fields[1] for fields in map(str.split, output.splitlines())}


def imported(nm, library):
    """Names of the dynamic symbols that the library takes from elsewhere, without their versions."""
    output = subprocess.run([nm, "-D", "--undefined-only", "--format=posix", library], check=True, text=True,
                            stdout=subprocess.PIPE).stdout
    return {line.split()[0].split("@")[0] for line in output.splitlines()}


def soname(readelf, library):
    """The name under which programs ask for the library."""
    output = subprocess.run([readelf, "-d", library], check=True, text=True, stdout=subprocess.PIPE).stdout
    found = re.search(r"\(SONAME\).*\[(.*)\]", output)
    return found[1] if found else None


def declared(header, macro):
    """Names that a header declares with its export macro."""
    text = re.sub(r"/\*.*?\*/|//[^\n]*", " ", header.read_text(), flags=re.DOTALL)
    text = re.sub(r"^[ \t]*#(?:[^\n\\]|\\.)*", " ", text, flags=re.MULTILINE | re.DOTALL)
    declarations = re.findall(rf"\b{macro}\b([^;(]*)[;(]", text)
    return [re.findall(r"\w+", declaration)[-1] for declaration in declarations]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--nm", default="nm")
    parser.add_argument("--readelf", default="readelf")
    parser.add_argument("--library", required=True)
    parser.add_argument("--soname", required=True)
    parser.add_argument("--list", required=True, type=Path)
    parser.add_argument("--macro", required=True, help="export macro of the headers, for example H264_API")
    parser.add_argument("--diagnostics-list", type=Path,
                        help="exported names of the diagnostics library, of which the library may use the seven that "
                             "every implementation has")
    parser.add_argument("--allocator", action="append", default=[],
                        help="a function by which the library allocates; when given, all of them")
    parser.add_argument("headers", nargs="+", type=Path)
    arguments = parser.parse_args()

    failures = []
    name = soname(arguments.readelf, arguments.library)
    if name != arguments.soname:
        failures.append(f"SONAME is {name}, not {arguments.soname}")
    lines = arguments.list.read_text().splitlines()
    names = set(lines)
    if lines != sorted(names):
        failures.append(f"{arguments.list.name} is not sorted or names a symbol twice")

    symbols = exported(arguments.nm, arguments.library)
    failures += [f"exported, not listed: {name} (type {symbols[name]})" for name in sorted(symbols.keys() - names)]
    failures += [f"listed, not exported: {name}" for name in sorted(names - symbols.keys())]
    failures += [f"exported with type {kind}: {name}" for name, kind in sorted(symbols.items()) if kind not in "TBD"]

    declarations = {name for header in arguments.headers for name in declared(header, arguments.macro)}
    failures += [f"declared, not listed: {name}" for name in sorted(declarations - names)]
    failures += [f"listed, not declared: {name}" for name in sorted(names - declarations)]

    if arguments.diagnostics_list:
        diagnostics = set(arguments.diagnostics_list.read_text().splitlines())
        used = imported(arguments.nm, arguments.library) & diagnostics
        failures += [f"another diagnostics library lacks: {name}" for name in sorted(used)
                     if name.startswith("DbgTrace")]
        if not used:
            failures.append("the diagnostics library is not reached through the dynamic linker")

    if arguments.allocator:
        used = {name for name in imported(arguments.nm, arguments.library)
                if name in ALLOCATORS or name.startswith(("_Znw", "_Zna"))}
        known = set(arguments.allocator)
        failures += [f"allocates by {name}, which the tests of missing memory do not see" for name in
                     sorted(used - known)]
        failures += [f"does not allocate by {name}" for name in sorted(known - used)]

    print(f"{Path(arguments.library).name}: {len(symbols)} symbols exported, {len(names)} listed, "
          f"{len(declarations)} declared")
    for failure in failures:
        print(failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
