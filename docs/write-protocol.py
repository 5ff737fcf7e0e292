#!/usr/bin/env python3
"""Fills the tables of registers in docs/protocol.md from the headers that name them.

With --check it writes nothing and fails when they are out of date. In both cases it fails when the
table of requests does not have exactly those of src/usb/requests.h.
"""
import re
import sys
from pathlib import Path

HERE = Path(__file__).parent
PAGE = HERE / "protocol.md"
REQUESTS = HERE.parent / "src/usb/requests.h"
CONSTANT = re.compile(r"^inline constexpr uint\d+_t k(\w+) = (\w+);(?: *// *(.*))?$")


def named(lines):
    """Name, value and remark of each constant; a line of remark goes on in lines of its own."""
    for line in lines:
        if match := CONSTANT.match(line):
            yield match[1], match[2], match[3] or ""


def registers(path):
    """A table of the constants of a header, under the remarks that part them."""
    rows = ["| Name | Value | |", "|---|---|---|"]
    remark = []
    for line in (HERE.parent / path).read_text().split("namespace ", 1)[1].splitlines():
        if line.startswith("// "):
            remark.append(line[3:])
        elif match := CONSTANT.match(line):
            if remark:
                rows.append(f"| | | *{' '.join(remark)}* |")
            rows.append(f"| {match[1]} | {match[2]} | {match[3] or ''} |".replace("  ", " "))
            remark = []
        else:
            remark = []
    return re.sub(r"\bk(?=[A-Z])", "", "\n".join(rows))


def filled(page):
    return re.sub(r"(?s)(<!-- registers of (\S+) -->\n).*?(<!-- end -->)",
                  lambda match: match[1] + registers(match[2]) + "\n" + match[3], page)


def check_requests(page):
    told = set(re.findall(r"^\| (0x[0-9A-F]{2}) \| (\w+) \|", page, re.M))
    there = {(value, name) for name, value, _ in named(REQUESTS.read_text().splitlines())}
    if told != there:
        sys.exit(f"{PAGE.name} and {REQUESTS.name} name different requests: {told ^ there}")


old = PAGE.read_text()
new = filled(old)
check_requests(new)
if sys.argv[1:] != ["--check"]:
    PAGE.write_text(new)
elif new != old:
    sys.exit(f"the registers in {PAGE.name} are out of date: run ./dev docs")
