#!/usr/bin/env bash
# Prints line and branch coverage per source folder from a --coverage build
# whose tests have run (make coverage). Usage: tests/coverage_report.sh BUILD_DIR
set -euo pipefail
build=${1:-build-cov}
top=$(cd "$(dirname "$0")/.." && pwd)
summary="$build/coverage-summary.json"
# gcovr 5.2 stops on some counters of the simulator's threads unless told to go on.
# It searches only the build folder: others (a Wine prefix links to /) are not ours.
gcovr --root "$top" --object-directory "$build" \
      --exclude "$top/tests/" --exclude "$top/bench/" --exclude "$top/fuzz/" \
      --gcov-ignore-parse-errors --json-summary "$summary" --json-summary-pretty "$build" \
      -j 2 >"$build/gcovr.log" 2>&1 || { cat "$build/gcovr.log" >&2; exit 1; }
python3 - "$summary" <<'PY'
import json, sys
files = json.load(open(sys.argv[1]))["files"]
folders = {}
def add(key, f):
    t = folders.setdefault(key, [0, 0, 0, 0])
    t[0] += f["line_covered"]; t[1] += f["line_total"]
    t[2] += f["branch_covered"]; t[3] += f["branch_total"]
for f in files:
    parts = f["filename"].split("/")
    top = parts[0]
    folder = "/".join(parts[:2]) if top in ("rfc", "sapsim", "platform") and len(parts) > 2 else top
    add(folder, f)
    add("= sapsim" if top == "sapsim" else "= product", f)
def pct(a, b): return 100.0 * a / b if b else 100.0
print(f"{'folder':<22}{'lines':>16}{'':>9}{'branches':>16}")
for k in sorted(folders, key=lambda k: (k.startswith("="), k)):
    l, lt, b, bt = folders[k]
    print(f"{k:<22}{l:>7}/{lt:<7}{pct(l, lt):6.1f} %{b:>8}/{bt:<7}{pct(b, bt):6.1f} %")
PY
