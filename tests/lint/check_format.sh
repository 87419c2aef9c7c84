#!/usr/bin/env bash
# Fails, and names the places, when a source file is not formatted as .clang-format says.
# Usage: check_format.sh, in the project's root.
set -euo pipefail
# shellcheck source=tests/lint/pinned.sh
source "$(dirname "${BASH_SOURCE[0]}")/pinned.sh"

format=$(pinned_tool clang-format) || tool_is_missing clang-format
find . -name build -prune -o \( -name '*.cpp' -o -name '*.h' \) -print0 |
    xargs -0 -r "$format" --dry-run --Werror
