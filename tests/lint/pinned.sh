# shellcheck shell=bash
# What the linters' tests share. Each version of clang-format and clang-tidy sees otherwise, so the tree is held to one of
# them. Where that one is missing, a person's test is skipped (ctest: SKIP_RETURN_CODE 77), never passed; in CI it fails.

pinned=14

# pinned_tool NAME: prints the name under which NAME of the pinned version is installed.
pinned_tool() {
    local candidate
    for candidate in "$1-$pinned" "$1"; do
        if [[ $("$candidate" --version 2>/dev/null) == *" version $pinned."* ]]; then
            echo "$candidate"
            return 0
        fi
    done
    return 1
}

# Ends a test for want of the tool with this name.
tool_is_missing() {
    echo "There is no $1 of version $pinned (Debian's package $1-$pinned)."
    if [ -n "${CI:-}" ]; then
        echo "In CI that is a failure."
        exit 1
    fi
    exit 77
}
