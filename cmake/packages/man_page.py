#!/usr/bin/env python3
"""Makes a program's man page from its help: man_page.py HELP2MAN PROGRAM VERSION OUTPUT.1

help2man turns `PROGRAM --help` into the page. It knows nothing of sub-commands, so this adds a
section for each, made from `PROGRAM COMMAND --help`.
"""
import os
import re
import subprocess
import sys
import tempfile


def help_of(*command):
    return subprocess.run([*command, "--help"], check=True, capture_output=True, text=True).stdout


def sections(text):
    """The parts of a help text by their headings; what stands before the first is under ""."""
    pieces = re.split(r"^(\S[^\n]*):[ ]*\n(?=  )", text, flags=re.MULTILINE)
    return {"": pieces[0], **dict(zip(pieces[1::2], pieces[2::2]))}


def entries(section):
    """Pairs of a name and its text, which begins at column 30, or a line below a long name."""
    found = re.findall(r"^  (?:(\S.*)\n {30}(.*)|(\S.{0,27})(.*))$", section, re.MULTILINE)
    return [(long or short.rstrip(), below or beside) for long, below, short, beside in found]


def roff(text):
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + text if text.startswith((".", "'")) else text


def command_section(program, command):
    parts = sections(help_of(program, command))
    lines = [f"[{command.upper()}]"]
    for paragraph in filter(str.strip, parts.pop("").splitlines()):
        lines += [".PP", roff(paragraph.strip())]
    for section in parts.values():
        for name, text in entries(section):
            if name != "-h,--help":
                lines += [".TP", f"\\fB{roff(name)}\\fR", roff(text)]
    return "\n".join(lines)


def main(help2man, program, version, output):
    parts = sections(help_of(program))
    commands = [name for name, _ in entries(parts.get("Subcommands", ""))]
    summary = parts[""].strip().splitlines()[0].rstrip(".")
    with tempfile.NamedTemporaryFile("w", suffix=".h2m") as include:
        include.write("\n\n".join(command_section(program, command) for command in commands) + "\n")
        include.flush()
        added = ["--include", include.name] if commands else []
        subprocess.run([help2man, "--no-info", "--section=1", f"--name={summary}", *added,
                        f"--version-string={os.path.basename(program)} {version}",
                        f"--output={output}", program], check=True)


if __name__ == "__main__":
    main(*sys.argv[1:])
