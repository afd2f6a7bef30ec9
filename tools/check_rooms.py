#!/usr/bin/env python3
"""Checks the structure of the tree. Prints each breach in one line; fails if there is one.

    check_rooms.py [--tree FOLDER] [--objects FOLDER]

The files of platform/linux lie in rooms; tools/rooms.txt says which rooms each may use. Always checked:

  - Includes follow that table. src/ includes only system.h of platform/, and platform/ includes nothing of src/.
  - Includes make no circle between files. A header and the source of its name count as one file.
  - A header without a source of its name defines its functions inline.

With --objects, a build folder whose library is built for debugging, also:

  - A function is declared in the header that bears the name of its source. system.h and the public headers may declare
    any function.
  - Calls between rooms follow the table too, also where system.h declares the function.
  - platform/ calls nothing of src/ but the entry point.
"""

import argparse
import fnmatch
import json
import os
import re
import shlex
import subprocess
import sys
from pathlib import Path
from posixpath import dirname, normpath, splitext

from declarations import Declarations

TABLE = "tools/rooms.txt"
LAYER = "platform/linux"
CONTRACT = f"{LAYER}/system.h"
ENTRY_POINT = "DllMain"
AREAS = ("common", "src", LAYER, "testkit")  # each is checked for circles by itself
# The folders that the compiler searches for a file. One that must not be used comes last, so that its use shows.
SEARCHED = {"src": ("include", "src", ".", LAYER), "platform": ("include", LAYER, ".", "src")}
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(?:"([^"]+)"|<([^>]+)>)', re.MULTILINE)
MADE_BY_COMPILER = re.compile(r" (for|to) ")  # as in "vtable for"


def inside(path, folder):
    return path.startswith(folder + "/")


def top(path):
    return path.split("/")[0]


def room_of(path):
    """The room of a file of platform/linux; empty for a file beside system.h."""
    return path[len(LAYER) + 1:].rpartition("/")[0]


def is_contract(path):
    return path == CONTRACT or inside(path, "include")


class Tree:
    """The files that are checked, and the table."""

    def __init__(self, root):
        self.root = Path(root).resolve()
        self.breaches = []
        self.text = {}
        for area in ("include", "common", "src", "platform", "testkit"):
            for path in sorted((self.root / area).rglob("*")):
                if path.suffix in (".h", ".cpp", ".def"):
                    self.text[path.relative_to(self.root).as_posix()] = path.read_text(encoding="utf-8")
        self.rooms = {}  # room -> the rooms that it may use
        self.shared_headers = {}  # header -> the patterns of its sources
        self._read_table()

    def breach(self, place, problem, advice):
        self.breaches.append(f"{place}: {problem}; {advice}")

    def _read_table(self):
        lines = {}
        for number, line in enumerate((self.root / TABLE).read_text(encoding="utf-8").splitlines(), 1):
            left, sign, right = re.fullmatch(r"\s*([^\s:=#]*)\s*([:=]?)\s*([^#]*)(?:#.*)?", line).groups()
            if sign == ":":
                self.rooms[left] = right.split()
                lines[left] = number
            elif sign == "=":
                self.shared_headers[left] = right.split()
                if left not in self.text:
                    self.breach(f"{TABLE}:{number}", f"there is no header {left}", "remove the line")
        folders = {room_of(path) for path in self.text if inside(path, LAYER)} - {""}
        for room in sorted(folders - self.rooms.keys()):
            self.breach(f"{LAYER}/{room}", f"{TABLE} has no row for this room", "add one, or move the files")
        for room, used in self.rooms.items():
            for absent in sorted({room, *used} - folders):
                self.breach(f"{TABLE}:{lines[room]}", f"there is no room {LAYER}/{absent}", "remove it from the table")

    def includes(self):
        """Each include of a file of the tree: the file, the line, the included file."""
        for path, text in self.text.items():
            for match in INCLUDE.finditer(text):
                beside = [dirname(path)] if match[1] else []
                folders = (*beside, *SEARCHED.get(top(path), ("include", ".", top(path))))
                found = (normpath(f"{folder}/{match[1] or match[2]}") for folder in folders)
                target = next((name for name in found if (self.root / name).is_file()), None)
                if target:
                    yield path, text.count("\n", 0, match.start()) + 1, target

    def why_not_between_rooms(self, path, target):
        """Why one file of platform/linux must not use another, or None."""
        room, used = room_of(path), room_of(target)
        if not room or used == room or used in self.rooms.get(room, ()):
            return None
        return f"room {room} may not use {'room ' + used if used else 'the files beside system.h'}"


def why_not_include(tree, path, target):
    """Why `path` must not include `target`, or None."""
    area = top(path)
    if area == "src":
        if top(target) in ("include", "common", "src") or target == CONTRACT:
            return None
        return "src/ may include only system.h, include/ and common/ beside its own files"
    if area == "platform" and top(target) == "src":
        return "platform/ may not include src/"
    if path == CONTRACT:
        return None if inside(target, "include") else "system.h may include only include/"
    if inside(path, LAYER):
        if target == CONTRACT or top(target) in ("include", "common") or inside(target, "platform/x86"):
            return None
        if not inside(target, LAYER):
            return "platform/linux may include only include/, common/ and platform/x86 beside its own files"
        return tree.why_not_between_rooms(path, target)
    if area in ("include", "common") and top(target) not in ("include", area):
        return f"{area}/ may not include {top(target)}/"
    return None


def check_includes(tree):
    for path, line, target in tree.includes():
        reason = why_not_include(tree, path, target)
        if reason:
            tree.breach(f"{path}:{line}", f"includes {target}, but {reason}", "move the file, or what it needs")


def check_circles(tree):
    used = {}  # file without its ending -> used file -> the place of the include
    for path, line, target in tree.includes():
        area = next((area for area in AREAS if inside(path, area)), None)
        unit, used_unit = splitext(path)[0], splitext(target)[0]
        if area and inside(target, area) and used_unit != unit:
            used.setdefault(unit, {}).setdefault(used_unit, f"{path}:{line}")
    finished = set()

    def follow(unit, way):
        if unit in way:
            circle = way[way.index(unit):] + [unit]
            tree.breach(used[way[-1]][unit], f"closes a circle of includes: {' -> '.join(circle)}",
                        "move what both sides need into a file of its own")
        elif unit not in finished:
            for following in used.get(unit, ()):
                follow(following, way + [unit])
            finished.add(unit)

    for unit in sorted(used):
        follow(unit, [])


def check_headers_without_source(tree, declarations):
    for header, declared in declarations.items():
        source = splitext(header)[0] + ".cpp"
        if header.endswith(".h") and source not in tree.text and header not in tree.shared_headers:
            for name, (line, is_function) in declared.promised.items():
                if is_function:
                    tree.breach(f"{header}:{line}", f"declares {name}, but there is no {source}",
                                "define it inline, or declare it in the header of its source")


def output_of(command, text=""):
    return subprocess.run(command, input=text, check=True, stdout=subprocess.PIPE, text=True).stdout


class Objects:
    """The symbols of the built sources."""

    def __init__(self, tree, folder):
        objects = self._newest(tree, folder)
        self.strong = {source: set() for source in objects}  # source -> the symbols that no other may define
        self.undefined = {source: set() for source in objects}
        all_symbols = set()
        for source, path in objects.items():
            for line in output_of(["nm", "-g", "-P", path]).splitlines():
                symbol, kind = line.split()[:2]
                all_symbols.add(symbol)
                if kind in "TDBRi":
                    self.strong[source].add(symbol)
                elif kind in "Uw":
                    self.undefined[source].add(symbol)
        symbols = sorted(all_symbols)
        self.readable = dict(zip(symbols, output_of(["c++filt"], "\n".join(symbols)).splitlines()))
        self.definer = {symbol: source for source, strong in self.strong.items() for symbol in strong}

    @staticmethod
    def _newest(tree, folder):
        """The newest object of each source: several targets may compile one, and not all of them be built."""
        newest = {}
        for entry in json.loads((folder / "compile_commands.json").read_text(encoding="utf-8")):
            source = os.path.relpath(os.path.realpath(entry["file"]), tree.root)
            words = shlex.split(entry["command"])
            path = Path(entry["directory"]) / words[words.index("-o") + 1]
            if source in tree.text and (inside(source, LAYER) or inside(source, "src")) and path.exists():
                time = path.stat().st_mtime
                if source not in newest or newest[source][0] < time:
                    newest[source] = time, path
        return {source: path for source, (_, path) in sorted(newest.items())}

    def name(self, symbol):
        """The qualified name of a function or variable, without result, arguments and template arguments."""
        text = re.sub(r"\[abi:\w+\]", "", self.readable[symbol])
        text = re.sub(r"\boperator\b.*", "operator(", text)  # all operators of a class count as one
        outside, depth = "", 0
        for character in text:
            depth += (character == "<") - (character == ">")
            outside += character if depth == 0 and character != ">" else ""
        return outside.split("(")[0].split()[-1]


class Owners:
    """Which files declare a symbol: its class for a member, else the symbol itself."""

    def __init__(self, declarations):
        self.of_class = {}
        self.of_name = {}
        self.of_c_name = {}
        for path, declared in declarations.items():
            for name in declared.classes:
                self.of_class.setdefault(name, set()).add(path)
            for name in declared.promised if path.endswith(".h") else ():
                self.of_name.setdefault(name, set()).add(path)
                self.of_c_name.setdefault(name.split("::")[-1], set()).add(path)

    def of(self, symbol, name):
        if not symbol.startswith("_Z"):
            return self.of_c_name.get(name, set())
        parts = name.split("::")
        for count in range(len(parts) - 1, 0, -1):
            found = self.of_class.get("::".join(parts[:count]))
            if found:
                return found
        return self.of_name.get(name, set())


def check_definitions(tree, declarations, objects):
    owners = Owners(declarations)
    for source, symbols in objects.strong.items():
        header = splitext(source)[0] + ".h"
        names = {}
        for symbol in sorted(symbols):
            if not MADE_BY_COMPILER.search(objects.readable[symbol]):
                names.setdefault(objects.name(symbol), symbol)
        for name, symbol in names.items():
            found = owners.of(symbol, name)
            shared = any(fnmatch.fnmatch(source, pattern)
                         for path in found for pattern in tree.shared_headers.get(path, ()))
            if shared or {header, source} & found or any(map(is_contract, found)):
                continue
            used = any(symbol in undefined for undefined in objects.undefined.values())
            if found:
                tree.breach(source, f"{name} is declared in {', '.join(sorted(found))} but defined here",
                            f"declare it in {header}, or move its definition")
            elif used:
                tree.breach(source, f"no header declares {name}, which other sources use", f"declare it in {header}")
            elif symbol.startswith("_Z"):  # assembler code needs a plain name
                tree.breach(source, f"no header declares {name}, and no other source uses it",
                            "move it into the unnamed namespace")


def check_promises(tree, declarations, objects):
    defined = {objects.name(symbol) for symbols in objects.strong.values() for symbol in symbols}
    for header, declared in declarations.items():
        source = splitext(header)[0] + ".cpp"
        if header.endswith(".h") and source in objects.strong:
            for name, (line, _) in declared.promised.items():
                if not {name, name.split("::")[-1]} & defined:
                    tree.breach(f"{header}:{line}", f"declares {name}, which no source defines",
                                "remove the declaration")


def check_calls(tree, objects):
    for source, undefined in objects.undefined.items():
        seen = set()
        for symbol in sorted(undefined):
            target = objects.definer.get(symbol)
            if target is None or target in seen or not inside(source, LAYER):
                continue
            if inside(target, LAYER):
                reason = tree.why_not_between_rooms(source, target)
            else:
                reason = None if symbol == ENTRY_POINT else f"platform/ may call only {ENTRY_POINT} of src/"
            if reason:
                seen.add(target)
                tree.breach(source, f"uses {objects.readable[symbol]} of {target}, but {reason}",
                            "move the function, or call back through a hook")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tree", type=Path, default=Path(__file__).parent.parent, help="the folder of the tree")
    parser.add_argument("--objects", type=Path, help="a build folder with the library's objects")
    arguments = parser.parse_args()
    if not (arguments.tree / TABLE).is_file():
        parser.error(f"{arguments.tree} has no {TABLE}")
    if arguments.objects and not (arguments.objects / "compile_commands.json").is_file():
        parser.error(f"{arguments.objects} has no compile_commands.json; configure a build there")

    tree = Tree(arguments.tree)
    declarations = {path: Declarations(text) for path, text in tree.text.items()
                    if inside(path, LAYER) or top(path) in ("include", "common", "src")}
    own = {path: declared for path, declared in declarations.items() if not is_contract(path)}
    check_includes(tree)
    check_circles(tree)
    check_headers_without_source(tree, own)
    if arguments.objects:
        objects = Objects(tree, arguments.objects)
        absent = [path for path in tree.text
                  if inside(path, LAYER) and path.endswith(".cpp") and path not in objects.strong]
        for path in absent:
            tree.breach(path, "has no object", "build the library, or add the file to its sources")
        check_definitions(tree, declarations, objects)
        check_promises(tree, own, objects)
        check_calls(tree, objects)
    else:
        print("check_rooms: only the text is checked; definitions and calls need --objects", file=sys.stderr)

    for breach in tree.breaches:
        print(f"check_rooms: {breach}", file=sys.stderr)
    return 1 if tree.breaches else 0


if __name__ == "__main__":
    sys.exit(main())
