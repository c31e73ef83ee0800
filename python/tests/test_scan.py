"""Scans of a Timepix3 board in a beam, a line opened by each pulse of the trigger input: the
images of event counts and iToT sums, and the complete binning with the pixels of each bin."""

from __future__ import annotations

import numpy as np
import pytest

import ovexsdk
from conftest import TPX3_CONFIG, configured
from test_acquire import check_pixels

# A line of 4 bins of 100 us at each trigger pulse.
SCAN = dict(lines=3, bins=4, bin_width_ns=100_000)


@pytest.fixture(scope="module")
def board():
    with ovexsdk.Board() as board:
        yield configured(board, TPX3_CONFIG)


@pytest.mark.parametrize("process", ["count-image", "itot-image"])
def test_scan_images(board, process):
    acquisition = board.acquire("data-driven", process, seconds=60, **SCAN)
    blocks = list(acquisition)
    for block in blocks:
        assert block.dtype == np.uint64 and block.ndim == 2 and block.shape[1] == 4
    image = np.concatenate(blocks)
    assert image.shape == (3, 4) and image.sum() > 0
    assert acquisition.blocks == len(blocks)
    assert acquisition.hits == (int(image.sum()) if process == "count-image" else 0)
    collected = board.acquire("data-driven", process, seconds=60, **SCAN).collect()
    assert collected.shape == (3, 4) and collected.dtype == np.uint64


@pytest.mark.parametrize("process", ["count-image", "bins"])
def test_scan_records_count_bin_values(board, process):
    acquisition = board.acquire("data-driven", process, seconds=60, **SCAN)
    acquisition.collect()
    assert acquisition.records == 3 * 4


def test_scan_bins(board):
    scan = board.acquire("data-driven", "bins", seconds=60, **SCAN).collect()
    assert isinstance(scan, ovexsdk.ScanBins)
    assert scan.itot.shape == scan.events.shape == (3, 4)
    assert scan.itot.dtype == scan.events.dtype == np.uint64
    pixels = scan.pixels
    assert pixels.dtype.names == ovexsdk.BIN_PIXEL_DTYPE.names and len(pixels) > 0
    assert pixels["bin"].max() < 12 and np.all(np.diff(pixels["bin"].astype(np.int64)) >= 0)
    check_pixels(pixels)
    # each bin's sums are those of its pixels
    for field, image in (("events", scan.events), ("itot", scan.itot)):
        per_bin = np.bincount(pixels["bin"], weights=pixels[field], minlength=12)
        assert np.array_equal(per_bin.astype(np.uint64), image.ravel())
    assert scan.events.sum() > 0


def test_the_complete_binnings_pixels_keep_their_dtype(board):
    pixels = board.acquire("data-driven", "bins", seconds=60, **SCAN).collect().pixels
    assert len(pixels) > 0
    assert pixels.dtype == ovexsdk.BIN_PIXEL_DTYPE and pixels.dtype.itemsize == 20
