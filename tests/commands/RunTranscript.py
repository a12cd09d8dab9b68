#!/usr/bin/env python3
"""Runs the kova commands of a transcript and compares what they print with it.

A transcript is a text file of lines:
  # ...          a comment, kept as it stands
  $ ARGUMENTS    a kova command line (shell-style quoting), followed by the
                 lines it prints (standard output, then standard error) and
                 the line "exit N" with its exit status
  % ARGUMENTS    a command that sets the scene (clears what an earlier test
                 left in a registry all tests share, say): it runs, and what
                 it prints and its exit status are not compared
In arguments and output, @WORK@ stands for the test's own empty folder,
@DATA@ for the folder of the transcript, @BIN@ for the folder of kova.
Addresses (0x...) compare equal whatever their digits, and Windows line ends
and path separators are read as POSIX ones.

  RunTranscript.py [--update] KOVA TRANSCRIPT WORK [EMULATOR...]

--update rewrites the transcript with what the commands printed, for a
person to read over before committing it.
"""
import difflib
import os
import re
import shlex
import shutil
import subprocess
import sys


def run(kova, transcript, work, emulator, update):
    places = {"@WORK@": work, "@DATA@": os.path.dirname(os.path.abspath(transcript)),
              "@BIN@": os.path.dirname(os.path.abspath(kova))}

    def fill(text):
        for mark, path in places.items():
            text = text.replace(mark, path)
        return text

    def name_places(text):
        text = text.replace("\r\n", "\n")
        # A Windows program shows a POSIX path as a drive path: Z:\work\x.
        for mark, path in sorted(places.items(), key=lambda p: -len(p[1])):
            windows = "Z:" + path.replace("/", "\\")
            text = re.sub(re.escape(windows) + r"((?:\\[^\\\s]+)*)",
                          lambda m: mark + m.group(1).replace("\\", "/"), text,
                          flags=re.IGNORECASE)
            text = text.replace(path, mark)
        return re.sub(r"0x[0-9a-fA-F]+", "0x?", text)

    def run_kova(line):
        arguments = [fill(a) for a in shlex.split(line[2:])]
        return subprocess.run(emulator + [kova, "--settings", work] + arguments, cwd=work,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              stdin=subprocess.DEVNULL, timeout=120)

    with open(transcript, encoding="utf-8") as f:
        expected = f.read()
    actual = []
    in_output = False  # between a command and its exit line
    for line in expected.splitlines():
        if in_output:
            in_output = not re.fullmatch(r"exit -?\d+", line)
        elif line.startswith("$ "):
            in_output = True
            actual.append(line)
            done = run_kova(line)
            for stream in (done.stdout, done.stderr):
                text = name_places(stream.decode("utf-8", "replace"))
                actual.extend(text.splitlines())
            actual.append("exit %d" % done.returncode)
        else:
            if line.startswith("% "):
                run_kova(line)
            actual.append(line)
    actual_text = "\n".join(actual) + "\n"
    if actual_text == name_places(expected):
        return 0
    if update:
        with open(transcript, "w", encoding="utf-8") as f:
            f.write(actual_text)
        return 0
    with open(os.path.join(work, "actual.txt"), "w", encoding="utf-8") as f:
        f.write(actual_text)
    sys.stdout.writelines(difflib.unified_diff(name_places(expected).splitlines(True),
                                               actual_text.splitlines(True),
                                               transcript, "what kova printed"))
    return 1


def main():
    arguments = sys.argv[1:]
    update = bool(arguments) and arguments[0] == "--update"
    if update:
        arguments = arguments[1:]
    if len(arguments) < 3:
        print(__doc__)
        return 2
    kova, transcript, work = arguments[:3]
    emulator = [e for e in arguments[3:] if e]
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    return run(os.path.abspath(kova), transcript, os.path.abspath(work), emulator, update)


if __name__ == "__main__":
    sys.exit(main())
