"""The library's log lines, passed to Python's logging under the logger ``ovexsdk``."""

from __future__ import annotations

import logging

from . import _core

logger = logging.getLogger("ovexsdk")


def _emit(level: int, text: str) -> None:
    if logger.isEnabledFor(level):
        logger.log(level, "%s", text)


def _install() -> None:
    _core.set_log_sink(_emit)
