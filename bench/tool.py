#!/usr/bin/env python3
"""Measures the operator's tool against the programs that it replaces, in turns, with the file in the page cache.

    tool.py TESSMARU [--megabytes N] [--rounds N] [--folder DIR]

Each figure is the median of the processor time (user and system) of the rounds; the last column is the ratio of the
speeds.
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile

LEVELS = [" ERR", "WARN", "INFO", "    ", "DBUG"]
NEEDLE = "line number 77777,"


def make_log(path, megabytes):
    """Writes records of about 180 bytes of UTF-8, one in each millisecond."""
    with open(path, "wb") as log:
        number = 0
        while log.tell() < megabytes << 20:
            lines = []
            for number in range(number, number + 10_000):
                time = number % 86_400_000
                lines.append(f"2026-11-22 {time // 3600000:02}:{time // 60000 % 60:02}:{time // 1000 % 60:02}"
                             f".{time % 1000:03} | 00000bee | {0xbef + number % 5:08x} | {LEVELS[number % 5]} |"
                             f"        Radio | Site {number} was read in {number % 97} ms after a timeout of the "
                             f"line number {number}, twice or so, and then once more again\r\n")
            log.write("".join(lines).encode("utf-16-le"))
            number += 1


def run(command):
    """Runs a command. Returns its processor time in milliseconds."""
    child = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        sys.exit(f"tool.py: exit code {child.returncode}: {' '.join(command)}")
    return (usage.ru_utime + usage.ru_stime) * 1000


def memory_of(command):
    """The largest memory in MiB, by a small program: the child of a large one is counted with its parent's memory."""
    result = subprocess.run(["/usr/bin/time", "-f", "%M", *command], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                            text=True, check=True)
    return int(result.stderr.split()[-1]) / 1024


def compare(title, subject, peer, goal, rounds):
    times = {0: [], 1: []}
    memory = memory_of(subject)
    for _ in range(rounds):
        for side, command in enumerate((subject, peer)):
            times[side].append(run(command))
    ours, theirs = statistics.median(times[0]), statistics.median(times[1])
    ratio = theirs / ours
    verdict = f"   goal >= {goal:.2f}: {'met' if ratio >= goal else 'MISSED'}" if goal else ""
    limit = "" if memory <= 16 else "   MORE THAN 16 MiB"
    print(f"{title:<44} {ours:9.1f} {theirs:9.1f} {memory:8.1f} {ratio:8.2f}{verdict}{limit}", flush=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("tessmaru")
    parser.add_argument("--megabytes", type=int, default=400)
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--folder")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(dir=options.folder) as folder:
        log, small = os.path.join(folder, "App.log"), os.path.join(folder, "Small.log")
        make_log(log, options.megabytes)
        make_log(small, 1)
        tool = [options.tessmaru, "log"]
        iconv = ["iconv", "-f", "UTF-16LE", "-t", "UTF-8", log]
        print(f"{os.path.getsize(log) >> 20} MiB, {options.rounds} rounds, median of the processor time")
        print(f"{'':<44} {'ms':>9} {'peer ms':>9} {'MiB':>8} {'speed':>8}")
        compare("convert; iconv", tool + ["convert", log], iconv, 4, options.rounds)
        if shutil.which("rg"):
            compare("show --grep; ripgrep --encoding utf-16le", tool + ["show", "--grep", NEEDLE, log],
                    ["rg", "--encoding", "utf-16le", NEEDLE, log], 1.5, options.rounds)
        compare("convert --json; iconv", tool + ["convert", "--json", log], iconv, 1, options.rounds)
        if shutil.which("jq"):
            # The usual way with other programs: split the lines of text into fields.
            split = ('split(" | ") | {time: .[0], pid: .[1], tid: .[2], level: .[3], source: .[4], text: .[5]}')
            pipe = f"iconv -f UTF-16LE -t UTF-8 '{small}' | tr -d '\\r' | jq -Rc '{split}'"
            compare("convert --json of 1 MiB; iconv and jq", tool + ["convert", "--json", small], ["sh", "-c", pipe], 0,
                    options.rounds)
        compare("summary; iconv", tool + ["summary", log], iconv, 0, options.rounds)
        compare("show -n 20; --version", tool + ["show", "-n", "20", log], [options.tessmaru, "--version"], 0,
                options.rounds)


main()
