#!/usr/bin/env bash
# Fails when clang-tidy finds something in the sources of src/.
# Usage: check_tidy.sh BUILD, in the project's root; BUILD holds compile_commands.json and the generated sources.
set -euo pipefail
# shellcheck source=tests/lint/pinned.sh
source "$(dirname "${BASH_SOURCE[0]}")/pinned.sh"

tidy=$(pinned_tool clang-tidy) || tool_is_missing clang-tidy
# It has no version of its own to tell and comes with the clang-tidy of the same name.
runner=run-$tidy
command -v "$runner" >/dev/null || tool_is_missing clang-tidy
"$runner" -clang-tidy-binary "$(command -v "$tidy")" -quiet -p "$1" -j 2 "^$PWD/src/.*\\.cpp$"
