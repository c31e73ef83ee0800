#!/bin/sh
# Runs its arguments with the sanitizer runtime named by OVEX_PYTEST_PRELOAD, if any, in front of
# what LD_PRELOAD already holds (the virtual board's preload): the interpreter itself is not
# sanitized, so the runtime must come first.
if [ -n "${OVEX_PYTEST_PRELOAD:-}" ]; then
    LD_PRELOAD="$OVEX_PYTEST_PRELOAD${LD_PRELOAD:+:$LD_PRELOAD}"
    export LD_PRELOAD
fi
exec "$@"
