#!/usr/bin/env bash
# The batch server end to end on one machine: starts the simulated SAP system
# with examples/system.json, starts the batch server against it, sends the
# sample batches of examples/batches/, shows the XML files and the log, and
# stops both. Builds nothing (make demo builds first).
#
# Usage: examples/demo.sh [BUILD_DIR]    (default: build)
# Everything it writes goes under ./demo/ (cleared at the start); the
# environment may name another folder (DEMO_DIR) and instance (DEMO_INSTANCE),
# and other sources for the example INI (DEMO_INI), the system file
# (DEMO_SYSTEM) and the sample batches (DEMO_BATCHES), as an installed
# package places them. BUILD_DIR holds bin/ and lib/ (a build, or /usr).
# Exit 0 only when every step worked.
set -u

cd "$(dirname "$0")/.."
top=$(pwd)
build=${1:-build}
case "$build" in /*) ;; *) build="$top/$build" ;; esac

instance=${DEMO_INSTANCE:-DEMO}
demo=${DEMO_DIR:-$top/demo}
case "$demo" in /*) ;; *) demo="$top/$demo" ;; esac
sapsim="$build/bin/sapsim"
server="$build/bin/batchserver"
batchctl="$build/bin/batchctl"
library="$build/lib/librfcsim.so"
example_ini=${DEMO_INI:-$top/examples/batchserver.ini}
system_file=${DEMO_SYSTEM:-$top/examples/system.json}
batches=${DEMO_BATCHES:-$top/examples/batches}

sapsim_pid=
server_pid=

say() { printf '\n== %s\n' "$*"; }
fail() {
  printf '\ndemo: FAILED: %s\n' "$*" >&2
  exit 1
}

# Whatever happens, no process of the demo outlives it.
cleanup() {
  if [ -n "$server_pid" ] && kill -0 "$server_pid" 2>/dev/null; then
    kill -TERM "$server_pid" 2>/dev/null
    wait "$server_pid" 2>/dev/null
  fi
  if [ -n "$sapsim_pid" ] && kill -0 "$sapsim_pid" 2>/dev/null; then
    kill -TERM "$sapsim_pid" 2>/dev/null
    wait "$sapsim_pid" 2>/dev/null
  fi
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

for f in "$sapsim" "$server" "$batchctl" "$library"; do
  [ -e "$f" ] || fail "$f is missing; build first (make demo builds, then runs this)"
done
"$batchctl" status "$instance" >/dev/null 2>&1
if [ $? -ne 3 ]; then
  fail "a batch server named $instance is already running; stop it with: $batchctl stop $instance"
fi

rm -rf "$demo"
mkdir -p "$demo/log" "$demo/xml" || fail "cannot create $demo"

say "Starting the simulated SAP system ($system_file)"
"$sapsim" serve --system "$system_file" --port 0 \
  >"$demo/sapsim.out" 2>"$demo/sapsim.log" &
sapsim_pid=$!
listening() { grep -q 'listening on port' "$demo/sapsim.out"; }
if ! wait_for 100 listening; then
  cat "$demo/sapsim.log" >&2
  fail "sapsim did not start listening"
fi
port=$(sed -n 's/.*listening on port \([0-9][0-9]*\).*/\1/p' "$demo/sapsim.out")
[ -n "$port" ] || fail "could not read sapsim's port from: $(cat "$demo/sapsim.out")"
echo "sapsim is listening on port $port"

say "Writing $demo/batchserver.ini"
ini="$demo/batchserver.ini"
# The example section, renamed to the demo instance, pointed at this sapsim
# and at absolute paths; the file keeps its CR LF line ends.
sed -e "s/\r\$//" \
    -e "s/^\[SRV1\]\$/[$instance]/" \
    -e "s|^sap.server.gateway.host=.*|sap.server.gateway.host=127.0.0.1|" \
    -e "s|^sap.server.gateway.service=.*|sap.server.gateway.service=$port|" \
    -e "s|^sap.client.loadbalancing=.*|sap.client.loadbalancing=No|" \
    -e "s|^sap.client.host=.*|sap.client.host=127.0.0.1|" \
    -e "s|^sap.client.trace=.*|sap.client.trace=0|" \
    -e "s|^sap.library=.*|sap.library=$library|" \
    -e "s|^sap.path=.*|sap.path=$demo/log|" \
    -e "s|^xml.path=.*|xml.path=$demo/xml|" \
    -e "s/\$/\r/" \
    "$example_ini" >"$ini" || fail "cannot write $ini"
grep -q "^\[$instance\]" "$ini" || fail "$example_ini has no [SRV1] section to start from"
grep -q "^sap.server.gateway.service=$port" "$ini" || fail "the gateway service could not be set in $ini"

say "Starting the batch server: $server $instance $ini"
"$server" "$instance" "$ini" >"$demo/batchserver.out" 2>&1 &
server_pid=$!
log_text() { cat "$demo"/log/*.log 2>/dev/null; }
waiting() { log_text | grep -q '\.\.\.WAITING FOR BATCHES\.\.\.'; }
if ! wait_for 200 waiting; then
  log_text >&2
  cat "$demo/batchserver.out" >&2
  fail "the batch server did not reach '...WAITING FOR BATCHES...' (the log above says why)"
fi
echo "the batch server is waiting for batches"

send() {
  local function=$1 structure=$2 csv=$3 answer
  echo "sapsim call $function ($structure) with $csv"
  answer=$("$sapsim" call --port "$port" --program-id BATCHSRV --function "$function" \
             --structure "$structure" --csv "$batches/$csv" 2>&1) ||
    fail "the call of $function failed: $answer"
  echo "  $answer"
  [ "$answer" = "BATCH_RC=1" ] || fail "$function answered '$answer', expected BATCH_RC=1"
}

say "Sending the sample batches"
send Z_BATCH_ORDERS ZBATCH_ORDER orders.csv
# Batch ids have millisecond resolution; keep two batches apart.
sleep 0.01
send Z_BATCH_CUSTOMERS ZBATCH_CUSTOMER customers.csv

xml_count() { ls "$demo"/xml/*.xml 2>/dev/null | wc -l; }
two_files() { [ "$(xml_count)" -eq 2 ]; }
wait_for 50 two_files || fail "expected 2 XML files in $demo/xml, found $(xml_count)"

for f in "$demo"/xml/*.xml; do
  say "XML file $f (ISO-8859-1, as it declares; shown here in UTF-8)"
  iconv -f ISO-8859-1 -t UTF-8 "$f" || fail "cannot show $f"
  echo
done

say "Every document parses (xmllint --noout)"
command -v xmllint >/dev/null || fail "xmllint is missing (Debian package libxml2-utils; make demo installs it)"
for f in "$demo"/xml/*.xml; do
  xmllint --noout "$f" || fail "$f is not well-formed XML"
  echo "$(basename "$f"): well-formed"
done
echo
echo "(Rows are named by their H_IDENT, T_IDENT or IDENT value, which is why the"
echo " example structures carry an H_IDENT that is an XML name: see docs/operations.md.)"

say "Stopping the batch server: $batchctl stop $instance"
"$batchctl" stop "$instance" || fail "batchctl stop $instance failed"
# Exit code 2: the worker has ended (or is ending); the process stays.
worker_ended() { "$batchctl" status "$instance" >/dev/null 2>&1; [ $? -eq 2 ]; }
wait_for 50 worker_ended || fail "batchctl status did not report the worker ended"
"$batchctl" status "$instance"
# The process never ends by itself; SIGTERM ends it in order.
kill -TERM "$server_pid" || fail "cannot signal the batch server"
wait "$server_pid"
status=$?
server_pid=
[ "$status" -eq 0 ] || fail "the batch server exited with status $status"

say "The log ($(ls "$demo"/log/*.log))"
log_text | tr -d '\r'
log_text | grep -q "Receive data: " || fail "the log shows no received batch"

say "Stopping sapsim"
kill -TERM "$sapsim_pid" || fail "cannot signal sapsim"
wait "$sapsim_pid"
status=$?
sapsim_pid=
[ "$status" -eq 0 ] || fail "sapsim exited with status $status"

say "Demo complete: XML files in $demo/xml, log in $demo/log"
exit 0
