#!/usr/bin/env bash
# Runs every fuzz target of a fuzz build for a bounded time on its seed corpus
# (tests/fuzz/corpus/<name without fuzz_>). New inputs go to a scratch copy, so
# the corpus kept in the repository only changes when a developer adds to it.
set -euo pipefail
build="${1:-build-fuzz}"
seconds="${2:-30}"
root="$(cd "$(dirname "$0")/.." && pwd)"
status=0
for bin in "$build"/tests/fuzz/fuzz_*; do
  [ -x "$bin" ] || continue
  name="$(basename "$bin")"
  seeds="$root/tests/fuzz/corpus/${name#fuzz_}"
  work="$(mktemp -d)"
  [ -d "$seeds" ] && cp -r "$seeds"/. "$work"/
  echo "fuzz: $name for ${seconds}s"
  if ! "$bin" -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$build/$name-" "$work" >"$build/$name.log" 2>&1; then
    echo "fuzz: $name FAILED"; tail -n 60 "$build/$name.log"; status=1
  else
    grep -E 'stat::number_of_executed_units|Done ' "$build/$name.log" | tail -n 2 || true
  fi
  rm -rf "$work"
done
exit $status
