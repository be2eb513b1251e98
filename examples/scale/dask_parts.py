#!/usr/bin/env python3
"""A job in parts with Dask.

    dask_parts.py JOB.yaml DIR --parts 32 [--scheduler ADDRESS] [--merge="OPTIONS OF VORN MERGE"]

Without --scheduler, the workers are processes of this machine. With it, they are those of a cluster
that runs, on machines that see the same files.
"""
import argparse
import json
import pathlib
import shlex
import subprocess

from distributed import Client, LocalCluster

TRY_AGAIN = 75
TRIES = 3


def run_part(directory, part):
    """Runs in a worker. An error of the job is not tried again."""
    for _ in range(TRIES):
        ended = subprocess.run(["vorn", "part", directory, str(part)], stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT, text=True)
        if ended.returncode != TRY_AGAIN:
            break
    return part, ended.returncode, ended.stdout


def missing_parts(directory):
    listed = subprocess.run(["vorn", "status", directory, "--missing"], check=True, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout.strip()
    for piece in filter(None, listed.split(",")):
        first, _, last = piece.partition("-")
        yield from range(int(first), int(last or first) + 1)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("job")
    parser.add_argument("directory")
    parser.add_argument("--parts", type=int, default=8)
    parser.add_argument("--scheduler")
    parser.add_argument("--merge", default="", help="options of vorn merge, for example --merge=\"--report job.html\"")
    options = parser.parse_args()
    directory = str(pathlib.Path(options.directory).absolute())

    if not pathlib.Path(directory, "plan.json").exists():
        subprocess.run(["vorn", "plan", options.job, "--parts", str(options.parts), "-o", directory],
                       check=True)
    cluster = options.scheduler or LocalCluster(threads_per_worker=1, dashboard_address=None)
    with Client(cluster) as client:
        futures = [client.submit(run_part, directory, part, pure=False)
                   for part in missing_parts(directory)]
        outcomes = client.gather(futures)
    if not options.scheduler:
        cluster.close()
    failed = [outcome for outcome in outcomes if outcome[1] != 0]
    for part, code, text in failed:
        print(f"part {part} ended with {code}: {text}")
    if failed:
        raise SystemExit(failed[0][1])
    raise SystemExit(subprocess.run(["vorn", "merge", directory, *shlex.split(options.merge)]).returncode)


if __name__ == "__main__":
    main()
