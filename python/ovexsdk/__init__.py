"""ovexsdk: USB readout boards of Timepix detectors from Python.

Find boards with :func:`list_boards`, open one with :class:`Board`, power it up, set its chip
up and acquire: results come as NumPy arrays. Failures raise :class:`Error` or one of its
subclasses; the library's log goes to the logger ``"ovexsdk"`` of Python's logging.

    import ovexsdk

    with ovexsdk.Board() as board:
        board.power_up()
        board.chip.configure()
        for hits in board.acquire("data-driven", "sorted", seconds=2):
            print(len(hits), hits["tot"].mean())
"""

from __future__ import annotations

import atexit

from . import _core, _log
from ._acquire import (BIN_PIXEL_DTYPE, HIT_DTYPE, PIXEL_DTYPE, TIME_UNIT_NS, Acquisition,
                       Block, ScanBins)
from ._board import Board, BoardInfo, PowerUnit, close_all, list_boards
from ._chip import Chip, DacInfo, Dacs, ThresholdRange
from ._errors import BusyError, Error, InvalidArgumentError, NoDeviceError, TimedOutError
from ._housekeeping import Control, MonitorChange, MonitorInfo, Monitors

__all__ = [
    "Acquisition", "BIN_PIXEL_DTYPE", "Block", "Board", "BoardInfo", "BusyError", "Chip",
    "Control", "DacInfo", "Dacs", "Error", "HIT_DTYPE", "InvalidArgumentError",
    "MonitorChange", "MonitorInfo", "Monitors", "NoDeviceError", "PIXEL_DTYPE", "PowerUnit",
    "ScanBins", "TIME_UNIT_NS", "ThresholdRange", "TimedOutError", "library_version",
    "list_boards",
]

__version__ = "{}.{}.{}".format(*_core.version())


def library_version() -> tuple[int, int, int]:
    """The version of the ovex_sdk_ng library in use, (major, minor, patch)."""
    return _core.version()


def _at_exit() -> None:
    close_all()
    _core.shutdown()


_log._install()
atexit.register(_at_exit)
