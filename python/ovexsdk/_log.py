"""The library's log lines, passed to Python's logging under the logger ``ovexsdk``."""

from __future__ import annotations

import logging

from . import _core

logger = logging.getLogger("ovexsdk")
# A library leaves the choice of output to the program: without a handler of its own, lines
# reach only the handlers the program configures.
logger.addHandler(logging.NullHandler())


def _emit(level: int, text: str) -> None:
    if logger.isEnabledFor(level):
        logger.log(level, "%s", text)


def _install() -> None:
    _core.set_log_sink(_emit)
