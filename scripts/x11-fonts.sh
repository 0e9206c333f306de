#!/usr/bin/env bash
# The console draws with core X fonts and asks for DejaVu Sans, which a stock
# X server does not list as a core font. This makes (once) a font directory
# with DejaVu Sans and its fonts.dir and fonts.scale, and prints its path.
#
#   scripts/x11-fonts.sh         print the directory, making it when missing
#   scripts/x11-fonts.sh --add   also add it to the font path of the X server
#                                on $DISPLAY, only when it is not there yet
#                                (the launcher step for a user's desktop)
#
# VELMO_X11_FONT_DIR names another place for the directory. Needs the Debian
# packages fonts-dejavu-core and xfonts-utils (and x11-xserver-utils for --add).
set -euo pipefail
dir="${VELMO_X11_FONT_DIR:-${XDG_CACHE_HOME:-${HOME:-/tmp}/.cache}/velmo-vpn-console/x11-fonts}"
source_dir=/usr/share/fonts/truetype/dejavu

make_dir() {
  [ -s "$dir/fonts.dir" ] && return 0
  if [ ! -e "$source_dir/DejaVuSans.ttf" ]; then
    echo "x11-fonts: DejaVu is not installed (Debian: fonts-dejavu-core); text falls back to \"fixed\"" >&2
    return 1
  fi
  if ! command -v mkfontscale >/dev/null || ! command -v mkfontdir >/dev/null; then
    echo "x11-fonts: mkfontscale and mkfontdir are missing (Debian: xfonts-utils)" >&2
    return 1
  fi
  mkdir -p "$(dirname "$dir")"
  # Built aside and moved into place, so parallel callers never see half a directory.
  local tmp
  tmp=$(mktemp -d "$dir.XXXXXX")
  for f in DejaVuSans.ttf DejaVuSans-Bold.ttf DejaVuSans-Oblique.ttf DejaVuSans-BoldOblique.ttf \
           DejaVuSansMono.ttf DejaVuSansMono-Bold.ttf; do
    if [ -e "$source_dir/$f" ]; then ln -s "$source_dir/$f" "$tmp/$f"; fi
  done
  mkfontscale "$tmp"
  mkfontdir "$tmp"
  chmod 755 "$tmp"
  if ! mv -T "$tmp" "$dir" 2>/dev/null; then
    rm -rf "$tmp"
    [ -s "$dir/fonts.dir" ] || { echo "x11-fonts: cannot create $dir" >&2; return 1; }
  fi
}

add_to_server() {
  [ -n "${DISPLAY:-}" ] || return 0
  if ! command -v xset >/dev/null; then
    echo "x11-fonts: xset is missing (Debian: x11-xserver-utils); the console's text falls back to \"fixed\"" >&2
    return 0
  fi
  if xset q 2>/dev/null | grep -qF "$dir"; then return 0; fi
  xset +fp "$dir" && xset fp rehash
}

make_dir
if [ "${1:-}" = "--add" ]; then add_to_server; fi
echo "$dir"
