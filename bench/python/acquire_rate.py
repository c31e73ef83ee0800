"""The Python package's acquisition rate against a C host's, per processing mode.

Both hosts take the same recording, replayed by a virtual board (``ovex-vboard run --replay
FILE --rate R --trigger-rate HZ``), in the same modes. The C host is the ``ovex`` tool
(``ovex acquire``: a host on the exported C interface whose data callback only counts the
records); the Python host is this script (``--host py``), a loop over ``Board.acquire`` that
only sums the length of each block. Every run is a launcher session of its own with one host
process in it, which opens the board, powers it up and configures the chip: a board that has
run a scan delivers nothing more in its session, so runs can't share one.

The rate runs from the start of the readout to its last result (hits over that time; for the
scans the hits their bins count). CPU is the host process's, all threads, its start and the
board's configuration included; the virtual board's is not in it. Lost counts the library's
warnings that it dropped data, as the ``ovex`` tool counts them.

    acquire_rate.py --vboard OVEX_VBOARD --recording FILE --ovex OVEX --config TPX3.XML
"""

from __future__ import annotations

import argparse
import json
import logging
import os
import re
import resource
import signal
import statistics
import subprocess
import sys
import time
from dataclasses import dataclass, field
from typing import Optional

MODES = ("records", "sorted", "count-image", "itot-image", "bins")
SCANS = ("count-image", "itot-image", "bins")
SUMMARY = re.compile(r"records=(\d+) hits=(\d+) seconds=([\d.]+) hits_per_second=(\d+) "
                     r"lost=(\d+) lost_bytes=(\d+)")
# Options that a host process takes over from the run that starts it.
HOST_OPTIONS = ("ovex", "config", "serial", "seconds", "lines", "bins", "bin_width_ns",
                "scan_seconds")


@dataclass
class Run:
    hits: int
    records: int  # hits, or the bins of a scan
    seconds: float
    lost: int
    cpu: float  # CPU seconds of the host process
    loop_cpu: float = 0.0  # of the Python loop's thread alone
    blocks: int = 0  # that the Python loop took

    def rate(self, mode: str) -> float:
        """Hits a second; for the iToT image, whose sums aren't hits, bins a second."""
        done = self.records if mode == "itot-image" else self.hits
        return done / self.seconds if self.seconds > 0 else 0.0


@dataclass
class Figures:
    c: list[Run] = field(default_factory=list)
    py: list[Run] = field(default_factory=list)
    hung: dict[str, int] = field(default_factory=lambda: {"c": 0, "py": 0})


class LossLines(logging.Handler):
    """Counts the library's warnings that say it dropped data."""

    def __init__(self) -> None:
        super().__init__(logging.WARNING)
        self.count = 0

    def emit(self, record: logging.LogRecord) -> None:
        if "dropped" in record.getMessage().lower():
            self.count += 1


def cpu_seconds(usage: resource.struct_rusage) -> float:
    return usage.ru_utime + usage.ru_stime


def c_host(args: argparse.Namespace, mode: str) -> Run:
    """One run of the ovex tool, as a child of this process."""
    command = [args.ovex, "acquire", args.serial, "--mode", "data-driven", "--process", mode,
               "--config", args.config]
    if mode in SCANS:
        command += ["--lines", str(args.lines), "--bins", str(args.bins), "--bin-width",
                    str(args.bin_width_ns), "--seconds", str(args.scan_seconds)]
    else:
        command += ["--seconds", str(args.seconds)]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    found = SUMMARY.search(done.stdout)
    if done.returncode != 0 or not found:
        raise RuntimeError(f"{' '.join(command)} failed ({done.returncode}):\n"
                           f"{done.stdout}{done.stderr}")
    cpu = cpu_seconds(resource.getrusage(resource.RUSAGE_CHILDREN))
    return Run(int(found.group(2)), int(found.group(1)), float(found.group(3)),
               int(found.group(5)), cpu)


def py_host(args: argparse.Namespace, mode: str) -> Run:
    """One run of the Python host in this process."""
    import ovexsdk

    losses = LossLines()
    logging.getLogger("ovexsdk").addHandler(losses)
    with ovexsdk.Board(f"usb:sn:{args.serial}") as board:
        board.power_up()
        board.chip.configure(args.config)
        if mode in SCANS:
            options = dict(lines=args.lines, bins=args.bins, bin_width_ns=args.bin_width_ns,
                           seconds=args.scan_seconds)
        else:
            options = dict(seconds=args.seconds)
        n = records = 0
        thread0, start = time.thread_time(), time.perf_counter()
        acquisition = board.acquire("data-driven", mode, **options)
        if mode == "bins":
            for block in acquisition:
                n += len(block.pixels)
        else:
            for block in acquisition:
                n += len(block)
        seconds = time.perf_counter() - start
        loop_cpu = time.thread_time() - thread0
        # Records in the hit modes; in the scans the hits their bins count, which the package
        # sums block by block as the C host does in its callback.
        hits = n if mode not in SCANS else acquisition.hits
        # The bins of a scan, as the C host counts its records there.
        records = n if mode not in SCANS else acquisition.records * args.bins
        board.power_down()
    cpu = cpu_seconds(resource.getrusage(resource.RUSAGE_SELF))
    return Run(hits, records, seconds, losses.count, cpu, loop_cpu, acquisition.blocks)


def session(args: argparse.Namespace, rate: str, host: str, mode: str) -> Optional[Run]:
    """One run of one host in a launcher session of its own; None when it hung and was ended
    after the run's time and a minute more."""
    command = [args.vboard, "run", "--replay", args.recording, "--rate", rate,
               "--trigger-rate", str(args.trigger_rate), "--",
               sys.executable, os.path.abspath(__file__), "--host", host, "--mode", mode]
    for option in HOST_OPTIONS:
        command += [f"--{option.replace('_', '-')}", str(getattr(args, option))]
    limit = max(args.seconds, args.scan_seconds) + 60
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          start_new_session=True) as launcher:
        try:
            out, err = launcher.communicate(timeout=limit)
        except subprocess.TimeoutExpired:
            os.killpg(launcher.pid, signal.SIGKILL)
            launcher.communicate()
            return None
    lines = out.splitlines()
    if launcher.returncode != 0 or not lines:
        raise RuntimeError(f"{' '.join(command)} failed ({launcher.returncode}):\n{out}{err}")
    return Run(**json.loads(lines[-1]))


def unit(mode: str) -> float:
    """Rates in M hits/s, of the iToT image in k bins/s."""
    return 1e3 if mode == "itot-image" else 1e6


def spread(values: list[float], scale: float) -> str:
    if len(values) == 1:
        return f"{values[0] / scale:.1f}"
    return (f"{statistics.median(values) / scale:.1f} "
            f"({min(values) / scale:.1f}-{max(values) / scale:.1f})")


def load() -> str:
    return " ".join(f"{x:.2f}" for x in os.getloadavg())


def measure(args: argparse.Namespace, rate: str, modes: list[str]) -> None:
    figures = {mode: Figures() for mode in modes}
    print(f"# replay at {rate} packets/s, {args.runs} runs of {args.seconds:g} s "
          f"(scans: {args.lines} lines of {args.bins} x {args.bin_width_ns} ns, "
          f"{args.trigger_rate:g} pulses/s); load before: {load()}", flush=True)
    for run in range(args.runs):
        for mode in modes:
            # Alternate which host goes first, so that a drift of the machine's load shows in
            # both alike.
            for host in ("c", "py") if run % 2 == 0 else ("py", "c"):
                result = session(args, rate, host, mode)
                if result is None:
                    figures[mode].hung[host] += 1
                    print(f"run {run + 1} {mode:12s} {host:2s} hung, ended", flush=True)
                    continue
                getattr(figures[mode], host).append(result)
                print(f"run {run + 1} {mode:12s} {host:2s} {result.rate(mode) / unit(mode):8.2f} "
                      f"hits={result.hits} seconds={result.seconds:.3f} lost={result.lost} "
                      f"cpu={result.cpu:.2f} s loop_cpu={result.loop_cpu:.2f} s blocks={result.blocks} "
                      f"load={os.getloadavg()[0]:.2f}", flush=True)

    print(f"\nreplay at {rate} packets/s: M hits/s (itot-image: k bins/s), "
          f"median (min-max) of {args.runs} runs; "
          f"load after: {load()}")
    print(f"{'mode':12s} | {'C host':>18s} | {'Python':>18s} | {'ratio':>5s} | "
          f"{'lost C/Py':>9s} | {'CPU/unit C':>10s} | {'CPU/unit Py':>11s} | {'loop':>5s} | "
          f"hung C/Py")
    for mode, got in figures.items():
        if not got.c or not got.py:
            print(f"{mode:12s} | no runs of one host to compare; hung C/Py "
                  f"{got.hung['c']}/{got.hung['py']}")
            continue
        c_rates = [r.rate(mode) for r in got.c]
        py_rates = [r.rate(mode) for r in got.py]
        ratio = statistics.median(py_rates) / max(1.0, statistics.median(c_rates))
        lost = f"{sum(r.lost for r in got.c)}/{sum(r.lost for r in got.py)}"
        c_cpu = sum(r.cpu for r in got.c) / max(1, sum(r.rate(mode) * r.seconds
                                                        for r in got.c)) * unit(mode)
        py_cpu = sum(r.cpu for r in got.py) / max(1, sum(r.rate(mode) * r.seconds
                                                          for r in got.py)) * unit(mode)
        loop = sum(r.loop_cpu for r in got.py) / sum(r.seconds for r in got.py)
        scale = unit(mode)
        print(f"{mode:12s} | {spread(c_rates, scale):>18s} | {spread(py_rates, scale):>18s} | "
              f"{ratio:5.2f} | {lost:>9s} | {c_cpu * 1e3:8.1f}ms | {py_cpu * 1e3:9.1f}ms | "
              f"{loop * 100:4.0f}% | {got.hung['c']}/{got.hung['py']}", flush=True)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--vboard", help="the virtual board's launcher, ovex-vboard")
    parser.add_argument("--recording", help="the board stream to replay")
    parser.add_argument("--rates", default="0 6e7",
                        help="replay rates in packets/s, blank-separated (0: as fast as read)")
    parser.add_argument("--trigger-rate", type=float, default=10.0,
                        help="pulses a second on the trigger input, each opening a scan line")
    parser.add_argument("--ovex", required=True, help="the ovex tool")
    parser.add_argument("--config", required=True, help="the chip's configuration file")
    parser.add_argument("--serial", default="OVX00001")
    parser.add_argument("--seconds", type=float, default=5.0, help="length of a record run")
    parser.add_argument("--runs", type=int, default=3, help="runs of each host per mode")
    parser.add_argument("--modes", default=",".join(MODES))
    parser.add_argument("--lines", type=int, default=20, help="lines of each scan")
    parser.add_argument("--bins", type=int, default=500, help="bins of a scan line")
    parser.add_argument("--bin-width-ns", type=int, default=90_000)
    parser.add_argument("--scan-seconds", type=float, default=20.0,
                        help="the longest wait for a scan's lines")
    parser.add_argument("--host", choices=("c", "py"), help=argparse.SUPPRESS)
    parser.add_argument("--mode", choices=MODES, help=argparse.SUPPRESS)
    args = parser.parse_args()

    if args.host:
        run = (c_host if args.host == "c" else py_host)(args, args.mode)
        print(json.dumps(run.__dict__))
        return 0
    if not args.vboard or not args.recording:
        parser.error("--vboard and --recording are needed")
    modes = [m for m in args.modes.split(",") if m]
    for mode in modes:
        if mode not in MODES:
            parser.error(f"unknown mode {mode!r}; one of {', '.join(MODES)}")
    for rate in args.rates.split():
        measure(args, rate, modes)
    return 0


if __name__ == "__main__":
    sys.exit(main())
