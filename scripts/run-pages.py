#!/usr/bin/env python3
"""Runs the commands that documents show, and compares what they print with what the documents say that they print.

    scripts/run-pages.py PLACE|PAGE|PAGE#SECTION...     PLACE: tests, fuzz, card, service, package or android
    scripts/run-pages.py --check [FOLDER]               links (of the pages in FOLDER, if one is named), marks and places

A block marked "sh" is run; a block without a mark right after it is what it prints: each of its lines must come, in that
order, "..." standing for any text or any lines, and a date for any date. The next block waits a while for lines that
programs in the background have still to print. Other blocks have another mark.

Each page has a shell of its own, which stops at the first command that fails. Its sections start in the clone; those of
docs/applications/ start where the section before ended, after the first block of docs/applications/pkcs11-tool.md, and
their files stay for the pages after that. Prints PASS or FAIL for each section; the status is 1 when one failed.
"""
import glob
import os
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time
from dataclasses import dataclass, field

# Which pages are run where. A section that is named is run there only, whatever becomes of its page.
PLACES = {
    # test.sh, when everything is built and tested
    "tests": ["CONTRIBUTING.md", "README.md#one-test"],
    # .ci/run
    "fuzz": ["CONTRIBUTING.md#fuzzing"],
    # clients.sh, with a PIV card in the reader of the PC/SC service
    "card": [
        "docs/applications/pkcs11-tool.md", "docs/applications/*.md", "README.md#the-trace", "README.md#use-it",
        "docs/debugging.md", "docs/android.md#the-sample-on-linux",
    ],
    # clients.sh, with no PC/SC service
    "service": ["README.md#see-it-work", "README.md#a-card-by-hand", "docs/debugging.md#the-commands-to-the-card"],
    # scripts/check-package.sh, with DESTDIR
    "package": ["README.md#install-it", "docs/packaging.md", "README.md#benchmarks"],
    # scripts/check-android.sh
    "android": ["docs/android.md"],
}
APPLICATIONS = "docs/applications/"
BEGINNING = APPLICATIONS + "pkcs11-tool.md"
MARKS = {"sh", "console", "text", "c", "java", "json", "python"}
SECONDS_PER_PAGE = 600
SECONDS_FOR_BACKGROUND = 20


@dataclass
class Block:
    page: str
    line: int
    mark: str
    lines: list = field(default_factory=list)
    shown: list = field(default_factory=list)
    output: str = None  # the file with what it printed


@dataclass
class Section:
    page: str
    name: str  # PAGE#SECTION, as in a link to it; the page for what comes before the first of them
    anchor: str = ""
    blocks: list = field(default_factory=list)

    def commands(self):
        return [block for block in self.blocks if block.mark == "sh"]


def read(page):
    """The sections of a page, those without blocks too, and its links as (line, target)."""
    sections, links = [Section(page, page)], []
    block = last = None  # the one that the line is in; the one right before
    for number, line in enumerate(open(page, encoding="utf-8"), 1):
        fence = re.match(r"( *)(?:```|~~~)(.*)", line)
        if block is None and fence:
            block, indent = Block(page, number, fence[2].strip()), len(fence[1])
        elif fence:
            if block.mark == "" and last and last.mark == "sh":
                last.shown = block.lines
            else:
                sections[-1].blocks.append(block)
            block, last = None, block
        elif block is not None:
            block.lines.append(re.sub(f"^ {{0,{indent}}}", "", line))
        else:
            title = re.match(r"#+ +(.*)", line)
            if title:
                slug = re.sub(r"[^\w\- ]", "", re.sub(r"\]\([^)]*\)", "", title[1]).lower()).strip().replace(" ", "-")
                if line.startswith("##"):
                    sections.append(Section(page, f"{page}#{slug}"))
                sections[-1].anchor = slug
            links += [(number, target) for target in re.findall(r"\]\(([^)\s]+)\)", re.sub(r"`[^`]*`", "", line))]
            last = last if not line.strip() else None
    return sections, links


def find(what):
    """The sections with commands that a place, page or section has, page by page."""
    if what not in PLACES:
        page = what.partition("#")[0]
        found = [section for section in read(page)[0] if what in (page, section.name) and section.commands()]
        return {page: found} if found else sys.exit(f"{what} has no commands")
    elsewhere = {entry for place, entries in PLACES.items() if place != what for entry in entries}
    result = {}
    for entry in PLACES[what]:
        page, _, section = entry.partition("#")
        for page in [page] if section else sorted(glob.glob(page)):
            for found in read(page)[0]:
                if found.commands() and found not in result.get(page, []) and found.name not in elsewhere and (
                        not section or found.name == entry):
                    result.setdefault(page, []).append(found)
    return result


def printed(block):
    if not os.path.exists(block.output):
        return ""
    with open(block.output, encoding="utf-8", errors="replace") as file:
        return file.read()


def missing(block):
    """The first line that the page shows and the commands did not print, or None."""
    lines = iter(printed(block).splitlines())
    for wanted in (line.rstrip() for line in block.shown):
        if wanted in ("", "..."):
            continue
        pattern = ".*".join(map(re.escape, re.split(r"\.\.\.|\d\d/\d\d/\d{4} \d\d:\d\d:\d\d", wanted)))
        if not any(re.fullmatch(pattern, line.rstrip()) for line in lines):
            return wanted
    return None


def preamble(page, sections):
    """What is run before the sections: where they start from."""
    beginning = BEGINNING if page.startswith(APPLICATIONS) else page
    return [] if sections[0].name == beginning else read(beginning)[0][0].commands()


def run(page, sections):
    """Prints a line for each section; the number of those that failed."""
    blocks = preamble(page, sections)
    with tempfile.TemporaryDirectory(prefix="quarvel-page.") as folder:
        script = ["set -e\n"]
        for section in sections:
            if not page.startswith(APPLICATIONS):
                section.commands()[0].lines.insert(0, f"cd {os.getcwd()}\n")
            blocks += section.commands()
        for number, block in enumerate(blocks):
            block.output = os.path.join(folder, f"{number}.out")
            # It stops after each block, until it is told to go on.
            script += [f"exec >{block.output} 2>&1\n", *block.lines, "kill -STOP $$\n"]
        status, done = follow("".join(script), blocks)
        failures = 0
        for section in sections:
            trouble = None
            for block in section.commands():
                if not os.path.exists(block.output):
                    trouble = "not reached"
                elif done < len(blocks) and block is blocks[done]:
                    trouble = f"a command ends with status {status}"
                elif missing(block):
                    trouble = f"does not print: {missing(block)}"
                if trouble:
                    print(f"FAIL {section.name}\n{page}:{block.line} {trouble}")
                    for line in printed(block).splitlines()[-100:]:
                        print(f"   | {line[:200]}")
                    break
            else:
                print(f"PASS {section.name}", flush=True)
            failures += trouble is not None
        return failures


def end_group(shell):
    """Ends what a page left running, and waits for that."""
    until = time.monotonic() + SECONDS_FOR_BACKGROUND
    try:
        for number in (signal.SIGTERM, signal.SIGCONT):
            os.killpg(shell.pid, number)
        while time.monotonic() < until:
            shell.poll()
            os.killpg(shell.pid, 0)
            time.sleep(0.05)
    except ProcessLookupError:
        pass


def follow(script, blocks):
    """Runs a script that stops after each block; its status, and the number of blocks that it came through."""
    shell = subprocess.Popen(["bash", "-c", script], stdin=subprocess.DEVNULL, start_new_session=True)
    limit = threading.Timer(SECONDS_PER_PAGE, os.killpg, (shell.pid, signal.SIGKILL))
    limit.start()
    done = 0
    try:
        while os.WIFSTOPPED(status := os.waitpid(shell.pid, os.WUNTRACED)[1]):
            until = time.monotonic() + SECONDS_FOR_BACKGROUND
            while missing(blocks[done]) and time.monotonic() < until:
                time.sleep(0.05)
            done += 1
            os.kill(shell.pid, signal.SIGCONT)
    finally:
        limit.cancel()
        end_group(shell)
    shell.returncode = os.waitstatus_to_exitcode(status)
    return "none: it takes too long" if shell.returncode == -signal.SIGKILL else shell.returncode, done


def dead_links(pages):
    """What is wrong with the links between pages and to other files."""
    anchors = {page: {section.anchor for section in read(page)[0]} for page in pages}
    for page in pages:
        for number, target in read(page)[1]:
            name, _, anchor = target.partition("#")
            path = os.path.normpath(os.path.join(os.path.dirname(page), name)) if name else page
            if re.match(r"\w+:", target):
                continue
            if not os.path.exists(path):
                yield f"{page}:{number} links to {target}, which is not there"
            elif anchor and anchor not in anchors.get(path, ()):
                yield f"{page}:{number} links to {target}, where no such section is"


def unknown_blocks(pages):
    """Blocks that are neither run nor marked as what they are."""
    run_somewhere = {section.name for place in PLACES for found in find(place).values() for section in found}
    for section in (section for page in pages for section in read(page)[0]):
        for block in section.blocks:
            if block.mark not in MARKS:
                yield f"{block.page}:{block.line} has the mark \"{block.mark}\"; known are {', '.join(sorted(MARKS))}"
        if section.commands() and section.name not in run_somewhere:
            yield f"{section.name} has commands, and PLACES does not say where they are run"


def check(folder):
    if folder:
        os.chdir(folder)
        pages = sorted(glob.glob("**/*.md", recursive=True))
        troubles = list(dead_links(pages))
    else:
        pages = subprocess.check_output(["git", "ls-files", "*.md"], text=True).split()
        troubles = list(dead_links(pages)) + list(unknown_blocks(pages))
    print("\n".join(troubles) if troubles else f"{len(pages)} pages: links{'' if folder else ' and marks'} are right")
    return 1 if troubles or not pages else 0


def main(arguments):
    if not arguments or arguments[0] in ("--help", "-h"):
        print(__doc__)
        return 0 if arguments else 2
    if arguments[0] == "--check" and arguments[1:]:
        return check(arguments[1])
    os.chdir(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
    if arguments[0] == "--check":
        return check(None)
    return 1 if sum(run(page, sections) for what in arguments for page, sections in find(what).items()) else 0


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))  # as Ctrl-C, which ends what runs
    sys.exit(main(sys.argv[1:]))
