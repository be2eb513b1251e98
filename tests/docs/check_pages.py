#!/usr/bin/env python3
"""What holds for the pages of the documentation together.

    check_pages.py --source TREE --not-run NUMBER PAGE...

- Every page of the tree is one of the pages that are checked.
- As many blocks as NUMBER are marked as not run.
- docs/README.md leads to every guide.
- docs/pictures/architecture.svg shows what architecture.dot describes.
- CONTRIBUTING.md lists every option of the build and every folder of tests.
"""
import argparse
import html
import re
import subprocess
import sys
from pathlib import Path

import check_page


def pages_of(source):
    """The Markdown pages of the tree, as git knows them; those on disk where there is no git."""
    try:
        names = subprocess.run(["git", "-C", source, "ls-files", "*.md"], check=True, text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout.split()
    except (OSError, subprocess.CalledProcessError):
        names = [str(path.relative_to(source)) for path in source.rglob("*.md")]
    return [name for name in names if not name.startswith("build/") and (source / name).exists()]


def text_of(path):
    return path.read_text(encoding="utf-8")


def unchecked_pages(source, pages):
    return [f"{page}: no test checks this page; add its place to tests/docs/CMakeLists.txt"
            for page in pages_of(source) if page not in pages]


def wrong_number_not_run(source, pages, expected):
    marked = [f"{page}:{block.line}: not run: {block.marks['not run']}" for page in pages
              if page.endswith(".md") for block in check_page.blocks_of(text_of(source / page))
              if "not run" in block.marks]
    if len(marked) == expected:
        return []
    return marked + [f"{len(marked)} blocks are marked as not run, {expected} are expected"]


def guides_without_link(source, pages):
    index = text_of(source / "docs/README.md")
    return [f"docs/README.md: no link to {page}" for page in pages
            if page.startswith("docs/") and page not in ("docs/README.md", "docs/reference.md")
            and f"]({page.removeprefix('docs/')}" not in index]


def words_missing_in_picture(source):
    dot = re.sub(r"//.*", "", text_of(source / "docs/pictures/architecture.dot"))
    picture = text_of(source / "docs/pictures/architecture.svg")
    shown = {html.unescape(text).strip() for text in re.findall(r"<text[^>]*>([^<]*)<", picture)}
    labels = {part.strip() for label in re.findall(r'label="([^"]*)"', dot) for part in label.split(r"\n")}
    return [f"docs/pictures/architecture.svg: \"{label}\" is missing; the target docs_pictures makes it "
            "from architecture.dot" for label in sorted(labels - shown)]


def contributing_gaps(source):
    page = text_of(source / "CONTRIBUTING.md")
    files = [source / "CMakeLists.txt", *sorted((source / "cmake").glob("*.cmake")),
             *sorted((source / "tests").glob("**/CMakeLists.txt")), source / "bench/CMakeLists.txt"]
    options = {name for file in files for name in re.findall(r"\boption\((VORN_\w+)", text_of(file))}
    options.add("VORN_QT_MAJOR")
    folders = {path.name for path in (source / "tests").iterdir() if path.is_dir()
               and not path.name.startswith((".", "__"))}
    return ([f"CONTRIBUTING.md: no word about the option {name}" for name in sorted(options)
             if f"`{name}`" not in page] +
            [f"CONTRIBUTING.md: no word about tests/{name}" for name in sorted(folders)
             if f"`tests/{name}" not in page])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--source", type=Path, required=True)
    parser.add_argument("--not-run", type=int, required=True)
    parser.add_argument("pages", nargs="+")
    options = parser.parse_args()
    source = options.source
    problems = (unchecked_pages(source, options.pages)
                + wrong_number_not_run(source, options.pages, options.not_run)
                + guides_without_link(source, options.pages)
                + words_missing_in_picture(source)
                + contributing_gaps(source))
    for problem in problems:
        print(problem, file=sys.stderr)
    sys.exit(1 if problems else 0)


main()
