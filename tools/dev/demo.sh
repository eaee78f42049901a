# ./dev demo: notary, service and host as separate processes in a session of their own. Every
# section waits for what it announces; the exit status is 0 only if all of it happened. With --qt the
# host has windows (see demo-qt.sh), with --web a page of the service (see demo-web.sh).
# shellcheck shell=bash
source tools/dev/demo-qt.sh
source tools/dev/demo-web.sh

readonly demo_patience=20 # seconds for any one thing to happen
demo_bin=build/demo/bin
readonly demo_document=/demo.json
# Events with consecutive numbers; a request that names the last one goes on with the next.
readonly demo_stream='/events?interval=400'

demo_pids=()
demo_dir=
last_event=0

# Starts a program in the background; its id is then in `started`, its output in the log NAME.
# start NAME PROGRAM [ARGUMENT...]
start() {
  local name=$1
  shift
  "$@" >>"$demo_dir/$name.log" 2>&1 </dev/null &
  started=$!
  demo_pids+=("$started")
  note "$name: process $started"
}

# Ends a process that was started here, or by `kvlocal dev`, and waits until it is gone.
# stop PID [SIGNAL]
stop() {
  kill -s "${2:-TERM}" "$1" 2>/dev/null || true
  wait "$1" 2>/dev/null || true
  while kill -0 "$1" 2>/dev/null; do sleep 0.02; done
}

demo_end() {
  local status=$? index
  trap - EXIT INT TERM
  [ $status -eq 0 ] || demo_show_logs
  for ((index = ${#demo_pids[@]} - 1; index >= 0; index--)); do stop "${demo_pids[index]}"; done
  rm -rf "$demo_dir"
  [ -z "${pictures:-}" ] || rmdir --ignore-fail-on-non-empty "$pictures"
  exit $status
}

demo_show_logs() {
  local log
  for log in "$demo_dir"/*.log; do
    [ -s "$log" ] || continue
    section "Log: $(basename "$log" .log)"
    tail -n 20 "$log"
  done >&2
}

# wait_for_file FILE: until it is there and not empty.
wait_for_file() {
  local end=$((SECONDS + demo_patience))
  until [ -s "$1" ]; do
    [ $SECONDS -lt $end ] || die "$(basename "$1") did not appear within $demo_patience s"
    sleep 0.05
  done
}

wait_for_name() { gdbus wait --session --timeout "$demo_patience" "$1" || die "nobody owns $1"; }

# next_line END: shows the next line that the host prints, which is then in `line`; fails when none
# comes before SECONDS is END.
next_line() {
  local rest=$(($1 - SECONDS))
  [ $rest -gt 0 ] && IFS= read -r -t "$rest" -u "$host_output" line || return 1
  printf '   | %s\n' "$line"
  check_event
}

# Shows what the host prints until a line matches PATTERN (as in [[ == ]]), which is then in `line`.
expect() {
  local pattern=$1 end=$((SECONDS + demo_patience))
  while next_line "$end"; do
    # shellcheck disable=SC2053 # a pattern is what is wanted
    [[ $line == $pattern ]] && return
  done
  die "the host did not show: $pattern"
}

# No event may be missing or come twice, whatever happens to the service.
check_event() {
  [[ $line == 'event: '* ]] || return 0
  local number
  number=$(value_of id)
  [ "$number" -eq $((last_event + 1)) ] || die "event $number came after event $last_event"
  last_event=$number
}

ask() {
  note "> $1"
  printf '%s\n' "$1" >&"$host_input"
}

# Prints the value after "NAME " in the last line, up to a comma.
value_of() { sed -n "s/.*$1 \([^,]*\).*/\1/p" <<<"$line"; }

start_session() {
  section '1. A private session: bus and key store'
  export HOME=$demo_dir/home XDG_RUNTIME_DIR=$demo_dir/runtime
  export XDG_DATA_HOME=$HOME XDG_CONFIG_HOME=$HOME XDG_CACHE_HOME=$HOME
  unset DISPLAY WAYLAND_DISPLAY korvale_vandrel_notary korvale_vandrel_notary_minimum
  mkdir -m 700 "$HOME" "$XDG_RUNTIME_DIR"
  mkdir "$demo_dir/documents"
  printf '{"message":"hello from the local service","list":[1,2,3],"changed":"%s"}' \
    2024-05-01T12:34:56Z >"$demo_dir/documents$demo_document"
  start_dev
  note "bus: process $bus_pid"
  start keyring gnome-keyring-daemon --foreground --components=secrets \
    --control-directory="$XDG_RUNTIME_DIR/keyring"
  wait_for_name org.freedesktop.secrets
}

# A bus with notary and service, from `kvlocal dev`. With a command to run it goes on when the service
# is killed.
start_dev() {
  # shellcheck disable=SC2016 # the variable is the command's
  TMPDIR=$demo_dir start dev "$demo_bin/kvlocal" --verbose dev --state "$demo_dir/state" \
    --documents "$demo_dir/documents" -- \
    sh -c 'echo "$DBUS_SESSION_BUS_ADDRESS" >"$0" && exec sleep infinity' "$demo_dir/address"
  wait_for_file "$demo_dir/address"
  export DBUS_SESSION_BUS_ADDRESS
  DBUS_SESSION_BUS_ADDRESS=$(<"$demo_dir/address")
  read -r bus_pid service_pid notary_pid _ <<<"$(<"/proc/$started/task/$started/children")"
}

start_service() {
  rm -f "$demo_dir/state/service.url"
  start service "$demo_bin/kvlocal-devservice" --state "$demo_dir/state" \
    --documents "$demo_dir/documents"
  service_pid=$started
  wait_for_file "$demo_dir/state/service.url"
  show_service
}

show_service() {
  service_url=$(<"$demo_dir/state/service.url")
  note "it listens at $service_url"
}

show_peers() {
  section '2. The notary and the service'
  note "notary: process $notary_pid"
  note "service: process $service_pid"
  show_service
}

start_host() {
  coproc HOST {
    exec "$demo_bin/kvlocal-example-console" "$demo_stream" 2>>"$demo_dir/host.log"
  }
  demo_pids+=("$HOST_PID")
  host_pid=$HOST_PID
  exec {host_output}<&"${HOST[0]}" {host_input}>&"${HOST[1]}"
}

fetch_document() {
  ask "$demo_document"
  expect "fetched: $demo_document: status 200"
  expect '{*}'
  [ "$line" == "$(<"$demo_dir/documents$demo_document")" ] || die 'that is not the document'
}

show_connection() {
  section '3. A host gets an identity and fetches a document'
  start_host
  expect 'progress: Established: *'
  expect 'identity: *'
  first_serial=$(value_of serial)
  fetch_document
}

# Runs a program to its end and shows what it prints, which must match.
# expect_output PATTERN PROGRAM [ARGUMENT...]
expect_output() {
  local pattern=$1 output
  shift
  note "> $(basename "$1") ${*:2}"
  output=$(timeout "$demo_patience" "$demo_bin/$1" "${@:2}" 2>>"$demo_dir/client.log") ||
    die "$1 ended with status $?"
  fold -w 100 <<<"$output" | sed 's/^/   | /'
  # shellcheck disable=SC2053 # a pattern is what is wanted
  [[ $output == $pattern ]] || die "$1 did not print: $pattern"
}

show_documents() {
  section '4. Documents, a form with a file, and an image'
  local file=$demo_dir/documents$demo_document
  expect_output $'message: hello *\nelements: 3\nyear: 1970\nchanged: 2024-05-01 12:34:56 *' \
    kvlocal-example-documents "$demo_document"
  expect_output '{"message":"hello *","list":\[1,2,3\],"changed":"2024-*"}' \
    kvlocal submit '/echo?as=body' --data "$file"
  expect_output '*"parts":\[{"name":"note",*,"value":"hello"},{"name":"file","filename":"demo.json",*' \
    kvlocal form /echo --input note=hello --file "file=@$file"
  expect_output $'size        64 x 64\n*template    yes\n*' \
    kvlocal image '/image?format=svg&role=template' --size 64x64 -o "$demo_dir/image.svg"
  wait_for_file "$demo_dir/image.svg"
}

# In American English, whatever the caller's language is.
show_menu() {
  section '5. A menu is drawn, one of its items activated, and a text rendered'
  local entries=$demo_dir/entries.json
  LC_ALL=C TZ=UTC expect_output \
    $'Updates\n    Install now  \\[3 updates\\] \\[key i\\]\n      found on May 1, 2024, *\n  x Check *\n        Clear\n*' \
    kvlocal menu /menu
  expect_output '{"method":"POST","path":"/echo",*"parts":\[{"name":"what",*,"value":"install"}\],*' \
    kvlocal menu --activate install /menu
  printf '[{"find":"%%T","type":"duration","seconds":3725}]' >"$entries"
  LC_ALL=C TZ=UTC expect_output 'it took 1 hour, 2 minutes, 5 seconds' \
    kvlocal render 'it took %T' --locales "$entries"
}

show_renewal() {
  section '6. The identity is renewed'
  ask renew
  expect 'identity: *'
  [ "$(value_of serial)" != "$first_serial" ] || die 'the identity is still the old one'
  note "serial $first_serial became $(value_of serial)"
  fetch_document
}

show_events() {
  section '7. Events arrive as the service sends them'
  for _ in 1 2 3; do expect 'event: *'; done
}

show_recovery() {
  section '8. The service is killed, and the host recovers once it is back'
  note "killing process $service_pid"
  stop "$service_pid" KILL
  expect 'state: 2'
  local before=$last_event
  start_service
  expect "progress: Established: Notarised for \"${service_url%/}*"
  fetch_document
  for _ in 1 2 3; do expect 'event: *'; done
  note "events 1 to $last_event arrived in order, the last one before the restart was $before"
}

show_end() {
  section "$1. The end"
  kill -0 "$host_pid" || die 'the host has crashed'
  exec {host_input}>&-
  eval "exec ${HOST[1]}>&-"
  wait "$host_pid" || die "the host ended with status $?"
  note 'the host has ended by itself; everything shown above really happened'
}

# From here on whatever is started is ended with the demo.
begin_demo() {
  demo_dir=$(mktemp -d)
  export LANGUAGE=en # the texts that are waited for
  trap demo_end EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM
}

packages_for_demo() {
  printf '%s\n' build peers
  case ${1:-} in
    --qt) printf '%s\n' qt display ;;
    --web) printf '%s\n' qt webengine ;;
  esac
}

run_demo() {
  if [ "${1:-}" = --qt ]; then
    run_qt_demo "${@:2}"
    return
  elif [ "${1:-}" = --web ]; then
    run_web_demo
    return
  fi
  configure_and_build demo kvlocal-devnotary kvlocal-devservice kvlocal-cli \
    kvlocal-example-console kvlocal-example-documents kvlocal-example-minimal >&2
  begin_demo
  start_session
  show_peers
  show_connection
  show_documents
  show_menu
  show_renewal
  show_events
  show_recovery
  show_end 9
}
