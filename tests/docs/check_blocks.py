#!/usr/bin/env python3
"""Compiles and runs the programs in the documents and compares what they print.

    check_blocks.py --source DIR --work DIR --library FILE --cc CC --cxx CXX [--mdmsg FILE] PAGE.md...

A block of cpp, c or sh counts as complete when a comment stands right before it:

    <!-- file: PATH -->        it is, to the letter, that file of the repository (whose own test runs it), with or without
                               the // comment on its top
    <!-- prints: ... -->       compiled and run (sh: run, in a folder of its own), it prints the lines up to the arrow
    <!-- runs -->              compiled and run, it ends well; what it prints depends on the machine
"""
import argparse
import os
import pathlib
import re
import shlex
import subprocess
import sys

BLOCK = re.compile(r"<!-- (?P<kind>file|prints|runs)(?:: ?(?P<text>.*?))?\s*-->\n```(?P<language>cpp|c|sh)\n(?P<code>.*?)^```$",
                   re.DOTALL | re.MULTILINE)
MARK = re.compile(r"^<!-- (?:file|prints|runs)\b", re.MULTILINE)


class Checker:
    def __init__(self, options):
        self.options = options
        self.count = 0
        library = pathlib.Path(options.library).parent
        self.environment = dict(os.environ, CONFIG_PATH=str(options.source / "etc"), LD_LIBRARY_PATH=str(library))
        if options.mdmsg:
            self.environment["PATH"] = f"{pathlib.Path(options.mdmsg).parent}:{os.environ['PATH']}"

    def command(self, language, code, folder):
        """The command that runs the block, which is compiled first; or None where its program was not built."""
        if language == "sh":
            return ["sh", "-eu", "-c", code] if self.options.mdmsg else None
        source = folder / f"program.{language}"
        source.write_text(code)
        compiler, standard = {"c": (self.options.cc, "c99"), "cpp": (self.options.cxx, "c++17")}[language]
        includes = [f"-I{self.options.source / 'include'}", f"-I{pathlib.Path(self.options.library).parent / 'include'}"]
        subprocess.run([*shlex.split(compiler), f"-std={standard}", "-Wall", "-Wextra", "-Werror", *includes, str(source),
                        self.options.library, "-o", str(folder / "program")], check=True)
        return [str(folder / "program")]

    def check(self, place, block):
        self.count += 1
        kind, code = block["kind"], block["code"]
        if kind == "file":
            text = (self.options.source / block["text"]).read_text()
            same = code in (text, re.sub(r"\A(?://.*\n)+\n", "", text))
            return None if same else f"{place}: differs from {block['text']}"
        folder = self.options.work / str(self.count)
        folder.mkdir(parents=True, exist_ok=True)
        command = self.command(block["language"], code, folder)
        if command is None:
            return None
        run = subprocess.run(command, cwd=folder, env=self.environment, stdout=subprocess.PIPE, text=True, check=False)
        if run.returncode != 0:
            return f"{place}: ended with {run.returncode}"
        expected = (block["text"] or "").strip("\n") + "\n"
        if kind == "prints" and run.stdout != expected:
            return f"{place}: printed\n{run.stdout}not\n{expected}"
        return None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--source", type=pathlib.Path, required=True)
    parser.add_argument("--work", type=pathlib.Path, required=True)
    parser.add_argument("--library", required=True)
    parser.add_argument("--cc", required=True)
    parser.add_argument("--cxx", required=True)
    parser.add_argument("--mdmsg", default="")
    parser.add_argument("pages", nargs="+", type=pathlib.Path)
    options = parser.parse_args()
    checker = Checker(options)
    faults = []
    for page in options.pages:
        text = page.read_text()
        blocks = list(BLOCK.finditer(text))
        if len(blocks) != len(MARK.findall(text)):
            faults.append(f"{page}: a mark without a block of cpp, c or sh behind it")
        for block in blocks:
            fault = checker.check(f"{page}:{text.count(chr(10), 0, block.start()) + 1}", block)
            if fault:
                faults.append(fault)
    print(f"{checker.count} blocks")
    if faults or checker.count == 0:
        sys.exit("\n".join(faults) or "no block was found")


main()
