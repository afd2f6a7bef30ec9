#!/usr/bin/env python3
"""Prints the tables of docs/faults.md: what happens to a fault, by its place, the compiler and the host program.

    fault_matrix.py --library FOLDER [--bits 32] [--compiler g++ ...] [--check FILE]

Compiles the cases of this folder with each compiler and each optimisation against libtessmarU.so in FOLDER, and runs
each case in a process. With --check, compares the tables with those in FILE and fails if they differ.
"""

import argparse
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
FAULTS = ("read", "write", "divide", "call", "illegal")
OPTIMISATIONS = ("-O0", "-O2")
FAULT_SIGNALS = (signal.SIGSEGV, signal.SIGBUS, signal.SIGFPE, signal.SIGILL, signal.SIGTRAP)
SECONDS = 20

PLACES = {
    "block": "in the `try` block itself",
    "above": "in a function of the same file, defined above its caller",
    "below": "in a function of the same file, defined below its caller",
    "unseen": "in a function of another file",
    "noexcept": "below a `noexcept` function",
}
LIBRARY = {
    "memcpy": "`memcpy` from null", "memset": "`memset` at null", "strlen": "`strlen` of null",
    "strcpy": "`strcpy` from null", "snprintf": "`snprintf` to null", "printf": "`printf` of a bad text",
    "free": "`free` of an address that was not allocated", "qsort": "in the comparison that `qsort` calls",
    "vector-size": "`vector::size` through null", "vector-push-back": "`vector::push_back` through null",
    "string-assign": "`string::operator=` of a text, through null", "string-move": "`string::operator=` by moving, through null",
    "damaged-heap": "`malloc` with a damaged heap", "dlsym": "`dlsym` with a bad handle",
}
HOSTS = {
    "thread": "another thread", "blocking-thread": "a thread that blocks all signals", "fork": "the child of a `fork`",
    "stack-overflow": "stack overflow",
    "lazy-page": "a page that the host's handler makes accessible",
    "generated-code-host": "generated code, with a handler of the host",
    "generated-code": "generated code, without one",
    "reporter-handler": "null pointer, the host has a crash reporter, a block catches the fault",
    "reporter-no-handler": "the same, below a `noexcept` function",
    "later-handler": "the host's handler was installed later, then `install()` was called again",
}


def compile_cases(compiler, optimisation, options, folder):
    program = Path(folder) / f"cases{compiler}{optimisation}{options.flag}"
    subprocess.run(
        [compiler, "-std=c++20", optimisation, f"-m{options.bits}", *([options.flag] if options.flag else []), "-w",
         f"-I{ROOT / 'include'}", str(HERE / "cases.cpp"), str(HERE / "unseen.cpp"), "-o", str(program),
         f"-L{options.library}", f"-Wl,-rpath,{Path(options.library).resolve()}", "-ltessmarU", "-pthread", "-ldl"],
        check=True)
    return program


def result(program, case):
    try:
        run = subprocess.run([program, case], capture_output=True, timeout=SECONDS, check=False)
    except subprocess.TimeoutExpired:
        return "hang"
    output, errors = run.stdout.decode(errors="replace"), run.stderr.decode(errors="replace")
    if run.returncode == 0:
        return output.strip().splitlines()[-1] if output.strip() else "nothing"
    if run.returncode == -signal.SIGABRT:
        return "`std::terminate`" if "terminate called" in errors or "exception" in errors else "abort"
    if -run.returncode in FAULT_SIGNALS:
        if "SE exception at address 0x" in errors and "[not thrown: " in errors:
            return "signal, described"
        return "signal, the host's report" if "host: " in errors else "signal, silent"
    return f"status {run.returncode}"


def summary(results):
    """One cell for several faults: the common result, or the result of most and the exceptions."""
    values = list(results.values())
    common = max(set(values), key=lambda value: (values.count(value), value))
    others = [f"{fault}: {value}" for fault, value in results.items() if value != common]
    return common + (f" ({', '.join(others)})" if others else "")


def tables(programs):
    names = [f"{compiler} {optimisation}" for compiler, optimisation in programs]

    def table(title, rows, cell):
        yield f"| {title} | " + " | ".join(names) + " |"
        yield "|---" * (len(names) + 1) + "|"
        for key, text in rows.items():
            yield f"| {text} | " + " | ".join(cell(program, key) for program in programs.values()) + " |"
        yield ""

    yield from table("The fault is", PLACES, lambda program, place: summary(
        {fault: result(program, f"{place}-{fault}") for fault in FAULTS}))
    yield from table("Function", LIBRARY, result)
    yield from table("Thread or host", HOSTS, result)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--library", required=True, help="the folder of libtessmarU.so")
    parser.add_argument("--bits", type=int, choices=(32, 64), default=64)
    parser.add_argument("--flag", default="-fnon-call-exceptions", help="further option of the compiler, or nothing")
    parser.add_argument("--compiler", nargs="+", default=["g++", "clang++"])
    parser.add_argument("--check", help="a document that has to contain the tables")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        programs = {(compiler, optimisation): compile_cases(compiler, optimisation, options, folder)
                    for compiler in options.compiler for optimisation in OPTIMISATIONS}
        lines = list(tables(programs))
    print("\n".join(lines), end="")
    if options.check:
        missing = [line for line in lines if line and line not in Path(options.check).read_text().splitlines()]
        for line in missing:
            print(f"{options.check}: differs: {line}", file=sys.stderr)
        return 1 if missing else 0
    return 0


if __name__ == "__main__":
    sys.exit(main())
