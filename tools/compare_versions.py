#!/usr/bin/env python3
"""Compares what module_version reads with what pefile and exiftool read, file by file.

    compare_versions.py <module_version> <file or folder> ...

Folders are searched for DLLs and EXEs. Every section of a file is compared, with all the texts that any of the readers
knows, and both versions in numbers. Prints each difference; fails if there is one, or if fewer than 30 files had a block.
"""

import json
import re
import subprocess
import sys
from pathlib import Path

import pefile

FEWEST_FILES = 30
VERSION_TYPE = 16
US_ENGLISH = 0x409
NEUTRAL = 0
NUMBERS = re.compile(r"^  file version ([\d,]+), product version ([\d,]+)$", re.MULTILINE)
TEXT = re.compile(r"^    ([^:]+): (.*)$", re.MULTILINE)
TAGS = {  # as exiftool calls the values
    "Comments": "Comments",
    "CompanyName": "CompanyName",
    "FileDescription": "FileDescription",
    "FileVersion": "FileVersion",
    "InternalName": "InternalName",
    "LegalCopyright": "LegalCopyright",
    "LegalTrademarks": "LegalTrademarks",
    "OriginalFileName": "OriginalFilename",
    "PrivateBuild": "PrivateBuild",
    "ProductName": "ProductName",
    "ProductVersion": "ProductVersion",
    "SpecialBuild": "SpecialBuild",
}


def shown(text):
    return re.sub(r"[\x00-\x1f\\\x7f]", lambda match: f"\\x{ord(match[0]):02x}", text)


def numbers(most, least):
    parts = most >> 16, most & 0xFFFF, least >> 16, least & 0xFFFF
    return ",".join(f"{part:02d}" for part in parts)


def languages(image):
    """The languages of the block with the number 1, and the place of the first among all blocks."""
    place = 0
    root = getattr(image, "DIRECTORY_ENTRY_RESOURCE", None)
    for kind in root.entries if root else []:
        for name in kind.directory.entries if kind.id == VERSION_TYPE else []:
            found = [entry.id for entry in name.directory.entries]
            if name.id == 1:
                return found, place
            place += len(found)
    return [], 0


def by_pefile(path):
    """Both versions in numbers, the texts by section, and how many languages there are; None without a block."""
    with pefile.PE(path, fast_load=True) as image:
        image.parse_data_directories([pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_RESOURCE"]])
        found, place = languages(image)
        if not found:
            return None
        preferred = next((language for language in (US_ENGLISH, NEUTRAL) if language in found), found[0])
        place += found.index(preferred)
        fixed = image.VS_FIXEDFILEINFO[place]
        versions = (
            numbers(fixed.FileVersionMS, fixed.FileVersionLS),
            numbers(fixed.ProductVersionMS, fixed.ProductVersionLS),
        )
        sections = {}
        for info in image.FileInfo[place]:
            for table in getattr(info, "StringTable", []):
                texts = {key.decode(): shown(value.decode()) for key, value in table.entries.items()}
                sections[table.LangID.decode().lower()] = {key: text for key, text in texts.items() if text}
        return versions, sections, len(found)


def by_exiftool(path):
    as_texts = {"parse_int": str, "parse_float": str}
    found = json.loads(subprocess.run(["exiftool", "-json", path], check=True, capture_output=True).stdout, **as_texts)[0]
    dotted = [str(found.get(tag, "")) for tag in ("FileVersionNumber", "ProductVersionNumber")]
    versions = tuple(",".join(f"{int(part):02d}" for part in number.split(".")) for number in dotted)
    return versions, {name: shown(str(found[tag])) for tag, name in TAGS.items() if found.get(tag, "") != ""}


def by_tessmaru(program, path, section, names):
    options = [word for name in names for word in ("--name", name)]
    text = subprocess.run(
        [program, "--section", section, *options, path], check=False, capture_output=True, encoding="utf-8"
    ).stdout
    versions = NUMBERS.search(text)
    return versions.groups() if versions else None, dict(TEXT.findall(text))


def differences(program, path):
    expected = by_pefile(path)
    if expected is None:
        found, texts = by_tessmaru(program, path, "040904b0", [])
        return False, [] if found is None and not texts else [f"a block where pefile has none: {found} {texts}"]
    versions, sections, blocks = expected
    lines = []
    for section, texts in sections.items():
        found, own = by_tessmaru(program, path, section, sorted(set(texts) - set(TAGS.values())))
        if found != versions:
            lines.append(f"numbers {found}, by pefile {versions}")
        if own != texts:
            lines.append(f"section {section}: {own}, by pefile {texts}")
        if len(sections) == 1 and blocks == 1:
            versions_there, texts_there = by_exiftool(path)
            known = {name: text.rstrip() for name, text in own.items() if name in TAGS.values()}
            if versions_there != found or known != {name: text.rstrip() for name, text in texts_there.items()}:
                lines.append(f"{found} {known}, by exiftool {versions_there} {texts_there}")
    return True, lines


def files_of(arguments):
    for argument in map(Path, arguments):
        if argument.is_dir():
            yield from sorted(path for path in argument.rglob("*") if path.suffix.lower() in (".dll", ".exe"))
        else:
            yield argument


def main(program, *arguments):
    compared = texts = faults = skipped = 0
    for path in files_of(arguments):
        try:
            has_block, lines = differences(program, str(path))
        except pefile.PEFormatError as reason:
            print(f"{path}: no PE file to pefile: {reason}")
            continue
        compared += has_block
        skipped += not has_block
        faults += len(lines)
        for line in lines:
            print(f"{path}: {line}")
    print(f"{compared} files with a block and {skipped} without one compared, {faults} differences")
    return 0 if compared >= FEWEST_FILES and faults == 0 else 1


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
