#!/usr/bin/env bash
# Screenshots of the console for the README: the loading and login windows of a
# signed-out start, the console window of a signed-in start, and the tray menu.
#
#   scripts/screenshots.sh [BUILD_DIR] [OUT_DIR]     (default: build docs/screenshots)
#   cmake --build build --target screenshots         (the same, after building what it needs)
#
# Everything runs on a private Xvfb with DejaVu as core fonts, under openbox
# and a trayer tray when the machine has them, in an IPC domain and XDG
# folders of its own: a console or agent the user runs is not disturbed, and
# nothing of the run stays behind (its shared objects are unlinked at the end).
# The demo agent stands in for the real one: started with an empty state
# folder it is signed out; with a remembered demo session it restores it and
# the console opens signed in. A shot that does not come within its time is
# reported and the others are still taken; the exit status is 1 then.
set -uo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
build="$(cd "${1:-build}" && pwd)"
out="${2:-$here/../docs/screenshots}"
mkdir -p "$out"
out="$(cd "$out" && pwd)"

shot="$build/tools/velmo-screenshot"
agent="$build/tools/velmo-demo-agent"
console="$build/src/console/VelmoVpnConsole"
for program in "$shot" "$agent" "$console"; do
  [ -x "$program" ] || { echo "screenshots: $program is not built" >&2; exit 2; }
done
command -v Xvfb >/dev/null || { echo "screenshots: Xvfb is missing (Debian: xvfb; run scripts/bootstrap.sh)" >&2; exit 2; }

work="$(mktemp -d /tmp/velmo-screenshots.XXXXXX)"
domain="velmo-screenshots-$$"
xvfb_pid="" helpers=() agent_pid="" console_pid=""

stop() {  # ends one process of ours and waits for it
  [ -n "$1" ] || return 0
  kill "$1" 2>/dev/null
  for _ in $(seq 1 50); do kill -0 "$1" 2>/dev/null || break; sleep 0.1; done
  kill -9 "$1" 2>/dev/null
  wait "$1" 2>/dev/null
}
cleanup() {
  stop "$console_pid"
  stop "$agent_pid"
  for p in "${helpers[@]}"; do stop "$p"; done
  stop "$xvfb_pid"
  "$shot" forget-domain "$domain"
  rm -rf "$work"
}
trap cleanup EXIT

source "$here/private-xvfb.sh"
private_xvfb || exit 1

if command -v openbox >/dev/null; then
  openbox >/dev/null 2>&1 &
  helpers+=($!)
  sleep 0.3
fi
# A plain desktop behind the windows (after the window manager, which paints the root black).
command -v xsetroot >/dev/null && xsetroot -solid "#3c4c55"
if command -v trayer >/dev/null; then
  trayer --edge top --align right --widthtype pixel --width 96 --height 32 --SetDockType true \
         --transparent true --alpha 0 --tint 0x1e2a31 >/dev/null 2>&1 &
  helpers+=($!)
fi
sleep 0.5

export VELMO_IPC_DOMAIN="$domain"
export XDG_STATE_HOME="$work/state" XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data"
export KY_CONFIG_ROOT="$work/systemConfig"
failed=()

start_pair() {  # agent state folder
  "$agent" --domain "$domain" --state-dir "$1" >"$work/agent.log" 2>&1 &
  agent_pid=$!
  (cd "$work" && exec "$console") >"$work/console.log" 2>&1 &
  console_pid=$!
}
stop_pair() {
  stop "$console_pid"; console_pid=""
  stop "$agent_pid"; agent_pid=""
}
take() {  # name, then velmo-screenshot's arguments
  local name=$1; shift
  if "$shot" "$@" -o "$out/$name.png"; then
    echo "screenshots: $out/$name.png"
  else
    failed+=("$name")
  fi
}

# Signed out: the loading window first, the login window once the console's
# first seconds are over.
mkdir -p "$work/signed-out"
start_pair "$work/signed-out"
take loading window --title "VELMO VPN" --width 340 --settle 700 --timeout 15
take login window --title "VELMO VPN" --width 440 --settle 1200 --timeout 20
stop_pair

# Signed in: the demo agent restores a remembered session of its demo account.
mkdir -p "$work/signed-in"
cat >"$work/signed-in/session.json" <<'JSON'
{"v": 1, "token": "screenshots", "email": "demo@velmo.net", "baseUrl": "https://workspace.velmo.net", "activeHotspotId": ""}
JSON
start_pair "$work/signed-in"
take console window --title "VELMO VPN Console" --width 1260 --settle 2500 --timeout 25
take tray-menu tray-menu --class VelmoVpnConsole --settle 800 --timeout 10
stop_pair

if [ ${#failed[@]} -gt 0 ]; then
  echo "screenshots: not taken: ${failed[*]} (console log: kept below)" >&2
  tail -n 20 "$work/console.log" >&2
  exit 1
fi
