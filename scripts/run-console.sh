#!/usr/bin/env bash
# Starts the console the way a user's desktop would: with an X display (a
# private Xvfb when there is none) and the demo agent beside it when it is built.
set -euo pipefail
build="${1:-build}"
xvfb_pid=""
agent_pid=""
cleanup() {
  [ -n "$agent_pid" ] && kill "$agent_pid" 2>/dev/null || true
  [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null || true
}
trap cleanup EXIT
if [ -z "${DISPLAY:-}" ] && command -v Xvfb >/dev/null; then
  for n in $(seq 90 120); do
    if [ ! -e "/tmp/.X11-unix/X$n" ] && [ ! -e "/tmp/.X$n-lock" ]; then
      Xvfb ":$n" -screen 0 1600x1000x24 -nolisten tcp >/dev/null 2>&1 &
      xvfb_pid=$!
      export DISPLAY=":$n"
      sleep 1
      break
    fi
  done
fi
if [ -x "$build/tools/velmo-demo-agent" ]; then
  "$build/tools/velmo-demo-agent" &
  agent_pid=$!
fi
"$build/src/console/VelmoVpnConsole" "${@:2}"
