#!/usr/bin/env bash
# Runs every fuzz target for a bounded time on its corpus (fuzz/corpus/<name>/).
# New inputs go to a scratch corpus under the build folder; crashes stop the run.
set -euo pipefail
build=${1:-build-fuzz}
seconds=${2:-60}
here=$(cd "$(dirname "$0")" && pwd)
status=0
for exe in "$build"/bin/*_fuzz; do
  [ -x "$exe" ] || continue
  name=$(basename "$exe")
  seed="$here/corpus/$name"
  work="$build/fuzz-corpus/$name"
  mkdir -p "$work" "$seed"
  echo "== $name: ${seconds}s"
  if ! "$exe" -max_total_time="$seconds" -print_final_stats=1 \
        -artifact_prefix="$build/fuzz-artifacts-" "$work" "$seed"; then
    echo "!! $name found a crash (see $build/fuzz-artifacts-*)"
    status=1
  fi
done
exit $status
