#!/usr/bin/env python3
"""Runs the commands that documents show, and compares what they print with what the documents say that they print.

    scripts/run-pages.py PAGE...

A block marked "sh" is run; a block without a mark right behind it is what it prints: each of its lines must come, in that
order, "..." standing for any text or any lines. Each page has a shell of its own, which starts in the clone with the first
block of docs/applications/pkcs11-tool.md and stops at the first command that fails; files stay for the pages behind it.
Prints PASS or FAIL for each section; the status is 1 when one failed. A card must be in a reader.
"""
import os
import re
import signal
import subprocess
import sys
import tempfile
from dataclasses import dataclass, field

BEGINNING = "docs/applications/pkcs11-tool.md"
SECONDS_PER_PAGE = 180


@dataclass
class Block:
    line: int
    commands: str
    shown: list = field(default_factory=list)


@dataclass
class Section:
    title: str
    blocks: list = field(default_factory=list)


def read(page):
    """The sections of a page that have commands."""
    sections = [Section(page)]
    mark = None  # of the block that the line is in
    last = None  # the block of commands right before
    for number, line in enumerate(open(page, encoding="utf-8"), 1):
        if mark is None and line.startswith("```"):
            mark, start, lines = line[3:].strip(), number, []
        elif mark is not None and line.rstrip() == "```":
            if mark == "sh":
                last = Block(start + 1, "".join(lines))
                sections[-1].blocks.append(last)
            elif mark == "" and last:
                last.shown, last = lines, None
            mark = None
        elif mark is not None:
            lines.append(line)
        elif line.startswith("#"):
            sections.append(Section(f"{page}: {line.strip('# ').strip()}"))
            last = None
        elif line.strip():
            last = None
    return [section for section in sections if section.blocks]


def missing(shown, printed):
    """The first line that the page shows and the commands did not print, or None."""
    lines = iter(printed.splitlines())
    for wanted in (line.rstrip() for line in shown):
        if wanted in ("", "..."):
            continue
        pattern = ".*".join(re.escape(part) for part in wanted.split("..."))
        if not any(re.fullmatch(pattern, line.rstrip()) for line in lines):
            return wanted
    return None


def run(page, folder):
    """Prints a line for each section; the number of those that failed."""
    sections = read(page)
    beginning = [] if page == BEGINNING else read(BEGINNING)[0].blocks[:1]
    script = os.path.join(folder, "script")
    outputs = {}
    with open(script, "w", encoding="utf-8") as file:
        file.write("set -e\n")
        for block in beginning + [block for section in sections for block in section.blocks]:
            outputs[id(block)] = os.path.join(folder, f"{len(outputs)}.out")
            file.write(f"exec >{outputs[id(block)]} 2>&1\n{block.commands}")
        file.write(f"exec >{folder}/end\n")
    shell = subprocess.Popen(["bash", script], stdin=subprocess.DEVNULL, start_new_session=True)
    try:
        status = shell.wait(SECONDS_PER_PAGE)
    except subprocess.TimeoutExpired:
        status = "none: it takes too long"
    try:
        os.killpg(shell.pid, signal.SIGTERM)  # what the page left running
    except ProcessLookupError:
        pass
    shell.wait()

    ran = [os.path.exists(name) for name in outputs.values()] + [os.path.exists(f"{folder}/end")]
    broken = list(outputs)[ran.index(False) - 1] if False in ran else None
    failures = 0
    for section in sections:
        trouble = None
        for block in section.blocks:
            printed = ""
            if os.path.exists(outputs[id(block)]):
                printed = open(outputs[id(block)], encoding="utf-8", errors="replace").read()
            lost = missing(block.shown, printed)
            if id(block) == broken:
                trouble = f"a command ends with status {status}"
            elif not os.path.exists(outputs[id(block)]):
                trouble = "not reached"
            elif lost:
                trouble = f"does not print: {lost}"
            if trouble:
                trouble = f"{page}:{block.line} {trouble}\n" + "".join(f"   | {line}\n" for line in printed.splitlines())
                break
        print(f"FAIL {section.title}\n{trouble}" if trouble else f"PASS {section.title}", flush=True)
        failures += trouble is not None
    return failures


def main(pages):
    if not pages or pages[0].startswith("-"):
        print(__doc__)
        return 0 if pages[:1] == ["--help"] else 2
    os.chdir(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
    failures = 0
    for page in pages:
        with tempfile.TemporaryDirectory(prefix="quarvel-page.") as folder:
            failures += run(page, folder)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
