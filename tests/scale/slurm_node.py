"""A Slurm of one node that belongs to a test: own munge, own ports, no service of the system."""
import os
import pathlib
import secrets
import shutil
import signal
import socket
import subprocess
import time

PROGRAMS = ["munged", "slurmctld", "slurmd", "sbatch", "scontrol", "sinfo", "scancel"]

CONFIGURATION = """
ClusterName=test
SlurmctldHost={host}(127.0.0.1)
SlurmUser={user}
SlurmdUser={user}
AuthType=auth/munge
AuthInfo=socket={place}/munge.socket,cred_expire=5
SlurmctldPort={controller_port}
SlurmdPort={node_port}
SlurmctldPidFile={place}/slurmctld.pid
SlurmdPidFile={place}/slurmd.pid
SlurmctldLogFile={place}/slurmctld.log
SlurmdLogFile={place}/slurmd.log
StateSaveLocation={place}/state
SlurmdSpoolDir={place}/spool
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
MpiDefault=none
JobCompType=jobcomp/none
AccountingStorageType=accounting_storage/none
JobAcctGatherType=jobacct_gather/none
SchedulerType=sched/builtin
SchedulerParameters=sched_interval=1,batch_sched_delay=0
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
ReturnToService=2
SlurmdTimeout=10
KillWait=2
NodeName={host} NodeAddr=127.0.0.1 CPUs={cpus} State=UNKNOWN
PartitionName=test Nodes={host} Default=YES MaxTime=INFINITE State=UP
"""


class CannotStart(Exception):
    """With the reason."""


def free_ports(count):
    sockets = [socket.socket() for _ in range(count)]
    for one in sockets:
        one.bind(("127.0.0.1", 0))
    ports = [one.getsockname()[1] for one in sockets]
    for one in sockets:
        one.close()
    return ports


def wait_until(condition, seconds, period=0.2):
    """Whether the condition has become true in time."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if condition():
            return True
        time.sleep(period)
    return False


class SlurmNode:
    """`environment` makes the programs of Slurm talk to this node."""

    def __init__(self, place):
        for program in PROGRAMS:
            if not shutil.which(program, path=os.environ["PATH"] + ":/usr/sbin"):
                raise CannotStart(f"{program} is not installed")
        if os.geteuid() != 0:
            raise CannotStart("slurmd needs root")
        self.place = pathlib.Path(place)
        self.processes = []
        self.node = None
        controller_port, node_port = free_ports(2)
        for folder in ("state", "spool"):
            (self.place / folder).mkdir()
        host = socket.gethostname().split(".")[0]
        self.configuration = self.place / "slurm.conf"
        self.configuration.write_text(CONFIGURATION.format(
            host=host, user="root", cpus=min(2, os.cpu_count() or 1), place=self.place, controller_port=controller_port,
            node_port=node_port))
        self.environment = {**os.environ, "SLURM_CONF": str(self.configuration)}
        self.environment["PATH"] += ":/usr/sbin"
        for name in [name for name in self.environment
                     if name.startswith("SLURM_") and name != "SLURM_CONF"]:
            del self.environment[name]
        try:
            self._start_all(host)
        except BaseException:
            self.stop()
            raise

    def _start_all(self, host):
        key = self.place / "munge.key"
        key.write_bytes(secrets.token_bytes(128))
        key.chmod(0o600)
        self._start("munged", "--foreground", "--force", f"--key-file={key}",
                    f"--socket={self.place}/munge.socket", f"--pid-file={self.place}/munged.pid",
                    f"--log-file={self.place}/munged.log", f"--seed-file={self.place}/munge.seed",
                    "--num-threads=2")
        if not wait_until((self.place / "munge.socket").exists, 10):
            raise CannotStart("munged does not start: " + self.log("munged"))
        self._start("slurmctld", "-D", "-i")
        self.start_node()

    def _start(self, program, *words):
        output = open(self.place / f"{program}.out", "ab")
        process = subprocess.Popen([program, *words], env=self.environment, stdout=output,
                                   stderr=output, stdin=subprocess.DEVNULL)
        output.close()
        self.processes.append(process)
        return process

    def start_node(self):
        """Starts slurmd, and waits until jobs can run."""
        self.node = self._start("slurmd", "-D")
        if not wait_until(self._is_ready, 60):
            raise CannotStart("the node does not get ready: " + self.log("slurmd") +
                              self.log("slurmctld"))

    def _is_ready(self):
        return self.run("sinfo", "--noheader", "--format=%t").strip() in ("idle", "mix")

    def log(self, program):
        """The last lines of what a daemon has written."""
        lines = []
        for ending in ("out", "log"):
            file = self.place / f"{program}.{ending}"
            if file.exists():
                lines += file.read_text(errors="replace").splitlines()[-5:]
        return " | ".join(lines) + " "

    def run(self, *words):
        """Standard output of a program of Slurm; "" where it fails."""
        ended = subprocess.run(words, env=self.environment, stdout=subprocess.PIPE, text=True,
                               stderr=subprocess.DEVNULL)
        return ended.stdout if ended.returncode == 0 else ""

    def state(self, job):
        """States of a job and of the tasks of an array, as "COMPLETED"."""
        return {word.removeprefix("JobState=") for word in
                self.run("scontrol", "show", "job", str(job)).split() if word.startswith("JobState=")}

    def _processes_of_jobs(self):
        """What the node has started: it all has this configuration in its environment."""
        mark = f"SLURM_CONF={self.configuration}".encode()
        own = {os.getpid(), *(process.pid for process in self.processes)}
        for folder in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                pid = int(folder.name)
                if pid not in own and mark in (folder / "environ").read_bytes().split(b"\0"):
                    yield pid
            except OSError:
                pass  # it has ended

    def lose_node(self):
        """Power fails: slurmd and all that it has started are gone at once."""
        self.node.kill()
        self.node.wait()
        for pid in list(self._processes_of_jobs()):
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass

    def stop(self):
        for process in reversed(self.processes):
            if process.poll() is None:
                process.terminate()
                try:
                    process.wait(10)
                except subprocess.TimeoutExpired:
                    process.kill()
                    process.wait()
        for pid in list(self._processes_of_jobs()):
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
