#!/usr/bin/env bash
# Fails, and names the places, when a source file is not formatted as .clang-format says.
# Usage: check_format.sh CLANG_FORMAT, in the project's root.
set -euo pipefail

find . -name build -prune -o \( -name '*.cpp' -o -name '*.h' \) -print0 |
    xargs -0 -r "$1" --dry-run --Werror
