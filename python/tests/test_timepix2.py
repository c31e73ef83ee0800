"""A Timepix2 chip board in a beam: its chip, its frames of every depth as 256 x 256 arrays of
uint16, and its pixel mask."""

from __future__ import annotations

import numpy as np
import pytest

import ovexsdk
from conftest import TPX2_CONFIG, configured

MODES = ["count8", "count10", "count14", "itot10", "itot14"]
DEPTH = {"count8": 8, "count10": 10, "count14": 14, "itot10": 10, "itot14": 14}


@pytest.fixture(scope="module")
def board():
    with ovexsdk.Board() as board:
        yield configured(board, TPX2_CONFIG)


def test_chip(board):
    chip = board.chip
    assert (chip.width, chip.height) == (256, 256)
    assert "count10" in chip.modes and set(chip.modes) <= set(MODES)
    assert board.info.product == "OvexBoard Timepix2 CB"
    assert chip.threshold_range.calibrated
    with pytest.raises(ovexsdk.InvalidArgumentError) as caught:
        board.acquire("data-driven", "records", seconds=0.1)
    assert caught.value.function == "ovexsdk_chip_set_mode"


@pytest.mark.parametrize("mode", MODES)
def test_frames(board, mode):
    acquisition = board.acquire(mode, "records", frames=2, shutter=0.02)
    frames = list(acquisition)
    assert len(frames) == acquisition.blocks == 2
    for frame in frames:
        assert frame.dtype == np.uint16 and frame.shape == (256, 256)
        assert frame.max() < 2 ** DEPTH[mode]
    total = np.sum(frames, axis=0, dtype=np.uint64)
    assert total.sum() > 0
    hottest_y, hottest_x = np.unravel_index(np.argmax(total), total.shape)
    assert abs(hottest_x - 127.5) < 40 and abs(hottest_y - 127.5) < 40  # the beam spot
    assert acquisition.hits == int(total.sum())
    assert board.chip.mode == mode
    stacked = board.acquire(mode, "records", frames=3).collect()
    assert stacked.dtype == np.uint16 and stacked.shape == (3, 256, 256)


def test_records_count_frames(board):
    acquisition = board.acquire("count10", "records", frames=2)
    assert len(acquisition.collect()) == 2
    assert acquisition.records == 2


def test_counts_and_itot_differ(board):
    counts = board.acquire("count14", "records", frames=1, shutter=0.05).collect()[0]
    itot = board.acquire("itot14", "records", frames=1, shutter=0.05).collect()[0]
    # a hit sums its ToT, about 120 of them, where it counts once
    assert 20 * counts.sum() < itot.sum()


def test_masked_pixels_stay_dark(board):
    mask = np.zeros((256, 256), bool)
    mask[:, :128] = True
    try:
        board.chip.mask = mask
        frames = board.acquire("count10", "records", frames=2).collect()
        assert frames[:, :, :128].sum() == 0 and frames[:, :, 128:].sum() > 0
    finally:
        board.chip.configure(TPX2_CONFIG)
    frames = board.acquire("count10", "records", frames=2).collect()
    assert frames[:, :, :128].sum() > 0
