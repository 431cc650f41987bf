#!/usr/bin/env python3
"""Compares what programs built against the library rely on with ampora.symbols:
abi_test.py LIBRARY STATIC_LIBRARY NM OBJDUMP CC

The library exports the listed functions and nothing else; the static one on Linux has no other names that could meet a
program's; the header declares and defines what is listed and nothing else; the compiler gives the listed sizes, offsets
and values; and docs/library.md has the results with their numbers.
"""
import os
import re
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
LIST = os.path.join(HERE, "ampora.symbols")
DOCUMENT = os.path.join(HERE, "..", "..", "docs", "library.md")
HEADERS = os.path.join(HERE, "..", "include")


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def exported(library, objdump):
    if library.endswith(".dll"):
        table = output(objdump, "-p", library).split("[Ordinal/Name Pointer] Table")[1]
        return set(re.findall(r"^\t\[ *\d+\] (\S+)$", table, re.MULTILINE))
    # The version's own name is a symbol without a section.
    symbols = re.findall(r"^\w+ g.{6} (\S+)\t\w+ +(\S+) +(\S+)$", output(objdump, "-T", library), re.MULTILINE)
    return {f"{name} of version {version}" if version != "AMPORA_0" else name
            for section, version, name in symbols if section not in ("*UND*", "*ABS*")}


def global_names(static_library, nm):
    """Without those that every program may have, too: what is of the C++ library, or weak."""
    return {name for kind, name in re.findall(r"^\w+ ([A-Z]) (\S+)$", output(nm, "-g", "--defined-only", static_library),
                                              re.MULTILINE) if kind not in "VW"}


def declared(header):
    """The header's own entries of the list, without numbers."""
    code = re.sub(r"/\*.*?\*/", "", header, flags=re.DOTALL).split("#ifdef __cplusplus\n}")[0]
    entries = {f"function {name}" for name in re.findall(r"\b(ampora_\w+)\(", code)}
    entries |= {f"value {name}" for name in re.findall(r"\b(AMPORA_\w+) = ", code)}
    for name, members in re.findall(r"struct (\w+) \{(.*?)\}", code, re.DOTALL):
        entries.add(f"size {name}")
        entries |= {f"offset {name} {member}" for member in re.findall(r"(\w+);", members)}
    return entries


def assertions(entries):
    forms = {"size": "sizeof({0}) == {1}", "offset": "offsetof({0}, {1}) == {2}", "value": "{0} == {1}"}
    lines = [f'_Static_assert({forms[kind].format(*words)}, "{kind} {" ".join(words)}");'
             for kind, *words in entries if kind in forms]
    return "\n".join(['#include "ampora.h"', *lines, ""])


def differences(what, found, wanted):
    return [f"{what}: {name} is not listed" for name in sorted(found - wanted)] + [
        f"{what}: {name} is listed, but not there" for name in sorted(wanted - found)]


def main(library, static_library, nm, objdump, compiler):
    entries = [line.split() for line in read(LIST).splitlines() if line and not line.startswith("#")]
    functions = {words[1] for words in entries if words[0] == "function"}
    names = {" ".join(words if words[0] == "function" else words[:-1]) for words in entries}
    faults = differences(os.path.basename(library), exported(library, objdump), functions)
    if not library.endswith(".dll"):
        faults += differences(os.path.basename(static_library), global_names(static_library, nm), functions)
    faults += differences("ampora.h", declared(read(os.path.join(HEADERS, "ampora.h"))), names)
    results = {" ".join(words[1:]) for words in entries if re.match(r"AMPORA_(OK|TIMED_OUT|ERROR_\w+)$", words[1])}
    documented = {" ".join(row) for row in re.findall(r"^\| `(AMPORA_\w+)` \| (\d+) \|", read(DOCUMENT), re.MULTILINE)}
    faults += differences("library.md", documented, results)
    with tempfile.NamedTemporaryFile("w", suffix=".c") as source:
        source.write(assertions(entries))
        source.flush()
        compiled = subprocess.run([compiler, "-std=c11", "-fsyntax-only", "-I", HEADERS, source.name],
                                  capture_output=True, text=True, check=False)
    faults += [line for line in compiled.stderr.splitlines() if "error:" in line]
    print("\n".join(faults or [f"{len(entries)} entries, all as listed"]))
    return 1 if faults or compiled.returncode != 0 else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
