#!/usr/bin/env bash
# Process start to the first window, the console beside a bare Xlib program
# that maps one window, alternating in the same run on the same server.
#
#   bash bench/startup.sh [BUILD_DIR] [N]      (defaults: build, 41)
#
# Runs on a private Xvfb with the console's DejaVu fonts on the core font
# path, as a user's desktop has them, and in an IPC domain and home of its
# own: each start finds no agent and shows its loading window. The console
# is started directly, not through a shell, so both programs pay the same
# fork and exec. Nothing here asserts: it reports the medians and ratios.
set -euo pipefail
build="$(cd "${1:-build}" && pwd)"
runs="${2:-41}"
console="$build/src/console/VelmoVpnConsole"
bench="$build/bench/startup_first_window"
for exe in "$console" "$bench" "$build/bench/baseline_xlib_window"; do
  [ -x "$exe" ] || { echo "missing $exe: build VelmoVpnConsole, startup_first_window and baseline_xlib_window" >&2; exit 2; }
done
command -v Xvfb >/dev/null || { echo "startup.sh needs Xvfb" >&2; exit 2; }

domain="startup$$"
home="$(mktemp -d)"
xvfb_pid=""
cleanup() {
  [ -n "$xvfb_pid" ] && kill -TERM "$xvfb_pid" 2>/dev/null && wait "$xvfb_pid" 2>/dev/null || true
  # The console leaves its domain's registry and channels for a next start;
  # this domain has no next start.
  { bash "$(dirname "$0")/../scripts/domain-channels.sh" "$domain" || true; } | while read -r name; do rm -f "/dev/shm$name"; done
  rm -f "/dev/shm/ky_ipc_registry_$domain" "/dev/shm/ky_ipc_subs_$domain" "/dev/shm/ky_ipc_registry_apps_$domain"
  rm -rf "$home"
}
trap cleanup EXIT

source "$(dirname "$0")/../scripts/private-xvfb.sh"
private_xvfb || exit 1
export VELMO_IPC_DOMAIN="$domain" HOME="$home" XDG_CONFIG_HOME="$home/config" XDG_STATE_HOME="$home/state" \
  KY_CONFIG_ROOT="$home/systemConfig" KY_LOGGING_RULES="*=false"
unset VELMO_CONSOLE_FAIL_AT_START

echo "load average: $(cut -d' ' -f1-3 /proc/loadavg)"
"$bench" "$runs" "$console" | { grep -v "ready$" || true; }
