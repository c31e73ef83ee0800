"""A chip of a powered board: identity, mode, polarity, threshold, pixel mask, DACs."""

from __future__ import annotations

import numbers
import os
from collections.abc import Iterator, MutableMapping
from typing import TYPE_CHECKING, NamedTuple, Optional, Union

import numpy as np
import numpy.typing as npt

from ._errors import InvalidArgumentError, invalid

if TYPE_CHECKING:
    from ._board import Board

# The chip's operating modes, by the names the package uses, and the library's numbers.
CHIP_MODES = {
    "count8": 1, "count10": 2, "count14": 3, "itot10": 4, "itot14": 5,
    "data-driven": 6, "toa-tot": 7, "itot-count": 8,
}
_MODE_NAMES = {number: name for name, number in CHIP_MODES.items()}


class ThresholdRange(NamedTuple):
    """What a chip's threshold takes: keV through its calibration, or raw DAC counts."""

    kev_low: float
    kev_high: float
    raw_min: int
    raw_max: int
    calibrated: bool


class Chip:
    """One chip of a powered board (``board.chip`` is the first).

    Attributes:
        index: the chip's place on the board, from 0.
        id: its identity, such as ``"H05-W0318"``.
        width, height: its pixels in x and y.
        modes: the operating modes it supports, by name (see ``Board.acquire``).
        polarities: the charge polarities it supports, 1 and/or 2.
    """

    def __init__(self, board: "Board", index: int, info: dict) -> None:
        self._board = board
        self.index = index
        self.id: str = info["id"]
        self.width: int = info["width"]
        self.height: int = info["height"]
        self.modes: list[str] = [_MODE_NAMES[m] for m in info["modes"] if m in _MODE_NAMES]
        self.polarities: list[int] = list(info["polarities"])

    def __repr__(self) -> str:
        return f"<Chip {self.index} {self.id} {self.width}x{self.height}>"

    def _settings(self) -> dict:
        return self._board._ctx.chips()[self.index]

    @property
    def mode(self) -> Optional[str]:
        """The operating mode set on the board, by name; None before one is set."""
        return _MODE_NAMES.get(self._settings()["mode"])

    @property
    def polarity(self) -> int:
        """The polarity of the charge it collects, 1 or 2."""
        return self._settings()["polarity"]

    @polarity.setter
    def polarity(self, value: int) -> None:
        self._board._ctx.set_polarity(self.index, int(value))

    @property
    def threshold_kev(self) -> float:
        """The threshold in keV, through the chip's calibration (raw = keV without one)."""
        return self._board._ctx.get_threshold(self.index)

    @threshold_kev.setter
    def threshold_kev(self, kev: float) -> None:
        self._board._ctx.set_threshold(self.index, float(kev))

    @property
    def threshold_raw(self) -> int:
        """The threshold as the chip's coarse and fine threshold DACs count it."""
        return self._board._ctx.get_raw_threshold(self.index)

    @threshold_raw.setter
    def threshold_raw(self, raw: int) -> None:
        if not isinstance(raw, numbers.Integral) or not 0 <= raw < 2**32:
            raise invalid("threshold_raw", f"a raw threshold is a whole number from 0, not {raw!r}")
        self._board._ctx.set_raw_threshold(self.index, int(raw))

    @property
    def threshold_range(self) -> ThresholdRange:
        """What :attr:`threshold_kev` and :attr:`threshold_raw` take."""
        return ThresholdRange(*self._board._ctx.threshold_range(self.index))

    @property
    def mask(self) -> npt.NDArray[np.uint8]:
        """The user pixel mask, ``(height, width)`` of ``uint8``, nonzero masked; zeros before
        one is set. Assign an array of that shape (bool or integers) to mask pixels: a pixel
        masked once stays masked until the chip is configured again."""
        return self._board._ctx.get_mask(self.index, self.height, self.width)

    @mask.setter
    def mask(self, mask: npt.ArrayLike) -> None:
        array = np.asarray(mask)
        if array.shape != (self.height, self.width):
            raise invalid("mask", f"the mask is {self.height} x {self.width}, "
                                  f"not {' x '.join(map(str, array.shape)) or 'a scalar'}")
        self._board._ctx.set_mask(self.index, (array != 0).astype(np.uint8))

    def configure(self, path: Union[str, os.PathLike, None] = None) -> None:
        """Resets and configures the chip: from the configuration file at ``path`` (YAML or
        XML), or without one from ``"<chip id>.yaml"``, ``.yml`` or ``.xml`` in the working
        directory when there is such a file, else with the chip's defaults."""
        if path is None:
            self._board._ctx.configure(self.index)
            return
        with open(path, encoding="utf-8") as file:
            text = file.read()
        self._board._ctx.configure_from_string(self.index, text)

    @property
    def dacs(self) -> "Dacs":
        """The chip's DACs as a mutable mapping of name (such as ``"Ikrum"``) to value."""
        return Dacs(self)


# The board keeps each DAC of a chip as a state "DAC_<name>" (Timepix2) or "DAC_<name>_<chip>"
# (Timepix3): the scripts below read and write them through the board's item table.
_LIST_DACS = """
local states = Usb.VendorCmd.States.new(device)
local out = ''
for _, state in ipairs(states:names()) do
  if string.sub(state, 1, 4) == 'DAC_' then
    local value = states:get_value(state)
    local range = Usb.VendorCmd.StateRange.new(0, 0)
    local failed = states:get_limits(state, range)
    if type(value) == 'number' and failed:value() == 0 then
      out = out .. state .. '=' .. value .. ':' .. range.min .. ':' .. range.max .. ' '
    end
  end
end
reply(out)
"""

_SET_DAC = """
local states = Usb.VendorCmd.States.new(device)
local failed = states:set_value('{state}', {value})
reply(failed:value() == 0 and 'ok' or tostring(failed))
"""


class DacInfo(NamedTuple):
    """A DAC: its name, its board state, and the values it takes."""

    name: str
    state: str
    minimum: int
    maximum: int


class Dacs(MutableMapping[str, int]):
    """The DACs of a chip: ``chip.dacs["Ikrum"]`` reads one from the board, assigning sets it;
    ``dict(chip.dacs)`` reads them all. DACs can't be added or removed."""

    def __init__(self, chip: Chip) -> None:
        self._chip = chip

    def _table(self) -> dict[str, tuple[DacInfo, int]]:
        suffix = f"_{self._chip.index}"
        table = {}
        for entry in self._chip._board._ctx.script_reply(_LIST_DACS).split():
            state, _, numbers = entry.partition("=")
            value, low, high = (int(n) for n in numbers.split(":"))
            name = state[len("DAC_"):]
            if name.endswith(suffix):
                name = name[: -len(suffix)]
            table[name] = (DacInfo(name, state, low, high), value)
        return table

    def _entry(self, name: str) -> tuple[DacInfo, int]:
        try:
            return self._table()[name]
        except KeyError:
            raise KeyError(f"chip {self._chip.id} has no DAC {name!r}") from None

    def info(self, name: str) -> DacInfo:
        """The range of the DAC ``name``."""
        return self._entry(name)[0]

    def __getitem__(self, name: str) -> int:
        return self._entry(name)[1]

    def __setitem__(self, name: str, value: int) -> None:
        info = self.info(name)
        if not isinstance(value, numbers.Integral) or not info.minimum <= value <= info.maximum:
            raise invalid("dacs", f"DAC {name} takes a whole number from {info.minimum} to "
                                  f"{info.maximum}, not {value!r}")
        reply = self._chip._board._ctx.script_reply(
            _SET_DAC.format(state=info.state, value=int(value)))
        if reply != "ok":
            raise InvalidArgumentError(-22, "dacs", (), f"the board refused DAC {name}: {reply}")

    def __delitem__(self, name: str) -> None:
        raise TypeError("a chip's DACs can't be removed")

    def __iter__(self) -> Iterator[str]:
        return iter(self._table())

    def __len__(self) -> int:
        return len(self._table())

    def items(self):  # type: ignore[override]
        """Every DAC with its value, read in one pass."""
        return {name: value for name, (_, value) in self._table().items()}.items()

    def __repr__(self) -> str:
        return f"<Dacs of {self._chip!r}: {dict(self.items())}>"
