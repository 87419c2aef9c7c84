#!/usr/bin/env bash
# Draws the PNG files of the resource collection from their SVG sources, each in its natural size and,
# for screens of high density, two and three times as large. Qt picks NAME@2x.png by itself. Then the icons that desktops
# show for the program, in the sizes of the freedesktop icon theme, and of these the icons for Windows and macOS.
#
#   src/images/render.sh             (needs Debian's packages librsvg2-bin, icoutils and icnsutils)

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

for tool in rsvg-convert=librsvg2-bin icotool=icoutils png2icns=icnsutils; do
    if ! command -v "${tool%=*}" >/dev/null; then
        echo "render.sh: ${tool%=*} is missing; install the package ${tool#*=}" >&2
        exit 1
    fi
done

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

icons=../../packaging/linux/icons
for size in 16 22 24 32 48 64 128 256 512; do
    rsvg-convert --width "$size" --keep-aspect-ratio --output "$icons/$size.png" svg/appicon.svg
done

# Windows reads a PNG inside an icon from 256 pixels on.
icotool --create --output ../../packaging/windows/capso-config.ico "$icons"/{16,24,32,48,64,128}.png --raw="$icons/256.png"
png2icns ../../packaging/macos/capso-config.icns "$icons"/{16,32,48,128,256,512}.png >/dev/null
