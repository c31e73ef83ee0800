"""Opening and closing a board over and over, and acquiring over and over, leaves no context,
thread or file descriptor behind."""

from __future__ import annotations

import os

import ovexsdk
from conftest import TPX3_CONFIG, configured, open_fds


def tasks() -> int:
    return len(os.listdir("/proc/self/task"))


def test_open_and_close_100_times():
    with ovexsdk.Board() as board:  # the first one starts what the process keeps
        board.units
    before = (tasks(), open_fds())
    for _ in range(100):
        with ovexsdk.Board() as board:
            assert len(board.units) == 2
    assert tasks() <= before[0] and open_fds() == before[1]


def test_acquire_30_times():
    def run(times):
        with ovexsdk.Board() as board:
            configured(board, TPX3_CONFIG)
            for index in range(times):
                acquisition = board.acquire("data-driven", "sorted", seconds=0.02)
                if index % 2:
                    acquisition.collect()
                else:
                    acquisition.close()  # ended early
        return tasks(), open_fds()

    # The first run starts the threads that the process keeps (its pools may end some later).
    tasks_before, fds_before = run(1)
    tasks_after, fds_after = run(30)
    assert tasks_after <= tasks_before and fds_after == fds_before
