#!/usr/bin/env python3
"""Runs a job in parts under programs that start processes, and compares it with one process.

Usage: engines.py GnuParallel|Mpirun|Snakemake|Dask|Slurm --vorn PROGRAM --home MODULE_TREE
                  --examples DIRECTORY

The scripts of examples/scale are what is run. The bytes of the outputs and pictures, and the facts of
--json but for what was measured, are those of one process. Ends with 77, which means skipped, where
the program is not installed, or cannot be started here.
"""
import argparse
import filecmp
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

import slurm_node

SKIPPED = 77
arguments = None
skipped = []

MAKE = """
modules:
  - {name: make, module: synthetic, shots: SHOTS, noise: 0.1, dead: [5], samples: 250}
  - {name: write, module: segy_out, input: make, file: line.sgy}
"""

# Modules of both stages: what works in parts writes, draws and counts, and the sort needs all traces.
JOB = """
job: line 7
modules:
  - {name: read, module: segy_in, file: line.sgy}
  - {name: filtered, module: bandpass, input: read, corners: [5 Hz, 10 Hz, 60 Hz, 80 Hz]}
  - {name: level, module: agc, input: filtered}
  - {name: write, module: segy_out, input: level, file: filtered.sgy}
  - {name: spectrum, module: spectrum, input: level}
  - {name: sorted, module: sort, input: level, keys: [tracf, fldr]}
  - {name: write_sorted, module: segy_out, input: sorted, file: sorted.sgy}
"""

# Some tenths of a second for each part.
FILTERS = 12
LONG_JOB = """
job: many filters
modules:
  - {name: filter_0, module: segy_in, file: line.sgy}
""" + "".join(f"  - {{name: filter_{i + 1}, module: bandpass, input: filter_{i}, "
              "corners: [5 Hz, 10 Hz, 60 Hz, 80 Hz]}\n" for i in range(FILTERS)) + f"""
  - {{name: write, module: segy_out, input: filter_{FILTERS}, file: filtered.sgy}}
"""

# Parts read ranges of the input, and the merge does not join what they say of them.
NOT_JOINED = re.compile(r"/inputs/\d+/(sha256|bytes_read):")


def facts(value):
    """Without what differs from run to run."""
    if isinstance(value, dict):
        return {key: facts(one) for key, one in value.items() if key != "measured"}
    if isinstance(value, list):
        return [facts(one) for one in value]
    return value


def differences(one, parts, place=""):
    """The places where two values differ, with both."""
    if isinstance(one, dict) and isinstance(parts, dict):
        for key in {**one, **parts}:
            yield from differences(one.get(key), parts.get(key), f"{place}/{key}")
    elif isinstance(one, list) and isinstance(parts, list) and len(one) == len(parts):
        for index, pair in enumerate(zip(one, parts)):
            yield from differences(*pair, f"{place}/{index}")
    elif one != parts:
        yield f"{place}: {str(one)[:200]} with one process, {str(parts)[:200]} in parts"


class EngineTest(unittest.TestCase):
    """A directory with a job, and what one process makes of it."""

    job = JOB
    outputs = ["filtered.sgy", "sorted.sgy"]
    shots = 20
    maxDiff = None

    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="vorn-scale-")
        self.addCleanup(directory.cleanup)
        self.work = pathlib.Path(directory.name)
        self.environment = {**os.environ, "VORN_HOME": str(arguments.home)}
        self.environment["PATH"] = f"{arguments.vorn.parent}:{os.environ['PATH']}"
        for name in list(self.environment):
            if name.startswith(("SLURM_", "PBS_", "OMPI_", "PMI", "SGE_")):
                del self.environment[name]
        (self.work / "make.yaml").write_text(MAKE.replace("SHOTS", str(self.shots)))
        (self.work / "job.yaml").write_text(self.job)
        self.call("vorn", "run", "-q", "make.yaml")
        self.call("vorn", "run", "-q", "job.yaml", "--json", "one.json", "--pictures", "one")
        for name in self.outputs:
            (self.work / name).rename(self.work / f"one-{name}")

    def needs(self, program):
        if not shutil.which(program):
            skipped.append(f"{program} is not installed")
            self.skipTest(skipped[-1])

    def call(self, *words, code=0):
        """Standard output of a program that ends with this code."""
        ended = subprocess.run([str(word) for word in words], cwd=self.work, text=True,
                               env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                               stdin=subprocess.DEVNULL)
        self.assertEqual(ended.returncode, code, f"{words}\n{ended.stdout}{ended.stderr}")
        return ended.stdout

    def compare(self):
        """What the parts have made is what one process has made."""
        for name in self.outputs:
            self.assertTrue(filecmp.cmp(self.work / name, self.work / f"one-{name}", shallow=False),
                            f"{name} differs from that of one process")
        pictures = sorted(path.name for path in (self.work / "one").iterdir())
        self.assertEqual(sorted(path.name for path in (self.work / "parts").iterdir()), pictures)
        for name in pictures:
            self.assertTrue(filecmp.cmp(self.work / "parts" / name, self.work / "one" / name,
                                        shallow=False), f"{name} differs from that of one process")
        with open(self.work / "one.json") as one, open(self.work / "parts.json") as parts:
            different = differences(facts(json.load(one)), facts(json.load(parts)))
            self.assertEqual([one for one in different if not NOT_JOINED.match(one)], [])

    def assert_parts(self, count):
        """Each part was run by a process of its own, and left its receipt."""
        receipts = [json.loads((self.work / "run1" / f"part-{part}.json").read_text())
                    for part in range(1, count + 1)]
        self.assertEqual([receipt["part"] for receipt in receipts], list(range(1, count + 1)))
        self.assertFalse((self.work / "run1" / f"part-{count + 1}.json").exists())


MERGE = ["-q", "--json", "parts.json", "--pictures", "parts"]


class GnuParallel(EngineTest):
    def setUp(self):
        self.needs("parallel")
        super().setUp()

    def test_outputs_are_those_of_one_process(self):
        self.call(arguments.examples / "gnu_parallel.sh", "job.yaml", "run1", 7, *MERGE)
        self.assert_parts(7)
        self.compare()

    def test_second_call_runs_what_is_missing(self):
        self.call("vorn", "plan", "job.yaml", "--parts", 5, "-o", "run1")
        for part in (1, 2, 4):
            self.call("vorn", "part", "run1", part)
        before = (self.work / "run1/part-2.json").stat().st_mtime_ns
        self.assertEqual(self.call("vorn", "status", "run1", "--missing"), "3,5\n")
        self.call(arguments.examples / "gnu_parallel.sh", "job.yaml", "run1", 5, *MERGE)
        self.assertEqual((self.work / "run1/part-2.json").stat().st_mtime_ns, before)
        self.compare()


class Mpirun(EngineTest):
    def setUp(self):
        self.needs("mpirun")
        super().setUp()
        # mpirun refuses to run as root, and to start more processes than there are cores.
        self.environment |= {"OMPI_ALLOW_RUN_AS_ROOT": "1", "OMPI_ALLOW_RUN_AS_ROOT_CONFIRM": "1",
                             "OMPI_MCA_rmaps_base_oversubscribe": "1"}

    def test_outputs_are_those_of_one_process(self):
        self.call(arguments.examples / "mpirun.sh", "job.yaml", "run1", 4, *MERGE)
        self.assert_parts(4)
        self.compare()

    def test_superfluous_ranks_say_so(self):
        self.call("vorn", "plan", "job.yaml", "--parts", 2, "-o", "run1")
        ended = subprocess.run(["mpirun", "-n", "4", "vorn", "part", "run1", "auto"], cwd=self.work,
                               env=self.environment, text=True, stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT)
        self.assertEqual(ended.returncode, 0, ended.stdout)
        self.assertIn("OMPI_COMM_WORLD_RANK is 2, and the plan has parts 1 to 2", ended.stdout)
        self.assertIn("OMPI_COMM_WORLD_RANK is 3, and the plan has parts 1 to 2", ended.stdout)
        self.call("vorn", "merge", "run1", *MERGE)
        self.compare()


class Snakemake(EngineTest):
    def setUp(self):
        self.needs("snakemake")
        super().setUp()

    def snakemake(self):
        ended = subprocess.run(["snakemake", "-s", arguments.examples / "Snakefile", "--cores", "2",
                                "--config", "job=job.yaml", "dir=run1", "parts=4",
                                f"merge={' '.join(MERGE)}"], cwd=self.work, text=True,
                               env=self.environment, stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT)
        self.assertEqual(ended.returncode, 0, ended.stdout)
        return ended.stdout

    def test_outputs_are_those_of_one_process(self):
        self.snakemake()
        self.assert_parts(4)
        self.compare()
        self.assertIn("Nothing to be done", self.snakemake())


class Dask(EngineTest):
    def setUp(self):
        super().setUp()
        for python in (sys.executable, "/usr/bin/python3"):
            known = subprocess.run([python, "-c", "import distributed"], stderr=subprocess.DEVNULL)
            if known.returncode == 0:
                self.python = python
                return
        skipped.append("python3-distributed is not installed")
        self.skipTest(skipped[-1])

    def test_outputs_are_those_of_one_process(self):
        self.call(self.python, arguments.examples / "dask_parts.py", "job.yaml", "run1",
                  "--parts", 4, f"--merge={' '.join(MERGE)}")
        self.assert_parts(4)
        self.compare()

    def test_error_of_the_job_is_not_tried_again(self):
        self.call("vorn", "plan", "job.yaml", "--parts", 2, "-o", "run1")
        with open(self.work / "line.sgy", "ab") as line:
            line.write(b"more")
        self.call(self.python, arguments.examples / "dask_parts.py", "job.yaml", "run1", code=2)
        self.assertFalse((self.work / "filtered.sgy").exists())


class Slurm(EngineTest):
    def setUp(self):
        super().setUp()
        try:
            (self.work / "slurm").mkdir()
            self.slurm = slurm_node.SlurmNode(self.work / "slurm")
        except slurm_node.CannotStart as error:
            skipped.append(str(error))
            self.skipTest(skipped[-1])
        self.addCleanup(self.slurm.stop)
        self.environment |= {name: self.slurm.environment[name] for name in ("SLURM_CONF",)}

    def wait_for(self, job, state, seconds=120):
        reached = slurm_node.wait_until(lambda: self.slurm.state(job) == {state}, seconds)
        logs = "".join(f"--- {path.name}\n{path.read_text(errors='replace')}"
                       for path in (self.work / "run1").glob("*.log"))
        self.assertTrue(reached, f"job {job} is {self.slurm.state(job)}\n{logs}"
                        + self.slurm.log("slurmctld"))

    def submit(self, *options):
        """The numbers of the jobs, by "parts" and "merge"."""
        printed = self.call("vorn", "submit", "run1", "--engine", "slurm", "--yes", *options,
                            *[f"--merge-option={word}" for word in MERGE])
        return dict(line.split(": job ") for line in printed.splitlines())

    def test_array_and_dependent_merge(self):
        self.call(arguments.examples / "slurm.sh", "job.yaml", "run1", 5, *MERGE)
        self.wait_for(2, "COMPLETED")
        self.assert_parts(5)
        self.compare()

    def test_submit_shows_what_it_would_do_and_does_it(self):
        self.call("vorn", "plan", "job.yaml", "--parts", 5, "-o", "run1")
        shown = self.call("vorn", "submit", "run1", "--engine", "slurm")
        self.assertIn("--array=1-5", shown)
        self.assertEqual(self.slurm.run("squeue", "--noheader", "--states=all"), "")
        jobs = self.submit()
        self.assertEqual(set(jobs), {"parts", "merge"})
        self.wait_for(jobs["merge"], "COMPLETED")
        self.assert_parts(5)
        self.compare()

    def test_tasks_run_several_parts(self):
        self.call("vorn", "plan", "job.yaml", "--parts", 7, "-o", "run1")
        jobs = self.submit("--tasks", "2")
        self.wait_for(jobs["merge"], "COMPLETED")
        self.assertEqual(sorted(path.name for path in (self.work / "run1").glob("task-*.log")),
                         ["task-1.log", "task-2.log"])
        self.assert_parts(7)
        self.compare()


class SlurmNodeLost(Slurm):
    """The node dies while parts run."""

    job = LONG_JOB
    outputs = ["filtered.sgy"]
    shots = 400
    parts = 8

    # Those of the class above are not repeated.
    test_array_and_dependent_merge = None
    test_submit_shows_what_it_would_do_and_does_it = None
    test_tasks_run_several_parts = None

    def states(self):
        table = self.call("vorn", "status", "run1").splitlines()
        return {row.split()[0]: int(row.split()[1]) for row in table[1:6]}

    def lose_node_in_the_middle(self):
        """Some parts are done then, and some are not; their number."""
        run1 = self.work / "run1"

        def is_in_the_middle():
            done = len(list(run1.glob("part-?.json")))
            return 0 < done < self.parts - 1 and len(list(run1.glob("part-?.live"))) > done

        self.assertTrue(slurm_node.wait_until(is_in_the_middle, 60, period=0.02))
        self.slurm.lose_node()
        done = {path.name: path.stat().st_mtime_ns for path in run1.glob("part-?.json")}
        self.assertTrue(0 < len(done) < self.parts, done)
        self.assertFalse((self.work / "filtered.sgy").exists())
        return done

    def assert_not_run_again(self, done):
        for name, written in done.items():
            self.assertEqual((self.work / "run1" / name).stat().st_mtime_ns, written, name)

    def test_requeued_tasks_run_what_is_missing(self):
        self.call("vorn", "plan", "job.yaml", "--parts", self.parts, "-o", "run1")
        jobs = self.submit()
        done = self.lose_node_in_the_middle()
        self.slurm.start_node()
        self.wait_for(jobs["merge"], "COMPLETED", 240)
        self.assert_parts(self.parts)
        self.compare()

    def test_second_submission_runs_what_is_missing(self):
        self.call("vorn", "plan", "job.yaml", "--parts", self.parts, "-o", "run1")
        jobs = self.submit("--option=--no-requeue")
        done = self.lose_node_in_the_middle()
        self.assertEqual(self.call("vorn", "submit", "run1", "--engine", "slurm", "--yes", code=75), "",
                         "what ran a moment ago is taken to run")
        for job in jobs.values():
            self.slurm.run("scancel", job)
        self.assertTrue(slurm_node.wait_until(lambda: self.states()["lost"] > 0, 30))
        states = self.states()
        self.assertEqual((states["done"], states["running"]), (len(done), 0))
        self.slurm.start_node()

        jobs = self.submit()

        self.wait_for(jobs["merge"], "COMPLETED", 240)
        self.assert_parts(self.parts)
        self.assert_not_run_again(done)
        self.compare()


GROUPS = {"GnuParallel": [GnuParallel], "Mpirun": [Mpirun], "Snakemake": [Snakemake],
          "Dask": [Dask], "Slurm": [Slurm, SlurmNodeLost]}


def main():
    global arguments
    parser = argparse.ArgumentParser()
    parser.add_argument("engine", choices=GROUPS)
    parser.add_argument("--vorn", type=pathlib.Path, required=True)
    parser.add_argument("--home", type=pathlib.Path, required=True)
    parser.add_argument("--examples", type=pathlib.Path, required=True)
    parser.add_argument("--only", help="the name of one test")
    arguments = parser.parse_args()
    for path in ("vorn", "home", "examples"):
        setattr(arguments, path, getattr(arguments, path).absolute())
    loader = unittest.TestLoader()
    suite = unittest.TestSuite()
    for group in GROUPS[arguments.engine]:
        for name in loader.getTestCaseNames(group):
            if getattr(group, name) is not None and arguments.only in (None, name):
                suite.addTest(group(name))
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    if skipped:
        print("skipped:", ", ".join(sorted(set(skipped))))
    if not result.wasSuccessful():
        return 1
    return SKIPPED if len(result.skipped) == result.testsRun else 0


if __name__ == "__main__":
    sys.exit(main())
