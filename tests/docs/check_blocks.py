#!/usr/bin/env python3
"""Checks every code block of the documents: programs are compiled and run, commands are run, what they print is compared.

    check_blocks.py --source DIR --work DIR --library FILE --cc CC --cxx CXX [--mdmsg FILE] [--python DIR] PAGE.md...
    check_blocks.py --source DIR --work DIR --cmake CMAKE --installed DIR --cc CC --cxx CXX PAGE.md...

Comments immediately before a block specify the check:

    <!-- file: PATH -->         the block equals this file of the repository (which has a test of its own), with or without the
                                // comment at its top
    <!-- end of file: PATH -->  the file ends with the block
    <!-- in: PATH -->           the file contains the lines of the block, together or apart
    <!-- prints: ... -->        the block is compiled and run (sh: run, in a folder of its own) and prints the lines up to the arrow
    <!-- runs -->               the block is compiled and run, and succeeds; its output depends on the machine, or is the next block
    <!-- output -->             the block is the output of the program before it
    <!-- makes bytes -->        the block is compiled and run, and prints lines of a name, a colon and bytes in hex
    <!-- bytes: NAME -->        annotated bytes: those before the two spaces of each line, without the | between them, equal the
                                bytes that the program before it printed for NAME
    <!-- diagram -->            the block is not code
    <!-- with NAME: ... -->     the lines up to the arrow are a file for the commands of the block, or for its project
    <!-- as NAME, COMMAND prints: ... -->      with the block as the file NAME, COMMAND prints the lines up to the arrow

A console block without a comment is a session: each line that starts with "$ " is run, in one folder per page. Standard
output and standard error must equal the block; a line "..." matches the rest. The pycon blocks of a page are one Python
session, in the same folder, compared by doctest. A cmake block is a part of a project. The second form of the command
configures the project and, if the library is to be found installed, builds and runs it.

Any other block is an error, unless exemptions.txt in this folder lists it, or a session, with a reason: a line with the name
of the page and the first line of the block, followed by indented lines with the reason. The scripts that an exempt block
names must exist.
"""
import argparse
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

COMMENT = r"^<!-- (?:(?!-->).)*?\s*-->\n"
BLOCK = re.compile(rf"(?P<comments>(?:{COMMENT})*)^```(?P<language>\w*)\n(?P<code>.*?)^```$", re.DOTALL | re.MULTILINE)
KINDS = r"file|end of file|in|prints|runs|output|makes bytes|bytes|diagram|with \S+|as \S+, [^\n]* prints"
MARK = re.compile(rf"^<!-- (?P<kind>{KINDS})(?:: ?(?P<text>(?:(?!-->).)*?))?\s*-->$", re.DOTALL | re.MULTILINE)
HEX_LINE = re.compile(r"((?:[0-9a-f]{2}|\|)(?: (?:[0-9a-f]{2}|\|))*)(?:  .*)?")


class Fault(Exception):
    pass


def differs(is_, should):
    return Fault(f"it is\n{is_}and should be\n{should}")


def lines(text):
    return (text or "").strip("\n") + "\n"


def same_session(expected, output, errors):
    """Whether the expected lines are those of the two streams, each in its order. "..." stands for the rest of the first."""
    output, errors = output.splitlines(), errors.splitlines()
    for line in expected.splitlines():
        if output and line == output[0]:
            output.pop(0)
        elif errors and line == errors[0]:
            errors.pop(0)
        elif line == "..." and output:
            output.clear()
        else:
            return False
    return not output and not errors


class Checker:
    def __init__(self, options):
        self.options = options
        self.count = 0
        self.environment = dict(os.environ, CONFIG_PATH=str(options.source / "etc"))
        if options.library:
            self.environment["LD_LIBRARY_PATH"] = str(pathlib.Path(options.library).parent)
        if options.mdmsg:
            self.environment["PATH"] = f"{pathlib.Path(options.mdmsg).parent}:{os.environ['PATH']}"
        self.output = ""  # of the page's last program
        self.python = None  # the page's session
        self.exemptions = self.read_exemptions()

    @staticmethod
    def read_exemptions():
        exemptions, entry = {}, None
        for line in pathlib.Path(__file__).with_name("exemptions.txt").read_text().splitlines():
            if line.startswith(" ") and entry:
                exemptions[entry] = exemptions[entry] + line
            elif line and not line.startswith("#"):
                entry = tuple(line.split(": ", 1))
                exemptions[entry] = ""
        for entry, reason in exemptions.items():
            if not reason:
                sys.exit(f"exemptions.txt: no reason for {': '.join(entry)}")
        return exemptions

    def folder(self, name):
        folder = self.options.work / name
        folder.mkdir(parents=True, exist_ok=True)
        return folder

    def call(self, command, folder):
        run = subprocess.run(command, cwd=folder, env=self.environment, capture_output=True, text=True, check=False)
        if run.returncode != 0:
            raise Fault(f"ended with {run.returncode}:\n{run.stdout}{run.stderr}")
        return run.stdout

    def run(self, language, code, folder):
        if language == "sh":
            return self.call(["sh", "-eu", "-c", code], folder)
        compilers = {"c": (self.options.cc, "c99"), "cpp": (self.options.cxx, "c++17")}
        if language not in compilers:
            raise Fault(f"no program: {language}")
        source = folder / f"program.{language}"
        source.write_text(code)
        compiler, standard = compilers[language]
        includes = [f"-I{self.options.source / 'include'}", f"-I{pathlib.Path(self.options.library).parent / 'include'}"]
        self.call([*shlex.split(compiler), f"-std={standard}", "-Wall", "-Wextra", "-Werror", *includes, str(source),
                   self.options.library, "-o", str(folder / "program")], folder)
        return self.call([str(folder / "program")], folder)

    def session(self, code, folder):
        parts = re.split(r"^\$ (.*)\n", code, flags=re.MULTILINE)
        if parts[0] or len(parts) < 3:
            raise Fault("a session begins with $")
        for command, expected in zip(parts[1::2], parts[2::2]):
            run = subprocess.run(["sh", "-c", command], cwd=folder, env=self.environment, capture_output=True, text=True,
                                 check=False)
            if not same_session(expected, run.stdout, run.stderr):
                raise Fault(f"{command}\nprinted\n{run.stdout}{run.stderr}and not\n{expected}")

    def python_session(self, code, folder):
        if self.python is None:
            path = f"{self.options.python}:{os.environ.get('PYTHONPATH', '')}"
            self.python = subprocess.Popen([sys.executable, "-B", str(pathlib.Path(__file__).with_name("python_session.py"))],
                                           cwd=folder, env=dict(self.environment, PYTHONPATH=path),
                                           stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.python.stdin.write(json.dumps(code) + "\n")
        self.python.stdin.flush()
        answer = self.python.stdout.readline()
        if not answer:
            raise Fault("the session ended")
        if json.loads(answer):
            raise Fault(json.loads(answer))

    def end_python(self):
        if self.python is not None:
            self.python.communicate()
            self.python = None

    def bytes_of(self, name):
        for line in self.output.splitlines():
            if line.startswith(name + ":"):
                return line.split(":", 1)[1].split()
        raise Fault(f"no program of the page printed the bytes of {name}")

    def bytes_shown(self, code):
        shown = []
        for line in code.splitlines():
            match = HEX_LINE.fullmatch(line)
            if not match:
                raise Fault(f"no bytes: {line}")
            shown += match[1].replace("|", " ").split()
        return shown

    def marked(self, page, language, code, kind, text, folder):
        if kind in ("file", "end of file", "in"):
            other = (self.options.source / text).read_text()
            if kind == "file":
                same = code in (other, re.sub(r"\A(?://.*\n)+\n", "", other))
            elif kind == "end of file":
                same = other.endswith("\n" + code)
            else:
                same = all(line.strip() in other for line in code.splitlines())
            if not same:
                raise Fault(f"differs from {text}")
        elif kind in ("prints", "runs", "makes bytes"):
            if language == "sh" and not self.options.mdmsg:
                return
            self.output = self.run(language, code, folder)
            if kind == "prints" and self.output != lines(text):
                raise differs(self.output, lines(text))
        elif kind == "output":
            if self.output != code:
                raise differs(self.output, code)
        elif kind == "bytes":
            made, shown = self.bytes_of(text), self.bytes_shown(code)
            if made != shown:
                raise differs(" ".join(made) + "\n", " ".join(shown) + "\n")
        elif kind.startswith("as "):
            name, command = kind[len("as "):-len(" prints")].split(", ", 1)
            if self.options.mdmsg:
                (folder / name).write_text(code)
                output = self.call(["sh", "-eu", "-c", command], folder)
                if output != lines(text):
                    raise differs(output, lines(text))

    def project(self, code, marks, folder):
        """Configures a project with the block as a part; builds and runs it where that does not mean building the library."""
        for mark in marks:
            if mark["kind"].startswith("with "):
                (folder / mark["kind"][len("with "):]).write_text(lines(mark["text"]))
        (folder / "CMakeLists.txt").write_text("cmake_minimum_required(VERSION 3.21)\nproject(documented LANGUAGES C CXX)\n"
                                               "add_executable(my_program main.cpp)\n" + code)
        (folder / "main.cpp").write_text("#include <md/md_message.h>\n"
                                         "int main() { return MD::MD_FieldMap::instance().size() == 0; }\n")
        (folder / "md_message").symlink_to(self.options.source)
        (cc, *cflags), (cxx, *cxxflags) = shlex.split(self.options.cc), shlex.split(self.options.cxx)
        self.call([self.options.cmake, "-S", ".", "-B", "build", f"-DCMAKE_C_COMPILER={cc}", f"-DCMAKE_CXX_COMPILER={cxx}",
                   f"-DCMAKE_C_FLAGS={shlex.join(cflags)}", f"-DCMAKE_CXX_FLAGS={shlex.join(cxxflags)}",
                   f"-DCMAKE_PREFIX_PATH={self.options.installed}"], folder)
        if "find_package" in code:
            self.call([self.options.cmake, "--build", "build"], folder)
            self.call([str(folder / "build" / "my_program")], folder)

    def check(self, page, block):
        code, language = block["code"], block["language"]
        if self.options.installed:
            if language == "cmake":
                self.count += 1
                self.project(code, MARK.finditer(block["comments"]), self.folder(f"cmake-{self.count}"))
            return
        self.count += 1
        exemption = (page, code.split("\n", 1)[0])
        marks = list(MARK.finditer(block["comments"]))
        folder = self.folder(page.replace("/", "-") if language in ("console", "pycon") else str(self.count))
        kinds = []
        for mark in marks:
            if mark["kind"].startswith("with "):
                (folder / mark["kind"][len("with "):]).write_text(lines(mark["text"]))
            else:
                kinds.append(mark)
        if len(kinds) > 1:
            raise Fault("more than one thing is to be done with it")
        if kinds:
            self.marked(page, language, code, kinds[0]["kind"], kinds[0]["text"], folder)
        elif exemption in self.exemptions:
            self.exemptions[exemption] = None
            for script in re.findall(r"^scripts/[\w-]+", code, re.MULTILINE):
                if not os.access(self.options.source / script, os.X_OK):
                    raise Fault(f"no such script: {script}")
        elif language == "console":
            if self.options.mdmsg:
                self.session(code, folder)
        elif language == "pycon":
            if self.options.python:
                self.python_session(code, folder)
        elif language != "cmake":
            raise Fault("neither run nor compared, and not in exemptions.txt")

    def check_page(self, path):
        page = str(path.relative_to(self.options.source))
        text = path.read_text()
        self.output = ""
        blocks = list(BLOCK.finditer(text))
        if text.count("\n```") != 2 * len(blocks):
            yield f"{page}: a block that does not end"
        if len(MARK.findall(text)) != sum(len(MARK.findall(block["comments"])) for block in blocks):
            yield f"{page}: a comment that says what to do with a block, and no block behind it"
        for block in blocks:
            try:
                self.check(page, block)
            except Fault as fault:
                yield f"{page}:{text.count(chr(10), 0, block.start('language')) + 1}: {fault}"
        self.end_python()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--source", type=pathlib.Path, required=True)
    parser.add_argument("--work", type=pathlib.Path, required=True)
    parser.add_argument("--library", default="")
    parser.add_argument("--cc", required=True)
    parser.add_argument("--cxx", required=True)
    parser.add_argument("--mdmsg", default="")
    parser.add_argument("--python", default="")
    parser.add_argument("--cmake", default="cmake")
    parser.add_argument("--installed", default="")
    parser.add_argument("pages", nargs="+", type=pathlib.Path)
    options = parser.parse_args()
    shutil.rmtree(options.work, ignore_errors=True)
    checker = Checker(options)
    faults = [fault for page in options.pages for fault in checker.check_page(page)]
    if not options.installed:
        faults += [f"exemptions.txt: no such block: {': '.join(entry)}"
                   for entry, reason in checker.exemptions.items() if reason is not None]
    print(f"{checker.count} blocks")
    if faults or checker.count == 0:
        sys.exit("\n".join(faults) or "no block was found")


main()
