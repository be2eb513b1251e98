#!/usr/bin/env python3
"""Runs what a page of the documentation shows: its jobs, command lines, sources and links.

    check_page.py PAGE --vorn PROGRAM --home MODULE_TREE --source TREE --build BUILD ...

PAGE is a Markdown page, or a job file whose comments have command lines. What is checked:

  jobs             YAML with `modules:` passes `vorn check` and runs; keys of a job without modules
                   are put into a job of one module
  manifests        YAML with `module:` is what `vorn inspect` reads; sources after it find the
                   parameters that are generated from it
  command lines    that begin with `vorn ` (or `jq `, `cc `, `gdb `, `valgrind `, where these are
                   installed) run and end with 0; in blocks, and in running text between backquotes,
                   where capitals such as FILE.sgy stand for a file
  other commands   name scripts, presets, targets and options that exist
  sources          C, C++, Fortran and CMake compile; statements are put into a function
  links            lead to files, and to headings, that exist

Comments in front of a block, which readers do not see:

  <!-- exit 1 -->            the command ends with 1; 139 is SIGSEGV, as in shells
  <!-- shows: ... -->        lines that its output contains, or parts of them
  <!-- input: weights.yaml --> the block is this file, which later command lines check
  <!-- file: twice.c -->     the block is this file for the blocks after it
  <!-- with: ... -->         lines that the block needs in front of it
  <!-- after: ... -->        command lines to run before the block
  <!-- not run: reason -->   the block is left alone; it counts as one that nothing checks

A block that is nothing of this and has no such comment is an error. Fences called `text` hold output.
The last line says how many were checked and how many not.
"""
import argparse
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
from dataclasses import dataclass, field
from pathlib import Path

COMMANDS = "run|check|graph|inspect|header|plot|meta|plan|part|merge|status|submit|manual|completion|help"
JOB_KEYS = {"job", "project", "scratch", "schema", "words"}
PLACEHOLDERS = [
    (r"\bMODULE\.PARAMETER=VALUE\b", "read.file=line.sgy"),
    (r"\[MODULE\]", ""),
    (r"\b(MODULE|NAME)\b", "agc"),
    (r"\b(JOB|PATH/JOB)\.yaml\b", "job.yaml"),
    (r"\b[A-Z]+\.(sgy|png|svg|html|json|yaml)\b", r"file.\1"),
    (r"\bDIR\b", "out"),
    (r"\bFILE\b", "line.sgy"),
]


@dataclass
class Block:
    line: int
    language: str  # of the fence; "" for an indented block
    text: str
    marks: dict = field(default_factory=dict)


class Failure(Exception):
    pass


# ------------------------------------------------------------------------------------ reading pages

MARK = re.compile(r"<!--\s*(exit|file|input|with|after|shows|not run)\b:?\s*(.*?)\s*-->", re.S)


def blocks_of(text):
    """The code blocks of a Markdown page, each with the comments right in front of it."""
    lines = text.split("\n")
    blocks = []
    marks = {}
    i = 0
    while i < len(lines):
        line = lines[i]
        if line.lstrip().startswith("<!--"):
            comment = line
            while "-->" not in lines[i] and i + 1 < len(lines):
                i += 1
                comment += "\n" + lines[i]
            match = MARK.search(comment)
            if match:
                marks[match[1]] = match[2]
            i += 1
            continue
        fence = re.match(r"^(\s*)```(\S*)", line)
        if fence:
            start = i + 1
            i = start
            while i < len(lines) and not lines[i].strip().startswith("```"):
                i += 1
            indent = len(fence[1])
            body = "\n".join(l[indent:] for l in lines[start:i])
            blocks.append(Block(start, fence[2] or "none", body, marks))
            marks = {}
        elif re.match(r"^ {4,}\S", line) and (i == 0 or not lines[i - 1].strip()
                                              or lines[i - 1].endswith("-->")):
            start = i
            while i < len(lines) and (lines[i].startswith("    ") or not lines[i].strip()):
                i += 1
            body = "\n".join(l[4:] for l in lines[start:i]).rstrip("\n")
            blocks.append(Block(start + 1, "", body, marks))
            marks = {}
            continue
        elif line.strip():
            marks = {}
        i += 1
    return blocks


def prose_of(text):
    """The page without its blocks and comments, in as many lines."""
    blank = lambda match: "\n" * match[0].count("\n")
    text = re.sub(r"^\s*```.*?^\s*```", blank, text, flags=re.S | re.M)
    text = re.sub(r"<!--.*?-->", blank, text, flags=re.S)
    return re.sub(r"(?<=\n\n)(    .*\n)+", blank, text)


def line_at(text, position):
    return text.count("\n", 0, position) + 1


def anchor(heading):
    heading = re.sub(r"[`*]", "", heading.strip().lower())
    return re.sub(r"[^\w\- ]", "", heading).replace(" ", "-")


# ---------------------------------------------------------------------------------------- the check

class PageCheck:
    def __init__(self, options):
        self.options = options
        self.page = options.page
        self.source = options.source
        self.text = self.page.read_text(encoding="utf-8")
        self.errors = []
        self.checked = 0
        self.not_run = 0
        self.work = Path(tempfile.mkdtemp(prefix="page-", dir=options.work))
        self.environment = dict(os.environ, VORN_HOME=str(options.home), HOME=str(self.work),
                                TMPDIR=str(self.work),
                                PATH=f"{options.vorn.parent}:{os.environ['PATH']}")
        for name in ("VORN_SCRATCH", "VORN_SCRATCH_SIZE"):
            self.environment.pop(name, None)

    # --- tools

    def run(self, command, folder=None, expected=0, what=None):
        """Runs `command`, a shell line or a list; another exit code than `expected` is a failure."""
        result = subprocess.run(command, shell=isinstance(command, str), cwd=folder or self.work,
                                env=self.environment, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, timeout=300)
        output = result.stdout.decode("utf-8", "replace")
        code = result.returncode if result.returncode >= 0 else 128 - result.returncode
        if code != expected:
            shown = what or (command if isinstance(command, str) else " ".join(map(str, command)))
            raise Failure(f"{shown}\nended with {code}, not {expected}:\n"
                          + "\n".join(output.splitlines()[-30:]))
        return output

    def make_inputs(self):
        """The files that pages read: line.sgy and its like, shots.su, and a job."""
        shots = ("modules:\n  - {name: shots, module: synthetic, shots: 120, channels: 12,"
                 " samples: 300}\n")
        (self.work / "inputs.yaml").write_text(
            shots + "  - {name: sgy, module: segy_out, input: shots, file: line.sgy}\n"
            "  - {name: su, module: su_out, input: shots, file: shots.su}\n")
        self.run([self.options.vorn, "run", "inputs.yaml"])
        for name in ("other.sgy", "file.sgy"):
            shutil.copy(self.work / "line.sgy", self.work / name)
        (self.work / "project.vpj").touch()
        (self.work / ".metadata").mkdir()
        (self.work / ".metadata/line.sgy").write_bytes(b"datum\0100 m\0\0\0")
        self.write_job((self.source / "examples/jobs/qc.yaml").read_text())
        for job in self.page.parent.glob("*.yaml"):
            shutil.copy(job, self.work)

    def write_job(self, text):
        for name in ("job.yaml", "file.yaml"):
            (self.work / name).write_text(text)

    def note(self, line, problem):
        self.errors.append(f"{self.page}:{line}: {problem}")

    # --- the page

    def check(self):
        self.make_inputs()
        if self.page.suffix == ".yaml":
            self.check_job_file()
            return
        for block in blocks_of(self.text):
            try:
                self.check_block(block)
            except (Failure, subprocess.TimeoutExpired) as failure:
                self.note(block.line, failure)
        self.check_prose()
        self.check_links()

    def check_job_file(self):
        shutil.copy(self.page, self.work)
        for i, line in enumerate(self.text.splitlines(), 1):
            command = re.match(r"#\s+(vorn .*)", line)
            if command:
                self.try_command(command[1], i)
        self.try_command(f"vorn run {self.page.name}", 1)

    def try_command(self, command, line):
        try:
            self.run(command)
            self.checked += 1
        except (Failure, subprocess.TimeoutExpired) as failure:
            self.note(line, failure)

    def check_prose(self):
        prose = prose_of(self.text)
        for match in re.finditer(rf"`(vorn (?:{COMMANDS})(?:\s[^`]*)?)`", prose):
            command = " ".join(match[1].split())
            if len(command.split()) == 2 and command != "vorn inspect":
                continue  # the name of a command
            self.try_command(self.filled_in(command), line_at(prose, match.start()))

    def check_links(self):
        prose = prose_of(self.text)
        for match in re.finditer(r"\]\(([^)\s]+)\)", prose):
            target = match[1]
            if re.match(r"[a-z]+:", target):
                continue
            file, _, heading = target.partition("#")
            path = (self.page.parent / file).resolve() if file else self.page
            if not path.exists():
                self.note(line_at(prose, match.start()), f"link to {target}: no such file")
            elif heading and path.suffix == ".md":
                headings = re.findall(r"^#+ (.*)$", path.read_text(encoding="utf-8"), re.M)
                if heading not in map(anchor, headings):
                    self.note(line_at(prose, match.start()), f"link to {target}: no such heading")
            self.checked += 1

    def filled_in(self, command):
        for pattern, text in PLACEHOLDERS:
            command = re.sub(pattern, text, command)
        return command

    # --- blocks

    def check_block(self, block):
        if "not run" in block.marks:
            if not block.marks["not run"]:
                raise Failure("a block that is not run needs a reason")
            self.not_run += 1
            return
        for command in block.marks.get("after", "").splitlines():
            self.run(self.filled_in_compiler(command))
        if "file" in block.marks:
            (self.work / block.marks["file"]).write_text(block.text + "\n")
        if "input" in block.marks:
            (self.work / block.marks["input"]).write_text(block.text + "\n")
            self.checked += 1
            return
        checks = {"yaml": self.check_yaml, "json": self.check_json, "c": self.check_c,
                  "cpp": self.check_cpp, "fortran": self.check_fortran, "cmake": self.check_cmake,
                  "text": self.check_output, "sh": self.check_commands, "": self.check_commands}
        if block.language not in checks:
            raise Failure(f"nothing checks blocks of the kind \"{block.language}\"")
        checks[block.language](block)
        self.checked += 1

    def check_output(self, block):
        if re.search(r"^(vorn|cmake|scripts/\w+) ", block.text, re.M):
            raise Failure("this block is called output and has a command line")

    def check_json(self, block):
        try:
            json.loads(block.text)
        except ValueError as error:
            raise Failure(str(error)) from error

    def check_yaml(self, block):
        keys = set(re.findall(r"^(\w+):", block.text, re.M))
        if "modules" in keys:
            self.write_job(block.text)
            job = "job.yaml"
        elif "module" in keys:
            self.check_manifest(block)
            return
        elif keys and keys <= JOB_KEYS:
            job = "keys.yaml"
            # Only modules that read files take a map of header words.
            source = "segy_in, file: line.sgy" if "words" in keys else "synthetic"
            (self.work / job).write_text(
                block.text + f"\nmodules:\n  - {{name: shots, module: {source}}}\n"
                "  - {name: picture, module: section, input: shots}\n")
        else:
            raise Failure("neither a job nor a manifest, nor keys of a job")
        self.run(f"vorn check {job}")
        self.run(f"vorn run {job}")

    def check_manifest(self, block):
        name = re.search(r"^module:\s*(\w+)", block.text, re.M)[1]
        tree = self.work / "tree" / "lib"
        tree.mkdir(parents=True, exist_ok=True)
        # A module of the page's own has no library here: another one stands in for it.
        library = self.options.home / "lib" / f"lib{name}.so"
        shutil.copy(library if library.exists() else self.options.home / "lib" / "libagc.so",
                    tree / library.name)
        (tree / f"{name}.yaml").write_text(block.text + "\n")
        output = self.run(f"VORN_HOME={tree.parent} vorn inspect {name}")
        purpose = re.search(r"^purpose:\s*(.*)$", block.text, re.M)[1]
        if purpose not in output or re.search(r"^vorn: .*\.yaml:\d+", output, re.M):
            raise Failure(f"vorn inspect {name} does not accept this manifest:\n{output}")
        for language in ("c", "c++", "fortran"):
            self.run([self.options.parameters, language, name, tree / f"{name}.yaml", self.work])
        self.run([self.options.fc, "-fsyntax-only", f"-I{self.options.fortran_modules}",
                  f"{name}_parameters.f90"])

    def check_commands(self, block):
        expected = int(block.marks.get("exit", 0))
        lines = re.sub(r"\\\n\s*", " ", block.text).splitlines()
        for line in lines:
            line = line.strip()
            if not line or line.startswith("#"):
                continue
            words = line.split()
            while words and re.match(r"[A-Z_]+=", words[0]):
                words = words[1:]
            if words[0] == "vorn":
                output = self.run(self.filled_in(line), expected=expected)
                self.look_for(block.marks.get("shows", ""), output, line)
            elif words[0] == "cc":
                self.run(self.filled_in_compiler(line))
            elif words[0] in ("gdb", "valgrind"):
                if self.can_run(words[0]):
                    output = self.run(line, expected=expected)
                    self.look_for(block.marks.get("shows", ""), output, line)
            elif words[0] == "jq":
                if shutil.which("jq"):
                    self.run(line, expected=expected)
            elif words[0] in ("cmake", "ctest", "pkg-config", "clang-format", "perf", "git") or "/" in words[0]:
                self.check_other_command(re.sub(r"\s+#.*", "", line))
            else:
                raise Failure(f"\"{line}\": no command that is known here; a block that is not to be "
                              "run has a comment <!-- not run: reason --> in front of it")

    def look_for(self, parts, output, line):
        for part in filter(None, map(str.strip, parts.splitlines())):
            if part not in output:
                raise Failure(f"{line}\nhas no \"{part}\" in its output:\n"
                              + "\n".join(output.splitlines()[-60:]))

    def filled_in_compiler(self, line):
        flags = " ".join(str(flag) for flag in self.includes())
        line = line.replace("$(pkg-config --cflags vorn)", flags)
        return re.sub(r"^cc\b", self.options.cc, line)

    def can_run(self, tool):
        """Whether the tool is installed, and may trace processes where it has to."""
        if not shutil.which(tool):
            return False
        return tool != "gdb" or "exited normally" in subprocess.run(
            ["gdb", "-batch", "-ex", "run", "--args", shutil.which("true")],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False).stdout

    def check_other_command(self, line):
        """Names in a command line that builds something: all of them exist."""
        presets = json.loads((self.source / "CMakePresets.json").read_text())
        known = {preset["name"] for preset in presets["configurePresets"]}
        for preset in re.findall(r"--preset[ =](\S+)", line):
            if preset not in known:
                raise Failure(f"\"{line}\": no preset \"{preset}\"")
        for match in re.finditer(r"(?<![\w/.$-])((?:scripts|bench|examples|docs|tests)/[\w./-]+)", line):
            path = match[1]
            if not (self.source / path).exists() and not (self.source / path).parent.is_dir():
                raise Failure(f"\"{line}\": no file \"{path}\"")
            first = re.sub(r"^([A-Z_]+=\S+\s+)*", "", line).split()[0]
            if path == first and not os.access(self.source / path, os.X_OK):
                raise Failure(f"\"{line}\": \"{path}\" is not a program")
            if path == first and path.startswith("scripts/"):
                self.check_script_options(path, line)
        for option in re.findall(r"-D(VORN_\w+)", line):
            if option not in self.cmake_options():
                raise Failure(f"\"{line}\": no CMake option \"{option}\"")
        for target in re.findall(r"--target (\S+)", line):
            if target not in self.targets():
                raise Failure(f"\"{line}\": no target \"{target}\"")
        program = re.search(r"(?:^|\s)build/(?:\w[\w-]*/)?bin/(\w+)", line)
        if program and program[1] not in self.targets():
            raise Failure(f"\"{line}\": no program \"{program[1]}\"")

    def check_script_options(self, path, line):
        usage = (self.source / path).read_text()
        for option in re.findall(r"\s(--[a-z-]+)", line.split(path, 1)[1]):
            if option not in usage:
                raise Failure(f"\"{line}\": {path} has no option {option}")

    def cmake_options(self):
        names = set()
        for file in [self.source / "CMakeLists.txt", *(self.source / "cmake").glob("*.cmake"),
                     *self.source.glob("tests/**/CMakeLists.txt")]:
            names.update(re.findall(r"\b(?:option\(|set\()(VORN_\w+)", file.read_text()))
        return names

    def targets(self):
        output = subprocess.run([self.options.cmake, "--build", self.options.build, "--target", "help"],
                                stdout=subprocess.PIPE, check=True, text=True).stdout
        names = set(re.findall(r"^(?:\.\.\. )?([\w.-]+)(?:: phony|$| )", output, re.M))
        # Benchmarks are not part of every build.
        return names | {f"bench_{path.stem}" for path in (self.source / "bench").glob("*.cpp")}

    # --- sources

    def includes(self):
        folders = [self.work, self.source / "modules/kit", self.source / "src/testing", self.source / "tests/support",
                   *self.options.include]
        return ['-DVORN_MODULE_NAME="page"', *(f"-I{folder}" for folder in folders if str(folder))]

    def with_prelude(self, block):
        """The source with what it needs in front: #include lines first, statements in a function."""
        text = block.marks.get("with", "") + "\n" + block.text
        if re.search(r"\bint (main|preprocess_|process_)\(|^VORN_\w*MODULE\(", text, re.M) or re.search(r"^TEST", text, re.M):
            return text
        includes = "\n".join(re.findall(r"^#include.*$|^using .*$", text, re.M))
        statements = re.sub(r"^#include.*$|^using .*$", "", text, flags=re.M)
        return f"{includes}\nvoid fragment(void)\n{{\n{statements}\n}}\n"

    def compile(self, block, suffix, compiler, *flags):
        source = self.work / f"block{block.line}{suffix}"
        source.write_text(self.with_prelude(block))
        self.run([compiler, *flags, "-fsyntax-only", *self.includes(), source])

    def check_c(self, block):
        self.compile(block, ".c", self.options.cc, "-std=c11", "-Wall", "-Wextra", "-Werror")

    def check_cpp(self, block):
        self.compile(block, ".cpp", self.options.cxx, "-std=c++20", "-fPIC", "-Wall",
                     "-Wno-unused-variable", "-Werror")

    def check_fortran(self, block):
        prelude = block.marks.get("with", "")
        text = (prelude + "\n" if prelude else "") + block.text
        fixed = re.search(r"^      \S", text, re.M) and not re.search(r"^\S", text, re.M)
        if fixed:
            text = "      SUBROUTINE FRAGMENT\n" + text + "\n      END\n"
        elif not re.search(r"^\s*(end function|end subroutine|end module|end program)", text, re.M | re.I):
            text = f"subroutine fragment\n{text}\nend subroutine\n"
        source = self.work / f"block{block.line}{'.f' if fixed else '.f90'}"
        source.write_text(text)
        self.run([self.options.fc, "-fsyntax-only", f"-I{self.work}",
                  f"-I{self.options.fortran_modules}", source])

    def check_cmake(self, block):
        """Configures and builds the project, with the files of the page and of the examples beside."""
        if not self.options.prefix.is_dir():
            raise Failure("the package is not installed: run the test package.install first")
        project = self.work / f"project{block.line}"
        project.mkdir()
        for example in (self.source / "examples").glob("module-*"):
            shutil.copytree(example, project, dirs_exist_ok=True)
        for file in [*(self.source / "examples/host").glob("*.cpp"), *self.work.glob("*.c"),
                     *(self.work / "tree" / "lib").glob("*.yaml")]:
            shutil.copy(file, project)
        (project / "CMakeLists.txt").write_text(block.marks.get("with", "") + "\n" + block.text + "\n")
        self.run([self.options.cmake, "-S", project, "-B", project / "build",
                  f"-DCMAKE_PREFIX_PATH={self.options.prefix}"])
        self.run([self.options.cmake, "--build", project / "build"])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("page", type=Path)
    for name in ("vorn", "parameters", "home", "source", "build", "work", "prefix", "fortran-modules"):
        parser.add_argument(f"--{name}", type=Path, required=True)
    for name in ("cmake", "cc", "cxx", "fc"):
        parser.add_argument(f"--{name}", required=True)
    parser.add_argument("--include", type=Path, action="append", default=[])
    options = parser.parse_args()
    options.work.mkdir(parents=True, exist_ok=True)

    check = PageCheck(options)
    try:
        check.check()
        for error in check.errors:
            print(error, file=sys.stderr)
        print(f"{check.checked} checked, {check.not_run} not run")
    finally:
        shutil.rmtree(check.work, ignore_errors=True)
    sys.exit(1 if check.errors else 0)


if __name__ == "__main__":
    main()
