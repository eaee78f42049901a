# ./dev demo --qt: the host with windows beside notary and service, each a process of its own. With a
# display the user's hands run it; without one, a script does, and the exit status is 0 only if all
# that is shown really happened.
# shellcheck shell=bash
# Most of what it calls is in demo.sh, and so are some variables.
# shellcheck disable=SC2034,SC2154

readonly demo_qt_stream='/feed?interval=500'

# The display that the host is to use; empty for none. Who may use it is known at home.
demo_display=${DISPLAY:-}
demo_authority=${XAUTHORITY:-${HOME:-}/.Xauthority}
pictures=

start_qt_host() {
  coproc HOST {
    exec env DISPLAY="$demo_display" XAUTHORITY="$demo_authority" QT_QPA_PLATFORM=xcb \
      "$demo_bin/kvlocal-example-qthost" --trace --events "$demo_qt_stream" "$@" 2>>"$demo_dir/host.log"
  }
  demo_pids+=("$HOST_PID")
  host_pid=$HOST_PID
  exec {host_output}<&"${HOST[0]}" {host_input}>&"${HOST[1]}"
}

start_display() {
  section '3. A display that nobody sees'
  local number=$demo_dir/display
  Xvfb -displayfd 3 -screen 0 1280x960x24 -nolisten tcp -noreset 3>"$number" \
    >>"$demo_dir/xvfb.log" 2>&1 </dev/null &
  demo_pids+=("$!")
  note "display: process $!"
  wait_for_file "$number"
  demo_display=:$(<"$number")
  pictures=$(mktemp -d "${TMPDIR:-/tmp}/kvlocal-host-XXXXXX")
}

# take_picture NAME: what the window looks like now.
take_picture() {
  ask "picture $pictures/$1.png"
  expect "picture: $pictures/$1.png"
}

show_window() {
  section '4. A window shows what the service describes'
  start_qt_host "$@"
  expect_all 'state: Established' 'event: started, id 1, *' 'menus: Documents, Updates, Help' 'document: /status: 200 OK'
  ask 'open 1'
  expect 'opened: Documents'
  take_picture menu
  ask dismiss
}

# Everything of this has to be shown, in any order and within the time for one thing.
expect_all() {
  local pattern left=("$@") still end=$((SECONDS + demo_patience))
  while [ ${#left[@]} -gt 0 ]; do
    next_line "$end" || die "the host did not show:$(printf ' "%s"' "${left[@]}")"
    still=()
    for pattern in "${left[@]}"; do
      # shellcheck disable=SC2053 # a pattern is what is wanted
      [[ $line == $pattern ]] || still+=("$pattern")
    done
    left=("${still[@]}")
  done
}

show_forms() {
  section '5. Items submit forms, and the events tell of it'
  ask 'activate install'
  expect_all 'submitted: Install now: 200 OK' 'event: submitted, *install=all*'
  ask 'activate report'
  ask submit
  expect_all 'submitted: New report: 200 OK' 'event: submitted, *"title":"Quarterly report"*'
  take_picture form
  ask dismiss
}

show_qt_recovery() {
  section '6. The service is killed, and the window recovers once it is back'
  note "killing process $service_pid"
  stop "$service_pid" KILL
  expect 'state: Disconnected'
  take_picture disconnected
  local before=$last_event
  start_service
  expect 'state: Established'
  for _ in 1 2 3; do expect 'event: *'; done
  ask 'fetch /demo.json'
  expect 'document: /demo.json: 200 OK'
  ask 'open 1'
  expect 'opened: Documents'
  take_picture recovered
  ask dismiss
  note "events 1 to $last_event arrived in order, the last one before the restart was $before"
}

# Kills and starts the service while the user watches, and ends with the window.
watch_window() {
  section '3. The window is yours: close it to end'
  note "the service (process $service_pid) is restarted once, after 15 s"
  start_qt_host "$@"
  local restart=$((SECONDS + 15)) restarted=''
  while kill -0 "$host_pid" 2>/dev/null; do
    if IFS= read -r -t 1 -u "$host_output" line; then
      printf '   | %s\n' "$line"
      check_event
    elif [ $? -le 128 ]; then
      break # the host closed it
    fi
    if [ -z "$restarted" ] && [ $SECONDS -ge $restart ]; then
      restarted=yes
      note "killing process $service_pid"
      stop "$service_pid" KILL
      start_service
    fi
  done
}

run_qt_demo() {
  demo_bin=build/demo-qt/bin
  configure_and_build demo-qt kvlocal-devnotary kvlocal-devservice kvlocal-cli \
    kvlocal-example-qthost >&2
  begin_demo
  start_session
  show_peers
  if [ -n "$demo_display" ]; then
    watch_window "$@"
    wait "$host_pid" || die "the host ended with status $?"
  else
    start_display
    show_window "$@"
    show_forms
    show_qt_recovery
    show_end 7
    note "pictures of it: $pictures"
  fi
}
