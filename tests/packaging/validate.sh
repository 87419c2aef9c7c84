#!/usr/bin/env bash
# Has the system's own tools look at what desktops, software centres and udev read. Each version of them sees otherwise, so
# these are lints. Without the tool a person's test is skipped (ctest: SKIP_RETURN_CODE 77), never passed; in CI it fails,
# but for udev's, which the Debian that CI runs on does not have.
# Usage: validate.sh desktop|appstream|udev, in the project's root
set -euo pipefail

# need TOOL PACKAGE: ends the test where the tool is missing.
need() {
    if command -v "$1" >/dev/null; then
        return
    fi
    echo "There is no $1 (Debian's package $2)."
    if [ "${CI:-}" = true ]; then
        echo "In CI that is a failure."
        exit 1
    fi
    exit 77
}

code=0
case $1 in
    desktop)
        need desktop-file-validate desktop-file-utils
        problems=$(desktop-file-validate packaging/linux/capso-config.desktop 2>&1) || code=$?
        ;;
    appstream)
        need appstreamcli appstream
        output=$(appstreamcli validate --no-net --pedantic packaging/linux/org.capso.config.metainfo.xml 2>&1) || code=$?
        # It also prints what it only suggests, each on a line "P: ...". The project has no homepage, and the versions of
        # the tool agree on no element that tells the developer.
        findings=$(grep -E '^[EWIP]: ' <<<"$output" || [ "$code" -eq 0 ] || echo "$output")
        problems=$(grep -vE 'url-homepage-missing|developer-info-missing' <<<"$findings" || true)
        if [ -n "$findings" ]; then
            code=0 # that of the findings, which are judged here
        fi
        ;;
    udev)
        if ! udevadm verify --help >/dev/null 2>&1; then
            echo "This system has no 'udevadm verify', which came with udev 254 (Debian 13)."
            exit 77
        fi
        # Whether a group exists is not a matter of the rules.
        output=$(udevadm verify --resolve-names=never packaging/linux/70-capso-config.rules 2>&1) || code=$?
        problems=$([ "$code" -eq 0 ] || echo "$output") # it counts the files that are right as well
        ;;
    *)
        echo "validate.sh: there are desktop, appstream and udev" >&2
        exit 1
        ;;
esac
if [ "$code" -ne 0 ] || [ -n "$problems" ]; then
    echo "${problems:-The tool ended with exit code $code.}"
    exit 1
fi
