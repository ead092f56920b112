#!/usr/bin/env bash
# Soak run of the batch server against sapsim (about 10 minutes; not in CI).
#
# SOAK_SENDERS `sapsim call` senders send SOAK_BATCHES acknowledged batches
# of mixed sizes between them: per round of 2,500 batches one of 10,000
# rows, 49 of 100 rows and 2,450 of one row. Every `sapsim call` process
# (a chunk: one size, --repeat K) sends its own tag in the NOTE field of
# every row, so each XML file says which chunk it came from. Every
# SOAK_KILL_EVERY seconds sapsim is killed (SIGKILL), stays down for
# SOAK_DOWN seconds and is started again on the same port; the server must
# retry and serve again, and the senders retry their refused chunks.
#
# Afterwards it checks, and prints (also as BUILD/bench-results/soak.json):
#   - every batch of a chunk that `sapsim call` finished with success has its
#     XML file, except where batch ids collided within one millisecond (the
#     same id is the same file name): collisions are counted separately, not
#     as losses. The senders finish their chunk before a kill
#     (SOAK_KILL_MODE=between), so a chunk that fails was refused at its
#     first call and delivered nothing; then the acknowledged batches without
#     a file must be exactly the collisions. With SOAK_KILL_MODE=busy sapsim
#     dies in the middle of chunks; `sapsim call --repeat` does not say how
#     many calls of a failed chunk were answered, so the check is a bound;
#   - every "Receive data: " line of the log has its file and every file its
#     line; no chunk has more files than it sent; every file of a size class
#     has that class's size (no partial files); every 10,000-row batch, sent
#     without --repeat, answered BATCH_RC=1;
#   - the log shows every restart: one "...WAITING FOR BATCHES..." per start
#     of sapsim, at least one failed cycle with its header block and
#     RFC_ERROR_INFO entry between two of them, and every cycle (header
#     block) either serves or logs its error;
#   - the server's RSS and open file descriptors, sampled every second from
#     /proc, do not grow: after the warm-up (every sender's first 10,000-row
#     batch), the second half of the samples stays within the first half's
#     maximum (RSS + 10% + 2 MiB, descriptors + 2).
# Exit status 1 when anything is lost or grows, 2 when the build is missing.
#
# Usage: bench/soak.sh BUILD_DIR   (make soak)
# Environment: SOAK_BATCHES (100000), SOAK_SENDERS (2), SOAK_TIMER (listen
# timer, 2), SOAK_KILL_EVERY (90 s), SOAK_DOWN (2 s), SOAK_SMALL_CHUNK (50),
# SOAK_KILL_MODE (between; busy kills in the middle of chunks), SOAK_KEEP
# (0; 1 keeps the XML files), SOAK_RECHECK (1: only the checks,
# over what a kept run left in BUILD/soak-scratch).
set -u
export LC_ALL=C # sort, join and comm must agree on the order

here=$(cd "$(dirname "$0")" && pwd)
top=$(dirname "$here")
E2E_NAME=soak
# shellcheck source=bench/e2e/common.sh
. "$here/e2e/common.sh"

E2E_BUILD=$(e2e_build_dir "$top" "${1:-build}")
e2e_require_build "$E2E_BUILD" bin/sapsim bin/batchserver bin/batchctl lib/librfcsim.so

total=${SOAK_BATCHES:-100000}
senders=${SOAK_SENDERS:-2}
timer=${SOAK_TIMER:-2}
kill_every=${SOAK_KILL_EVERY:-90}
down=${SOAK_DOWN:-2}
small_chunk=${SOAK_SMALL_CHUNK:-50}
kill_mode=${SOAK_KILL_MODE:-between}
case $kill_mode in between | busy) ;; *) e2e_die "SOAK_KILL_MODE is between or busy, not $kill_mode" ;; esac
keep=${SOAK_KEEP:-0}
sapsim="$E2E_BUILD/bin/sapsim"
scratch="$E2E_BUILD/soak-scratch"
results="$E2E_BUILD/bench-results"
instance="SOAK$$"
quota=$(( (total + senders - 1) / senders ))

trap e2e_cleanup EXIT
trap 'exit 130' INT TERM

if [ "${SOAK_RECHECK:-0}" = 1 ]; then
  # Only the checks, over the files a run with SOAK_KEEP=1 left behind.
  [ -f "$scratch/run.env" ] && [ -d "$scratch/xml" ] || e2e_die "no kept soak run in $scratch (run with SOAK_KEEP=1 first)"
  . "$scratch/run.env"
else
  rm -rf "$scratch"
  mkdir -p "$scratch/log" "$scratch/xml" "$scratch/send" "$results" || e2e_die "cannot create $scratch"

  # Templates: @TAG@ becomes the chunk's tag.
  for rows in 1 100 10000; do
    e2e_make_csv "$rows" @TAG@ "$scratch/send/rows$rows.template"
  done

  e2e_start_sapsim "$top/examples/system.json" 0 "$scratch" || e2e_die "sapsim did not start (see $scratch/sapsim.log)"
  port=$SAPSIM_PORT
  e2e_write_ini "$scratch/batchserver.ini" "$instance" "$port" "$timer" "$scratch/log" "$scratch/xml"
  e2e_start_server "$instance" "$scratch/batchserver.ini" "$scratch/log" "$scratch/batchserver.out" ||
    e2e_die "the batch server did not reach '...WAITING FOR BATCHES...'"
  server=$SERVER_PID
  load_start=$(e2e_loadavg)
  e2e_say "sapsim on port $port, batch server pid $server, listen timer $timer ms, $senders senders x $quota batches; load average $load_start"

  # Samples of the server every second until $scratch/stop-sampling appears:
  # milliseconds since the start, VmRSS kB, VmHWM kB, open descriptors, threads.
  sampler() {
    local start_ms=$1 now
    while [ ! -e "$scratch/stop-sampling" ] && kill -0 "$server" 2>/dev/null; do
      now=$(( $(date +%s%N) / 1000000 - start_ms ))
      printf '%s %s %s %s %s\n' "$now" "$(e2e_status_kb "$server" VmRSS)" "$(e2e_status_kb "$server" VmHWM)" \
        "$(e2e_fd_count "$server")" "$(ls "/proc/$server/task" 2>/dev/null | wc -l)" >>"$scratch/samples"
      sleep 1
    done
  }

  # One sender: chunks until `quota` batches were acknowledged. Writes one line
  # per chunk to send/S<n>.chunks: tag rows calls status (0: every call of the
  # chunk answered) and when it ended (ms since the start).
  sender() {
    local n=$1 acked=0 chunk=0 slot rows calls tag status child=
    trap '[ -n "$child" ] && kill -TERM "$child" 2>/dev/null; exit 143' TERM
    # Senders start at different places of the round so that their large
    # batches do not meet.
    slot=$(( (n - 1) * 25 % 51 ))
    while [ "$acked" -lt "$quota" ]; do
      # Between chunks only: the kill waits for every sender to get here.
      if [ -e "$scratch/pause" ]; then
        touch "$scratch/send/S$n.idle"
        while [ -e "$scratch/pause" ]; do sleep 0.05; done
        rm -f "$scratch/send/S$n.idle"
      fi
      case $slot in
        0) rows=10000 calls=1 ;;
        1) rows=100 calls=49 ;;
        *) rows=1 calls=$small_chunk ;;
      esac
      [ $((quota - acked)) -lt "$calls" ] && calls=$((quota - acked))
      chunk=$((chunk + 1))
      tag=$(printf 'S%dC%06d' "$n" "$chunk")
      sed "s/@TAG@/$tag/" "$scratch/send/rows$rows.template" >"$scratch/send/S$n.csv"
      if [ "$rows" -eq 10000 ]; then
        # Sent alone, so that the answer is printed: it must be BATCH_RC=1.
        "$sapsim" call --port "$port" --program-id BATCHSRV --function Z_BATCH_ORDERS --structure ZBATCH_ORDER \
          --csv "$scratch/send/S$n.csv" >"$scratch/send/S$n.answer" 2>>"$scratch/send/S$n.errors" &
      else
        "$sapsim" call --port "$port" --program-id BATCHSRV --function Z_BATCH_ORDERS --structure ZBATCH_ORDER \
          --csv "$scratch/send/S$n.csv" --repeat "$calls" >/dev/null 2>>"$scratch/send/S$n.errors" &
      fi
      child=$!
      wait "$child"
      status=$?
      child=
      if [ "$status" -eq 0 ] && [ "$rows" -eq 10000 ]; then
        grep -qx 'BATCH_RC=1' "$scratch/send/S$n.answer" || status=9
      fi
      printf '%s %s %s %s %s\n' "$tag" "$rows" "$calls" "$status" $(( $(date +%s%N) / 1000000 - t0_ms )) \
        >>"$scratch/send/S$n.chunks"
      if [ "$status" -eq 0 ]; then
        acked=$((acked + calls))
        slot=$(( (slot + 1) % 51 ))
      else
        sleep 0.2 # sapsim is down or the server not registered yet
      fi
    done
  }

  acked_so_far() { cat "$scratch"/send/S*.chunks 2>/dev/null | awk '$4 == 0 { s += $3 } END { print s + 0 }'; }

  start_s=$(date +%s)
  t0_ms=$(( $(date +%s%N) / 1000000 ))
  sampler "$t0_ms" &
  sampler_pid=$!
  e2e_track "$sampler_pid"
  sender_pids=()
  for ((i = 1; i <= senders; i++)); do
    sender "$i" &
    sender_pids+=($!)
    e2e_track "$!"
  done

  running() {
    local p
    for p in "${sender_pids[@]}"; do kill -0 "$p" 2>/dev/null && return 0; done
    return 1
  }

  kills=0
  next_kill=$((start_s + kill_every))
  next_report=$((start_s + 30))
  : >"$scratch/restarts"
  while running; do
    sleep 1
    now=$(date +%s)
    if [ "$now" -ge "$next_kill" ] && running; then
      if [ "$kill_mode" = between ]; then
        touch "$scratch/pause"
        _senders_idle() {
          local i p k=0
          for ((i = 1; i <= senders; i++)); do
            p=${sender_pids[i - 1]}
            if [ -e "$scratch/send/S$i.idle" ] || ! kill -0 "$p" 2>/dev/null; then k=$((k + 1)); fi
          done
          [ "$k" -eq "$senders" ]
        }
        e2e_wait_for 600 _senders_idle || e2e_die "the senders did not pause within 60 s"
      fi
      kill -KILL "$SAPSIM_PID" 2>/dev/null
      wait "$SAPSIM_PID" 2>/dev/null
      e2e_untrack "$SAPSIM_PID"
      kills=$((kills + 1))
      echo "kill $kills $(date +%s%N)" >>"$scratch/restarts"
      sleep "$down"
      e2e_start_sapsim "$top/examples/system.json" "$port" "$scratch" ||
        e2e_die "sapsim did not start again on port $port (see $scratch/sapsim.log)"
      echo "start $kills $(date +%s%N)" >>"$scratch/restarts"
      rm -f "$scratch/pause"
      e2e_say "killed sapsim and started it again ($kills), $(acked_so_far) batches acknowledged"
      next_kill=$(( $(date +%s) + kill_every ))
    elif [ "$now" -ge "$next_report" ]; then
      e2e_say "$(( now - start_s )) s: $(acked_so_far) batches acknowledged"
      next_report=$((now + 30))
    fi
  done
  for p in "${sender_pids[@]}"; do wait "$p"; e2e_untrack "$p"; done
  elapsed=$(( $(date +%s) - start_s ))
  sleep 2 # the last sample after the last batch
  touch "$scratch/stop-sampling"
  wait "$sampler_pid"
  e2e_untrack "$sampler_pid"
  load_end=$(e2e_loadavg)
  e2e_stop_process "$server"
  e2e_stop_process "$SAPSIM_PID"
  e2e_say "senders done after $elapsed s; checking"
  printf 'kills=%s\nelapsed=%s\nload_start="%s"\nload_end="%s"\ntotal=%s\nsenders=%s\ntimer=%s\nkill_every=%s\ndown=%s\nsmall_chunk=%s\nkill_mode=%s\n' \
    "$kills" "$elapsed" "$load_start" "$load_end" "$total" "$senders" "$timer" "$kill_every" "$down" "$small_chunk" \
    "$kill_mode" >"$scratch/run.env"
fi

# --- Checks -----------------------------------------------------------------
log="$scratch/log.txt"
e2e_log_text "$scratch/log" >"$log"
cat "$scratch"/send/S*.chunks >"$scratch/chunks"
sed -n 's/.*Receive data: \([0-9]*\.xml\)$/\1/p' "$log" >"$scratch/logged"
sort "$scratch/logged" | uniq >"$scratch/logged.distinct"
find "$scratch/xml" -name '*.xml' -printf '%f %s\n' | sort >"$scratch/files"
cut -d' ' -f1 "$scratch/files" >"$scratch/files.names"
# The tag of every file: the NOTE of its first row ("&quot;" follows the tag).
grep -r -m1 -o '<NOTE>S[0-9]*C[0-9]*' "$scratch/xml" | sed 's|.*/\([0-9]*\.xml\):<NOTE>|\1 |' | sort >"$scratch/file_tags"

logged=$(wc -l <"$scratch/logged")
distinct=$(wc -l <"$scratch/logged.distinct")
collisions=$((logged - distinct))
files=$(wc -l <"$scratch/files")
untagged=$(join -v1 "$scratch/files.names" <(cut -d' ' -f1 "$scratch/file_tags") | wc -l)
no_file=$(comm -23 "$scratch/logged.distinct" "$scratch/files.names" | wc -l)
no_line=$(comm -13 "$scratch/logged.distinct" "$scratch/files.names" | wc -l)

# Per chunk: files found against calls sent. Confirmed chunks (status 0)
# must account for every call; a failed chunk may have any number up to its
# calls (the calls before the failure, and one the server took but could not
# answer).
read -r acked confirmed_missing failed_chunks failed_delivered overfull big_bad <<<"$(
  awk 'NR == FNR { files[$2]++; next }
       { f = files[$1] + 0
         if ($4 == 0) { acked += $3; if (f < $3) missing += $3 - f }
         else { failed++; delivered += f; if ($4 == 9) big_bad++ }
         if (f > $3) over++ }
       END { printf "%d %d %d %d %d %d\n", acked, missing, failed, delivered, over, big_bad }' \
    "$scratch/file_tags" "$scratch/chunks")"

# Size classes: every file of a class has the class's most common size.
read -r small_size medium_size big_size bad_size <<<"$(
  awk 'NR == FNR { rows[$1] = $2; next }
       FILENAME == ARGV[2] { tag[$1] = $2; next }
       { r = rows[tag[$1]]; n[r, $2]++; size[$1] = $2; cls[$1] = r }
       END {
         for (k in n) { split(k, p, SUBSEP); if (n[k] > best[p[1]]) { best[p[1]] = n[k]; mode[p[1]] = p[2] } }
         for (f in size) if (size[f] != mode[cls[f]]) bad++
         printf "%d %d %d %d\n", mode[1], mode[100], mode[10000], bad
       }' "$scratch/chunks" "$scratch/file_tags" "$scratch/files")"

# Restarts as the log shows them.
headers=$(grep -c '^# HEADER$' "$log")
waiting=$(grep -c '^\.\.\.WAITING FOR BATCHES\.\.\.$' "$log")
rfc_errors=$(grep -c 'RFC_ERROR_INFO$' "$log")
unknown=$(grep -c 'UNKNOWN EXEPTION$' "$log")
# Between two waiting lines: at least one failed cycle with its RFC_ERROR_INFO.
gaps_without_error=$(awk '/^\.\.\.WAITING FOR BATCHES\.\.\.$/ { if (seen && errors == 0) bad++; seen = 1; errors = 0 }
                          /RFC_ERROR_INFO$/ { errors++ } END { print bad + 0 }' "$log")
# Every cycle (a header block) either serves or fails with an error entry;
# the last one serves until the stop.
read -r cycles failed_cycles cycles_unaccounted <<<"$(
  awk 'function close_cycle() { if (open && !served && !failed) bad++; if (open && !served) nfailed++ }
       /^# HEADER$/ { close_cycle(); open = 1; served = 0; failed = 0; n++ }
       /^\.\.\.WAITING FOR BATCHES\.\.\.$/ { served = 1 }
       /RFC_ERROR_INFO$|UNKNOWN EXEPTION$/ { failed = 1 }
       END { if (open && !served) bad++; printf "%d %d %d\n", n, nfailed, bad }' "$log")"
dispatch_reports=$(grep -c 'during Invoke' "$scratch/batchserver.out")

# Samples: first, last, maximum; growth is judged after the warm-up, which
# ends when every sender has had its first 10,000-row batch answered (the
# largest batch sets the heap the process keeps): the later half of the
# remaining samples against the earlier half.
warm_ms=$(awk '$2 == 10000 && $4 == 0 { s = substr($1, 1, index($1, "C") - 1); if (!(s in end)) end[s] = $5 }
               END { for (s in end) if (end[s] > m) m = end[s]; print m + 0 }' "$scratch/chunks")
read -r samples rss_first rss_last rss_max rss_max1 rss_max2 fd_first fd_last fd_max fd_max1 fd_max2 <<<"$(
  awk -v warm="$warm_ms" '{ n++; rss[n] = $2; fd[n] = $4; if ($1 > warm && !w) w = n }
       END {
         if (!w) w = 1
         h = w + int((n - w + 1) / 2)
         for (i = 1; i <= n; i++) {
           if (rss[i] > rm) rm = rss[i]; if (fd[i] > fm) fm = fd[i]
           if (i < w) continue
           if (i < h) { if (rss[i] > r1) r1 = rss[i]; if (fd[i] > f1) f1 = fd[i] }
           else { if (rss[i] > r2) r2 = rss[i]; if (fd[i] > f2) f2 = fd[i] }
         }
         printf "%d %d %d %d %d %d %d %d %d %d %d\n", n, rss[1], rss[n], rm, r1, r2, fd[1], fd[n], fm, f1, f2
       }' "$scratch/samples")"

problems=()
if [ "$kill_mode" = between ]; then
  # No chunk was cut by a kill: a failed chunk was refused at its first call
  # and delivered nothing, so every overwritten file belonged to an
  # acknowledged batch and the two counts must be equal.
  [ "$failed_delivered" -eq 0 ] || problems+=("$failed_delivered files of chunks that were refused")
  [ "$confirmed_missing" -eq "$collisions" ] ||
    problems+=("$confirmed_missing acknowledged batches have no file, $collisions ids collided")
else
  # A chunk cut by a kill may have had batches overwritten too: a bound only.
  [ "$confirmed_missing" -le "$collisions" ] ||
    problems+=("$confirmed_missing acknowledged batches have no file, only $collisions ids collided")
fi
[ "$no_file" -eq 0 ] || problems+=("$no_file logged batches have no XML file")
[ "$no_line" -eq 0 ] || problems+=("$no_line XML files have no log line")
[ "$untagged" -eq 0 ] || problems+=("$untagged XML files without a chunk tag")
[ "$overfull" -eq 0 ] || problems+=("$overfull chunks have more files than calls")
[ "$bad_size" -eq 0 ] || problems+=("$bad_size XML files differ in size from their class")
[ "$big_bad" -eq 0 ] || problems+=("$big_bad large batches answered without BATCH_RC=1")
[ "$acked" -ge "$total" ] || problems+=("only $acked of $total batches acknowledged")
[ "$waiting" -eq $((kills + 1)) ] || problems+=("$waiting waiting lines for $((kills + 1)) starts of sapsim")
[ "$gaps_without_error" -eq 0 ] || problems+=("$gaps_without_error restarts without an RFC_ERROR_INFO entry")
[ "$cycles_unaccounted" -eq 0 ] ||
  problems+=("$cycles_unaccounted service cycles neither served nor logged an error")
[ "$rss_max2" -le $((rss_max1 + rss_max1 / 10 + 2048)) ] ||
  problems+=("RSS grew: $rss_max1 kB at most in the first half after the warm-up, $rss_max2 kB in the second")
[ "$fd_max2" -le $((fd_max1 + 2)) ] ||
  problems+=("open descriptors grew: $fd_max1 at most in the first half after the warm-up, $fd_max2 in the second")

verdict=pass
[ "${#problems[@]}" -eq 0 ] || verdict=fail
problems_json=$(printf '%s\n' "${problems[@]+"${problems[@]}"}" | awk 'NF { gsub(/"/, "\\\""); printf "%s\"%s\"", (n++ ? ", " : ""), $0 }')
{
  printf '{"benchmark": "soak", "date": "%s", %s, "verdict": "%s", "problems": [%s],\n' \
    "$(date -u +%Y-%m-%dT%H:%M:%SZ)" "$(e2e_source_json "$E2E_BUILD" "$top")" "$verdict" "$problems_json"
  printf ' "machine": %s, "load_average_start": "%s", "load_average_end": "%s",\n' \
    "$(e2e_machine_json)" "$load_start" "$load_end"
  printf ' "settings": {"batches": %d, "senders": %d, "listen_timer_ms": %d, "kill_every_s": %d, "down_s": %d, "small_chunk": %d, "kill_mode": "%s"},\n' \
    "$total" "$senders" "$timer" "$kill_every" "$down" "$small_chunk" "$kill_mode"
  printf ' "elapsed_s": %d, "batches_per_second": %.1f,\n' "$elapsed" "$(awk -v a="$acked" -v e="$elapsed" 'BEGIN { print (e > 0 ? a / e : 0) }')"
  printf ' "batches": {"acknowledged": %d, "logged": %d, "xml_files": %d, "collided_ids": %d, "acknowledged_without_file": %d,\n' \
    "$acked" "$logged" "$files" "$collisions" "$confirmed_missing"
  printf '   "failed_chunks": %d, "files_of_failed_chunks": %d, "logged_without_file": %d, "files_without_log_line": %d,\n' \
    "$failed_chunks" "$failed_delivered" "$no_file" "$no_line"
  printf '   "files_of_wrong_size": %d, "size_bytes": {"1": %d, "100": %d, "10000": %d},\n' "$bad_size" "$small_size" "$medium_size" "$big_size"
  printf '   "by_rows": {%s}},\n' "$(awk '$4 == 0 { a[$2] += $3 } END { for (r in a) printf "%s\"%s\": %d", (n++ ? ", " : ""), r, a[r] }' "$scratch/chunks")"
  printf ' "restarts": {"sapsim_kills": %d, "header_blocks": %d, "waiting_lines": %d, "failed_cycles": %d, "rfc_error_info": %d, "unknown_exeption": %d, "restarts_without_error_entry": %d, "cycles_without_outcome": %d, "dispatch_reports": %d},\n' \
    "$kills" "$headers" "$waiting" "$failed_cycles" "$rfc_errors" "$unknown" "$gaps_without_error" "$cycles_unaccounted" "$dispatch_reports"
  printf ' "rss_kb": {"samples": %d, "warm_up_ms": %d, "first": %d, "last": %d, "max": %d, "max_first_half": %d, "max_second_half": %d},\n' \
    "$samples" "$warm_ms" "$rss_first" "$rss_last" "$rss_max" "$rss_max1" "$rss_max2"
  printf ' "open_fds": {"first": %d, "last": %d, "max": %d, "max_first_half": %d, "max_second_half": %d}}\n' \
    "$fd_first" "$fd_last" "$fd_max" "$fd_max1" "$fd_max2"
} >"$results/soak.json"

echo
echo "Soak: $acked batches acknowledged in $elapsed s, $senders senders, listen timer $timer ms, sapsim killed $kills times"
echo "  logged $logged, XML files $files, ids collided within a millisecond $collisions (not losses)"
echo "  acknowledged without a file $confirmed_missing, failed chunks $failed_chunks (their files: $failed_delivered)"
echo "  log: $headers header blocks, $waiting waiting lines, $failed_cycles failed cycles, $rfc_errors RFC_ERROR_INFO, $unknown UNKNOWN EXEPTION"
echo "  RSS kB first/last/max: $rss_first/$rss_last/$rss_max (halves $rss_max1/$rss_max2); open fds first/last/max: $fd_first/$fd_last/$fd_max"
echo "  load average $load_start at the start, $load_end at the end; report in $results/soak.json"
if [ "$keep" != 1 ]; then rm -rf "$scratch/xml"; fi
if [ "$verdict" = pass ]; then
  echo "soak: PASS"
  exit 0
fi
printf 'soak: FAIL: %s\n' "${problems[@]}" >&2
exit 1
