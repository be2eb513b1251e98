#!/usr/bin/env python3
"""Tests of check_page.py: what is wrong with a page is found and named.

    check_page_test.py ARGUMENT...    with the arguments of check_page.py but for the page
"""
import subprocess
import sys
import tempfile
from pathlib import Path

CHECK_PAGE = Path(__file__).with_name("check_page.py")

JOB = """```yaml
modules:
  - {name: read, module: segy_in, file: line.sgy}
  - {name: picture, module: section, input: read}
```
"""

MANIFEST = """```yaml
module: scale
purpose: Multiplies samples
inputs: {min: 1, max: 1}
outputs: {min: 1, max: 1}
parameters:
  - {name: factor, type: float, default: 1, help: Factor}
```
"""

C_SOURCE = """```c
#include "scale_parameters.h"
scale_parameters set;
scale_read_parameters(&set);
set.factor = 2;
```
"""

CPP_SOURCE = """```cpp
#include "vorn_kit.hpp"
#include "scale_parameters.hpp"
vorn_kit::message(VORN_DETAIL, std::to_string(scale_parameters::readParameters().factor));
```
"""

FORTRAN_SOURCE = """```fortran
subroutine s(good)
  use scale_parameters
  logical, intent(inout) :: good
  type(parameters) :: set
  call read_parameters(set, good)
  set%factor = 2
end subroutine
```
"""

# What the page has, the page, what the check says and with which end.
PAGES = [
    ("a job, commands and links that are right",
     JOB + "Call `vorn check JOB.yaml`, see [the job](page.md#jobs).\n\n# Jobs\n\n"
     "    vorn run job.yaml --set picture.clip=90\n    scripts/test --all\n", 0, "4 checked, 0 not run"),
    ("a job with an unknown parameter", JOB.replace("file:", "fiel:"), 1, "no parameter \"fiel\""),
    ("a job that is right but fails", JOB.replace("file: line.sgy", "file: line.sgy, traces: \"99999:\""),
     1, "vorn run job.yaml\nended with"),
    ("an unknown option in a block", "    vorn check job.yaml --jsn\n", 1, "page.md:1: vorn check job.yaml"),
    ("an unknown option in a block right below a comment",
     "<!-- after:\ntrue\n-->\n    vorn check job.yaml --jsn\n", 1, "page.md:4: vorn check job.yaml"),
    ("an unknown module in running text", "Text,\nthen `vorn inspect agcc`.\n", 1,
     "page.md:2: vorn inspect agcc"),
    ("a failure that is announced", "<!-- exit 2 -->\n\n    vorn inspect agcc\n", 0, "1 checked"),
    ("an announced failure that does not come", "<!-- exit 2 -->\n\n    vorn inspect agc\n", 1,
     "ended with 0, not 2"),
    ("an output that has what the page says", "<!-- shows:\nagc\n-->\n\n    vorn inspect agc\n", 0,
     "1 checked"),
    ("an output that does not have it", "<!-- shows:\nagcc\n-->\n\n    vorn inspect agc\n", 1,
     "has no \"agcc\" in its output"),
    ("a file for a later command", "<!-- input: own.yaml -->\n```yaml\nmodules: none\n```\n\n"
     "<!-- exit 2 -->\n\n    vorn check own.yaml\n", 0, "2 checked"),
    ("a source that does not compile", "<!-- input: own.c -->\n```c\nint x\n```\n\n"
     "    cc -c $(pkg-config --cflags vorn) own.c\n", 1, "own.c"),
    ("a preset that does not exist", "    cmake --preset fast\n", 1, "no preset \"fast\""),
    ("a CMake option that does not exist", "    cmake -B build -DVORN_SPEED=ON\n", 1,
     "no CMake option \"VORN_SPEED\""),
    ("a target that does not exist", "    cmake --build build --target everything\n", 1,
     "no target \"everything\""),
    ("a script that does not exist", "    scripts/fly --high\n", 1, "\"scripts/fly\" is not a program"),
    ("an option that a script does not have", "    scripts/lint --swift\n", 1, "has no option --swift"),
    ("C with an undeclared function", "```c\n#include \"knl.h\"\nknl_getTracelength(0);\n```\n", 1,
     "knl_getTracelength"),
    ("C++ that is right as statements", "```cpp\n#include \"UniVar.h\"\nUniVar value(2);\n```\n", 0,
     "1 checked"),
    ("Fortran with a misspelled name",
     "```fortran\nsubroutine s()\n  use vorn_knl, only: knl_get_trace_lenght\nend subroutine\n```\n", 1,
     "knl_get_trace_lenght"),
    ("a manifest with an unknown type",
     "```yaml\nmodule: agc\nversion: 0.1.0\npurpose: Gain\ninputs: {min: 1, max: 1}\n"
     "outputs: {min: 1, max: 1}\nparameters:\n  - {name: window, type: real, help: Length}\n```\n", 1,
     "expected one of int"),
    ("sources with the parameters of a manifest",
     MANIFEST + C_SOURCE + CPP_SOURCE + FORTRAN_SOURCE, 0, "4 checked"),
    ("C with a parameter that the manifest does not have",
     MANIFEST + C_SOURCE.replace("set.factor", "set.fctor"), 1, "fctor"),
    ("C++ with a parameter that the manifest does not have",
     MANIFEST + CPP_SOURCE.replace("().factor", "().fctor"), 1, "fctor"),
    ("Fortran with a parameter that the manifest does not have",
     MANIFEST + FORTRAN_SOURCE.replace("%factor", "%fctor"), 1, "fctor"),
    ("a link to a missing file", "See [more](more.md).\n", 1, "link to more.md: no such file"),
    ("a link to a missing heading", "# One\n\nSee [two](page.md#two).\n", 1, "no such heading"),
    ("a block of an unknown kind", "```perl\nprint 1;\n```\n", 1, "nothing checks blocks of the kind"),
    ("text in a block of commands", "    in the beginning\n", 1, "no command that is known here"),
    ("a command hidden as output", "```text\nvorn run nothing.yaml\n```\n", 1, "has a command line"),
    ("a marked block", "<!-- not run: a formula -->\n\n    e = m c^2\n", 0, "0 checked, 1 not run"),
    ("a mark without a reason", "<!-- not run: -->\n\n    e = m c^2\n", 1, "needs a reason"),
]


def main():
    failed = 0
    with tempfile.TemporaryDirectory() as folder:
        page = Path(folder) / "page.md"
        for name, text, code, expected in PAGES:
            page.write_text(text, encoding="utf-8")
            result = subprocess.run([sys.executable, CHECK_PAGE, page, *sys.argv[1:]], text=True,
                                    stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            if result.returncode != code or expected not in result.stdout:
                failed += 1
                print(f"{name}: ended with {result.returncode}, expected {code} and "
                      f"\"{expected}\" in:\n{result.stdout}", file=sys.stderr)
    print(f"{len(PAGES) - failed} of {len(PAGES)} pages judged as expected")
    sys.exit(1 if failed else 0)


main()
