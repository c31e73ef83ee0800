"""Boards: finding them, and one open board with its power, chips, housekeeping and data."""

from __future__ import annotations

import os
import weakref
from typing import Callable, NamedTuple, Optional, Union

from . import _core
from ._acquire import PROCESSING, Acquisition, Block, plan_for, run_with_callback
from ._chip import CHIP_MODES, Chip
from ._errors import BusyError, Error, NoDeviceError, invalid
from ._housekeeping import (Control, MonitorChange, Monitors, bias_supplies, first,
                            forward_changes, temperature_controllers)


class BoardInfo(NamedTuple):
    """A board's identity: serial number, USB product text, the locator that opens it
    (``"usb:sn:<serial>"``) and its USB path."""

    serial: str
    product: str
    locator: str
    usb_path: str


class PowerUnit(NamedTuple):
    """A power unit of a board: its index, name (such as ``"backend"``) and state."""

    index: int
    name: str
    powered: bool


def list_boards() -> list[BoardInfo]:
    """The boards attached to this computer, in the order that index locators count them."""
    return [BoardInfo(*identity) for identity in _core.list_boards()]


def _locator(where: Union[str, int, BoardInfo]) -> str:
    if isinstance(where, BoardInfo):
        return where.locator
    if isinstance(where, bool) or not isinstance(where, (str, int)):
        raise invalid("Board", f"a board is named by a locator, serial number or index, "
                               f"not {where!r}")
    if isinstance(where, int):
        if not 0 <= where <= 99:
            raise invalid("Board", f"a board index is 0 to 99, not {where}")
        return f"usb:ix:{where}"
    return where if where.startswith("usb:") else f"usb:sn:{where}"


# Every open board, so that the interpreter's exit closes them before the library goes.
_open_boards: "weakref.WeakSet[Board]" = weakref.WeakSet()


class Board:
    """One board, opened at construction and closed by :meth:`close` or at the end of a
    ``with`` block::

        with ovexsdk.Board("usb:sn:OVX00001") as board:
            board.power_up()

    ``where`` is a locator (``"usb:sn:OVX00001"``, ``"usb:ix:0"``), a serial number, an index
    into :func:`list_boards`, or one of its entries. Closing leaves the board's power as it is.
    Calls on one board are to be made from one thread at a time.
    """

    def __init__(self, where: Union[str, int, BoardInfo] = 0) -> None:
        self._context: Optional[_core.Context] = None
        self._acquisition: Optional["weakref.ref[Acquisition]"] = None
        self._monitors: Optional[Monitors] = None
        self._monitor_callback: Optional[Callable[[MonitorChange], object]] = None
        self.locator = _locator(where)
        context = _core.Context(self.locator)
        try:
            context.open()
        except BaseException:
            context.release()
            raise
        self._context = context
        _open_boards.add(self)

    def __enter__(self) -> "Board":
        return self

    def __exit__(self, *exc: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_context", None) is not None:
            self.close()

    def __repr__(self) -> str:
        return f"<Board {self.locator} {'open' if self._context else 'closed'}>"

    @property
    def closed(self) -> bool:
        """True once :meth:`close` has run."""
        return self._context is None

    def close(self) -> None:
        """Ends a running acquisition, closes the board and releases its context. Safe more
        than once."""
        context, self._context = self._context, None
        if context is None:
            return
        _open_boards.discard(self)
        self._stop_acquisition()
        try:
            context.close()
        finally:
            context.release()

    @property
    def _ctx(self) -> _core.Context:
        if self._context is None:
            raise NoDeviceError(-19, "ovexsdk", (), f"the board {self.locator} is closed")
        return self._context

    # ---- identity and power ----------------------------------------------------------------

    @property
    def info(self) -> BoardInfo:
        """The board's identity, read from its USB descriptors."""
        return BoardInfo(*self._ctx.info())

    @property
    def units(self) -> list[PowerUnit]:
        """The board's power units with their state (unit 0 the backend, 1 the frontend)."""
        return [PowerUnit(*unit) for unit in self._ctx.units()]

    @property
    def powered(self) -> bool:
        """True when every power unit is up."""
        return self._ctx.is_powered()

    def _unit(self, unit: Union[int, str]) -> int:
        units = self.units
        for candidate in units:
            if unit == candidate.index or (isinstance(unit, str)
                                           and unit.lower() == candidate.name.lower()):
                return candidate.index
        names = ", ".join(f"{u.index} {u.name}" for u in units)
        raise invalid("power", f"no power unit {unit!r}; the board has {names}")

    def power_up(self, unit: Union[int, str, None] = None) -> None:
        """Powers the board up, or one unit (index or name); nothing to do when already up."""
        if unit is None:
            units = self.units
            if not any(u.powered for u in units):
                self._ctx.power_up()
            else:
                for down in (u for u in units if not u.powered):
                    self._ctx.power_up_unit(down.index)
        else:
            index = self._unit(unit)
            if not self.units[index].powered:
                self._ctx.power_up_unit(index)
        self._monitors = None
        self._attach_monitor_callback()

    def power_down(self, unit: Union[int, str, None] = None) -> None:
        """Powers the board down, or one unit (index or name); nothing to do when already
        down."""
        self._stop_acquisition()
        if unit is None:
            if any(u.powered for u in self.units):
                self._ctx.power_down()
        else:
            index = self._unit(unit)
            if self.units[index].powered:
                self._ctx.power_down_unit(index)
        self._monitors = None

    # ---- chips -----------------------------------------------------------------------------

    @property
    def chips(self) -> list[Chip]:
        """The board's chips; none before the frontend is powered up."""
        return [Chip(self, index, info) for index, info in enumerate(self._ctx.chips())]

    @property
    def chip(self) -> Chip:
        """The board's first chip."""
        chips = self.chips
        if not chips:
            raise NoDeviceError(-19, "ovexsdk", (),
                                "the board has no chip yet: power its frontend up first")
        return chips[0]

    # ---- housekeeping ----------------------------------------------------------------------

    @property
    def monitors(self) -> Monitors:
        """The board's monitors: a mapping of name to the value read now."""
        if self._monitors is None:
            self._monitors = Monitors(self)
        return self._monitors

    def on_monitor_change(self, callback: Optional[Callable[[MonitorChange], object]]) -> None:
        """Calls ``callback(change)`` for every notification of the board's monitor stream, on
        the library's threads, several at a time; None stops it. The callback must not close
        the board; an exception it raises goes to ``sys.unraisablehook``."""
        self._ctx.set_monitor_callback(forward_changes(callback))
        self._monitor_callback = callback

    def _attach_monitor_callback(self) -> None:
        # The monitors a power-up adds need the forwarding too.
        if self._monitor_callback is not None:
            self._ctx.set_monitor_callback(forward_changes(self._monitor_callback))

    @property
    def bias_supplies(self) -> list[Control]:
        """The sensor's bias supplies, volts."""
        return bias_supplies(self)

    @property
    def bias(self) -> Control:
        """The first bias supply; ``board.bias = -100`` sets its voltage."""
        return first(self.bias_supplies, "bias supply")

    @bias.setter
    def bias(self, volts: float) -> None:
        self.bias.desired = volts

    @property
    def temperature_controllers(self) -> list[Control]:
        """The board's temperature controllers (degrees Celsius, or percent of drive)."""
        return temperature_controllers(self)

    @property
    def temperature(self) -> Control:
        """The first temperature controller; ``board.temperature = 25`` sets its target."""
        return first(self.temperature_controllers, "temperature controller")

    @temperature.setter
    def temperature(self, value: float) -> None:
        self.temperature.desired = value

    def script(self, text: str) -> None:
        """Runs Lua text in the board's interpreter, where the board is the global
        ``device``; its globals stay for the next script."""
        if not text:
            raise invalid("script", "the script is empty")
        self._ctx.script(text)

    # ---- acquisition -----------------------------------------------------------------------

    def acquire(self, mode: str = "data-driven", process: str = "records", *,
                seconds: Optional[float] = None, frames: Optional[int] = None,
                shutter: float = 0.01, lines: Optional[int] = None, bins: Optional[int] = None,
                bin_width_ns: Optional[int] = None, raw: Union[str, os.PathLike, None] = None,
                callback: Optional[Callable[[Block], object]] = None,
                buffer_mb: float = 256) -> Acquisition:
        """Starts an acquisition and answers it, running: iterate it for its blocks, or call
        its ``collect()``. With ``callback`` the call itself runs the acquisition to its end,
        handing each block to ``callback`` on this thread, and answers it ended.

        Modes and what each block is:

        - ``"data-driven"`` for ``seconds``, one shutter: ``process="records"`` (the hits of
          each block the board sends) or ``"sorted"`` (by time), arrays of ``HIT_DTYPE``;
        - ``"data-driven"`` scans, a line opened by each pulse on the trigger input:
          ``process="count-image"`` or ``"itot-image"`` give ``(lines, bins)`` arrays of
          ``uint64`` as lines end, ``"bins"`` :class:`ScanBins`; they take ``lines``, ``bins``
          and ``bin_width_ns``, and ``seconds``, the longest wait for the lines
          (:class:`TimedOutError` when they don't all come);
        - ``"toa-tot"`` (``HIT_DTYPE``) and ``"itot-count"`` (``PIXEL_DTYPE``): ``frames``
          shutters of ``shutter`` seconds, a block each;
        - Timepix2 ``"count8"``, ``"count10"``, ``"count14"``, ``"itot10"``, ``"itot14"``:
          ``frames`` frames, each a ``(height, width)`` array of ``uint16``.

        ``raw`` names a file for the bytes the board sends, as they come. The chip must be
        powered and configured; the acquisition sets the chip's mode and the trigger.
        """
        if not callable(callback) and callback is not None:
            raise invalid("acquire", "callback is a callable or None")
        running = self._acquisition() if self._acquisition is not None else None
        if running is not None:
            raise BusyError(-16, "acquire", (),
                            "an acquisition of this board is running: close it first")
        plan, trigger_mode, shutter_seconds = plan_for(
            self, mode, process, seconds, frames, shutter, lines, bins, bin_width_ns, raw,
            buffer_mb)
        context = self._ctx
        context.set_mode(CHIP_MODES[mode])
        context.trigger_configure(trigger_mode, shutter_seconds)
        context.select_processing(PROCESSING[process])
        acquisition = Acquisition(self, mode, process, plan)
        self._acquisition = weakref.ref(acquisition)
        if callback is not None:
            return run_with_callback(acquisition, callback)
        return acquisition

    def _acquisition_ended(self, acquisition: Acquisition) -> None:
        if self._acquisition is not None and self._acquisition() is acquisition:
            self._acquisition = None

    def _stop_acquisition(self) -> None:
        running = self._acquisition() if self._acquisition is not None else None
        if running is not None:
            running.close()


def close_all() -> None:
    """Closes every board still open; the package calls it at the interpreter's exit."""
    for board in list(_open_boards):
        try:
            board.close()
        except Error:
            pass
