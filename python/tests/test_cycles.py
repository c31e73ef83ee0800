"""Opening and closing a board over and over, and acquiring over and over, leaves no context,
thread or file descriptor behind."""

from __future__ import annotations

import os

import ovexsdk
from conftest import TPX3_CONFIG, configured, open_fds, thread_names


def threads() -> tuple[list[str], int]:
    """The threads that the library and the package name, and how many others there are: a
    worker pool may grow up to a thread a core, which is no leak."""
    names = thread_names()
    named = sorted(name for name in names if name != "python3")
    return named, len(names) - len(named)


def no_more_threads(before: tuple[list[str], int], after: tuple[list[str], int]) -> bool:
    return after[0] == before[0] and after[1] <= before[1] + (os.cpu_count() or 1)


def test_open_and_close_100_times():
    with ovexsdk.Board() as board:  # the first one starts what the process keeps
        board.units
    before = (threads(), open_fds())
    for _ in range(100):
        with ovexsdk.Board() as board:
            assert len(board.units) == 2
    assert no_more_threads(before[0], threads()) and open_fds() == before[1]


def test_acquire_12_times():
    def run(times):
        with ovexsdk.Board() as board:
            configured(board, TPX3_CONFIG)
            for index in range(times):
                # long enough that a loaded sanitizer build still gets each shutter's end within
                # the library's wait for it, its length and a tenth of a second
                acquisition = board.acquire("data-driven", "sorted", seconds=0.3)
                if index % 2:
                    acquisition.collect()
                else:
                    acquisition.close()  # ended early
        return threads(), open_fds()

    # The first run starts the threads that the process keeps.
    threads_before, fds_before = run(1)
    threads_after, fds_after = run(12)
    assert no_more_threads(threads_before, threads_after) and fds_after == fds_before
