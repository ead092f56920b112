# Shell helpers shared by bench/e2e_driver.sh and bench/soak.sh: finding the
# build, making batch files, starting and stopping sapsim and the batch
# server, reading a process's figures from /proc. Sourced, not run.
#
# The caller sets E2E_NAME (prefix of messages) before sourcing, and calls
# e2e_cleanup from its EXIT trap so that no process it started outlives it.

E2E_NAME=${E2E_NAME:-e2e}
E2E_PIDS=()

e2e_say() { printf '%s: %s\n' "$E2E_NAME" "$*" >&2; }
e2e_die() {
  printf '%s: FAILED: %s\n' "$E2E_NAME" "$*" >&2
  exit 1
}

# Absolute path of the build folder given on the command line.
e2e_build_dir() {
  local top=$1 build=$2
  case "$build" in /*) ;; *) build="$top/$build" ;; esac
  printf '%s\n' "$build"
}

# Exits with a message naming the missing file and how to build it.
e2e_require_build() {
  local build=$1 f
  shift
  [ -d "$build" ] || {
    printf '%s: build folder %s does not exist; build first: make build (or cmake -S . -B %s -G Ninja && cmake --build %s)\n' \
      "$E2E_NAME" "$build" "$build" "$build" >&2
    exit 2
  }
  for f in "$@"; do
    [ -e "$build/$f" ] || {
      printf '%s: %s is missing; build first: make build (or cmake --build %s)\n' "$E2E_NAME" "$build/$f" "$build" >&2
      exit 2
    }
  done
}

# Waits up to $1 tenths of a second for the command after it to succeed.
e2e_wait_for() {
  local tenths=$1
  shift
  while [ "$tenths" -gt 0 ]; do
    "$@" && return 0
    sleep 0.1
    tenths=$((tenths - 1))
  done
  return 1
}

# Remembers a process this script started, so that e2e_cleanup ends it.
e2e_track() { E2E_PIDS+=("$1"); }
e2e_untrack() {
  local keep=() p
  for p in "${E2E_PIDS[@]}"; do [ "$p" = "$1" ] || keep+=("$p"); done
  E2E_PIDS=("${keep[@]}")
}

# Ends every process still tracked: SIGTERM, then SIGKILL after 6 seconds.
e2e_cleanup() {
  local p tenths
  for p in "${E2E_PIDS[@]}"; do
    kill -0 "$p" 2>/dev/null || continue
    kill -TERM "$p" 2>/dev/null
    tenths=60
    while kill -0 "$p" 2>/dev/null && [ "$tenths" -gt 0 ]; do
      sleep 0.1
      tenths=$((tenths - 1))
    done
    kill -KILL "$p" 2>/dev/null
    wait "$p" 2>/dev/null
  done
  E2E_PIDS=()
}

# A CSV of $1 rows of the example structure ZBATCH_ORDER (every type letter)
# into $3. Every row has its own H_IDENT, so every row becomes an element; the
# texts hold characters the XML writer escapes. $2 goes into every row's NOTE:
# the soak run tells its batches apart by it.
e2e_make_csv() {
  local rows=$1 tag=$2 file=$3
  awk -v n="$rows" -v tag="$tag" 'BEGIN {
    print "H_IDENT,T_IDENT,IDENT,CUSTOMER,ORDER_DATE,ORDER_TIME,AMOUNT,QUANTITY,WEIGHT,PRIORITY,FLAGS,CHECKSUM,NOTE"
    for (i = 1; i <= n; i++)
      printf "H%08d,T%08d,%d,Smith & Sons <%05d>,20240131,083000,%d.95,%d,2.5,1,3,0A0B0C0D,\"%s \"\"quoted\"\" note\"\n",
             i, i, i, i % 100000, i % 100000, i % 1000, tag
  }' >"$file"
}

# Starts sapsim on port $2 (0: a free one) with the system file $1, output
# into folder $3. Sets SAPSIM_PID and SAPSIM_PORT.
e2e_start_sapsim() {
  local system=$1 port=$2 dir=$3 i
  : >"$dir/sapsim.out"
  "$E2E_BUILD/bin/sapsim" serve --system "$system" --port "$port" --quiet \
    >"$dir/sapsim.out" 2>>"$dir/sapsim.log" &
  SAPSIM_PID=$!
  e2e_track "$SAPSIM_PID"
  _sapsim_listening() { grep -q 'listening on port' "$dir/sapsim.out"; }
  # A restart on the same port may meet the old sockets for a moment.
  if ! e2e_wait_for 100 _sapsim_listening; then
    tail -5 "$dir/sapsim.log" >&2
    return 1
  fi
  SAPSIM_PORT=$(sed -n 's/.*listening on port \([0-9][0-9]*\).*/\1/p' "$dir/sapsim.out")
  [ -n "$SAPSIM_PORT" ]
}

# Writes an INI file $1 with section $2 for a batch server registering at the
# sapsim on port $3 with listen timer $4, logging into $5, XML files into $6.
e2e_write_ini() {
  local ini=$1 instance=$2 port=$3 timer=$4 logdir=$5 xmldir=$6
  {
    printf '[%s]\r\n' "$instance"
    printf 'sap.server.gateway.host=127.0.0.1\r\n'
    printf 'sap.server.gateway.service=%s\r\n' "$port"
    printf 'sap.server.programm.id=BATCHSRV\r\n'
    printf 'sap.server.listen.timer=%s\r\n' "$timer"
    printf 'sap.client.loadbalancing=No\r\n'
    printf 'sap.client.host=127.0.0.1\r\n'
    printf 'sap.client.sysnumber=00\r\n'
    printf 'sap.client.client=100\r\n'
    printf 'sap.client.user.id=BATCH\r\n'
    printf 'sap.client.user.password=secret\r\n'
    printf 'sap.client.language=EN\r\n'
    printf 'sap.client.trace=0\r\n'
    printf 'sap.library=%s\r\n' "$E2E_BUILD/lib/librfcsim.so"
    printf 'sap.path=%s\r\n' "$logdir"
    printf 'xml.path=%s\r\n' "$xmldir"
  } >"$ini"
}

# The whole log of a log folder, without CR.
e2e_log_text() { cat "$1"/*.log 2>/dev/null | tr -d '\r'; }

# Starts the batch server as instance $1 with INI $2, its log in folder $3,
# standard output and error into $4. Waits until it serves. Sets SERVER_PID.
e2e_start_server() {
  local instance=$1 ini=$2 logdir=$3 out=$4
  "$E2E_BUILD/bin/batchctl" status "$instance" >/dev/null 2>&1
  if [ $? -ne 3 ]; then
    e2e_die "a batch server named $instance is already running"
  fi
  "$E2E_BUILD/bin/batchserver" "$instance" "$ini" >"$out" 2>&1 &
  SERVER_PID=$!
  e2e_track "$SERVER_PID"
  _server_waiting() { e2e_log_text "$logdir" | grep -q '\.\.\.WAITING FOR BATCHES\.\.\.'; }
  if ! e2e_wait_for 200 _server_waiting; then
    e2e_log_text "$logdir" | tail -20 >&2
    cat "$out" >&2
    return 1
  fi
}

# SIGTERM sets the stop event and ends the process in order.
e2e_stop_process() {
  local pid=$1
  [ -n "$pid" ] || return 0
  kill -TERM "$pid" 2>/dev/null
  wait "$pid" 2>/dev/null
  e2e_untrack "$pid"
}

# A field of /proc/<pid>/status in kB (VmHWM, VmRSS).
e2e_status_kb() { awk -v f="$2:" '$1 == f { print $2 }' "/proc/$1/status" 2>/dev/null; }

# Nanoseconds all threads of the process have spent on a CPU.
e2e_cpu_ns() { cat /proc/"$1"/task/*/schedstat 2>/dev/null | awk '{ s += $1 } END { printf "%.0f\n", s }'; }

# Open file descriptors of the process.
e2e_fd_count() { ls "/proc/$1/fd" 2>/dev/null | wc -l; }

# The machine, as a JSON object.
e2e_machine_json() {
  local model kernel
  model=$(awk -F': *' '/^model name/ { print $2; exit }' /proc/cpuinfo | sed 's/["\\]//g')
  kernel=$(uname -r)
  printf '{"nproc": %s, "cpu_model": "%s", "kernel": "%s", "memory_kb": %s}' \
    "$(nproc)" "$model" "$kernel" "$(awk '/^MemTotal:/ { print $2 }' /proc/meminfo)"
}

e2e_loadavg() { cut -d' ' -f1-3 /proc/loadavg; }

# The sources the build was made from, as JSON members: their folder, the
# commit and how many source files differ from it (0: the commit as it is).
e2e_source_json() {
  local build=$1 fallback=$2 src commit dirty
  src=$(sed -n 's/^CMAKE_HOME_DIRECTORY:INTERNAL=//p' "$build/CMakeCache.txt" 2>/dev/null)
  [ -n "$src" ] || src=$fallback
  commit=$(git -C "$src" rev-parse --short HEAD 2>/dev/null || echo unknown)
  dirty=$(git -C "$src" status --porcelain -- platform rfc output access app sapsim tools 2>/dev/null | grep -c '^ *[MADR]')
  printf '"source_dir": "%s", "commit": "%s", "changed_source_files": %s' "$src" "$commit" "$dirty"
}
