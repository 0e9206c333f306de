#!/usr/bin/env bash
# Starts the console the way a user's desktop would: with an X display (a
# private Xvfb when there is none) and the demo agent beside it when it is built.
# The console's text is drawn in DejaVu Sans, a core font only once its font
# directory (scripts/x11-fonts.sh) is on the X server's font path: on the
# private Xvfb's command line, or added to the user's server when missing.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
build="${1:-build}"
xvfb_pid=""
agent_pid=""
cleanup() {
  [ -n "$agent_pid" ] && kill "$agent_pid" 2>/dev/null || true
  [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null || true
}
trap cleanup EXIT
font_dir="$(bash "$here/x11-fonts.sh" || true)"
if [ -z "${DISPLAY:-}" ] && command -v Xvfb >/dev/null; then
  font_path="built-ins"
  [ -n "$font_dir" ] && font_path="$font_dir,built-ins"
  # -displayfd: Xvfb picks a free display and names it once it accepts clients.
  display_file="$(mktemp)"
  Xvfb -displayfd 3 -screen 0 1600x1000x24 -nolisten tcp -fp "$font_path" 3>"$display_file" >/dev/null 2>&1 &
  xvfb_pid=$!
  for _ in $(seq 1 100); do
    [ -s "$display_file" ] && break
    sleep 0.1
  done
  export DISPLAY=":$(head -n1 "$display_file")"
  rm -f "$display_file"
elif [ -n "${DISPLAY:-}" ] && [ -n "$font_dir" ]; then
  # A user's desktop: add the fonts only when the server lacks them.
  bash "$here/x11-fonts.sh" --add >/dev/null || true
fi
if [ -x "$build/tools/velmo-demo-agent" ]; then
  "$build/tools/velmo-demo-agent" &
  agent_pid=$!
fi
"$build/src/console/VelmoVpnConsole" "${@:2}"
