#!/usr/bin/env python3
"""The check of the tree's structure finds each kind of breach in a small tree, and none in the sound one.

Takes the compiler from CXX, else c++. Ends with 77 if a tool is missing.
"""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

CHECK = Path(__file__).resolve().parents[2] / "tools" / "check_rooms.py"
COMPILER = os.environ.get("CXX", "c++")

# Two folders are called automation/, as in the real tree: an include has to mean the right one.
SOUND = {
    "tools/rooms.txt": """# comment
base:
locks: base          # comment
automation: base locks
src/frame/cipher.h = src/frame/cipher_*.cpp
""",
    "include/tessmaru/text.h": """#pragma once
class Text {
public:
    Text();
    int Length() const;
};
""",
    "common/rows.h": "#pragma once\nconstexpr const char* Rows[] = {\"{\", R\"x(\"int f();\")x\"};\n",
    "platform/x86/state.h": "#pragma once\nstruct State { unsigned Word = 0x1'000; };\n",
    "platform/linux/system.h": """#pragma once
#include "tessmaru/text.h"
extern "C" int CloseIt(void* handle);
extern "C" int DllMain();
int LockIt(int times);
""",
    "platform/linux/entry.cpp": """#include "locks/mutex.h"
namespace {
struct Entry {
    Entry() : Result{DllMain()} {}
    int Result;
} entry;
}
""",
    "platform/linux/base/handle.h": """#pragma once
#include "common/rows.h"
#include "system.h"
namespace layer {
// int Commented();
#define DECLARED int Defined();
class Object {
public:
    explicit Object(int kind) noexcept(true) : Kind{kind}, Count{0} {}
    Object(const Object&) = delete;
    virtual ~Object() = default;
    virtual void Close() = 0;
    Object& operator=(const Object& other);
    [[nodiscard]] int kind() const { return Kind; }
    struct Slot {
        int Index() const;
    };

private:
    friend int Open(Object* object, int flags);
    int Kind, Count;
    void (*Hook)(Object*) = nullptr;
};
template <class Result>
Result Fail(int, Result result) { if (result) { return result; } return {}; }
extern thread_local __attribute__((tls_model("initial-exec"))) int lastError;
int Open(Object* object, int flags = {});
inline int Twice(int x);
inline int Twice(int x) { return 2 * x; }
}
""",
    "platform/linux/base/handle.cpp": """#include "base/handle.h"
#include "../../x86/state.h"
namespace layer {
thread_local int lastError = 0;
Object& Object::operator=(const Object&) { return *this; }
int Object::Slot::Index() const { return 0; }
int Open(Object*, int flags) { return Twice(flags); }
}
extern "C" int CloseIt(void*) { return 0; }
extern "C" int used_by_assembler() { return 1; }
""",
    "platform/linux/base/reach.h": "#pragma once\nnamespace layer { enum class Reach { here, all }; }\n",
    "platform/linux/locks/mutex.h": '#pragma once\n#include "base/handle.h"\nnamespace layer { int Lock(Object*); }\n',
    "platform/linux/locks/mutex.cpp": """#include "locks/mutex.h"
int layer::Lock(Object* object) { return Open(object, 1) + CloseIt(object); }
int LockIt(int times) { return times; }
""",
    "platform/linux/automation/names.h": "#pragma once\nnamespace layer { int NameLock(); }\n",
    "platform/linux/automation/names.cpp": """#include "automation/names.h"
#include "locks/mutex.h"
int layer::NameLock() { return Lock(nullptr) + LockIt(2); }
""",
    "src/automation/names.h": "#pragma once\nint CountNames();\n",
    "src/automation/names.cpp": "#include \"automation/names.h\"\nint CountNames() { return 2; }\n",
    "src/frame/cipher.h": "#pragma once\nusing Transform = void(int);\nTransform Encrypt, Decrypt;\n",
    "src/frame/cipher_plain.cpp": "#include \"frame/cipher.h\"\nvoid Encrypt(int) {}\nvoid Decrypt(int) {}\n",
    "src/library.cpp": """#include "automation/names.h"
#include "system.h"
#include "tessmaru/text.h"
Text::Text() = default;
int Text::Length() const { return LockIt(CountNames()); }
extern "C" int DllMain() { return 0; }
""",
}

# What is added to files of the sound tree, and the one line that the check then prints.
IN_TEXT = {
    "an include of another room": (
        {"platform/linux/base/reach.h": '#include "locks/mutex.h"\n'},
        "platform/linux/base/reach.h:3: includes platform/linux/locks/mutex.h, but room base may not use room locks; "),
    "a room's include of a file beside system.h": (
        {"platform/linux/entry.h": "#pragma once\n", "platform/linux/base/reach.h": '#include "../entry.h"\n'},
        "platform/linux/base/reach.h:3: includes platform/linux/entry.h, but room base may not use the files beside "),
    "an include of a room by system.h": (
        {"platform/linux/system.h": '#include "base/reach.h"\n'},
        "platform/linux/system.h:6: includes platform/linux/base/reach.h, but system.h may include only include/; "),
    "an include of the layer by src/": (
        {"src/library.cpp": '  #  include "base/reach.h" // why\n'},
        "src/library.cpp:7: includes platform/linux/base/reach.h, but src/ may include only system.h, "),
    "an include of src/ by the layer": (
        {"src/log/codes.h": "#pragma once\n", "platform/linux/base/reach.h": '#include "log/codes.h"\n'},
        "platform/linux/base/reach.h:3: includes src/log/codes.h, but platform/ may not include src/; "),
    "an include of src/ by another platform": (
        {"platform/x86/state.h": '#include "../../src/frame/cipher.h"\n'},
        "platform/x86/state.h:3: includes src/frame/cipher.h, but platform/ may not include src/; "),
    "a circle of a header and a source": (
        {"src/log/file.h": "#pragma once\n#include \"log/record.h\"\n", "src/log/record.h": "#pragma once\n",
         "src/log/record.cpp": '#include "record.h"\n#include "file.h"\n'},
        "src/log/record.cpp:2: closes a circle of includes: src/log/file -> src/log/record -> src/log/file; "),
    "a function of a header without a source": (
        {"src/log/line.h": "#pragma once\n\nnamespace log_line {\nint Length(const char* line);\n}\n"},
        "src/log/line.h:4: declares log_line::Length, but there is no src/log/line.cpp; "),
    "a room that the table lacks": (
        {"platform/linux/extra/more.h": "#pragma once\n"}, "platform/linux/extra: tools/rooms.txt has no row for this"),
    "a row without a room": (
        {"tools/rooms.txt": "gone: base\n"}, "tools/rooms.txt:6: there is no room platform/linux/gone; "),
    "a row that may use what does not exist": (
        {"platform/linux/new/new.h": "#pragma once\n", "tools/rooms.txt": "new: bsae\n"},
        "tools/rooms.txt:6: there is no room platform/linux/bsae; "),
    "a shared header that does not exist": (
        {"tools/rooms.txt": "src/gone.h = src/g_*.cpp\n"}, "tools/rooms.txt:6: there is no header src/gone.h; "),
}
IN_OBJECTS = {
    "an upward call through system.h": (
        {"platform/linux/base/early.h": '#include "system.h"\nint Early();\n',
         "platform/linux/base/early.cpp": '#include "early.h"\nint Early() { return LockIt(1); }\n'},
        "platform/linux/base/early.cpp: uses LockIt(int) of platform/linux/locks/mutex.cpp, "
        "but room base may not use room locks; "),
    "a call of src/ by the layer": (
        {"platform/linux/entry.cpp": "int CountNames();\nint result = CountNames();\nstatic int more = result;\n",
         "platform/linux/entry.h": "extern int result;\n"},
        "platform/linux/entry.cpp: uses CountNames() of src/automation/names.cpp, but platform/ may call only "),
    "a function that another header declares": (
        {"platform/linux/locks/mutex.h": "namespace layer { int Late(Object& object); }\n",
         "platform/linux/locks/late.cpp": '#include "locks/mutex.h"\nint layer::Late(Object&) { return 0; }\n'},
        "platform/linux/locks/late.cpp: layer::Late is declared in platform/linux/locks/mutex.h but defined here; "),
    "a member function apart from its class": (
        {"src/automation/names.h": "class Names {\n    struct Row { int Find() const; };\n};\n",
         "src/automation/row.cpp": '#include "names.h"\nint Names::Row::Find() const { return 0; }\n'},
        "src/automation/row.cpp: Names::Row::Find is declared in src/automation/names.h but defined here; "),
    "a function that no header declares, used elsewhere": (
        {"platform/linux/base/handle.cpp": "int Hidden() { return 1; }\n",
         "platform/linux/locks/mutex.cpp": "int Hidden();\nstatic int found = Hidden();\n"},
        "platform/linux/base/handle.cpp: no header declares Hidden, which other sources use; "),
    "a function that could be internal": (
        {"platform/linux/base/handle.cpp": "int Hidden() { return 1; }\n"},
        "platform/linux/base/handle.cpp: no header declares Hidden, and no other source uses it; "),
    "a declaration that nothing defines": (
        {"platform/linux/locks/mutex.h": "void Forgotten();\n"},
        "platform/linux/locks/mutex.h:4: declares Forgotten, which no source defines; "),
    "a source that is not built": (
        {"platform/linux/base/unbuilt.cpp": "\n"}, "platform/linux/base/unbuilt.cpp: has no object; "),
}


def build(tree):
    """Compiles the sources of the tree, and lists how, as a build does."""
    commands = []
    folder = tree / "build"
    folder.mkdir()
    for source in sorted([*tree.glob("src/**/*.cpp"), *tree.glob("platform/linux/**/*.cpp")]):
        if source.stem == "unbuilt":
            continue
        searched = ["include", "src" if source.is_relative_to(tree / "src") else ".", "platform/linux", "."]
        command = [COMPILER, "-std=c++20", "-g", "-w", *(f"-I{tree}/{folder}" for folder in searched),
                   "-o", f"{len(commands)}.o", "-c", str(source)]
        subprocess.run(command, check=True, cwd=folder)
        commands.append({"directory": str(folder), "command": " ".join(command), "file": str(source)})
    (folder / "compile_commands.json").write_text(json.dumps(commands))
    return folder


class CheckRooms(unittest.TestCase):
    def checked(self, added, with_objects):
        """The check's exit code and lines for the sound tree with something added."""
        with tempfile.TemporaryDirectory() as name:
            tree = Path(name).resolve()
            for path in [*SOUND, *(path for path in added if path not in SOUND)]:
                (tree / path).parent.mkdir(parents=True, exist_ok=True)
                (tree / path).write_text(SOUND.get(path, "") + added.get(path, ""))
            options = ["--objects", build(tree)] if with_objects else []
            ran = subprocess.run([sys.executable, CHECK, "--tree", tree, *options], capture_output=True, text=True)
            self.assertEqual(ran.stdout, "")
            return ran.returncode, ran.stderr.splitlines()

    def assert_found(self, cases, with_objects):
        for title, (added, expected) in cases.items():
            with self.subTest(title):
                code, lines = self.checked(added, with_objects)
                found = [line for line in lines if "need --objects" not in line]
                self.assertEqual((code, len(found)), (1, 1), found)
                self.assertTrue(found[0].startswith(f"check_rooms: {expected}"), found)

    def test_passes_a_sound_tree(self):
        self.assertEqual(self.checked({}, True), (0, []))
        code, lines = self.checked({}, False)
        self.assertEqual((code, len(lines)), (0, 1))
        self.assertIn("only the text is checked", lines[0])

    def test_finds_breaches_in_the_text(self):
        self.assert_found(IN_TEXT, False)

    def test_finds_breaches_in_the_objects(self):
        self.assert_found(IN_OBJECTS, True)

    def test_refuses_a_folder_without_a_table_or_a_build(self):
        with tempfile.TemporaryDirectory() as name:
            ran = subprocess.run([sys.executable, CHECK, "--tree", name], capture_output=True, text=True)
            self.assertEqual(ran.returncode, 2)
            self.assertIn("has no tools/rooms.txt", ran.stderr)


if __name__ == "__main__":
    for tool in (COMPILER, "nm", "c++filt"):
        if not shutil.which(tool):
            print(f"check_rooms_test: skipped: there is no {tool}")
            sys.exit(77)
    unittest.main()
