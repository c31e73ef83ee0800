#!/bin/sh
# Starts `ovex acquire` for a minute, sends it SIGINT once it says that it runs, and prints its
# exit code; its files stay in DIR for the checks.
# usage: acquire_interrupt.sh OVEX DIR
ovex=$1
dir=$2
rm -f "$dir/I.npy" "$dir/I.summary" "$dir/I.err"
"$ovex" acquire OVX00001 --mode data-driven --seconds 60 --records "$dir/I.npy" \
    >"$dir/I.summary" 2>"$dir/I.err" &
pid=$!
# Waits for the line, not for a time: the test's timeout bounds a run that never says it.
until grep -q "Ctrl-C ends it early" "$dir/I.err"; do
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
done
kill -INT "$pid"
wait "$pid"
echo "exit $?"
cat "$dir/I.err"
