#!/usr/bin/env python3
"""Writes platform/linux/text/code_pages.def from what code_page_dump prints on Windows.

    tools/run_windows.sh 64 build/windows64/bin/code_page_dump.exe >dump.txt
    tools/make_code_pages.py dump.txt >platform/linux/text/code_pages.def

The pages of single bytes are written whole. Of the pages of double bytes only what the C library's converter does
differently is written, so this has to run on the Linux that the library is for. A run is a range of units with
consecutive codes. Best fit gives a unit the code of another one, its substitute.
"""

import ctypes
import sys

libc = ctypes.CDLL(None)
libc.iconv_open.restype = ctypes.c_void_p
libc.iconv.argtypes = [ctypes.c_void_p] * 5
libc.iconv.restype = ctypes.c_size_t
FAILED = ctypes.c_size_t(-1).value
PRIVATE = range(0xE000, 0xF900)
SURROGATES = range(0xD800, 0xE000)
NO_CODE = 0


class Converter:
    """Converts single characters with the C library. A character that it does not have gives None."""

    def __init__(self, to, source):
        self.descriptor = libc.iconv_open(to.encode(), source.encode())
        if self.descriptor == FAILED:
            sys.exit(f"make_code_pages: the C library has no conversion from {source} to {to}")

    def __call__(self, character):
        source = ctypes.create_string_buffer(character, len(character))
        room = ctypes.create_string_buffer(16)
        at, left = ctypes.c_void_p(ctypes.addressof(source)), ctypes.c_size_t(len(character))
        to, free = ctypes.c_void_p(ctypes.addressof(room)), ctypes.c_size_t(len(room))
        result = libc.iconv(self.descriptor, ctypes.byref(at), ctypes.byref(left), ctypes.byref(to), ctypes.byref(free))
        libc.iconv(self.descriptor, None, None, ctypes.byref(to), ctypes.byref(free))
        return None if result == FAILED else room.raw[:len(room) - free.value]


class Page:
    """What the platform does: `codes` and `units` both ways, `best` from a unit to its code by best fit."""

    def __init__(self, number):
        self.number, self.codes, self.best, self.units = number, {}, {}, {}
        self.double = number in (932, 936, 949, 950)

    def read(self, kind, source, target, remark=""):
        if kind == "W":
            (self.best if remark else self.codes)[int(source, 16)] = bytes.fromhex(target)
        # A lead byte alone is not a character: it has only the replacement for malformed bytes.
        elif not remark or int(target, 16) in PRIVATE:
            self.units[bytes.fromhex(source)] = int(target, 16)

    def substitute(self, code):
        unit = self.units[code]
        if self.codes.get(unit) != code:
            sys.exit(f"make_code_pages: {self.number}: {code.hex()} is not the code of U+{unit:04X}")
        return unit

    def exceptions(self):
        """The units with their codes that the C library does not convert in the same way; NO_CODE if they have none."""
        to_code = Converter(f"CP{self.number}", "UTF-16LE")
        to_unit = Converter("UTF-16LE", f"CP{self.number}")
        found = {}
        for unit in range(0x80, 0x10000):
            if unit in SURROGATES or unit in self.best:
                continue
            code = self.codes.get(unit)
            if to_code(unit.to_bytes(2, "little")) != code:
                found[unit] = int.from_bytes(code, "big") if code else NO_CODE
        for code, unit in self.units.items():
            theirs = to_unit(code)
            if theirs is None and found.get(unit) != int.from_bytes(code, "big"):
                sys.exit(f"make_code_pages: {self.number}: {code.hex()} has no run")
            if theirs is not None and theirs != unit.to_bytes(2, "little"):
                sys.exit(f"make_code_pages: {self.number}: {code.hex()} is another character in the C library")
        return found


def read_dump(path):
    pages = []
    with open(path, encoding="ascii") as dump:
        for line in dump:
            fields = line.split()
            if fields[0] == "page":
                pages.append(Page(int(fields[1])))
            else:
                pages[-1].read(*fields)
    return pages


def runs(codes):
    """Joins units with consecutive codes to [unit, code, count]. Units without a code have NO_CODE throughout."""
    joined = []
    for unit, code in sorted(codes.items()):
        if joined:
            first, start, count = joined[-1]
            following = NO_CODE if start == NO_CODE else start + count
            if unit == first + count and code == following and count < 255:
                joined[-1][2] += 1
                continue
        joined.append([unit, code, 1])
    return joined


def write(head, items):
    print(head + " = {")
    line = "   "
    for item in items:
        if len(line) + len(item) + 2 > 120:
            print(line)
            line = "   "
        line += f" {item},"
    print(line + "\n};")


def best_fits(pages):
    """The pairs of a unit and its substitute, with the pages that have them as bits in the order of the pages."""
    users = {}
    for bit, page in enumerate(pages):
        for unit, code in page.best.items():
            pair = (unit, page.substitute(code))
            users[pair] = users.get(pair, 0) | 1 << bit
    return sorted(users.items())


def main():
    pages = read_dump(sys.argv[1])
    print("// The tables of the code pages. Made by tools/make_code_pages.py from the output of code_page_dump on Windows.")
    print("\n// Pages of single bytes: the units of the bytes from 80 on.")
    for page in pages:
        if not page.double:
            upper = [page.units[bytes([byte])] for byte in range(0x80, 0x100)]
            if any(page.units[bytes([byte])] != byte for byte in range(0x80)):
                sys.exit(f"make_code_pages: {page.number}: the lower half is not ASCII")
            write(f"constexpr WCHAR Upper{page.number}[]", (f"0x{unit:04X}" for unit in upper))
    print("\n// Pages of double bytes: runs of units with codes that iconv lacks, and without a code that iconv has.")
    for page in pages:
        if page.double:
            write(f"constexpr CodeRun Runs{page.number}[]",
                  (f"{{0x{unit:04X}, 0x{code:04X}, {count}}}" for unit, code, count in runs(page.exceptions())))
    print("\n// The pages. The place of a page is its bit in the table of best fit.")
    write("constexpr CodePage Pages[]", (f"{{{page.number}, {{}}, Runs{page.number}}}" if page.double
                                         else f"{{{page.number}, Upper{page.number}, {{}}}}" for page in pages))
    print("\n// Best fit: a unit, its substitute, and the pages that have this pair.")
    write("constexpr BestFit BestFits[]",
          (f"{{0x{unit:04X}, 0x{to:04X}, 0x{bits:04X}}}" for (unit, to), bits in best_fits(pages)))

main()
