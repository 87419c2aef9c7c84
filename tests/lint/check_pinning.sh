#!/usr/bin/env bash
# The linters' tests find the pinned version under either name, are skipped where there is only another one, and fail
# there in CI. Usage: check_pinning.sh
set -euo pipefail
folder=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# tool NAME VERSION: a tool that tells its version and finds nothing.
tool() {
    printf '#!/bin/sh\n[ "$1" != --version ] || echo "Debian tool version %s.0.6"\n' "$2" >"$work/bin/$1"
    chmod +x "$work/bin/$1"
}

# expect CODE CI WHAT COMMAND...
expect() {
    local expected=$1 ci=$2 what=$3 code=0
    shift 3
    (cd "$work/tree" && CI=$ci PATH=$work/bin "$@") >"$work/log" 2>&1 || code=$?
    if [ "$code" != "$expected" ]; then
        echo "$what, CI='$ci': the exit code is $code, not $expected"
        cat "$work/log"
        exit 1
    fi
}

check() {
    expect "$1" "$2" "$3: format" "$folder/check_format.sh"
    expect "$1" "$2" "$3: tidy" "$folder/check_tidy.sh" "$work/tree"
}

fresh() {
    rm -rf "$work/bin"
    mkdir -p "$work/bin" "$work/tree"
    ln -s "$(python3 -c 'import sys; print(sys.executable)')" "$work/bin/python3" # itself, not what may stand for it
    echo '[]' >"$work/tree/compile_commands.json"
    for needed in bash sh env dirname find xargs mktemp rm; do
        ln -s "$(command -v "$needed")" "$work/bin/$needed"
    done
}

fresh
check 77 "" "no tools"
check 1 true "no tools"

tool clang-format 19
tool clang-tidy 19
tool run-clang-tidy 19
check 77 "" "another version"
check 1 true "another version"

tool clang-format-14 14
tool clang-tidy-14 14
tool run-clang-tidy-14 14
check 0 "" "both versions"
check 0 true "both versions"

fresh
tool clang-format 14
tool clang-tidy 14
tool run-clang-tidy 14
check 0 true "the pinned version under its plain name"
