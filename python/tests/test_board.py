"""A board without a beam: finding and opening boards, power, the chip's settings,
housekeeping, scripts, the log and the failures. Two Timepix3 boards that push their monitors
every 20 ms, no trigger pulses."""

from __future__ import annotations

import logging
import math
import sys
import threading

import numpy as np
import pytest

import ovexsdk
from conftest import TPX3_CONFIG, configured, notify, wait_for


def test_list_boards_names_each_board_by_its_serial():
    boards = ovexsdk.list_boards()
    assert sorted(b.serial for b in boards) == ["OVX00001", "OVX00002"]
    for info in boards:
        assert info.locator == f"usb:sn:{info.serial}"
        assert info.product == "OvexBoard Timepix3"
        assert info.usb_path
    assert ovexsdk.library_version() == tuple(int(n) for n in ovexsdk.__version__.split("."))


def test_board_opens_by_index_serial_locator_and_listing():
    listed = ovexsdk.list_boards()
    for index, info in enumerate(listed):
        for where in (index, f"usb:ix:{index}", info.serial, info.locator, info):
            with ovexsdk.Board(where) as board:
                assert board.info == info
                assert not board.closed
            assert board.closed


@pytest.mark.parametrize("where", [-1, 100, 1.5, True, None, b"OVX00001", "usb:", "usb:sn:ABC"])
def test_bad_locators_are_refused(where):
    with pytest.raises(ovexsdk.InvalidArgumentError) as caught:
        ovexsdk.Board(where)
    error = caught.value
    assert isinstance(error, ValueError)
    assert (error.code, error.code_name) == (-22, "OVEXSDK_ERR_INVALID")
    if isinstance(where, str):
        assert error.function == "ovexsdk_ctx_create"
        assert error.log_line == f"Device locator '{where}' is not valid."
    else:
        assert error.function == "Board" and error.log_lines == [] and error.log_line is None


@pytest.mark.parametrize("where", [5, "usb:ix:99", "OVX09999"])
def test_no_board_at_the_locator(where):
    with pytest.raises(ovexsdk.NoDeviceError) as caught:
        ovexsdk.Board(where)
    error = caught.value
    assert isinstance(error, LookupError)
    assert (error.code, error.code_name, error.function) == (
        -19, "OVEXSDK_ERR_NO_DEVICE", "ovexsdk_dev_open")
    assert error.log_line == "USB device unavailable."
    assert str(error).startswith("ovexsdk_dev_open failed: OVEXSDK_ERR_NO_DEVICE (-19): ")
    assert str(error).endswith("USB device unavailable")


def test_a_closed_board_refuses_every_call():
    board = ovexsdk.Board()
    board.close()
    board.close()
    assert repr(board) == "<Board usb:ix:0 closed>"
    calls = [lambda: board.info, lambda: board.units, board.power_up, board.power_down,
             lambda: board.chip, lambda: board.script("x = 1"),
             lambda: board.on_monitor_change(print),
             lambda: board.acquire("data-driven", "records", seconds=1)]
    for call in calls:
        with pytest.raises(ovexsdk.NoDeviceError, match="the board usb:ix:0 is closed"):
            call()


@pytest.mark.parametrize("call", ["monitors", "bias", "temperature", "kept chip"])
def test_a_closed_board_refuses_its_housekeeping_and_chip(call):
    board = configured(ovexsdk.Board(), TPX3_CONFIG)
    chip = board.chip
    board.close()
    with pytest.raises(ovexsdk.NoDeviceError, match="is closed"):
        if call == "kept chip":
            chip.threshold_raw
        else:
            getattr(board, call)


def test_power_units_in_order_by_index_or_name(board):
    board.power_down()
    assert board.units == [(0, "backend", False), (1, "frontend", False)]
    assert not board.powered and board.monitors["PG_FE_5V"] == 0.0

    with pytest.raises(ovexsdk.Error) as caught:
        board.power_up("frontend")  # its supply hangs on the backend
    error = caught.value
    assert type(error) is ovexsdk.Error
    assert (error.code, error.function) == (-14, "ovexsdk_dev_power_up_unit")
    assert error.log_line.startswith("Failed to power up unit: 1 ('frontend')")
    assert [u.powered for u in board.units] == [False, False]

    with pytest.raises(ovexsdk.InvalidArgumentError,
                       match="no power unit 'fe'; the board has 0 backend, 1 frontend"):
        board.power_up("fe")
    with pytest.raises(ovexsdk.InvalidArgumentError, match="no power unit 2"):
        board.power_down(2)

    board.power_up(0)
    assert [u.powered for u in board.units] == [True, False] and not board.powered
    board.power_up("FRONTEND")
    assert [u.powered for u in board.units] == [True, True] and board.powered
    assert board.monitors["PG_FE_5V"] == 1.0
    board.power_up()  # already up: nothing to do
    board.power_down("frontend")
    assert [u.powered for u in board.units] == [True, False]
    board.power_down()
    assert [u.powered for u in board.units] == [False, False]


def test_power_state_outlives_the_board_object():
    with ovexsdk.Board() as board:
        board.power_up()
    with ovexsdk.Board() as board:
        assert board.powered and len(board.chips) == 1


def test_chip_without_configuration_has_no_kev_threshold(board):
    board.power_up()
    chip = board.chip
    chip.configure()
    assert (chip.index, chip.id, chip.width, chip.height) == (0, "H05-W0318", 256, 256)
    assert chip.modes == ["data-driven", "toa-tot", "itot-count"]
    assert chip.polarities == [1, 2]
    assert chip.mode is None
    assert chip.threshold_range == (0.0, 0.0, 0, 2911, False)
    with pytest.raises(ovexsdk.Error) as caught:
        chip.threshold_kev = 5
    assert caught.value.code == -14
    assert caught.value.log_lines[0] == (
        "Input threshold: 5.000 keV is outside the valid range [0.000, 0.000] keV.")


def test_threshold_in_kev_and_raw(board):
    chip = configured(board, TPX3_CONFIG).chip
    low, high, raw_min, raw_max, calibrated = chip.threshold_range
    assert calibrated and low == 0.0 and 40 < high < 50 and (raw_min, raw_max) == (0, 2911)

    chip.threshold_kev = 10
    assert chip.threshold_kev == pytest.approx(10, abs=0.1)
    raw_at_10 = chip.threshold_raw
    chip.threshold_kev = 20
    assert chip.threshold_kev == pytest.approx(20, abs=0.1)
    assert raw_min <= chip.threshold_raw < raw_at_10 <= raw_max  # more keV, fewer counts

    chip.threshold_raw = 1500
    assert chip.threshold_raw == 1500
    for kev in (high + 1, -1.0, 1e9, math.nan):
        with pytest.raises(ovexsdk.Error, match="keV is outside the valid range") as caught:
            chip.threshold_kev = kev
        assert caught.value.code == -14
    with pytest.raises(ovexsdk.Error) as caught:
        chip.threshold_raw = raw_max + 1
    assert caught.value.log_lines[0] == (
        "Raw threshold input value: 2912 is outside the valid range [0, 2911].")
    with pytest.raises(ovexsdk.InvalidArgumentError, match="a raw threshold is a whole number from 0, not -1"):
        chip.threshold_raw = -1
    assert chip.threshold_raw == 1500  # every refusal left it


def test_a_raw_threshold_beyond_32_bits_is_out_of_range(board):
    chip = configured(board, TPX3_CONFIG).chip
    with pytest.raises(ovexsdk.Error):
        chip.threshold_raw = 2**32


def test_polarity(board):
    chip = configured(board, TPX3_CONFIG).chip
    chip.polarity = 2
    assert chip.polarity == 2
    with pytest.raises(ovexsdk.InvalidArgumentError) as caught:
        chip.polarity = 3
    assert caught.value.log_line == "Value '3' is not a valid Timepix polarity."
    chip.polarity = 1
    assert chip.polarity == 1


def test_pixel_mask(board):
    chip = configured(board, TPX3_CONFIG).chip
    mask = np.zeros((256, 256), np.int32)
    mask[3, 7] = 5
    mask[255, 0] = -1
    chip.mask = mask
    back = chip.mask
    assert back.dtype == np.uint8 and back.shape == (256, 256)
    assert np.argwhere(back).tolist() == [[3, 7], [255, 0]] and back.max() == 1
    chip.mask = np.zeros((256, 256), bool)
    assert not chip.mask.any()
    for shape, said in (((10, 10), "10 x 10"), ((), "a scalar"), ((256, 256, 1), "256 x 256 x 1"),
                        ((256 * 256,), "65536")):
        with pytest.raises(ovexsdk.InvalidArgumentError,
                           match=f"the mask is 256 x 256, not {said}$"):
            chip.mask = np.ones(shape, bool)


def test_dacs(board):
    dacs = configured(board, TPX3_CONFIG).chip.dacs
    assert len(dacs) == 18 and {"Ikrum", "THLFine", "THLCoarse", "Fbk"} <= set(dacs)
    assert dict(dacs) == {name: dacs[name] for name in dacs}
    assert dacs.info("Ikrum") == ("Ikrum", "DAC_Ikrum_0", 0, 255)
    dacs["Ikrum"] = 21
    assert dacs["Ikrum"] == 21
    dacs["Ikrum"] = 255
    assert dict(dacs.items())["Ikrum"] == 255
    with pytest.raises(ovexsdk.InvalidArgumentError, match=r"DAC Ikrum takes a whole number from 0 to 255, not 256"):
        dacs["Ikrum"] = 256
    with pytest.raises(ovexsdk.InvalidArgumentError, match="not -1"):
        dacs["Ikrum"] = -1
    assert dacs["Ikrum"] == 255
    with pytest.raises(KeyError, match="has no DAC 'Nope'"):
        dacs["Nope"]
    with pytest.raises(KeyError):
        dacs["Nope"] = 1
    with pytest.raises(TypeError):
        del dacs["Ikrum"]
    # the threshold is two of them
    board.chip.threshold_raw = 0
    zero = (dacs["THLCoarse"], dacs["THLFine"])
    board.chip.threshold_raw = 2911
    assert (dacs["THLCoarse"], dacs["THLFine"]) != zero


def test_configure_refuses_what_it_cannot_read(board, tmp_path):
    chip = configured(board, TPX3_CONFIG).chip
    with pytest.raises(FileNotFoundError):
        chip.configure(tmp_path / "missing.xml")
    bad = tmp_path / "bad.xml"
    bad.write_text("this is no configuration")
    with pytest.raises(ovexsdk.InvalidArgumentError) as caught:
        chip.configure(str(bad))
    assert caught.value.function == "ovexsdk_chip_configure_from_string"
    assert caught.value.log_line == "Provided configuration for chip H05-W0318 is not valid."


def test_monitors_mapping(board):
    monitors = board.monitors
    assert len(monitors) == 26 and len(list(monitors)) == 26
    assert {"FPGA_TEMP", "TSENS_TEMP", "U_BIAS", "PG_5V", "PG_FE_5V"} <= set(monitors)
    assert monitors.info("FPGA_TEMP") == ("FPGA_TEMP", float, -40.0, 125.0)
    assert monitors["PG_5V"] == 1.0  # always on
    values = dict(monitors)
    assert set(values) == set(monitors) and all(isinstance(v, float) for v in values.values())
    with pytest.raises(KeyError, match="no monitor 'NOPE'"):
        monitors["NOPE"]
    with pytest.raises(KeyError, match="no monitor 'NOPE'"):
        monitors.info("NOPE")


def test_bias_and_temperature_controls(board):
    assert len(board.bias_supplies) == 1 and len(board.temperature_controllers) == 1
    bias = board.bias
    assert (bias.minimum, bias.maximum, bias.unit) == (-300.0, 300.0, "V")
    board.bias = -50
    assert board.bias.desired == -50.0
    assert isinstance(float(board.bias), float)
    with pytest.raises(ovexsdk.InvalidArgumentError, match=r"bias 0 takes -300 \.\. 300 V, not 301"):
        board.bias = 301
    assert board.bias.desired == -50.0
    board.bias = 0

    temperature = board.temperature
    assert (temperature.minimum, temperature.maximum, temperature.unit) == (0.0, 60.0, "°C")
    board.temperature = 25
    assert board.temperature.desired == 25.0
    with pytest.raises(ovexsdk.InvalidArgumentError, match=r"temperature 0 takes 0 \.\. 60 °C"):
        board.temperature = -1
    assert board.temperature.desired == 25.0


def test_script_failures_carry_the_interpreters_words(board):
    board.script("ovexsdk_test_value = 6 * 7")
    with pytest.raises(ovexsdk.InvalidArgumentError) as caught:
        board.script("error('the value is ' .. ovexsdk_test_value)")  # globals stay
    error = caught.value
    assert (error.code, error.function) == (-22, "ovexsdk_script_execute")
    assert error.log_lines[0] == "Execution of script failed, stack trace as follows:"
    assert error.log_line.startswith('[string "error(\'the value is \' .. ovexsdk_test_value)"]'
                                     ":1: the value is 42\nstack traceback:")
    with pytest.raises(ovexsdk.InvalidArgumentError) as caught:
        board.script("this is not lua")
    # each failure brings its own lines, none of the one before
    assert caught.value.log_lines == [
        "Execution of script failed, stack trace as follows:",
        "[string \"this is not lua\"]:1: syntax error near 'is'"]
    with pytest.raises(ovexsdk.InvalidArgumentError, match="the script is empty"):
        board.script("")


def test_library_log_reaches_python_logging(board, caplog):
    caplog.set_level(logging.INFO, logger="ovexsdk")
    with pytest.raises(ovexsdk.Error):
        board.script("Log.info('first line of the test') Log.warn('second line') "
                     "error('third')")
    ours = [(r.levelno, r.getMessage()) for r in caplog.records if r.name == "ovexsdk"]
    marked = [entry for entry in ours
              if entry[1] in ("first line of the test", "second line")
              or entry[1].startswith("Execution of script failed")]
    assert marked == [(logging.INFO, "first line of the test"),
                      (logging.WARNING, "second line"),
                      (logging.ERROR, "Execution of script failed, stack trace as follows:")]
    caplog.clear()
    caplog.set_level(logging.ERROR, logger="ovexsdk")
    with pytest.raises(ovexsdk.Error) as caught:
        board.script("Log.warn('not for this level') error('only this')")
    assert caught.value.log_lines[0] == "not for this level"  # the exception has it all
    assert all(r.levelno >= logging.ERROR for r in caplog.records if r.name == "ovexsdk")


def test_monitor_changes_reach_the_callback_and_follow_power(board):
    board.power_down()
    changes: list[ovexsdk.MonitorChange] = []

    def on_change(change):
        changes.append(change)
        notify()

    def frontend_seen_up():
        return any(c.name == "PG_FE_5V" and c.value == 1.0 and c.available for c in changes)

    board.on_monitor_change(on_change)
    try:
        wait_for(lambda: len(changes) > 0, "a monitor change")
        board.power_up()  # the forwarding covers the monitors that the power-up brings
        wait_for(frontend_seen_up, "the frontend's power good in the monitor stream")
    finally:
        board.on_monitor_change(None)
    names = set(board.monitors)
    for change in list(changes):
        assert isinstance(change, ovexsdk.MonitorChange) and change.name in names
        assert isinstance(change.value, float) and change.timestamp >= 1
        assert not (change.available and change.error)
    pg_5v = [c for c in changes if c.name == "PG_5V"]
    assert pg_5v and all(c.value == 1.0 and c.available for c in pg_5v)
    stamps = [c.timestamp for c in changes if c.name == "FPGA_TEMP"]
    assert stamps == sorted(stamps)


def test_a_failing_monitor_callback_goes_to_the_unraisable_hook(board, monkeypatch):
    reported = []

    def hook(unraisable):
        reported.append(unraisable)
        notify()

    def failing(change):
        raise RuntimeError(f"cannot take {change.name}")

    monkeypatch.setattr(sys, "unraisablehook", hook)
    board.on_monitor_change(failing)
    try:
        wait_for(lambda: len(reported) > 0, "the callback's exception")
    finally:
        board.on_monitor_change(None)
    assert reported[0].exc_type is RuntimeError
    assert str(reported[0].exc_value).startswith("cannot take ")
    assert reported[0].object == "ovexsdk monitor callback"
    assert board.monitors["PG_5V"] == 1.0  # the board goes on


def test_acquisitions_that_cannot_start(board):
    board.power_down()
    with ovexsdk.Board() as unpowered:
        with pytest.raises(ovexsdk.InvalidArgumentError) as caught:
            unpowered.acquire("data-driven", "records", seconds=1)
        assert caught.value.function == "ovexsdk_chip_set_mode"
        assert caught.value.log_line == "Failed to set chip mode, chip module is missing."
        with pytest.raises(ovexsdk.NoDeviceError, match="power its frontend up first"):
            unpowered.acquire("toa-tot", "records", frames=1)

    configured(board, TPX3_CONFIG)
    with pytest.raises(ovexsdk.InvalidArgumentError) as caught:
        board.acquire("count10", "records", frames=1)  # a Timepix2 mode
    assert caught.value.log_lines[0] == "Unsupported operational mode: 2"


def test_a_scan_without_trigger_pulses_times_out(board):
    configured(board, TPX3_CONFIG)
    for process in ("count-image", "bins"):
        acquisition = board.acquire("data-driven", process, seconds=0.3, lines=2, bins=4,
                                    bin_width_ns=1000)
        with pytest.raises(ovexsdk.TimedOutError) as caught:
            acquisition.collect()
        error = caught.value
        assert isinstance(error, TimeoutError) and error.function == "acquire"
        assert str(error).endswith("0 of 2 scan lines came within 0.3 s")
        assert acquisition.blocks == 0
    # the board is free again
    with board.acquire("data-driven", "records", seconds=0.05) as acquisition:
        assert len(acquisition.collect()) == 0  # no beam on this bench


def test_two_threads_on_two_boards():
    """Each board's calls on a thread of its own; the library serves both at once."""
    results: dict[int, object] = {}

    def work(index):
        try:
            with ovexsdk.Board(index) as board:
                chip = configured(board, TPX3_CONFIG).chip
                for value in range(20):
                    chip.dacs["Ikrum"] = value + index
                    board.bias = -value - index
                    assert chip.dacs["Ikrum"] == value + index
                    assert board.bias.desired == -value - index
                results[index] = board.info.serial
        except BaseException as error:  # noqa: B036 - reported below
            results[index] = error

    threads = [threading.Thread(target=work, args=(i,)) for i in (0, 1)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert results == {i: info.serial for i, info in enumerate(ovexsdk.list_boards())}
