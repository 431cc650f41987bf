#!/usr/bin/env python3
"""Prints each data file's company, kind, number of records and newest value: newest.py [FOLDER]

Reads the files by itself, as docs/data-format.md describes them, with Python's own library alone.
"""
import os
import struct
import sys
import time

try:
    import fcntl
except ImportError:  # Windows, where the writer opens the file for itself alone
    fcntl = None

COMPANIES = {"tokyo": "Tokyo", "tohoku": "Tohoku", "chubu": "Chubu", "kansai": "Kansai", "kyushu": "Kyushu"}
KINDS = {1: "instant usage", 2: "actual usage", 4: "estimated usage", 8: "peak supply", 16: "peak demand"}
HEADER = struct.Struct("<4I8H")  # version, kind, count, 0, when it was written
RECORD = struct.Struct("<Q8H8H")  # value, start, end: year, month, day of week, day, hour, minute, second, millisecond
TRIES = 25  # to open a file that is being written, 10 ms apart


class DataFileError(Exception):
    pass


def content(path):
    for _ in range(TRIES):
        try:
            with open(path, "rb") as file:
                if fcntl:
                    fcntl.flock(file, fcntl.LOCK_SH | fcntl.LOCK_NB)
                return file.read()
        except (BlockingIOError, PermissionError):
            time.sleep(0.01)
    raise DataFileError("it is being written by another program, or cannot be read")


def records(data, kind):
    if len(data) < HEADER.size:
        raise DataFileError("it is shorter than a header")
    version, held_kind, count, reserved = HEADER.unpack_from(data)[:4]
    if (version, held_kind, reserved) != (0x00010000, kind, 0):
        raise DataFileError("its header is not that of such a file")
    if len(data) != HEADER.size + count * RECORD.size:
        raise DataFileError("its length is not what its record count makes")
    return list(RECORD.iter_unpack(data[HEADER.size:]))


def start(record):
    year, month, _, *rest = record[1:9]
    return (year, month, *rest)


def default_folder():
    common = os.environ["ProgramData"] if os.name == "nt" else os.environ.get("AMPORA_COMMON_APPDATA") or "/var/lib"
    return os.path.join(common, "AmporaSrv")


def main():
    folder = sys.argv[1] if len(sys.argv) > 1 else default_folder()
    status = 0
    for key, company in COMPANIES.items():
        for kind, name in KINDS.items():
            try:
                found = records(content(os.path.join(folder, f"{key}_{kind:08X}.dat")), kind)
                newest = f", newest value {max(found, key=start)[0]}" if found else ""
                print(f"{company}, {name}: {len(found)} records{newest}")
            except FileNotFoundError:
                pass
            except DataFileError as error:
                print(f"{company}, {name}: {error}")
                status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())
