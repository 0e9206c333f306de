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
if [ -z "${DISPLAY:-}" ] && command -v Xvfb >/dev/null; then
  source "$here/private-xvfb.sh"
  private_xvfb || exit 1
elif [ -n "${DISPLAY:-}" ]; then
  # A user's desktop: add the fonts only when the server lacks them.
  bash "$here/x11-fonts.sh" --add >/dev/null || true
fi
if [ -x "$build/tools/velmo-demo-agent" ]; then
  "$build/tools/velmo-demo-agent" &
  agent_pid=$!
fi
"$build/src/console/VelmoVpnConsole" "${@:2}"
