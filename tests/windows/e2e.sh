#!/usr/bin/env bash
# The Windows build end to end under Wine, against the simulated SAP system on
# Linux: the same batches go to the Linux batch server and to batchserver.exe
# (sap.library = librfcsim.dll, Windows paths in the INI); the XML files must
# be byte for byte the same, the Windows log must have CR LF line ends and a
# header that names its path with backslashes, and `batchctl.exe stop` must
# end the worker while the process stays.
#
# Usage: tests/windows/e2e.sh [LINUX_BUILD] [WINDOWS_BUILD]   (build, build-win)
# WINEPREFIX, when set, names the Wine prefix to use (make windows-test makes
# one per run); otherwise a fresh one is made under the work directory.
# Exit 0 only when every check held.
set -u

cd "$(dirname "$0")/../.."
top=$(pwd)
absolute() { case "$1" in /*) echo "$1" ;; *) echo "$top/$1" ;; esac; }
linux=$(absolute "${1:-build}")
win=$(absolute "${2:-build-win}")

work=$(mktemp -d "${TMPDIR:-/tmp}/bs_windows_e2e.XXXXXX")
export WINEPREFIX=${WINEPREFIX:-$work/wine}
export WINEDEBUG=${WINEDEBUG:--all}
wine=$(command -v wine64 || command -v wine || echo /usr/lib/wine/wine64)
wineserver=$(command -v wineserver || echo /usr/lib/wine/wineserver)

sapsim_pid=
linux_pid=
win_pid=

fail() {
  printf 'windows e2e: FAILED: %s\n' "$*" >&2
  for f in "$work"/*.out "$work"/*/log/*.log; do
    [ -e "$f" ] && { echo "--- $f" >&2; tr -d '\r' <"$f" | tail -20 >&2; }
  done
  exit 1
}

stop_process() {
  local pid=$1
  [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null || return 0
  kill -TERM "$pid" 2>/dev/null
  wait "$pid" 2>/dev/null
}
# Wine's processes end with their prefix's server.
stop_wine() {
  "$wineserver" -k 2>/dev/null
  [ -n "$win_pid" ] && wait "$win_pid" 2>/dev/null
  win_pid=
}
cleanup() {
  stop_wine
  stop_process "$linux_pid"
  stop_process "$sapsim_pid"
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# Waits up to $1 tenths of a second for the command after it to succeed.
wait_for() {
  local tenths=$1
  shift
  while [ "$tenths" -gt 0 ]; do
    "$@" && return 0
    sleep 0.1
    tenths=$((tenths - 1))
  done
  return 1
}

# The Windows name of a Linux path: Wine maps drive Z: to the root.
winpath() { local p=$1; echo "Z:${p//\//\\}"; }

for f in "$linux/bin/sapsim" "$linux/bin/batchserver" "$linux/lib/librfcsim.so" \
         "$win/bin/batchserver.exe" "$win/bin/batchctl.exe" "$win/bin/librfcsim.dll"; do
  [ -e "$f" ] || fail "$f is missing (make build and make windows build it)"
done

"$linux/bin/sapsim" serve --system "$top/examples/system.json" --port 0 >"$work/sapsim.out" 2>&1 &
sapsim_pid=$!
listening() { grep -q 'listening on port' "$work/sapsim.out"; }
wait_for 100 listening || fail "sapsim did not start listening"
port=$(sed -n 's/.*listening on port \([0-9][0-9]*\).*/\1/p' "$work/sapsim.out")

# write_ini FILE INSTANCE LIBRARY LOG_DIR XML_DIR: the example section, pointed
# at this sapsim; the file keeps its CR LF line ends.
write_ini() {
  # Backslashes, '&' and '|' stand for themselves in the values.
  local library logs xml
  library=$(printf '%s' "$3" | sed 's/[\\&|]/\\&/g')
  logs=$(printf '%s' "$4" | sed 's/[\\&|]/\\&/g')
  xml=$(printf '%s' "$5" | sed 's/[\\&|]/\\&/g')
  sed -e "s/\r\$//" \
      -e "s/^\[SRV1\]\$/[$2]/" \
      -e "s|^sap.server.gateway.host=.*|sap.server.gateway.host=127.0.0.1|" \
      -e "s|^sap.server.gateway.service=.*|sap.server.gateway.service=$port|" \
      -e "s|^sap.client.loadbalancing=.*|sap.client.loadbalancing=No|" \
      -e "s|^sap.client.host=.*|sap.client.host=127.0.0.1|" \
      -e "s|^sap.client.trace=.*|sap.client.trace=0|" \
      -e "s|^sap.library=.*|sap.library=$library|" \
      -e "s|^sap.path=.*|sap.path=$logs|" \
      -e "s|^xml.path=.*|xml.path=$xml|" \
      -e "s/\$/\r/" \
      "$top/examples/batchserver.ini" >"$1" || fail "cannot write $1"
}

waiting() { cat "$1"/log/*.log 2>/dev/null | grep -q '\.\.\.WAITING FOR BATCHES\.\.\.'; }
two_files() { [ "$(ls "$1"/xml/*.xml 2>/dev/null | wc -l)" -eq 2 ]; }

# send_batches SIDE: the two sample batches, each answered with BATCH_RC=1.
send_batches() {
  local function structure csv answer
  for batch in "Z_BATCH_ORDERS ZBATCH_ORDER orders.csv" "Z_BATCH_CUSTOMERS ZBATCH_CUSTOMER customers.csv"; do
    read -r function structure csv <<<"$batch"
    answer=$("$linux/bin/sapsim" call --port "$port" --program-id BATCHSRV --function "$function" \
               --structure "$structure" --csv "$top/examples/batches/$csv" 2>&1)
    [ "$answer" = "BATCH_RC=1" ] || fail "$1: $function answered '$answer'"
    # Batch ids have millisecond resolution; keep the batches apart.
    sleep 0.01
  done
  wait_for 100 two_files "$work/$1" || fail "$1: expected 2 XML files in $work/$1/xml"
}

# The registration is gone once a call finds nobody to answer it.
unregistered() {
  ! "$linux/bin/sapsim" call --port "$port" --program-id BATCHSRV --function Z_BATCH_ORDERS \
      --structure ZBATCH_ORDER --csv "$top/examples/batches/orders.csv" >/dev/null 2>&1
}

# --- the Linux batch server: the reference ------------------------------------
mkdir -p "$work/linux/log" "$work/linux/xml"
write_ini "$work/linux.ini" BSWINE2ELNX "$linux/lib/librfcsim.so" "$work/linux/log" "$work/linux/xml"
"$linux/bin/batchserver" BSWINE2ELNX "$work/linux.ini" >"$work/linux.out" 2>&1 &
linux_pid=$!
wait_for 200 waiting "$work/linux" || fail "the Linux batch server did not reach its waiting line"
send_batches linux
stop_process "$linux_pid"
linux_pid=
wait_for 100 unregistered || fail "the Linux batch server stayed registered"

# --- batchserver.exe under Wine ------------------------------------------------
mkdir -p "$work/win/log" "$work/win/xml"
# A bare library name: found next to batchserver.exe, as Windows searches.
write_ini "$work/win.ini" BSWINE2EWIN librfcsim.dll "$(winpath "$work/win/log")" "$(winpath "$work/win/xml")"
"$wine" "$win/bin/batchserver.exe" BSWINE2EWIN "$(winpath "$work/win.ini")" </dev/null >"$work/win.out" 2>&1 &
win_pid=$!
wait_for 600 waiting "$work/win" || fail "batchserver.exe did not reach its waiting line"
send_batches win

# The same batches give the same bytes; only the batch ids (the file names,
# and wherever a document names its id) differ.
normalised() { sed "s/$(basename "$1" .xml)/BATCH_ID/g" "$1"; }
linux_files=("$work"/linux/xml/*.xml)
win_files=("$work"/win/xml/*.xml)
for i in 0 1; do
  cmp <(normalised "${linux_files[$i]}") <(normalised "${win_files[$i]}") ||
    fail "XML differs: ${linux_files[$i]} and ${win_files[$i]}"
done
[ -s "${win_files[0]}" ] || fail "the XML files are empty"
ls "$work"/win/xml | grep -qv '\.xml$' && fail "a temporary file was left in the XML folder"

log=$(ls "$work"/win/log/*.log)
lines=$(wc -l <"$log")
crlf=$(grep -c $'\r$' "$log")
[ "$lines" -gt 10 ] && [ "$lines" -eq "$crlf" ] || fail "$log: $crlf of $lines lines end in CR LF"
header="# Path: $(winpath "$log")"
grep -qF "$header"$'\r' "$log" || fail "$log: no header line '$header'"
grep -q "Receive data: " "$log" || fail "$log: no received batch"

"$wine" "$win/bin/batchctl.exe" stop BSWINE2EWIN >"$work/batchctl.out" 2>&1 ||
  fail "batchctl.exe stop failed: $(cat "$work/batchctl.out")"
# Exit code 2 and the state word: stopping (event set) or ended (worker gone).
stopping() {
  "$wine" "$win/bin/batchctl.exe" status BSWINE2EWIN >"$work/status.out" 2>/dev/null
  [ $? -eq 2 ] && grep -qE '^(stopping|ended)' "$work/status.out"
}
wait_for 100 stopping || fail "batchctl.exe status does not report the worker stopping: $(cat "$work/status.out")"
wait_for 300 unregistered || fail "the worker of batchserver.exe did not end"
ended() {
  "$wine" "$win/bin/batchctl.exe" status BSWINE2EWIN >"$work/status.out" 2>/dev/null
  [ $? -eq 2 ] && grep -q '^ended at .*: stopped through the stop event' "$work/status.out"
}
wait_for 100 ended || fail "batchctl.exe status does not report the worker ended: $(cat "$work/status.out")"
kill -0 "$win_pid" 2>/dev/null || fail "batchserver.exe ended with its worker; the process must stay"
stop_wine
echo "windows e2e: passed (XML identical to the Linux build's, CR LF log, stop through batchctl.exe)"
