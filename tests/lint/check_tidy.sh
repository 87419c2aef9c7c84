#!/usr/bin/env bash
# Fails when clang-tidy finds something in src/, bench/, simulator/ or tests/, each with its own .clang-tidy.
# Usage: check_tidy.sh BUILD, in the project's root; BUILD holds compile_commands.json and the generated sources.
set -euo pipefail
# shellcheck source=tests/lint/pinned.sh
source "$(dirname "${BASH_SOURCE[0]}")/pinned.sh"

tidy=$(pinned_tool clang-tidy) || tool_is_missing clang-tidy
# It has no version of its own to tell and comes with the clang-tidy of the same name.
runner=run-$tidy
command -v "$runner" >/dev/null || tool_is_missing clang-tidy

# Each source once, and without the headers that gcc has compiled beforehand, which clang cannot read.
commands=$(mktemp -d)
trap 'rm -rf "$commands"' EXIT
python3 - "$1" "$commands" <<'END'
import json, pathlib, re, sys
build, commands = map(pathlib.Path, sys.argv[1:])
once = {}
for entry in json.loads((build / "compile_commands.json").read_text()):
    entry["command"] = re.sub(r" -Winvalid-pch -include \S+/cmake_pch\.hxx", "", entry["command"])
    once.setdefault(entry["file"], entry)
(commands / "compile_commands.json").write_text(json.dumps(list(once.values())))
END

# The build is gcc's: what clang alone warns of in a strict one (-Werror) is nobody's concern here.
code=0
output=$("$runner" -clang-tidy-binary "$(command -v "$tidy")" -quiet -p "$commands" -j "${CAPSO_TIDY_JOBS:-2}" \
    -extra-arg=-Wno-error "^$PWD/(src|bench|simulator|tests)/.*\\.cpp$" 2>&1) || code=$?

# The size of a function is a warning, which does not make clang-tidy fail: the tables of Qt Test's _data() may be as
# long as they are.
while IFS= read -r line; do
    echo "$line"
    if [[ $line == *"[readability-function-size]"* && $line != *"_data' exceeds"* ]]; then
        code=1
    fi
done <<<"$output"
exit "$code"
