#!/usr/bin/env bash
# Draws the PNG files of the resource collection from their SVG sources, each in its natural size and,
# for screens of high density, two and three times as large. Qt picks NAME@2x.png by itself.
#
#   src/images/render.sh             (needs rsvg-convert, Debian package librsvg2-bin)

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

if ! command -v rsvg-convert >/dev/null; then
    echo "render.sh: rsvg-convert is missing; install the package librsvg2-bin" >&2
    exit 1
fi

# NAME WIDTH: the width in pixels on a screen of normal density
while read -r name width; do
    for factor in 1 2 3; do
        suffix=$([ "$factor" = 1 ] || echo "@${factor}x")
        rsvg-convert --width $((width * factor)) --keep-aspect-ratio \
            --output "$name$suffix.png" "svg/$name.svg"
    done
done <<'SIZES'
appicon 256
banner 500
reload 24
folder 32
SIZES
