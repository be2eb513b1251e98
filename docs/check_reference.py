#!/usr/bin/env python3
"""Fails when Doxygen has warned while it made the reference.

    check_reference.py WARNINGS

One warning is not a mistake. A comment in front of `@{` explains a family of functions, and each
of its parameters need only occur in one of them: `size` belongs to the array forms, say. Doxygen
copies the comment to every function and misses the parameter in the others. Such a parameter is
accepted when a declaration of the family has it.
"""
import re
import sys
from pathlib import Path

MISSING_ARGUMENT = re.compile(
    r"^(?P<file>.+?):(?P<line>\d+): .*argument '(?P<name>\w+)' of command @param is not found in the "
    r"argument list of ")


def family(file, line):
    """The declarations between the `@{` and the `@}` that follow the comment at `line` (from 1)."""
    lines = Path(file).read_text(encoding="utf-8").splitlines()[line - 1:]
    text = "\n".join(lines)
    opening = text.find("@{")
    # A family's comment ends right before its `@{`: a declaration in between means another one.
    if opening < 0 or ";" in re.sub(r"/\*.*?\*/|^\s*(///|\*).*$", "", text[:opening], flags=re.S | re.M):
        return ""
    closing = text.find("@}", opening)
    return re.sub(r"/\*.*?\*/|//[^\n]*", "", text[opening:closing], flags=re.S)


def counts(warning):
    match = MISSING_ARGUMENT.match(warning)
    if not match:
        return True
    declarations = family(match["file"], int(match["line"]))
    return re.search(rf"\b{match['name']}\b\s*[,)\[]", declarations) is None


def main():
    warnings = [line for line in Path(sys.argv[1]).read_text(encoding="utf-8").splitlines() if line]
    mistakes = [warning for warning in dict.fromkeys(warnings) if counts(warning)]
    for mistake in mistakes:
        print(mistake, file=sys.stderr)
    if mistakes:
        sys.exit(f"docs: {len(mistakes)} warnings of Doxygen")


main()
