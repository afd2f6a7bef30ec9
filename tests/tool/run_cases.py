#!/usr/bin/env python3
"""Runs case files of the operator's tool, and compares whole outputs and exit codes.

    run_cases.py --program PROGRAM [--platform linux|windows] [--files DIR] [--scratch DIR] CASE ... [-- EMULATOR ...]
    run_cases.py --program PROGRAM --update CASE ...      write what the program does now into the case files

A case file begins with comments (#), blank lines and these lines:

    @only linux             the case is for one platform
    @file NAME TEXT         a file of the case's folder; TEXT is UTF-8, with the escapes below
    @log NAME TEXT          the same as UTF-16
    @hex NAME 41 00 0D      the same in hexadecimal

Blocks follow. A block is a command and what it does:

    $ tessmaru mask 101     a command, in words as a shell reads them
    DebugMask  101          standard output: all lines up to the next line that starts with "$ ", "! " or "? "
    ! tessmaru: text        standard error, line by line
    ? 1                     the exit code; without this line, it is 0

Before the program a command can have VAR=value, after it `< FILE`, `> FILE` and `| head -N`, which reads N lines and
then closes the pipe. Another program than tessmaru is one of this machine; if it is missing, the block is left out with
a message. Blank lines before the next block do not count, nor do comments after a line that starts with "! " or "? ".

Each case runs in its own folder, with the files of fixtures/ and of --files. {dir} is that folder, {program} the tool. A file NAME.log.txt becomes
NAME.log in UTF-16 with CR LF: "\\u{D800}" is a unit, "\\x{41}" a byte, "\\n", "\\r", "\\t" and "\\\\" are what they are
in C, a backslash at the end of a line is no line end, and "@repeat N" repeats the line after it.

In what is compared, a control character, a byte that is no UTF-8 and a missing line end are marked: ‹1B›. Ends with 0,
1 if a block differs, 2 if a case file is malformed, and 77 if the case is not for this platform.
"""

import argparse
import difflib
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

FIXTURES = Path(__file__).resolve().parent / "fixtures"
LIMIT = 100  # seconds for one command; ctest ends the whole case after 120
SKIPPED = 77
NO_LINE_END = "‹no line end›"
BLANK = "‹blank line›"


class Malformed(Exception):
    """A case file that cannot be read."""


class Block:
    def __init__(self, command):
        self.command = command
        self.lines = []  # of standard output
        self.errors = []
        self.code = "0"

    def text(self):
        """The block as the case file holds it."""
        lines = ["$ " + self.command, *self.lines, *("! " + line for line in self.errors)]
        return lines + ([] if self.code == "0" else ["? " + self.code])


class Case:
    def __init__(self, path):
        self.path = path
        self.name = path.stem
        self.head = []
        self.blocks = []  # blocks, and strings: blank lines and comments between them
        for number, line in enumerate(path.read_text(encoding="utf-8").split("\n"), 1):
            try:
                self.take(line)
            except Malformed as failure:
                raise Malformed(f"{path}:{number}: {failure}") from None
        for block in self.blocks:
            strip_blank(block.lines)

    def take(self, line):
        is_ended = bool(self.blocks) and (self.blocks[-1].errors or self.is_coded)
        if line.startswith("$ "):
            self.blocks.append(Block(line[2:]))
            self.is_coded = False
        elif not self.blocks:
            if line and line[0] not in "#@":
                raise Malformed(f"a case begins with comments and files, not with: {line}")
            self.head.append(line)
        elif line.startswith("! "):
            self.blocks[-1].errors.append(line[2:])
        elif line.startswith("? "):
            self.blocks[-1].code = line[2:].strip()
            self.is_coded = True
        elif not is_ended:
            self.blocks[-1].lines.append(line)
        elif line and not line.startswith("#"):
            raise Malformed(f"standard output comes before standard error and the exit code: {line}")

    def directives(self, name):
        return [line.split(" ", 2)[1:] for line in self.head if line.startswith(f"@{name} ")]


def strip_blank(lines):
    while lines and not lines[-1]:
        lines.pop()


def encode(text, encoding):
    """Text with escapes as bytes."""
    simple = {"n": "\n", "r": "\r", "t": "\t", "\\": "\\"}
    data = b""
    for part in re.split(r"(\\u\{[0-9A-Fa-f]{1,4}\}|\\x\{[0-9A-Fa-f]{2}\}|\\[nrt\\])", text):
        if part.startswith("\\u{"):
            data += int(part[3:-1], 16).to_bytes(2, "little")
        elif part.startswith("\\x{"):
            data += bytes.fromhex(part[3:-1])
        elif part.startswith("\\") and part[1:] in simple:
            data += simple[part[1:]].encode(encoding)
        else:
            data += part.encode(encoding)
    return data


def log_of(text):
    data = b""
    count = 1
    for line in text.removesuffix("\n").split("\n"):
        if line.startswith("@repeat "):
            count = int(line.split()[1])
            continue
        is_open = re.search(r"(?<!\\)(\\\\)*\\$", line) is not None
        data += encode(line[:-1] if is_open else line + "\r\n", "utf-16-le") * count
        count = 1
    return data


def fill(folder, case, files):
    """Puts the files of the case into its folder."""
    for source in sorted(files.iterdir()) if files else []:
        shutil.copy(source, folder)
    for source in sorted(FIXTURES.iterdir()):
        target = folder / source.name.removesuffix(".txt")
        if source.name.endswith(".log.txt"):
            target.write_bytes(log_of(source.read_text(encoding="utf-8")))
        elif source.is_dir():
            shutil.copytree(source, folder / source.name)
        else:
            shutil.copy(source, folder)
    for kind, convert in (("file", lambda text: encode(text, "utf-8")), ("log", lambda text: encode(text, "utf-16-le")),
                          ("hex", bytes.fromhex)):
        for words in case.directives(kind):
            (folder / words[0]).write_bytes(convert(words[1] if len(words) > 1 else ""))


def visible(data):
    """Bytes as lines of text in which everything can be seen."""
    text = data.decode("utf-8", "surrogateescape")
    def mark(match):
        code = ord(match[0])
        return f"‹{code - 0xDC00 if code >= 0xDC80 else code:02X}›"
    text = re.sub("[\\x00-\\x09\\x0b-\\x1f\\x7f-\\x9f\u2028\u2029\udc80-\udcff]", mark, text)
    if not text:
        return []
    lines = text.split("\n")
    if lines[-1]:
        lines[-1] += NO_LINE_END
    else:
        lines.pop()
    if lines and not lines[-1]:
        lines[-1] = BLANK
    return lines


def environment_of(folder):
    """No part of the machine's own settings: times are UTC, and there is neither a terminal nor a user's folder."""
    cleaned = re.compile("(XDG_|LC_|VELTRIX_|CLICOLOR)|(NO_COLOR|TERM|COLUMNS|LINES|LANG|LANGUAGE|TZ)$")
    kept = {name: value for name, value in os.environ.items() if not cleaned.match(name)}
    return kept | {"TZ": "UTC", "LC_ALL": "C.UTF-8", "VELTRIX_REGISTRY": str(folder / "settings.reg"),
                   "VELTRIX_RUNTIME": str(folder / "runtime")}


class Runner:
    def __init__(self, program, emulator):
        self.program = [*emulator, str(Path(program).resolve())]

    def words_of(self, command):
        """The program with its arguments, the variables before it, and the redirections after it."""
        words = shlex.split(command)
        variables, files, head = {}, {}, None
        while words and re.match(r"[A-Z_]+=", words[0]):
            name, value = words.pop(0).split("=", 1)
            variables[name] = value
        if len(words) > 3 and words[-3:-1] == ["|", "head"]:
            head = int(words[-1].removeprefix("-"))
            del words[-3:]
        for sign in ("<", ">"):
            if sign in words:
                place = words.index(sign)
                files[sign] = words[place + 1]
                del words[place:place + 2]
        if not words:
            raise Malformed(f"no program: {command}")
        if words[0] == "tessmaru":
            return self.program + words[1:], variables, files, head
        return ([*words] if shutil.which(words[0]) else []), variables, files, head

    def run(self, block, folder):
        """The block as it is now; nothing if its program is missing."""
        words, variables, files, head = self.words_of(block.command.replace("{dir}", str(folder))
                                                       .replace("{program}", self.program[-1]))
        if not words:
            print(f"not run, as the program is missing: {block.command}")
            return None
        source = open(folder / files["<"], "rb") if "<" in files else subprocess.DEVNULL
        with tempfile.TemporaryFile() as errors:
            with subprocess.Popen(words, stdin=source, stdout=subprocess.PIPE, stderr=errors, cwd=folder,
                                  env=environment_of(folder) | variables) as process:
                output, code = self.read(process, head)
            errors.seek(0)
            return self.result(block.command, folder, output, errors.read(), code, files.get(">"))

    @staticmethod
    def read(process, head):
        if head is None:
            try:
                output, _ = process.communicate(timeout=LIMIT)
            except subprocess.TimeoutExpired:
                process.kill()
                output, _ = process.communicate()
                return output, f"none within {LIMIT} seconds"
            return output, str(process.returncode)
        output = b"".join(process.stdout.readline() for _ in range(head))
        process.stdout.close()
        # The shell that reads this pipe gets the exit code of its other end.
        code = process.wait(timeout=LIMIT)
        return output, "0" if code in (-13, 128 + 13) else str(code)

    @staticmethod
    def result(command, folder, output, errors, code, target):
        now = Block(command)
        now.code = code
        if target is None:
            now.lines = [line.replace(str(folder), "{dir}") for line in visible(output)]
        else:
            (folder / target).write_bytes(output)
        # The streams of text of Windows end lines with CR LF.
        errors = errors.replace(b"\r\n", b"\n")
        now.errors = [line.replace(str(folder), "{dir}") for line in visible(errors)]
        return now


def run_case(case, runner, files, scratch, platform, is_update):
    if any(words[0] != platform for words in case.directives("only")):
        print(f"{case.name} is not for this platform")
        return SKIPPED
    if not case.blocks:
        raise Malformed(f"{case.path}: there is no command")
    scratch.mkdir(parents=True, exist_ok=True)
    folder = Path(tempfile.mkdtemp(prefix=case.name + ".", dir=scratch))
    try:
        fill(folder, case, files)
        results = [runner.run(block, folder) or block for block in case.blocks]
    finally:
        shutil.rmtree(folder)
    if is_update:
        update(case, results)
        return 0
    failures = 0
    for block, now in zip(case.blocks, results):
        if block.text() == now.text():
            continue
        failures += 1
        print(f"{case.path}: $ {block.command}")
        print("\n".join(difflib.unified_diff(block.text()[1:], now.text()[1:], "expected", "is", lineterm="")))
    return 1 if failures else 0


def update(case, results):
    """Replaces what differs, and keeps comments and blank lines."""
    old = case.path.read_text(encoding="utf-8").split("\n")
    starts = [number for number, line in enumerate(old) if line.startswith("$ ")] + [len(old)]
    lines = case.head[:]
    for block, now, begin, end in zip(case.blocks, results, starts, starts[1:]):
        kept = old[begin:end]
        rest = []
        while kept and (not kept[-1] or (kept[-1].startswith("#") and kept[-1] not in block.lines)):
            rest.insert(0, kept.pop())
        lines += (now.text() if block.text() != now.text() else kept) + rest
    case.path.write_text("\n".join(lines), encoding="utf-8")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--program", required=True)
    parser.add_argument("--platform", choices=["linux", "windows"], default="linux")
    parser.add_argument("--files", type=Path)
    parser.add_argument("--scratch", type=Path, default=Path(tempfile.gettempdir()))
    parser.add_argument("--update", action="store_true")
    parser.add_argument("cases", nargs="+", type=Path)
    words = sys.argv[1:]
    place = words.index("--") if "--" in words else len(words)
    options = parser.parse_args(words[:place])
    runner = Runner(options.program, words[place + 1:])
    sys.stdout.reconfigure(encoding="utf-8")
    try:
        codes = [run_case(Case(path), runner, options.files, options.scratch.resolve(), options.platform, options.update)
                 for path in options.cases]
    except Malformed as failure:
        print(failure, file=sys.stderr)
        return 2
    return max((code for code in codes if code != SKIPPED), default=SKIPPED)


if __name__ == "__main__":
    sys.exit(main())
