"""The stream of test_stream_record replayed: a C host (the ovex tool) and this package get the
same hits of it, and those of its first pass are the recorded ones.

The replay plays the recording from its start in each scan line, and moves time on by whole
pages of 2^16 ToA ticks from pass to pass and from the line's opening, so addresses, ToT and
time differences are the recording's, while where time starts is the run's own."""

from __future__ import annotations

import os
import subprocess
from pathlib import Path

import numpy as np
import pytest

from conftest import PATIENCE, TPX3_CONFIG, configured

DATA = Path(os.environ.get("OVEX_PYTEST_DATA", "."))
PAGE = 1 << 20  # 2^16 ToA ticks in sixteenths


@pytest.fixture(scope="module")
def recorded():
    return np.load(DATA / "stream-hits.npy")


def in_time_order(hits, address, time):
    """The hits ordered by time, then address and ToT: ties may come either way."""
    return hits[np.lexsort((hits["tot"], hits[address], hits[time]))]


def test_a_c_host_and_python_get_the_same_hits(board, recorded, tmp_path):
    configured(board, TPX3_CONFIG)
    ours = board.acquire("data-driven", "sorted", seconds=0.5).collect()
    npy = tmp_path / "tool.npy"
    done = subprocess.run([os.environ["OVEX_TOOL"], "acquire", "OVX00001", "--mode",
                           "data-driven", "--process", "sorted", "--seconds", "0.5",
                           "--records", str(npy)], capture_output=True, text=True,
                          timeout=PATIENCE)
    assert done.returncode == 0, done.stderr
    theirs = np.load(npy)
    assert theirs.dtype.names == ("address", "x", "y", "tot", "toa")

    assert np.all(np.diff(ours["time"].astype(np.int64)) >= 0)
    count = min(len(ours), len(theirs))
    assert count >= len(recorded), "each run covers the first pass"
    ours = in_time_order(ours[:count], "addr", "time")
    theirs = in_time_order(theirs[:count], "address", "toa")
    assert np.array_equal(ours["addr"], theirs["address"])
    for field in ("x", "y", "tot"):
        assert np.array_equal(ours[field], theirs[field]), field
    ours_time = ours["time"].astype(np.int64)
    theirs_time = theirs["toa"].astype(np.int64)
    assert np.array_equal(ours_time - ours_time[0], theirs_time - theirs_time[0])
    assert (ours_time[0] - theirs_time[0]) % PAGE == 0

    # the first pass is the recording
    first = in_time_order(ours[:len(recorded)], "addr", "time")
    recorded = in_time_order(recorded, "addr", "time")
    for field in ("addr", "x", "y", "tot"):
        assert np.array_equal(first[field], recorded[field]), field
    assert np.array_equal(first["time"] & (PAGE - 1), recorded["time"] & (PAGE - 1))
