#!/usr/bin/env bash
# Runs every benchmark program and keeps its figures as JSON under the build folder.
set -euo pipefail
build=${1:-build}
out="$build/bench-results"
mkdir -p "$out"
for exe in "$build"/bin/*_bench; do
  [ -x "$exe" ] || continue
  name=$(basename "$exe")
  echo "== $name"
  "$exe" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
         --benchmark_out="$out/$name.json" --benchmark_out_format=json
done
for driver in "$(dirname "$0")"/*_driver.sh; do
  [ -x "$driver" ] || continue
  echo "== $(basename "$driver")"
  "$driver" "$build"
done
