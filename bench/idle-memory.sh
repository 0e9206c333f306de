#!/usr/bin/env bash
# Idle memory and CPU of the console beside the demo agent, and of a bare
# Xlib one-window program as the floor, in the same run.
#
#   bash bench/idle-memory.sh [BUILD_DIR]      (default: build)
#
# Needs VelmoVpnConsole and velmo-demo-agent built (and baseline_xlib_window
# for the floor). Both run in an IPC domain of their own with a temporary
# home; with Xvfb installed, everything runs on a private X server (the
# console then shows what a user's desktop would show), otherwise without a
# display and without the floor. After SETTLE seconds (default 10) the
# script reads each process's /proc/<pid>/smaps and sums the resident set by
# kind of mapping; then it watches utime+stime for WATCH seconds (default 30):
# an idle process should not move. Nothing here asserts: it reports.
set -euo pipefail
build="$(cd "${1:-build}" && pwd)"
settle="${SETTLE:-10}"
watch="${WATCH:-30}"
console="$build/src/console/VelmoVpnConsole"
agent="$build/tools/velmo-demo-agent"
baseline="$build/bench/baseline_xlib_window"
for exe in "$console" "$agent"; do
  [ -x "$exe" ] || { echo "missing $exe: build VelmoVpnConsole and velmo-demo-agent first" >&2; exit 2; }
done

domain="idlemem$$"
home="$(mktemp -d)"
pids=()
channel_names() { bash "$(dirname "$0")/../scripts/domain-channels.sh" "$domain"; }
cleanup() {
  channel_names >>"$home/channels" || true
  # Children last started first, each by its own pid. SIGTERM: a background
  # child of a script ignores SIGINT.
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
    kill -TERM "${pids[i]}" 2>/dev/null || true
    wait "${pids[i]}" 2>/dev/null || true
  done
  sort -u "$home/channels" 2>/dev/null | while read -r name; do rm -f "/dev/shm$name"; done
  rm -f "/dev/shm/ky_ipc_registry_$domain" "/dev/shm/ky_ipc_subs_$domain"
  rm -rf "$home"
}
trap cleanup EXIT

# Waits (up to 30 s) for a text in a file.
wait_for() {
  for _ in $(seq 1 300); do
    grep -q -- "$2" "$1" 2>/dev/null && return 0
    sleep 0.1
  done
  echo "timed out waiting for \"$2\" in $1" >&2
  return 1
}

unset DISPLAY_OWNED
if [ -z "${DISPLAY:-}" ] && command -v Xvfb >/dev/null; then
  # The console's own fonts on the font path, as a user's desktop has them:
  # without them every text falls back to "fixed" and the figures flatter.
  source "$(dirname "$0")/../scripts/private-xvfb.sh"
  private_xvfb || exit 1
  pids+=("$xvfb_pid")
  DISPLAY_OWNED=1
fi

export VELMO_IPC_DOMAIN="$domain" HOME="$home" XDG_CONFIG_HOME="$home/config" XDG_STATE_HOME="$home/state" \
  KY_CONFIG_ROOT="$home/systemConfig"
unset KY_LOGGING_RULES KY_DEBUG_RULES VELMO_CONSOLE_FAIL_AT_START

"$agent" --domain "$domain" --state-dir "$home/agent" --seed 7 --catalog-size 12 >"$home/agent.out" 2>"$home/agent.err" &
pids+=($!)
agent_pid=$!
wait_for "$home/agent.out" "velmo-demo-agent ready"
"$console" >"$home/console.out" 2>"$home/console.err" &
pids+=($!)
console_pid=$!
wait_for "$home/console.err" "Backend auto-connected"

baseline_pid=""
if [ -n "${DISPLAY_OWNED:-}" ] && [ -x "$baseline" ]; then
  "$baseline" >"$home/baseline.out" 2>&1 &
  pids+=($!)
  baseline_pid=$!
  wait_for "$home/baseline.out" "baseline_xlib_window ready"
fi

sleep "$settle"
channel_names >>"$home/channels"

# RSS (kB) of one process by kind of mapping.
breakdown() {
  awk -v exe="$(readlink -f "/proc/$1/exe")" '
    /^[0-9a-f]+-[0-9a-f]+ / {
      name = (NF >= 6) ? $6 : ""
      if (name ~ /^\/dev\/shm\/ky_sig_/) kind = "shm channels (signals, RPC queues)"
      else if (name ~ /^\/dev\/shm\/ky_ipc_/) kind = "shm registries, dispatch table"
      else if (name ~ /^\/dev\/shm\//) kind = "shm other"
      else if (name == "[heap]") kind = "heap"
      else if (name == "[stack]") kind = "main thread stack"
      else if (name == "") kind = "anonymous (fiber and thread stacks, arenas)"
      else if (name == exe) kind = "program image"
      else if (name ~ /\.so/) kind = "shared libraries"
      else if (name ~ /^\[/) kind = "kernel ([vdso], [vvar])"
      else kind = "other files (fonts, caches)"
      next
    }
    /^Rss:/ { rss[kind] += $2; total += $2 }
    /^Pss:/ { pss += $2 }
    END {
      n = split("shm channels (signals, RPC queues)|shm registries, dispatch table|shm other|heap|" \
                "anonymous (fiber and thread stacks, arenas)|main thread stack|program image|shared libraries|" \
                "other files (fonts, caches)|kernel ([vdso], [vvar])", kinds, "|")
      for (i = 1; i <= n; i++) if (rss[kinds[i]] > 0) printf "  %-46s %8d kB\n", kinds[i], rss[kinds[i]]
      printf "  %-46s %8d kB   (PSS %d kB)\n", "total RSS", total, pss
    }' "/proc/$1/smaps"
}
cpu_ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }

report() {
  local label="$1" pid="$2"
  echo "$label (pid $pid), after ${settle}s:"
  breakdown "$pid"
}
report "VelmoVpnConsole beside the demo agent" "$console_pid"
[ -n "$baseline_pid" ] && report "bare Xlib one-window program" "$baseline_pid"
report "velmo-demo-agent" "$agent_pid"

console_t0=$(cpu_ticks "$console_pid")
agent_t0=$(cpu_ticks "$agent_pid")
sleep "$watch"
echo "CPU ticks (1/$(getconf CLK_TCK) s) over ${watch}s idle: console $(($(cpu_ticks "$console_pid") - console_t0)), agent $(($(cpu_ticks "$agent_pid") - agent_t0))"
