#!/usr/bin/env bash
# Draws launcher.ico: make_icon.sh [PREVIEW_FOLDER], which then gets a PNG of every size.
# Needs ImageMagick and icotool (Debian packages imagemagick and icoutils). The letter stands on a grid of 16 units, so
# that its edges are sharp at 16 pixels and its multiples.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

sizes=(16 20 24 32 40 48 64 256)
canvas=2048
unit=$((canvas / 16))

at() { awk -v unit="$unit" -v list="$*" 'BEGIN { n = split(list, p, " "); for (i = 1; i <= n; i++) { split(p[i], c, ","); printf "%s%d,%d", (i > 1 ? " " : ""), c[1] * unit, c[2] * unit } }'; }

draw() {  # draw FILE CORNER_RADIUS: the whole picture at canvas size
  local file=$1 radius
  radius=$(awk -v r="$2" -v u="$unit" 'BEGIN { print r * u }')
  local last=$((canvas - 1))
  convert -size ${canvas}x${canvas} gradient:'#33439c-#121735' \
    \( -size ${canvas}x${canvas} xc:black -fill white -draw "roundrectangle 0,0 $last,$last $radius,$radius" \) \
    -alpha off -compose CopyOpacity -composite -depth 8 "$work/plate.png"
  # A glow behind the arms of the K, clipped to the plate.
  convert -size ${canvas}x${canvas} radial-gradient:'#5f7bff90-#5f7bff00' -depth 8 "$work/glow.png"
  convert "$work/plate.png" "$work/glow.png" -compose Atop -composite "$work/lit.png"
  # The arms: a warm gradient cut out by their outline.
  convert -size ${canvas}x${canvas} gradient:'#ffc24a-#ff6a3d' \
    \( -size ${canvas}x${canvas} xc:black -fill white \
       -draw "polygon $(at 6.7,8 9.9,3 13.4,3 10.2,8)" -draw "polygon $(at 6.7,8 10.2,8 13.4,13 9.9,13)" \) \
    -alpha off -compose CopyOpacity -composite "$work/arms.png"
  convert -size ${canvas}x${canvas} xc:none -fill '#f4f6ff' -draw "rectangle $(at 3,3) $(at 6,13)" "$work/stem.png"
  convert "$work/lit.png" "$work/arms.png" -compose Over -composite "$work/stem.png" -compose Over -composite "$file"
}

draw "$work/large.png" 3.2
draw "$work/small.png" 2.2

raw=()
plain=()
for size in "${sizes[@]}"; do
  source=large
  [ "$size" -lt 32 ] && source=small
  convert "$work/$source.png" -filter Box -resize "${size}x${size}" -strip \
    -define png:compression-level=9 -define png:exclude-chunks=all "PNG32:$work/$size.png"
  # 64 and 256 pixels stay PNG inside the .ico; the small ones are plain bitmaps, which every reader takes.
  if [ "$size" -ge 64 ]; then raw+=(--raw="$work/$size.png"); else plain+=("$work/$size.png"); fi
done
icotool --create --output=launcher.ico "${plain[@]}" "${raw[@]}"
if [ $# -gt 0 ]; then
  mkdir -p "$1"
  for size in "${sizes[@]}"; do cp "$work/$size.png" "$1/icon_$size.png"; done
fi
