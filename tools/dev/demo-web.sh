# ./dev demo --web: a page of the service in a window, beside notary and service, each a process of its
# own. With a display the window is the user's; without one, a picture is taken, and the exit status is 0
# only if the page was shown.
# shellcheck shell=bash
# Most of what it calls is in demo.sh, and so are some variables.
# shellcheck disable=SC2034,SC2154

readonly demo_web_page=/notes/page

# As the service says it, without a web engine.
note_something() {
  section '3. The service has a note'
  local note=$demo_dir/note.json
  printf '{"text":"hello from the demo"}' >"$note"
  expect_output '{*"text":"hello from the demo"*}' kvlocal submit /notes --data "$note"
}

# The engine needs neither a graphics card nor, for root, the sandbox that it could not have.
start_web_host() {
  local -a environment=(QTWEBENGINE_CHROMIUM_FLAGS=--disable-gpu QT_QUICK_BACKEND=software)
  [ "$(id -u)" -ne 0 ] || environment+=(QTWEBENGINE_DISABLE_SANDBOX=1)
  if [ -n "$demo_display" ]; then
    environment+=(DISPLAY="$demo_display" XAUTHORITY="$demo_authority" QT_QPA_PLATFORM=xcb)
  else
    environment+=(QT_QPA_PLATFORM=offscreen)
  fi
  env "${environment[@]}" "$demo_bin/kvlocal-example-webview" "$@" >>"$demo_dir/host.log" 2>&1 </dev/null &
  started=$!
  demo_pids+=("$started")
  note "host: process $started"
}

take_picture_of_page() {
  section '4. A page of the service is shown, with forms, scripts and an event stream'
  pictures=$(mktemp -d "${TMPDIR:-/tmp}/kvlocal-page-XXXXXX")
  start_web_host --picture "$pictures/page.png" "$demo_web_page"
  wait "$started" || die 'the page was not shown'
  [ -s "$pictures/page.png" ] || die 'there is no picture of it'
  note "a picture of it: $pictures/page.png"
}

run_web_demo() {
  demo_bin=build/demo-qt/bin
  configure_and_build demo-qt kvlocal-devnotary kvlocal-devservice kvlocal-cli \
    kvlocal-example-webview >&2
  begin_demo
  start_session
  show_peers
  note_something
  if [ -n "$demo_display" ]; then
    section '4. The window is yours: close it to end'
    start_web_host "$demo_web_page"
    wait "$started" || die "the host ended with status $?"
  else
    take_picture_of_page
  fi
}
