"""The exceptions of ovexsdk: every failure of the library is an :class:`Error`."""

from __future__ import annotations

import re
from collections.abc import Sequence
from typing import Optional

_CODE_NAMES = {
    -12: "OVEXSDK_ERR_NO_MEMORY",
    -14: "OVEXSDK_ERR_FAILED",
    -16: "OVEXSDK_ERR_BUSY",
    -19: "OVEXSDK_ERR_NO_DEVICE",
    -22: "OVEXSDK_ERR_INVALID",
    -5001: "OVEXSDK_ERR_UNAVAILABLE",
}

# The library's words for a wait that ran out.
_TIMED_OUT = re.compile(r"timed out|time-?out", re.IGNORECASE)


class Error(Exception):
    """A call of the library failed.

    Attributes:
        code: the library's result code (negative), such as -19.
        code_name: its name, such as ``"OVEXSDK_ERR_NO_DEVICE"``.
        function: the library function or the package's step that failed.
        log_lines: the warning and error lines the library logged for it, in order.
        log_line: the last of them, None when it logged none.
        detail: what the package adds, if anything.
    """

    def __init__(self, code: int, function: str, log_lines: Sequence[str] = (),
                 detail: str = "") -> None:
        self.code = code
        self.code_name = _CODE_NAMES.get(code, str(code))
        self.function = function
        self.log_lines = list(log_lines)
        self.log_line: Optional[str] = self.log_lines[-1] if self.log_lines else None
        self.detail = detail
        text = f"{function} failed: {self.code_name} ({code})"
        said = [part for part in [detail, *self.log_lines] if part]
        super().__init__(f"{text}: {'; '.join(p.rstrip('.') for p in said)}" if said else text)


class NoDeviceError(Error, LookupError):
    """No board where the locator points, or the board is not open."""


class BusyError(Error):
    """The board is already so (open, powered, acquiring), or busy with another call."""


class InvalidArgumentError(Error, ValueError):
    """An argument the library or the package refuses."""


class TimedOutError(Error, TimeoutError):
    """A wait ran out: the board did not answer, or an acquisition's data did not come."""


_BY_CODE = {-16: BusyError, -19: NoDeviceError, -22: InvalidArgumentError}


def _from_call(code: int, function: str, log_lines: Sequence[str], detail: str,
               timed_out: bool) -> Error:
    """The exception for a failed call, as the compiled core reports it."""
    if timed_out or any(_TIMED_OUT.search(line) for line in log_lines):
        return TimedOutError(code, function, log_lines, detail)
    return _BY_CODE.get(code, Error)(code, function, log_lines, detail)


def invalid(function: str, detail: str) -> InvalidArgumentError:
    """The exception for an argument the package refuses before calling the library."""
    return InvalidArgumentError(-22, function, (), detail)
