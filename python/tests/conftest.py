"""Fixtures of the ovexsdk tests. Each test file runs under the virtual board launcher with the
boards its first lines name (see CMakeLists.txt): the boards outlive the tests, and so does
their power state."""

from __future__ import annotations

import os
import threading
from pathlib import Path
from typing import Callable, Iterator

import pytest

import ovexsdk

CONFIG_DIR = Path(__file__).resolve().parents[2] / "sdk" / "config-loader" / "tests" / "data"
TPX3_CONFIG = CONFIG_DIR / "tpx3.xml"
TPX2_CONFIG = CONFIG_DIR / "tpx2.xml"

# Long enough for a loaded sanitizer build; a wait that runs out is a failure, never a pass.
PATIENCE = 60.0


@pytest.fixture
def board() -> Iterator[ovexsdk.Board]:
    """The first board, open, as it is: powered or not."""
    with ovexsdk.Board() as board:
        yield board


def configured(board: ovexsdk.Board, config: Path) -> ovexsdk.Board:
    """Powers the board up and configures its chip from `config`."""
    board.power_up()
    board.chip.configure(config)
    return board


def thread_names() -> list[str]:
    """The names of this process's threads, as the kernel has them."""
    names = []
    for task in os.listdir("/proc/self/task"):
        try:
            with open(f"/proc/self/task/{task}/comm", encoding="utf-8") as comm:
                names.append(comm.read().strip())
        except FileNotFoundError:
            pass  # ended meanwhile
    return names


def open_fds() -> int:
    return len(os.listdir("/proc/self/fd"))


def wait_for(condition: Callable[[], bool], what: str) -> None:
    """Waits until `condition()` holds, woken by `notify()`; fails after PATIENCE."""
    with _changed:
        if not _changed.wait_for(condition, PATIENCE):
            pytest.fail(f"waited {PATIENCE:g} s for {what}")


def notify() -> None:
    with _changed:
        _changed.notify_all()


_changed = threading.Condition()
