"""Acquisitions: the board's results as NumPy arrays, block by block or all at once."""

from __future__ import annotations

import os
from collections.abc import Iterator
from typing import TYPE_CHECKING, Any, Callable, NamedTuple, Optional, Union

import numpy as np
import numpy.typing as npt

from . import _core
from ._chip import CHIP_MODES
from ._errors import invalid

if TYPE_CHECKING:
    from ._board import Board

#: One hit: the pixel address as the chip sends it, the pixel's column and row on the host's
#: matrix, the time over threshold and the time of arrival in units of TIME_UNIT_NS (extended
#: over the whole run in the data-driven modes; the packet's 20 bits in ``toa-tot`` frames).
HIT_DTYPE = np.dtype([("addr", "<u2"), ("x", "<u2"), ("y", "<u2"), ("tot", "<u2"),
                      ("time", "<u8")])
#: One pixel of an ``itot-count`` frame: its integrated time over threshold and hit count.
PIXEL_DTYPE = np.dtype({"names": ["addr", "x", "y", "itot", "events"],
                        "formats": ["<u2", "<u2", "<u2", "<u4", "<u8"],
                        "offsets": [0, 2, 4, 8, 16], "itemsize": 24})
#: One pixel of one bin of the complete binning: the bin counts from the scan's first bin.
BIN_PIXEL_DTYPE = np.dtype({"names": ["bin", "addr", "x", "y", "events", "itot"],
                            "formats": ["<u4", "<u2", "<u2", "<u2", "<u4", "<u4"],
                            "offsets": [0, 4, 6, 8, 12, 16], "itemsize": 20})
#: Nanoseconds of one unit of a hit's ``time``: a sixteenth of the 25 ns ToA clock.
TIME_UNIT_NS = 25.0 / 16.0

PROCESSING = {"records": 1, "sorted": 2, "count-image": 3, "itot-image": 4, "bins": 5}
_SCANS = {"count-image": _core.ResultKind.SCAN_COUNTS, "itot-image": _core.ResultKind.SCAN_ITOTS,
          "bins": _core.ResultKind.SCAN_BINS}
_TPX2_MODES = ("count8", "count10", "count14", "itot10", "itot14")
_FRAME_MODES = ("toa-tot", "itot-count") + _TPX2_MODES
_INTERNAL_SHUTTER, _EXTERNAL_SHUTTER = 1, 3
# The board counts a shutter in 32 bits of its 40 MHz clock.
_TICKS_PER_SECOND = 4e7
LONGEST_SHUTTER = 4294967295 / _TICKS_PER_SECOND


class ScanBins(NamedTuple):
    """Scan lines of the complete binning: per bin the iToT sum and the hit count, both
    ``(lines, bins)``, and the pixels hit in each bin (``BIN_PIXEL_DTYPE``)."""

    itot: npt.NDArray[np.uint64]
    events: npt.NDArray[np.uint64]
    pixels: npt.NDArray[np.void]


Block = Union[npt.NDArray[Any], ScanBins]


def _joined(parts: list, dtype: np.dtype) -> npt.NDArray[Any]:
    """The records of all parts in one array of `dtype`, which np.concatenate would repack."""
    joined = np.empty(sum(len(p) for p in parts), dtype)
    at = 0
    for part in parts:
        joined[at:at + len(part)] = part
        at += len(part)
    return joined


def _line_seconds(bins: int, bin_width_ns: int) -> float:
    """A shutter that covers a scan line, never a clock tick short of it."""
    ticks = bins * bin_width_ns * 0.04
    seconds = np.float32(ticks / _TICKS_PER_SECOND)
    while float(seconds) * _TICKS_PER_SECOND < ticks:
        seconds = np.nextafter(seconds, np.float32(np.inf))
    return float(seconds)


class Acquisition(Iterator[Block]):
    """A running acquisition: iterate it for its blocks, or :meth:`collect` them all.

    The board's results are copied out of the library as they come, into a queue of at most
    ``buffer_mb`` MiB; while the queue is full the library holds the rest, so nothing is lost
    to a slow loop. Leaving the loop early, :meth:`close`, Ctrl-C or closing the board ends the
    acquisition: the readout is aborted and what hasn't been taken is dropped.

    Attributes:
        blocks, records, hits: what the iteration has handed out so far (records are hits,
            pixels, scan bins or frames; hits counts the chip's hits they stand for where the
            results tell it).
    """

    def __init__(self, board: "Board", mode: str, process: str, plan: Any) -> None:
        self._board = board
        self.mode = mode
        self.process = process
        self._kind = plan.kind
        self._lines = plan.lines
        self._bins = plan.bins_per_line
        self.blocks = 0
        self.records = 0
        self.hits = 0
        self._raw_bytes_at_end = 0
        self._core: Optional[Any] = None
        self._core = _core.Acquisition(
            board._ctx, plan, (HIT_DTYPE, PIXEL_DTYPE, BIN_PIXEL_DTYPE))

    def __iter__(self) -> "Acquisition":
        return self

    def __next__(self) -> Block:
        if self._core is None:
            raise StopIteration
        try:
            result = self._core.next()
        except BaseException:
            self.close()
            raise
        block: Block
        if self._kind in (_core.ResultKind.SCAN_COUNTS, _core.ResultKind.SCAN_ITOTS):
            block = result[0]
            self.hits += int(block.sum()) if self._kind == _core.ResultKind.SCAN_COUNTS else 0
        elif self._kind == _core.ResultKind.SCAN_BINS:
            block = ScanBins(*result[:3])
            self.hits += int(block.events.sum())
        else:
            block = result
            if self._kind == _core.ResultKind.HITS:
                self.hits += len(block)
            elif self._kind == _core.ResultKind.ITOT_PIXELS:
                self.hits += int(block["events"].sum())
            else:
                self.hits += int(block.sum())
        self.blocks += 1
        if isinstance(block, ScanBins):
            self.records += block.itot.size
        elif self._kind == _core.ResultKind.TPX2_FRAMES:
            self.records += 1
        else:
            self.records += block.size
        return block

    @property
    def raw_bytes(self) -> int:
        """Bytes of the board's stream written to the ``raw`` file so far."""
        return self._core.raw_bytes if self._core is not None else self._raw_bytes_at_end

    def close(self) -> None:
        """Ends the acquisition now; blocks not yet taken are dropped. Safe more than once."""
        if self._core is not None:
            self._core.stop()
            self._raw_bytes_at_end = self._core.raw_bytes
            self._core = None
            self._board._acquisition_ended(self)

    def collect(self) -> Block:
        """Runs the acquisition to its end and answers everything at once: hits or pixels in
        one array, Timepix2 frames stacked as ``(frames, height, width)``, a scan as its
        ``(lines, bins)`` image (or a :class:`ScanBins` of such images and all pixels)."""
        blocks = list(self)
        if self._kind in _SCANS.values():
            return self._scan_image(blocks)
        if self._kind == _core.ResultKind.TPX2_FRAMES:
            return np.stack(blocks) if blocks else np.zeros((0, 0, 0), np.uint16)
        return _joined(blocks, HIT_DTYPE if self._kind == _core.ResultKind.HITS else PIXEL_DTYPE)

    def _scan_image(self, blocks: list) -> Block:
        def image(parts: list) -> npt.NDArray[np.uint64]:
            whole = np.zeros((self._lines, self._bins), np.uint64)
            done = np.concatenate(parts) if parts else whole[:0]
            whole[: len(done)] = done[: self._lines]
            return whole

        if self._kind != _core.ResultKind.SCAN_BINS:
            return image(blocks)
        return ScanBins(image([b.itot for b in blocks]), image([b.events for b in blocks]),
                        _joined([b.pixels for b in blocks], BIN_PIXEL_DTYPE))

    def __enter__(self) -> "Acquisition":
        return self

    def __exit__(self, *exc: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_core", None) is not None:
            self.close()

    def __repr__(self) -> str:
        state = "running" if self._core is not None else "ended"
        return (f"<Acquisition {self.mode}/{self.process} {state}: {self.blocks} blocks, "
                f"{self.records} records>")


def plan_for(board: "Board", mode: str, process: str, seconds: Optional[float],
             frames: Optional[int], shutter: float, lines: Optional[int], bins: Optional[int],
             bin_width_ns: Optional[int], raw: Union[str, os.PathLike, None],
             buffer_mb: float) -> tuple[Any, int, float]:
    """The compiled core's plan, the trigger mode and its shutter; refuses what can't run."""
    if mode not in CHIP_MODES:
        raise invalid("acquire", f"unknown mode {mode!r}; one of {', '.join(CHIP_MODES)}")
    if process not in PROCESSING:
        raise invalid("acquire", f"unknown process {process!r}; one of {', '.join(PROCESSING)}")
    if buffer_mb <= 0:
        raise invalid("acquire", f"buffer_mb is positive, not {buffer_mb}")
    plan = _core.AcquisitionPlan()
    plan.buffer_bytes = int(buffer_mb * 2**20)
    plan.raw_path = os.fspath(raw) if raw is not None else ""
    plan.timepix3 = mode not in _TPX2_MODES
    scan = process in _SCANS
    if mode in _FRAME_MODES:
        if process != "records":
            raise invalid("acquire", f"mode {mode!r} gives frames: process 'records' only")
        if frames is None or frames < 1 or seconds is not None:
            raise invalid("acquire", f"mode {mode!r} takes frames=N (N >= 1), not seconds")
        if not 0 < shutter <= LONGEST_SHUTTER:
            raise invalid("acquire", f"a shutter lasts more than 0 and at most "
                                     f"{LONGEST_SHUTTER:.2f} s, not {shutter}")
        plan.readouts = frames
        plan.shutter = shutter
        plan.kind = (_core.ResultKind.TPX2_FRAMES if mode in _TPX2_MODES
                     else _core.ResultKind.HITS if mode == "toa-tot"
                     else _core.ResultKind.ITOT_PIXELS)
        chip = board.chip
        plan.width, plan.height = chip.width, chip.height
        return plan, _INTERNAL_SHUTTER, shutter
    if frames is not None:
        raise invalid("acquire", "frames=N goes with the frame modes only")
    if seconds is None or not seconds > 0:
        raise invalid("acquire", f"the data-driven mode takes seconds > 0, not {seconds}")
    plan.seconds = float(seconds)
    if not scan:
        if any(v is not None for v in (lines, bins, bin_width_ns)):
            raise invalid("acquire", "lines, bins and bin_width_ns go with the scans only")
        if seconds > LONGEST_SHUTTER:
            raise invalid("acquire", f"a data-driven run lasts at most {LONGEST_SHUTTER:.2f} s, "
                                     f"the board's longest shutter")
        plan.kind = _core.ResultKind.HITS
        return plan, _INTERNAL_SHUTTER, float(seconds)
    if not all(isinstance(v, int) and v > 0 for v in (lines, bins, bin_width_ns)):
        raise invalid("acquire", f"process {process!r} takes lines, bins and bin_width_ns, "
                                 f"each a whole number above 0")
    assert lines is not None and bins is not None and bin_width_ns is not None
    if lines >= 2**32 or bins >= 2**32:
        raise invalid("acquire", "lines and bins are below 2**32")
    plan.kind = _SCANS[process]
    plan.lines, plan.bins_per_line, plan.bin_width_ns = lines, bins, bin_width_ns
    plan.internal_trigger = False
    return plan, _EXTERNAL_SHUTTER, _line_seconds(bins, bin_width_ns)


def run_with_callback(acquisition: Acquisition, callback: Callable[[Block], object]
                      ) -> Acquisition:
    """Hands every block to ``callback`` on the calling thread; an exception it raises ends
    the acquisition and reaches the caller."""
    with acquisition:
        for block in acquisition:
            callback(block)
    return acquisition
