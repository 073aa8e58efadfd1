#!/usr/bin/env python3
"""Makes Debian's changelog from the project's: debian_changelog.py CHANGELOG.md OUTPUT.gz REVISION

Prints the time of the newest version in seconds since 1970, which is the time of all files in a
package. Midnight UTC of a version's date, so that the output depends on nothing but the input.
"""
import datetime
import email.utils
import gzip
import re
import sys
import textwrap

MAINTAINER = "libvekfind developers <vekfind@localhost.invalid>"


def changes(section):
    """The items of a section, each as one line."""
    items = re.findall(r"^- (.*(?:\n  .*)*)", section, re.MULTILINE)
    return [" ".join(item.split()).replace("`", "") for item in items]


def entry(version, date, section, revision):
    lines = [f"vekfind ({version}-{revision}) unstable; urgency=medium", ""]
    for change in changes(section):
        lines += textwrap.wrap(change, 78, initial_indent="  * ", subsequent_indent="    ")
    return "\n".join(lines + ["", f" -- {MAINTAINER}  {email.utils.format_datetime(date)}", ""])


def main(changelog, output, revision):
    with open(changelog, encoding="utf-8") as file:
        _, *parts = re.split(r"^## (\S+) \((\S+)\)\n", file.read(), flags=re.MULTILINE)
    utc = datetime.timezone.utc
    dates = [datetime.datetime.fromisoformat(day).replace(tzinfo=utc) for day in parts[1::3]]
    text = "\n".join(entry(*version, revision) for version in zip(parts[0::3], dates, parts[2::3]))
    with open(output, "wb") as file:
        file.write(gzip.compress(text.encode(), 9, mtime=0))
    print(int(dates[0].timestamp()), end="")


if __name__ == "__main__":
    main(*sys.argv[1:])
