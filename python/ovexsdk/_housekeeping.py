"""A board's monitors, bias supplies and temperature controllers."""

from __future__ import annotations

import numbers
from collections.abc import Iterator, Mapping
from typing import TYPE_CHECKING, Callable, NamedTuple, Optional, Union

from ._errors import NoDeviceError, invalid

if TYPE_CHECKING:
    from ._board import Board

Number = Union[int, float]


class MonitorInfo(NamedTuple):
    """What a monitor measures: its name, ``int`` or ``float`` values, and its range."""

    name: str
    type: type
    minimum: Number
    maximum: Number


class MonitorChange(NamedTuple):
    """One notification of the board's monitor stream.

    ``warning``, ``error`` and ``available`` are the board's flags for the value; ``timestamp``
    is the board's own clock.
    """

    name: str
    value: Number
    warning: bool
    error: bool
    available: bool
    timestamp: int


class Monitors(Mapping[str, Number]):
    """The board's monitors as a read-only mapping of name to the value read now.

    ``board.monitors["FPGA_TEMP"]`` reads one monitor from the board; ``dict(board.monitors)``
    reads them all. :meth:`info` tells a monitor's type and range.
    """

    def __init__(self, board: "Board") -> None:
        self._board = board
        self._infos = {name: MonitorInfo(name, int if kind == 1 else float, low, high)
                       for name, kind, low, high in board._ctx.monitors()}
        self._index = {name: index for index, name in enumerate(self._infos)}

    def __getitem__(self, name: str) -> Number:
        try:
            index = self._index[name]
        except KeyError:
            raise KeyError(f"the board has no monitor {name!r}") from None
        return self._board._ctx.monitor_value(index)

    def __iter__(self) -> Iterator[str]:
        return iter(self._infos)

    def __len__(self) -> int:
        return len(self._infos)

    def info(self, name: str) -> MonitorInfo:
        """The type and range of the monitor ``name``."""
        try:
            return self._infos[name]
        except KeyError:
            raise KeyError(f"the board has no monitor {name!r}") from None

    def __repr__(self) -> str:
        return f"<Monitors of {self._board!r}: {', '.join(self._infos)}>"


def forward_changes(callback: Optional[Callable[[MonitorChange], object]]
                    ) -> Optional[Callable[..., None]]:
    """The function that the compiled core calls with a change's fields."""
    if callback is None:
        return None

    def forward(*fields: object) -> None:
        callback(MonitorChange(*fields))  # type: ignore[arg-type]

    return forward


class Control:
    """One bias supply or temperature controller of a board.

    ``desired`` is the set point (assign to change it), ``actual`` what the board measures now;
    ``float(control)`` is ``actual``. Values outside ``minimum .. maximum`` are refused.
    """

    def __init__(self, board: "Board", family: str, index: int, minimum: float, maximum: float,
                 unit: str) -> None:
        self._board = board
        self._family = family
        self.index = index
        self.minimum = minimum
        self.maximum = maximum
        self.unit = unit

    @property
    def desired(self) -> float:
        """The set point."""
        return getattr(self._board._ctx, f"{self._family}_desired")(self.index)

    @desired.setter
    def desired(self, value: float) -> None:
        if not isinstance(value, numbers.Real) or not self.minimum <= value <= self.maximum:
            raise invalid(self._family, f"{self._family} {self.index} takes {self.minimum:g} .. "
                                        f"{self.maximum:g} {self.unit}, not {value!r}")
        getattr(self._board._ctx, f"set_{self._family}")(self.index, float(value))

    @property
    def actual(self) -> float:
        """The value the board measures now."""
        return getattr(self._board._ctx, f"{self._family}_actual")(self.index)

    def __float__(self) -> float:
        return self.actual

    def __repr__(self) -> str:
        return (f"<{self._family} {self.index}: {self.actual:g} {self.unit} "
                f"(set {self.desired:g}, {self.minimum:g} .. {self.maximum:g})>")


def bias_supplies(board: "Board") -> list[Control]:
    return [Control(board, "bias", index, low, high, "V")
            for index, (low, high) in enumerate(board._ctx.bias())]


def temperature_controllers(board: "Board") -> list[Control]:
    return [Control(board, "temperature", index, low, high, "°C" if unit == 1 else "%")
            for index, (low, high, unit) in enumerate(board._ctx.temperature())]


def first(controls: list[Control], what: str) -> Control:
    if not controls:
        raise NoDeviceError(-19, "ovexsdk", (), f"the board has no {what}")
    return controls[0]
