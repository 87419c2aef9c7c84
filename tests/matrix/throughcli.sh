#!/bin/sh
# throughcli.sh PROGRAM SIMULATOR PACKAGE RECOVERY BACK
#
# Updates the device "g" with PACKAGE through the command line's program, brings it BACK ("replug", "power-cycle"), and
# updates it with RECOVERY. Prints what the program said and what the device then held, one object a line. "op" is 1
# for the one update and 2 for the other.

program=$1 simulator=$2

update() {
    output=$("$program" update "$2" S1 --json)
    code=$?
    if [ -n "$output" ]; then
        printf '%s\n' "$output" | sed "s/^{/{\"op\":$1,/"
    fi
    echo "{\"op\":$1,\"event\":\"exit\",\"code\":$code}"
    echo "{\"op\":$1,\"event\":\"state\",\"state\":$(tell state g)}"
}

# The simulator's control socket is of this world, not of the simulated one.
tell() {
    env -u LD_PRELOAD "$simulator" --control "$CAPSO_SIM_DIR" "$@" | sed 's/^ok *//'
}

update 1 "$3"
tell clear-faults g
tell "$5" g
update 2 "$4"
