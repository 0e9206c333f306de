#!/usr/bin/env bash
# Runs every benchmark program of a build, one after the other.
set -euo pipefail
build="${1:-build}"
for bin in "$build"/bench/bench_*; do
  [ -x "$bin" ] || continue
  echo "== $(basename "$bin")"
  "$bin" --benchmark_counters_tabular=true
done
