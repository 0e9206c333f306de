#!/usr/bin/env bash
# Runs every benchmark program of a build, one after the other.
set -euo pipefail
build="${1:-build}"
for bin in "$build"/bench/bench_*; do
  [ -x "$bin" ] || continue
  echo "== $(basename "$bin")"
  "$bin" --benchmark_counters_tabular=true
done
# Start-up needs a private X server; without Xvfb it is left out.
if command -v Xvfb >/dev/null && [ -x "$build/bench/startup_first_window" ] && [ -x "$build/src/console/VelmoVpnConsole" ]; then
  echo "== startup"
  bash "$(dirname "$0")/../bench/startup.sh" "$build" 21
fi
