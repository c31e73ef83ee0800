"""Records a board's stream for test_stream_replay: the raw bytes of half a second of
data-driven hits, and the sorted hits that came of them."""

from __future__ import annotations

import os
from pathlib import Path

import numpy as np

import ovexsdk
from conftest import TPX3_CONFIG, configured

DATA = Path(os.environ.get("OVEX_PYTEST_DATA", "."))


def test_record_a_stream(board):
    configured(board, TPX3_CONFIG)
    raw = DATA / "stream.bin"
    acquisition = board.acquire("data-driven", "sorted", seconds=0.5, raw=raw)
    hits = acquisition.collect()
    assert len(hits) > 1000
    assert acquisition.raw_bytes == raw.stat().st_size and acquisition.raw_bytes % 6 == 0
    np.save(DATA / "stream-hits.npy", hits)
