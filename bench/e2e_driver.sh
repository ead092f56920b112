#!/usr/bin/env bash
# End-to-end benchmark of the batch server against sapsim, with the floor
# (the same bytes over raw loopback TCP, one file write of the XML's size,
# one log append) measured in the same run. For each batch size:
#
#   cost      listen timer 0, one `sapsim call --repeat N` caller, a fresh
#             server: batches/s, rows/s, wall time per batch, the server's
#             CPU time per batch (all threads, from /proc/<pid>/task/*/schedstat,
#             less the CPU its idle polling uses, measured before), peak RSS
#             (VmHWM) against the server's RSS before the first batch;
#   rate      the same caller at the listen timers of E2E_RATE_TIMERS: the
#             batches/s one caller gets, against 1000 / (timer + 1);
#   floor     bench/e2e/floor_main.cc, 10 rounds (3 above 100 MB) right before each
#             repetition of the cost, so that both meet the same load; in
#             wall time and in processor time, and the cost's ratios to it
#             (processor time to processor time, wall to wall);
#   profile   where the server's time goes (perf, when it works here).
#
# Usage: bench/e2e_driver.sh BUILD_DIR   (bench/run.sh passes it; make bench)
# Figures go to BUILD_DIR/bench-results/e2e.json; a table to standard output.
# Environment: E2E_SIZES (1 100 10000), E2E_REPS (5), E2E_RATE_TIMERS
# (250 10), E2E_PROFILE (1; 0 skips perf), E2E_PROFILE_SIZES (1 10000),
# E2E_IDLE_SECONDS (10: the idle loop at the first rate timer).
# Exit status 0 when every measurement ran and every batch sent was logged;
# missed targets are reported, not failed: this is a measurement.
set -u

here=$(cd "$(dirname "$0")" && pwd)
top=$(dirname "$here")
E2E_NAME=e2e
# shellcheck source=bench/e2e/common.sh
. "$here/e2e/common.sh"

E2E_BUILD=$(e2e_build_dir "$top" "${1:-build}")
e2e_require_build "$E2E_BUILD" bin/sapsim bin/batchserver bin/batchctl lib/librfcsim.so bin/e2e_floor

sizes=${E2E_SIZES:-1 100 10000}
reps=${E2E_REPS:-5}
rate_timers=${E2E_RATE_TIMERS-250 10}  # empty: no rate runs
profile=${E2E_PROFILE:-1}
profile_sizes=${E2E_PROFILE_SIZES:-1 10000}
sapsim="$E2E_BUILD/bin/sapsim"
scratch="$E2E_BUILD/e2e-scratch"
results="$E2E_BUILD/bench-results"
instance="E2E$$"

trap e2e_cleanup EXIT
trap 'exit 130' INT TERM

rm -rf "$scratch"
mkdir -p "$scratch" "$results" || e2e_die "cannot create $scratch or $results"
# Let the inodes the removal freed age (see the removal at the end).
sleep 5

if [ "$profile" = 1 ]; then
  if ! command -v perf >/dev/null 2>&1; then
    e2e_say "perf is not installed: no profile"
    profile=0
  elif ! perf stat -e task-clock -o /dev/null true >/dev/null 2>&1; then
    e2e_say "perf is not permitted here: no profile"
    profile=0
  fi
fi

load_start=$(e2e_loadavg)
for rows in $sizes; do
  e2e_make_csv "$rows" E2E "$scratch/rows$rows.csv"
done
e2e_start_sapsim "$top/examples/system.json" 0 "$scratch" || e2e_die "sapsim did not start (see $scratch/sapsim.log)"
e2e_say "sapsim listens on port $SAPSIM_PORT; load average $load_start"

# Sends $2 batches of $1 rows; prints "seconds"; fails when a call fails.
send() {
  local rows=$1 calls=$2 answer
  answer=$("$sapsim" call --port "$SAPSIM_PORT" --program-id BATCHSRV --function Z_BATCH_ORDERS \
             --structure ZBATCH_ORDER --csv "$scratch/rows$rows.csv" --repeat "$calls" 2>&1) ||
    e2e_die "sapsim call ($calls x $rows rows) failed: $answer"
  printf '%s\n' "$answer" | sed -n 's/.*seconds=\([0-9.]*\).*/\1/p'
}

# Median of the numbers on standard input.
median() { sort -g | awk '{ v[NR] = $1 } END { if (NR == 0) print "null"; else if (NR % 2) print v[(NR + 1) / 2]; else printf "%.6g\n", (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
calc() { awk "BEGIN { printf \"%.6g\n\", $* }"; }
# "true" when $1 <= $2 (with max) or $1 >= $2 (with min).
met() { awk -v v="$1" -v limit="$2" -v dir="$3" 'BEGIN { ok = (dir == "max") ? (v <= limit) : (v >= limit); print (ok ? "true" : "false") }'; }

# A fresh server for each measurement; its files in $scratch/run.
run=0
start_server() {
  local timer=$1
  run=$((run + 1))
  rundir="$scratch/run$run"
  mkdir -p "$rundir/log" "$rundir/xml"
  e2e_write_ini "$rundir/batchserver.ini" "$instance" "$SAPSIM_PORT" "$timer" "$rundir/log" "$rundir/xml"
  e2e_start_server "$instance" "$rundir/batchserver.ini" "$rundir/log" "$rundir/batchserver.out" ||
    e2e_die "the batch server did not reach '...WAITING FOR BATCHES...' (listen timer $timer)"
  sent=0
}
# Stops the server after checking that every batch it answered was logged.
stop_server() {
  local logged
  logged=$(e2e_log_text "$rundir/log" | grep -c 'Receive data: ')
  e2e_stop_process "$SERVER_PID"
  [ "$logged" -eq "$sent" ] || e2e_die "run $run: $sent batches answered, $logged logged"
}

# perf over $2 more batches of $1 rows; prints JSON members with the share of
# the server's samples (children included) in each part of the work.
profile_json() {
  local rows=$1 calls=$2 data="$scratch/perf-$1.data" report="$results/e2e-profile-$1rows.txt"
  perf record -q --call-graph dwarf,16384 -F 999 -p "$SERVER_PID" -o "$data" >/dev/null 2>&1 &
  local perf_pid=$!
  sleep 0.5
  send "$rows" "$calls" >/dev/null
  kill -INT "$perf_pid" 2>/dev/null
  wait "$perf_pid" 2>/dev/null
  perf report -i "$data" --children --stdio -g none --percent-limit 0.1 >"$report" 2>/dev/null ||
    { printf '"profile_error": "perf report failed"'; return; }
  rm -f "$data"
  share() { awk -v s="$1" 'index($0, s) && $1 ~ /%$/ { v = $1 + 0; if (v > m) m = v } END { printf "%.1f", m }' "$report"; }
  # The share of the symbol named exactly (Build, not BuildInto).
  share_exact() {
    awk -v s="$1" '$1 ~ /%$/ { i = index($0, "] "); sym = substr($0, i + 2); sub(/ +$/, "", sym)
                               if (i && sym == s) { v = $1 + 0; if (v > m) m = v } } END { printf "%.1f", m }' "$report"
  }
  local dispatch process
  dispatch=$(share 'rfcsim::Connection::Dispatch')
  process=$(share 'CBatchServerFunc::Process')
  printf '"receive_and_reply": %s, "table_text": %s, "xml_tree": %s, "xml_serialise": %s, "xml_teardown": %s, "file_write": %s, "log_append": %s, "idle_hook": %s, "report_file": "%s"' \
    "$(calc "$dispatch - $process")" "$(share 'CSapTable::CSapTable')" "$(share_exact 'CXmlBatchDocument::Build')" \
    "$(share 'CXmlBatchDocument::BuildInto')" "$(share 'CXmlElement::~CXmlElement')" \
    "$(share 'platform::WriteWholeFile')" "$(share 'CLogFile::Append')" \
    "$(share 'ListenCallback')" "$report"
}

size_json=()
table_lines=()
largest=0
small_min=
first_timer=$(printf '%s\n' $rate_timers | head -1)
for rows in $sizes; do
  # Calls per repetition: enough to last about a second at the sizes' usual cost.
  case $rows in
    1) cost_calls=300 ;;
    100) cost_calls=200 ;;
    *) cost_calls=$(( (3000000 + rows * 100 - 1) / (rows * 100) )); [ "$cost_calls" -ge 2 ] || cost_calls=2 ;;
  esac

  e2e_say "$rows rows: cost at listen timer 0, $reps x $cost_calls batches"
  start_server 0
  sleep 0.3
  idle_a=$(e2e_cpu_ns "$SERVER_PID")
  t_a=$(date +%s%N)
  sleep 1.5
  idle_b=$(e2e_cpu_ns "$SERVER_PID")
  t_b=$(date +%s%N)
  idle_rate=$(calc "($idle_b - $idle_a) / ($t_b - $t_a)")
  rss_before=$(e2e_status_kb "$SERVER_PID" VmHWM)
  send "$rows" 2 >/dev/null # the first batches set up what later ones reuse
  sent=$((sent + 2))
  xml_bytes=$(find "$rundir/xml" -name '*.xml' -printf '%s\n' | sort -n | tail -1)
  [ -n "$xml_bytes" ] || e2e_die "no XML file written for $rows rows"
  : >"$scratch/wall" ; : >"$scratch/cpu" ; : >"$scratch/bps" ; : >"$scratch/floors"
  # The floor's files stay until the end, as the server's do: 10 rounds, or
  # 3 for a document over 100 MB (a million rows would otherwise leave 4.8 GB).
  floor_rounds=10
  [ "$xml_bytes" -le 100000000 ] || floor_rounds=3
  for ((r = 1; r <= reps; r++)); do
    # The floor right before each repetition, so that both meet the same
    # load on this machine.
    "$E2E_BUILD/bin/e2e_floor" --port "$SAPSIM_PORT" --structure ZBATCH_ORDER --rows "$rows" \
      --xml-bytes "$xml_bytes" --dir "$scratch" --repeat "$floor_rounds" >>"$scratch/floors" || e2e_die "e2e_floor failed"
    c0=$(e2e_cpu_ns "$SERVER_PID")
    seconds=$(send "$rows" "$cost_calls")
    c1=$(e2e_cpu_ns "$SERVER_PID")
    sent=$((sent + cost_calls))
    calc "$seconds * 1000 / $cost_calls" >>"$scratch/wall"
    calc "$cost_calls / $seconds" >>"$scratch/bps"
    # The idle polling's share: its rate times the time the server was not busy.
    calc "(($c1 - $c0) - $idle_rate * ($seconds * 1e9 - ($c1 - $c0))) / 1e6 / $cost_calls" >>"$scratch/cpu"
  done
  wall_ms=$(median <"$scratch/wall")
  wall_min=$(sort -g "$scratch/wall" | head -1)
  cpu_ms=$(median <"$scratch/cpu")
  cpu_min=$(sort -g "$scratch/cpu" | head -1)
  bps=$(median <"$scratch/bps")
  rss_peak=$(e2e_status_kb "$SERVER_PID" VmHWM)
  rss_now=$(e2e_status_kb "$SERVER_PID" VmRSS)
  prof=
  case " $profile_sizes " in
    *" $rows "*)
      if [ "$profile" = 1 ]; then
        # Enough batches for about 1.5 s of the server's own work: 1,500 samples.
        prof_calls=$(awk -v c="$cpu_ms" 'BEGIN { n = int(1500 / (c > 0.01 ? c : 0.01)) + 1; print (n < 3 ? 3 : (n > 5000 ? 5000 : n)) }')
        prof=$(profile_json "$rows" "$prof_calls")
        sent=$((sent + prof_calls))
      fi ;;
  esac
  stop_server

  # The floor: medians of the repetitions' medians, minimum of their minimums.
  field() { sed -n "s/.*\"$1\": \\([0-9.]*\\).*/\\1/p" "$scratch/floors"; }
  floor_us=$(field floor_us | median)
  floor_min_us=$(field floor_min_us | sort -g | head -1)
  line_length=$(field line_length | head -1)
  floor_cpu_us=$(field floor_cpu_us | median)
  floor_cpu_min_us=$(field floor_cpu_min_us | sort -g | head -1)
  floor=$(printf '{"call_bytes": %s, "xml_bytes": %s, "log_bytes": %s, "iterations": %d, "loopback_us": %s, "file_write_us": %s, "log_append_us": %s, "floor_us": %s, "floor_min_us": %s, "receive_cpu_us": %s, "file_write_cpu_us": %s, "log_append_cpu_us": %s, "floor_cpu_us": %s, "floor_cpu_min_us": %s}' \
    "$(field call_bytes | head -1)" "$xml_bytes" "$(field log_bytes | head -1)" $((reps * floor_rounds)) \
    "$(field loopback_us | median)" "$(field file_write_us | median)" "$(field log_append_us | median)" \
    "$floor_us" "$floor_min_us" "$(field receive_cpu_us | median)" "$(field file_write_cpu_us | median)" \
    "$(field log_append_cpu_us | median)" "$floor_cpu_us" "$floor_cpu_min_us")
  floor_ms=$(calc "$floor_us / 1000")
  floor_cpu_ms=$(calc "$floor_cpu_us / 1000")
  # Processor time against processor time: neither counts the time other
  # processes of the machine hold the processors. Wall against wall beside.
  cpu_ratio=$(calc "$cpu_ms / $floor_cpu_ms")
  wall_ratio=$(calc "$wall_ms / $floor_ms")
  table_bytes=$((rows * line_length))
  growth_kb=$((rss_peak - rss_before))
  growth_per_xml=$(calc "$growth_kb * 1024 / $xml_bytes")

  rate_json=()
  rate_text=
  for timer in $rate_timers; do
    allowed=$(calc "1000 / ($timer + 1)")
    # About two seconds a repetition, at least two batches.
    calls=$(awk -v a="$allowed" -v w="$wall_ms" -v t="$timer" 'BEGIN { n = int(2000 / (t + 2 + w)); print (n < 2 ? 2 : n) }')
    e2e_say "$rows rows: one caller at listen timer $timer, 3 x $calls batches"
    start_server "$timer"
    send "$rows" 1 >/dev/null
    sent=$((sent + 1))
    : >"$scratch/rate"
    for r in 1 2 3; do
      seconds=$(send "$rows" "$calls")
      sent=$((sent + calls))
      calc "$calls / $seconds" >>"$scratch/rate"
    done
    stop_server
    rate=$(median <"$scratch/rate")
    share=$(calc "$rate / $allowed")
    rate_json+=("{\"listen_timer_ms\": $timer, \"batches\": $calls, \"batches_per_second\": $rate, \"allowed_per_second\": $allowed, \"fraction_of_allowed\": $share}")
    rate_text+=$(printf ' %8.2f/s (%3.0f%%)' "$rate" "$(calc "$share * 100")")
    if [ "$timer" = "$first_timer" ] && [ "$rows" -le 100 ]; then
      if [ -z "$small_min" ] || [ "$(met "$share" "$small_min" max)" = true ]; then small_min=$share; fi
    fi
  done
  rates=$(IFS=,; printf '%s' "${rate_json[*]}")
  if [ "$rows" -gt "$largest" ]; then
    largest=$rows largest_cpu_ratio=$cpu_ratio largest_wall_ratio=$wall_ratio largest_growth=$growth_per_xml
  fi

  size_json+=("{\"rows\": $rows, \"line_length\": $line_length, \"table_bytes\": $table_bytes, \"xml_bytes\": $xml_bytes,
  \"cost\": {\"listen_timer_ms\": 0, \"repetitions\": $reps, \"batches_per_repetition\": $cost_calls,
    \"batches_per_second\": $bps, \"rows_per_second\": $(calc "$bps * $rows"), \"wall_ms_per_batch\": $wall_ms, \"wall_ms_per_batch_min\": $wall_min,
    \"server_cpu_ms_per_batch\": $cpu_ms, \"server_cpu_ms_per_batch_min\": $cpu_min, \"idle_cpu_fraction\": $idle_rate,
    \"rss_before_kb\": $rss_before, \"peak_rss_kb\": $rss_peak, \"rss_after_kb\": $rss_now,
    \"peak_growth_per_xml_byte\": $growth_per_xml},
  \"floor\": $floor,
  \"ratio_to_floor\": {\"server_cpu\": $cpu_ratio, \"wall\": $wall_ratio},
  \"single_caller\": [$rates],
  \"profile_percent\": {${prof}}}")
  table_lines+=("$(printf '%6s %9.1f %11.0f %9.3f %9.3f %9.3f %9.3f %7.1fx %7.1fx %8.1f %6.1fx%s' \
    "$rows" "$bps" "$(calc "$bps * $rows")" "$wall_ms" "$cpu_ms" "$floor_ms" "$floor_cpu_ms" "$cpu_ratio" "$wall_ratio" \
    "$(calc "$rss_peak / 1024")" "$growth_per_xml" "$rate_text")")
done
# The idle loop at the first rate timer (the example's 250 ms): processor
# use of a fresh server while no call comes, as a fraction of one processor.
idle_json=null
if [ -n "$first_timer" ]; then
  idle_seconds=${E2E_IDLE_SECONDS:-10}
  e2e_say "idle: listen timer $first_timer, $idle_seconds s"
  start_server "$first_timer"
  sleep 0.5
  idle_a=$(e2e_cpu_ns "$SERVER_PID")
  t_a=$(date +%s%N)
  sleep "$idle_seconds"
  idle_b=$(e2e_cpu_ns "$SERVER_PID")
  t_b=$(date +%s%N)
  stop_server
  idle_fraction=$(calc "($idle_b - $idle_a) / ($t_b - $t_a)")
  idle_json="{\"listen_timer_ms\": $first_timer, \"seconds\": $idle_seconds, \"cpu_fraction\": $idle_fraction, \"met\": $(met "$idle_fraction" 0.01 max)}"
fi

e2e_stop_process "$SAPSIM_PID"
load_end=$(e2e_loadavg)
# The XML files go only now, the floor's with the server's: on ext4, creating
# files right after many were deleted is slow, and on this machine memory
# just freed is cheaper to fill than fresh memory; either would be charged to
# the next measurement.
rm -rf "$scratch"/run*/xml "$scratch"/floor_*.xml "$scratch"/floor.log

# Targets: per-batch cost of the largest batch within 2x of the floor; one
# caller gets at least 90% of what the idle pause allows with small batches
# (up to 100 rows) at the first listen timer; the peak RSS grows by at most
# 2.5x the largest batch's XML document; idle below 1 % of a processor.
targets="{\"cost_within_2x_floor\": {\"rows\": $largest, \"server_cpu_ratio\": $largest_cpu_ratio, \"wall_ratio\": $largest_wall_ratio, \"met\": $(met "$largest_cpu_ratio" 2 max)},
  \"small_batches_90_percent_of_allowed\": {\"listen_timer_ms\": ${first_timer:-null}, \"lowest_fraction\": ${small_min:-null}, \"met\": $([ -n "$small_min" ] && met "$small_min" 0.9 min || echo null)},
  \"peak_rss_growth_within_2_5x_xml\": {\"rows\": $largest, \"growth_per_xml_byte\": $largest_growth, \"met\": $(met "$largest_growth" 2.5 max)},
  \"idle_below_1_percent\": $idle_json}"

{
  printf '{"benchmark": "e2e", "date": "%s", %s,\n' \
    "$(date -u +%Y-%m-%dT%H:%M:%SZ)" "$(e2e_source_json "$E2E_BUILD" "$top")"
  printf ' "machine": %s, "load_average_start": "%s", "load_average_end": "%s",\n' \
    "$(e2e_machine_json)" "$load_start" "$load_end"
  printf ' "sizes": [\n%s\n ],\n' "$(IFS=,; printf '%s' "${size_json[*]}" | sed 's/},{"rows"/},\n{"rows"/g')"
  printf ' "targets": %s}\n' "$targets"
} >"$results/e2e.json"

echo
echo "End to end, batches of ZBATCH_ORDER rows; cost at listen timer 0 with one caller (medians of $reps)"
printf '%6s %9s %11s %9s %9s %9s %9s %8s %8s %8s %7s' rows batch/s rows/s wall_ms cpu_ms fl_ms fl_cpu_ms cpu/fl wall/fl peak_MB grow/xml
for timer in $rate_timers; do printf ' %17s' "1 caller @$timer ms"; done
echo
printf '%s\n' "${table_lines[@]}"
echo "targets: $targets"
echo "load average: $load_start at the start, $load_end at the end; figures in $results/e2e.json"
