#!/usr/bin/env python3
"""Follows the guide for authors of modules as a reader would: in an empty folder, with the
installed package and its copy of the guide, command by command.

    follow_guide.py --prefix PREFIX --work FOLDER --cmake CMAKE --checker FOLDER_OF_CHECK_PAGE

Every command line of the guide runs in its order, each in the folder in which those before have
left off, those included that the check of pages leaves out since they need a project; left out are
those for a debugger. After some of them, what the guide says of their effect is looked at. Then the
modules whose manifest and source the guide shows are built, and tried by `vorn test`.
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

SUFFIX = {"c": ".c", "cpp": ".cpp", "fortran": ".f90"}
COMPILERS = {"c": "C", "cpp": "CXX", "fortran": "Fortran"}

# A part of a command line, and what must be there when it has run: files of the present folder, or
# texts of its output.
EFFECTS = [
    ("vorn new-module", ["my_filter/my_filter.yaml", "my_filter/my_filter.f90",
                         "my_filter/CMakeLists.txt", "my_filter/README.md", "my_filter/job.yaml",
                         "my_filter/tests"], []),
    ("cmake --build", ["build/vorn_home/lib/libmy_filter.so",
                       "build/vorn_home/lib/my_filter.yaml"], []),
    ("ctest", [], ["100% tests passed"]),
    ("vorn inspect my_filter", [], ["my_filter"]),
    ("vorn check", [], ["no error"]),
    ("--bless", ["doubled.su"], []),
    ("cmake --install", ["$HOME/vorn-modules/lib/vorn/lib/libmy_filter.so",
                         "$HOME/vorn-modules/lib/vorn/lib/my_filter.yaml"], []),
]

# What a module needs besides the traces that `vorn test` makes: they are not sorted by cdp.
SETTINGS = {"average": "--set key=tracl"}


class Failure(Exception):
    pass


class Reader:
    """A shell that keeps its folder from command to command."""

    def __init__(self, options):
        self.home = options.work
        self.folder = options.work
        self.environment = {name: value for name, value in os.environ.items()
                            if not name.startswith("VORN_")}
        self.environment.update(
            HOME=str(self.home), CMAKE_PREFIX_PATH=str(options.prefix), LC_ALL="C",
            PATH=f"{options.prefix}/bin:{Path(options.cmake).parent}:{os.environ['PATH']}")

    def run(self, line):
        result = subprocess.run(["sh", "-ec", f"{line}\npwd >\"$HOME/.folder\""], cwd=self.folder,
                                env=self.environment, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, text=True,
                                errors="replace", timeout=300)
        if result.returncode != 0:
            raise Failure(f"{line}\nended with {result.returncode}:\n{result.stdout[-3000:]}")
        self.folder = Path((self.home / ".folder").read_text().strip())
        return result.stdout

    def look(self, line, output):
        for part, files, texts in EFFECTS:
            if part not in line:
                continue
            for name in files:
                path = self.folder / name.replace("$HOME", str(self.home))
                if not path.exists():
                    raise Failure(f"{line}\nhas made no {name}")
            for text in texts:
                if text not in output:
                    raise Failure(f"{line}\nhas no \"{text}\" in its output:\n{output[-3000:]}")


def command_lines(blocks):
    lines = []
    for block in blocks:
        if block.language == "" and "debugger" not in block.marks.get("not run", ""):
            lines += re.sub(r"\\\n\s*", " ", block.text).splitlines()
    return [line for line in lines if line.strip()]


def shown_modules(blocks):
    """Name, manifest, language and source of each module that the guide shows as a whole. Of one that
    it shows in several languages, the first."""
    sources = [block for block in blocks if block.language in SUFFIX and re.search(
        r"^VORN_\w*MODULE\(|^subroutine vorn_new_module", block.text, re.M)]
    modules = []
    for block in blocks:
        name = re.search(r"^module:\s*(\w+)", block.text, re.M) if block.language == "yaml" else None
        source = next((one for one in sources
                       if name and re.search(rf"\b{name[1]}_parameters\b", one.text)), None)
        if source:
            modules.append((name[1], block.text, source.language, source.text))
    return modules


def compare_warning(reader, prefix, guide):
    """The warning of two modules with one name is the one that the guide shows."""
    shown = re.search(r"^vorn: job\.yaml:\d+:\d+: (warning: module \"gain\" is in more .*)$", guide, re.M)
    if not shown:
        raise Failure("the guide shows no warning of two modules with one name any more")
    folder = reader.home / "twice"
    folder.mkdir()
    for suffix in (".so", ".yaml"):
        name = "gain" + suffix if suffix == ".yaml" else "libgain" + suffix
        shutil.copy(prefix / "lib/vorn/lib" / name, folder)
    (folder / "job.yaml").write_text("modules:\n  - {name: made, module: synthetic}\n"
                                     "  - {name: loud, module: gain, input: made}\n"
                                     "  - {name: seen, module: trace_qc, input: loud}\n")
    reader.folder = folder
    output = reader.run(f"vorn check job.yaml --allow-modules-from {folder}")
    expected = shown[1].replace("/opt/vorn", str(prefix)).replace("/home/me/build/vorn_home/lib",
                                                                  str(folder))
    if expected not in output:
        raise Failure(f"the guide shows the warning\n{expected}\nand vorn check says\n{output}")


def build_shown(reader, modules):
    """All of them in one project, of the lines that the guide gives."""
    project = reader.home / "shown"
    project.mkdir()
    languages = sorted({COMPILERS[language] for _, _, language, _ in modules})
    lines = ["cmake_minimum_required(VERSION 3.25)",
             f"project(shown LANGUAGES {' '.join(languages)})",
             "find_package(VORN REQUIRED COMPONENTS module)"]
    for name, manifest, language, source in modules:
        (project / f"{name}.yaml").write_text(manifest + "\n")
        (project / f"{name}{SUFFIX[language]}").write_text(source + "\n")
        lines.append(f"vorn_add_module(NAME {name} SOURCES {name}{SUFFIX[language]} "
                     f"MANIFEST {name}.yaml)")
    (project / "CMakeLists.txt").write_text("\n".join(lines) + "\n")
    reader.folder = project
    reader.run("cmake -B build && cmake --build build")


def main():
    parser = argparse.ArgumentParser()
    for name in ("prefix", "work", "checker"):
        parser.add_argument(f"--{name}", type=Path, required=True)
    parser.add_argument("--cmake", required=True)
    options = parser.parse_args()
    sys.path.insert(0, str(options.checker))
    sys.dont_write_bytecode = True
    from check_page import blocks_of

    shutil.rmtree(options.work, ignore_errors=True)
    options.work.mkdir(parents=True)
    guide = options.prefix / "share/doc/vorn/modules.md"
    text = guide.read_text(encoding="utf-8")
    blocks = blocks_of(text)
    reader = Reader(options)
    try:
        lines = command_lines(blocks)
        for line in lines:
            reader.look(line, reader.run(line))
        for part, _, _ in EFFECTS:
            if not any(part in line for line in lines):
                raise Failure(f"the guide has no command with \"{part}\" any more")
        compare_warning(reader, options.prefix, text)
        modules = shown_modules(blocks)
        build_shown(reader, modules)
        for name, _, _, _ in modules:
            reader.run(f"vorn test {name} --allow-modules-from build/vorn_home/lib "
                       + SETTINGS.get(name, ""))
        if len(modules) < 4:
            raise Failure(f"only {len(modules)} modules of the guide were tried")
    except (Failure, subprocess.TimeoutExpired) as failure:
        sys.exit(f"{guide}: {failure}")
    print(f"{len(lines)} commands of the guide followed; its modules "
          f"{', '.join(name for name, _, _, _ in modules)} pass vorn test")


if __name__ == "__main__":
    main()
