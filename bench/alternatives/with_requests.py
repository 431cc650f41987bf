#!/usr/bin/python3
"""Does a pass with Python's requests and ElementTree, and writes the same files as amporasrv:
with_requests.py HOST:PORT FOLDER"""
import datetime
import struct
import sys
import xml.etree.ElementTree

import requests

COMPANIES = {"tokyo": "iaesd", "tohoku": "iaesd", "kansai": "iaesd", "chubu": "asd", "kyushu": "isd"}
KINDS = {"i": (1, "usage", "instant"), "a": (2, "usage", "actual"), "e": (4, "usage", "estimated"),
         "s": (8, "peak", "supply"), "d": (16, "peak", "demand")}
HALF_DAY = datetime.timedelta(hours=12)


def calendar(time):
    return struct.pack("<8H", time.year, time.month, time.isoweekday() % 7, time.day, time.hour, time.minute, time.second,
                       time.microsecond // 1000)


def records_of(report):
    """Start, end and value of each."""
    for item in xml.etree.ElementTree.fromstring(report)[0]:
        if item.tag == "usage":
            start = datetime.datetime.fromisoformat(item.get("datetime"))
            end = start + datetime.timedelta(seconds=int(item.get("duration")))
        else:
            start = datetime.datetime.fromisoformat(item.get("start"))
            end = datetime.datetime.fromisoformat(item.get("end"))
        yield start, end, int(item.text)


def main():
    host, folder = sys.argv[1:]
    now = datetime.datetime.now()
    lower, upper = now - HALF_DAY, now + HALF_DAY
    session = requests.Session()
    for company, letters in COMPANIES.items():
        for code, category, kind in (KINDS[letter] for letter in letters):
            records = []
            for day in (lower.date(), upper.date()):
                answer = session.get(f"http://{host}/{category}/{company}/{kind}?date={day}&output=xml")
                answer.raise_for_status()
                records += records_of(answer.content)
            if category == "usage":
                records = [record for record in records if record[1] >= lower and record[0] <= upper]
            with open(f"{folder}/{company}_{code:08X}.dat", "wb") as file:
                file.write(struct.pack("<4I", 0x10000, code, len(records), 0) + calendar(now))
                for start, end, value in records:
                    file.write(struct.pack("<Q", value) + calendar(start) + calendar(end))


main()
