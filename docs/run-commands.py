#!/usr/bin/env python3
"""Runs the commands that a document shows, with simulated cameras, and follows its links.

    run-commands.py BUILD PAGE [--write]

In a block "console", a line behind "$ " is a command, and what follows is what it prints; numbers
may differ, and "..." stands for any lines. In an indented block each line is a command. A block of
C, C++, CMake or Python becomes the file that the text behind it names: "this as `frame.c`". A page
is one session of a shell, in a folder of its own that shows the project's files and, as
build/release, BUILD. Where no simulated camera is named, programs get one.

A command may fail only where the page shows an error. Links within the project must lead somewhere.
With --write, the page gets what was printed.
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile
import threading
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
CAMERA = "vscsim run --camera VSC470MC-Cool:flash=flash.bin -- "
LONGEST = 180  # seconds that a command may take
MARK = "-- end of the command:"

PROGRAMS = ("c", "cmake", "cpp", "python", "sh")

SYSTEM = "changes the system"
SUITE = "builds or tests the project, which is what runs this"
SERVER = "ends when it is stopped; tests/tools/serve.py runs it"
KERNEL = "needs the kernel's USB stack; tests/kernel runs it"

# What is shown and not run: the beginning of the command, and why. Each entry must be of use.
NOT_RUN = {
    "README.md": [
        ("./dev ", SUITE),
        ("sudo ", SYSTEM),
        ("cc frame.c", "wants the library installed; ./dev package compiles it so"),
        ("vscsim run --camera VSC470MM -- ./frame", "runs what the one above compiles"),
        ("vscsim run --camera VSC470MM -- PROGRAM", "is a pattern, no command"),
        ("vscsim serve ", "ends when it is stopped; tests/vscsim runs it"),
        ("vscservice hotpixels save", "asks at a terminal; tests/tools/service.sh answers"),
        ("vscservice hotpixels erase", "the same"),
        ("vscservice hotpixels show", "shows what the two above wrote"),
    ],
    "CONTRIBUTING.md": [
        ("cmake --preset", SUITE),
        ("ctest --preset", SUITE),
        ("usb: ", "is the message of a commit"),
        ("A pass ", "the same"),
        ("them while", "the same"),
    ],
    "live.md": [("vsccam serve", "ends when it is stopped; tests/tools/page.py works it")],
    "serve.md": [
        ("vsccam serve", SERVER),
        ("vsccam --sim VSC470MC serve", SERVER),
        ("head -c", "makes a secret"),
        ("curl ", "asks the server, which tests/tools/serve.py does"),
        ("echo ", SYSTEM),
        ("sudo ", SYSTEM),
    ],
    "tutorial.md": [("./dev ", SUITE)],
    "indi.md": [("sudo ", SYSTEM)],
    "troubleshooting.md": [("sudo ", SYSTEM), ("echo 256 | sudo ", SYSTEM)],
    "adding-a-model.md": [
        ("cmake --preset", SUITE),
        ("build/release/bin/library_test", SUITE),
    ],
}


class Command:
    def __init__(self, text, line):
        self.text, self.line = text, line
        self.shown = None  # lines, of a command whose output the page shows


def commands_of(lines):
    """The commands of a page, and the files that it shows: pairs of name and text."""
    found, block, kind, start = [], [], None, 0
    for number, line in enumerate(lines + [""]):
        if kind is None and (fence := re.match(r"```(\w*)", line)):
            kind, block, start = fence[1], [], number + 1
        elif kind not in (None, "indented"):
            if not line.startswith("```"):
                block.append(line)
                continue
            if kind == "console":
                found += console(block, start)
            elif kind not in PROGRAMS:
                sys.exit(f"line {start}: a block of '{kind}'; commands stand in one of 'console'")
            else:
                after = "\n".join(lines[number + 1:number + 6])
                if name := re.search(r"as `([\w.]+)`", after):
                    found.append((name[1], "\n".join(block) + "\n"))
            kind = None
        elif line.startswith("    ") and (kind == "indented" or not lines[number - 1].strip()):
            if kind is None:
                kind, joined = "indented", False
            if joined:
                found[-1].text += "\n" + line.strip()
            else:
                found.append(Command(line.strip(), number))
            joined = line.endswith("\\")
        elif kind == "indented" and line:
            kind = None
    return found


def console(block, start):
    found = []
    for offset, line in enumerate(block):
        if line.startswith("$ "):
            found.append(Command(line[2:], start + offset))
            found[-1].shown = []
        elif offset == 0:
            sys.exit(f"line {start + 1}: a block begins with no command")
        elif found[-1].text.endswith("\\"):
            found[-1].text += "\n" + line
            found[-1].line += 1
        else:
            found[-1].shown.append(line)
    return found


def anchors(page):
    """What links may name in a page: its headings, in the form that viewers give them."""
    headings = re.findall(r"^#+ (.*)", page.read_text(), re.M)
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-") for heading in headings}


def dead_links(page):
    text = re.sub(r"`[^`\n]*`", "", page.read_text())
    for target, anchor in re.findall(r"\]\(([^():#]*)(?:#([^()]*))?\)", text):
        file = page.parent / target if target else page
        if not file.exists() or anchor and anchor not in anchors(file):
            yield f"{page.name}: leads to {target}#{anchor}, which is not there"


class Shell:
    """Takes one command after the other. A shell that a command starts takes those that follow."""

    def __init__(self, folder, build):
        path = f"{build}/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin"
        environment = {"PATH": path, "HOME": str(folder), "LANG": "C.UTF-8", "TERM": "dumb"}
        self.process = subprocess.Popen(
            ["bash"], cwd=folder, env=environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True, start_new_session=True)
        self.has_camera = False

    def run(self, command):
        """What it prints, and its exit code; nothing when it does not end."""
        if re.match(r"vscsim run .*-- bash$", command):
            self.has_camera = True
        elif command == "exit":
            self.has_camera = False
        elif not self.has_camera and re.match(r"(vsccam|vscservice) (?!.*--sim)", command):
            command = CAMERA + command
        timer = threading.Timer(LONGEST, lambda: os.killpg(self.process.pid, 9))
        timer.start()
        print(f"{command}\nprintf '\\n{MARK} %d\\n' $?", file=self.process.stdin, flush=True)
        printed = []
        code = None
        for line in self.process.stdout:
            if line.startswith(MARK):
                code = int(line.split()[-1])
                break
            printed.append(line.rstrip())
        timer.cancel()
        return printed[:-1] if printed[-1:] == [""] else printed, code


def masked(line):
    """The line without what differs from run to run: numbers, the room that they take, and why
    frames were dropped, as a busy machine drops some."""
    line = re.sub(r"(\d dropped) \([^)]*\)", r"\1", line)
    return re.sub(r" +", " ", re.sub(r"[-+]?\d+(\.\d+)?", "#", line)).strip()


def same(shown, printed):
    pattern = "".join(r"(?:.*\n)*?" if line == "..." else re.escape(masked(line)) + "\n"
                      for line in shown)
    return re.fullmatch(pattern, "".join(masked(line) + "\n" for line in printed))


def workplace(folder, build):
    for entry in ROOT.iterdir():
        if entry.name not in ("build", ".git"):
            (folder / entry.name).symlink_to(entry)
    (folder / "build").mkdir()
    (folder / "build/release").symlink_to(build)


class Run:
    def __init__(self, page, folder, build):
        self.page, self.folder, self.faults, self.printed = page, folder, [], {}
        self.shell = Shell(folder, build)
        self.excuses = dict.fromkeys((begin for begin, _ in NOT_RUN.get(page.name, [])), 0)

    def excused(self, command):
        fitting = [begin for begin in self.excuses if command.startswith(begin)]
        for begin in fitting:
            self.excuses[begin] += 1
        return bool(fitting)

    def check(self, command):
        printed, code = self.shell.run(command.text)
        where = f"{self.page.name}:{command.line + 1}: {command.text}"
        told = command.shown or []
        if code is None:
            sys.exit(f"{where}\n  did not end, or ended the shell:\n" + "\n".join(printed[-20:]))
        if code != 0 and not any(line.startswith("error: ") for line in told):
            self.faults.append(f"{where}\n  ended with {code}:\n" + "\n".join(printed[-20:]))
        if command.shown is not None and not same(told, printed):
            self.printed[command.line] = (len(told), printed, "..." in told)
            self.faults.append(f"{where}\n  printed:\n" + "\n".join(printed))

    def all(self, found):
        for item in found:
            if isinstance(item, tuple):
                (self.folder / item[0]).write_text(item[1])
            elif not self.excused(item.text):
                self.check(item)
        self.faults += [f"{self.page.name}: shows nothing that begins with '{begin}'"
                        for begin, uses in self.excuses.items() if not uses]


def main(build, page, write=False):
    page, lines = Path(page), Path(page).read_text().splitlines()
    folder = Path(tempfile.mkdtemp(prefix="docs-"))
    try:
        workplace(folder, Path(build).resolve())
        run = Run(page, folder, Path(build).resolve())
        try:
            run.faults += dead_links(page)
            run.all(commands_of(lines))
        finally:
            run.shell.process.stdin.close()
            run.shell.process.wait(LONGEST)
    finally:
        shutil.rmtree(folder)
    if write:
        for line, (count, printed, shortened) in sorted(run.printed.items(), reverse=True):
            if not shortened:
                lines[line + 1:line + 1 + count] = printed
        page.write_text("\n".join(lines) + "\n")
    sys.exit("\n".join(run.faults) or 0)


main(sys.argv[1], sys.argv[2], sys.argv[3:] == ["--write"])
