"""Acquisitions of Timepix3 boards in a beam: hits, frames and scans as NumPy arrays, their
counters, the raw stream, and how an acquisition ends (its end, close, a failing callback,
Ctrl-C, the board closed under it). Two boards in the beam; the scans, which need trigger pulses,
are in test_scan.py."""

from __future__ import annotations

import os
import signal
import sys
import threading

import numpy as np
import pytest

import ovexsdk
from conftest import TPX3_CONFIG, configured

SECONDS = 0.4


@pytest.fixture(scope="module")
def board():
    with ovexsdk.Board() as board:
        yield configured(board, TPX3_CONFIG)


def raw_hits(path) -> np.ndarray:
    """(address, ToT) of the DATA packets of a raw stream, in stream order."""
    raw = np.fromfile(path, np.uint8)
    assert len(raw) % 6 == 0, "whole 6-byte packets"
    words = np.zeros(len(raw) // 6, np.uint64)
    for byte in range(6):
        words |= raw[byte::6].astype(np.uint64) << np.uint64(8 * byte)
    data = words[(words >> np.uint64(46)) & np.uint64(3) == 0]
    out = np.zeros(len(data), [("addr", "<u2"), ("tot", "<u2")])
    out["addr"] = (data >> np.uint64(30)) & np.uint64(0xFFFF)
    out["tot"] = (data >> np.uint64(20)) & np.uint64(0x3FF)
    return out


def check_pixels(hits: np.ndarray) -> None:
    """x and y lie on the matrix and follow from the address, one pixel to one address."""
    assert hits["x"].max(initial=0) < 256 and hits["y"].max(initial=0) < 256
    pairs = np.unique(np.stack([hits["addr"], hits["x"], hits["y"]]), axis=1)
    assert len(np.unique(pairs[0])) == pairs.shape[1]
    assert len(np.unique(pairs[1] * 256 + pairs[2])) == pairs.shape[1]


@pytest.mark.parametrize("process", ["records", "sorted"])
def test_data_driven_hits(board, process):
    acquisition = board.acquire("data-driven", process, seconds=SECONDS)
    blocks = list(acquisition)
    assert blocks and all(b.dtype == ovexsdk.HIT_DTYPE and b.ndim == 1 for b in blocks)
    hits = np.concatenate(blocks)
    assert len(hits) > 1000
    assert (acquisition.blocks, acquisition.records, acquisition.hits) == (
        len(blocks), len(hits), len(hits))
    assert repr(acquisition) == (f"<Acquisition data-driven/{process} ended: {len(blocks)} "
                                 f"blocks, {len(hits)} records>")
    assert board.chip.mode == "data-driven"
    check_pixels(hits)
    # the beam spot sits at the centre; ToT from a photopeak at 120
    assert abs(hits["x"].mean() - 127.5) < 10 and abs(hits["y"].mean() - 127.5) < 10
    assert 100 < np.median(hits["tot"]) < 140
    # hits come while the shutter is open, on the board's clock
    span = (hits["time"].max() - hits["time"].min()) * ovexsdk.TIME_UNIT_NS * 1e-9
    assert SECONDS * 0.8 < span < SECONDS + 1e-3
    if process == "sorted":
        assert np.all(np.diff(hits["time"].astype(np.int64)) >= 0)
    assert next(acquisition, None) is None  # ended for good


def test_records_are_the_raw_streams_hits_through_a_small_queue(board, tmp_path):
    acquisition = board.acquire("data-driven", "records", seconds=SECONDS,
                                raw=tmp_path / "stream.bin", buffer_mb=0.05)
    hits = acquisition.collect()
    size = os.path.getsize(tmp_path / "stream.bin")
    assert acquisition.raw_bytes == size > 0
    sent = raw_hits(tmp_path / "stream.bin")
    assert len(sent) == len(hits) > 1000
    # the same hits, whatever the order they came in
    assert np.array_equal(np.sort(sent, order=["addr", "tot"]),
                          np.sort(hits[["addr", "tot"]].astype(sent.dtype), order=["addr", "tot"]))


def test_toa_tot_frames(board):
    acquisition = board.acquire("toa-tot", "records", frames=3, shutter=0.01)
    frames = list(acquisition)
    assert len(frames) == acquisition.blocks == 3
    for frame in frames:
        assert frame.dtype == ovexsdk.HIT_DTYPE and len(frame) > 0
        assert len(np.unique(frame["addr"])) == len(frame)  # a pixel's first hit
        assert frame["time"].max() < 2**20
        check_pixels(frame)
    assert acquisition.hits == acquisition.records == sum(map(len, frames))
    assert board.chip.mode == "toa-tot"
    assert len(board.acquire("toa-tot", "records", frames=2).collect()) > 0


def test_itot_count_frames(board):
    acquisition = board.acquire("itot-count", "records", frames=2, shutter=0.02)
    frames = list(acquisition)
    assert len(frames) == 2
    for frame in frames:
        assert frame.dtype == ovexsdk.PIXEL_DTYPE and len(frame) > 0
        assert len(np.unique(frame["addr"])) == len(frame)
        assert frame["events"].min() >= 1 and frame["itot"].min() >= 1
        check_pixels(frame)
    assert acquisition.records == sum(map(len, frames))
    assert acquisition.hits == sum(int(f["events"].sum()) for f in frames)
    assert board.chip.mode == "itot-count"
    whole = board.acquire("itot-count", "records", frames=2).collect()
    assert whole.dtype.names == ovexsdk.PIXEL_DTYPE.names and whole.ndim == 1
    assert whole["events"].min() >= 1


def test_collect_keeps_the_declared_dtype(board):
    whole = board.acquire("itot-count", "records", frames=1).collect()
    assert len(whole) > 0
    assert whole.dtype == ovexsdk.PIXEL_DTYPE and whole.dtype.itemsize == 24


@pytest.mark.parametrize("args, said", [
    (("nope", "records"), "unknown mode 'nope'; one of count8, count10"),
    (("data-driven", "nope"), "unknown process 'nope'; one of records, sorted"),
    (("data-driven", "records"), "takes seconds > 0, not None"),
    (("data-driven", "records", {"seconds": 0}), "takes seconds > 0, not 0"),
    (("data-driven", "records", {"seconds": float("nan")}), "takes seconds > 0, not nan"),
    (("data-driven", "records", {"seconds": 200}), "lasts at most 107.37 s"),
    (("data-driven", "records", {"seconds": 1, "frames": 2}), "frames=N goes with the frame"),
    (("data-driven", "records", {"seconds": 1, "lines": 2}), "go with the scans only"),
    (("data-driven", "records", {"seconds": 1, "buffer_mb": 0}), "buffer_mb is positive"),
    (("data-driven", "records", {"seconds": 1, "callback": 5}), "callback is a callable"),
    (("data-driven", "records", {"seconds": 1, "raw": "/nonexistent/raw.bin"}),
     "cannot create /nonexistent/raw.bin: No such file or directory"),
    (("data-driven", "count-image", {"seconds": 1, "bins": 4, "bin_width_ns": 10}),
     "takes lines, bins and bin_width_ns, each a whole number above 0"),
    (("data-driven", "bins", {"seconds": 1, "lines": 0, "bins": 4, "bin_width_ns": 10}),
     "each a whole number above 0"),
    (("data-driven", "bins", {"seconds": 1, "lines": 2, "bins": 4, "bin_width_ns": 1.5}),
     "each a whole number above 0"),
    (("data-driven", "itot-image", {"seconds": 1, "lines": 2**32, "bins": 4, "bin_width_ns": 1}),
     "lines and bins are below 2\\*\\*32"),
    (("toa-tot", "sorted", {"frames": 1}), "mode 'toa-tot' gives frames: process 'records' only"),
    (("toa-tot", "records", {"seconds": 1}), "takes frames=N \\(N >= 1\\), not seconds"),
    (("itot-count", "records", {"frames": 0}), "takes frames=N"),
    (("toa-tot", "records", {"frames": 1, "shutter": 0}), "a shutter lasts more than 0"),
    (("toa-tot", "records", {"frames": 1, "shutter": 108}), "at most 107.37 s, not 108"),
])
def test_acquisitions_that_make_no_sense_are_refused(board, args, said):
    mode, process, kwargs = (*args, {})[:3]
    with pytest.raises(ovexsdk.InvalidArgumentError, match=said) as caught:
        board.acquire(mode, process, **kwargs)
    assert (caught.value.code, caught.value.function) == (-22, "acquire")


def test_one_acquisition_at_a_time(board):
    with board.acquire("data-driven", "records", seconds=30) as running:
        with pytest.raises(ovexsdk.BusyError) as caught:
            board.acquire("toa-tot", "records", frames=1)
        assert (caught.value.code, caught.value.code_name) == (-16, "OVEXSDK_ERR_BUSY")
        assert "an acquisition of this board is running" in str(caught.value)
    assert running.blocks == 0
    assert list(running) == []  # closed: nothing more comes
    running.close()
    assert len(board.acquire("data-driven", "records", seconds=SECONDS).collect()) > 0


def test_blocks_reach_a_callback_on_the_calling_thread(board):
    seen = []
    caller = threading.get_ident()

    def take(block):
        assert threading.get_ident() == caller
        seen.append(block)

    acquisition = board.acquire("toa-tot", "records", frames=3, callback=take)
    assert len(seen) == acquisition.blocks == 3
    assert acquisition.records == sum(map(len, seen))
    assert list(acquisition) == []


def test_a_failing_callback_ends_the_acquisition(board):
    taken = []

    def fail(block):
        taken.append(block)
        raise ValueError("not this block")

    with pytest.raises(ValueError, match="not this block"):
        board.acquire("data-driven", "records", seconds=30, callback=fail)
    assert len(taken) == 1
    # ended and gone: the next one starts at once
    assert len(board.acquire("data-driven", "sorted", seconds=SECONDS).collect()) > 0


def test_ctrl_c_in_the_callback(board):
    def interrupt(block):
        signal.raise_signal(signal.SIGINT)

    with pytest.raises(KeyboardInterrupt):
        board.acquire("data-driven", "records", seconds=30, callback=interrupt)
    assert len(board.acquire("data-driven", "records", seconds=SECONDS).collect()) > 0


def test_ctrl_c_while_waiting_for_a_block(board):
    main = threading.get_ident()
    interrupted = threading.Event()

    def press_ctrl_c():
        # once the main thread waits in the acquisition's next block
        while not interrupted.is_set():
            frame = sys._current_frames().get(main)
            if frame is not None and frame.f_code.co_name == "__next__":
                os.kill(os.getpid(), signal.SIGINT)
                interrupted.set()
            else:
                interrupted.wait(0.005)

    # a minute's shutter: the thread waits for the blocks of a thin beam most of the time
    acquisition = board.acquire("data-driven", "records", seconds=60)
    presser = threading.Thread(target=press_ctrl_c)
    presser.start()
    try:
        with pytest.raises(KeyboardInterrupt):
            for _ in acquisition:
                pass
    finally:
        interrupted.set()
        presser.join()
    assert repr(acquisition).startswith("<Acquisition data-driven/records ended")
    assert len(board.acquire("data-driven", "records", seconds=SECONDS).collect()) > 0


def test_ctrl_c_in_the_loop_body(board):
    with pytest.raises(KeyboardInterrupt):
        for _ in board.acquire("data-driven", "records", seconds=30):
            os.kill(os.getpid(), signal.SIGINT)
    # the loop's acquisition went with the loop
    assert len(board.acquire("data-driven", "records", seconds=SECONDS).collect()) > 0


def test_closing_the_board_ends_its_acquisition():
    with ovexsdk.Board(1) as other:
        acquisition = configured(other, TPX3_CONFIG).acquire("data-driven", "records",
                                                             seconds=30)
    assert list(acquisition) == [] and acquisition.raw_bytes == 0
    with ovexsdk.Board(1) as other:
        assert len(other.acquire("toa-tot", "records", frames=1).collect()) > 0


def test_a_masked_pixel_stays_masked_until_the_chip_is_configured_again(board):
    chip = board.chip
    left = np.zeros((256, 256), bool)
    left[:, :128] = True
    try:
        chip.mask = left
        hits = board.acquire("data-driven", "records", seconds=SECONDS).collect()
        assert len(hits) > 1000 and hits["x"].min() >= 128
        frame = board.acquire("itot-count", "records", frames=1).collect()
        assert len(frame) > 0 and frame["x"].min() >= 128
        chip.mask = np.zeros((256, 256), bool)
        hits = board.acquire("data-driven", "records", seconds=SECONDS).collect()
        assert len(hits) > 1000 and hits["x"].min() >= 128
    finally:
        chip.configure(TPX3_CONFIG)
    hits = board.acquire("data-driven", "records", seconds=SECONDS).collect()
    assert np.count_nonzero(hits["x"] < 128) > 100


def test_two_boards_acquire_at_once(board):
    results: dict[int, object] = {}
    start = threading.Barrier(2)

    def run(where, index):
        try:
            if where is board:
                start.wait()
                results[index] = where.acquire("data-driven", "sorted", seconds=SECONDS).collect()
                return
            with ovexsdk.Board(index) as other:
                configured(other, TPX3_CONFIG)
                start.wait()
                results[index] = other.acquire("data-driven", "sorted",
                                               seconds=SECONDS).collect()
        except BaseException as error:  # noqa: B036 - reported below
            start.abort()
            results[index] = error

    threads = [threading.Thread(target=run, args=(board, 0)),
               threading.Thread(target=run, args=(None, 1))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for hits in results.values():
        assert isinstance(hits, np.ndarray), hits
        assert len(hits) > 1000 and np.all(np.diff(hits["time"].astype(np.int64)) >= 0)
