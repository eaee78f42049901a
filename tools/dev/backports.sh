# ./dev backports: the library with a newer libcurl, that of Debian's backports. Nothing of the machine
# is changed: the packages are unpacked below build/.
# shellcheck shell=bash
source tools/dev/test.sh

readonly curl_folder=$PWD/build/backports-packages
readonly curl_suite=bookworm-backports
readonly curl_packages=(libcurl4 libcurl4-openssl-dev)
readonly curl_oldest=8.14

packages_for_backports() { printf '%s\n' build peers tests; }

# apt-get with a configuration of its own: that suite alone, into a folder of its own.
curl_apt() {
  local apt=$curl_folder/apt
  mkdir -p "$apt"/{lists/partial,archives/partial,parts}
  cat >"$apt/sources.list" <<TEXT
deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] http://deb.debian.org/debian $curl_suite main
TEXT
  apt-get -o Dir::Etc::SourceList="$apt/sources.list" -o Dir::Etc::SourceParts="$apt/parts" \
    -o Dir::State::Lists="$apt/lists" -o Dir::Cache="$apt" -o Dir::Cache::Archives="$apt/archives" \
    -o APT::Sandbox::User=root -o Acquire::Languages=none "$@"
}

# Kept for a week.
fetch_curl() {
  [ -z "$(find "$curl_folder/ready" -mtime -7 2>/dev/null)" ] || return 0
  section "libcurl of $curl_suite"
  rm -rf "$curl_folder"
  mkdir -p "$curl_folder"
  curl_apt update -qq
  (cd "$curl_folder" && curl_apt download -qq "${curl_packages[@]/%//$curl_suite}")
  local file
  for file in "$curl_folder"/*.deb; do
    note "$(dpkg-deb --show "$file")"
    dpkg-deb --extract "$file" "$curl_folder/root"
  done
  local curl_libraries
  curl_libraries=$(dirname "$(find "$curl_folder/root" -name libcurl.so.4)")
  # What it needs itself matters to who links its archive.
  sed -i "s|/usr|$curl_folder/root/usr|; /^Requires.private/d" "$curl_libraries/pkgconfig/libcurl.pc"
  touch "$curl_folder/ready"
}

# require_newer PROGRAM: fails unless the loader gives it the new library, and that says that it is new.
require_newer() {
  local file version
  file=$(ldd "$1" | sed -n 's/.*libcurl\.so\.4 => \([^ ]*\) .*/\1/p')
  version=$(python3 -c '
import ctypes, sys
curl = ctypes.CDLL(sys.argv[1])
curl.curl_version.restype = ctypes.c_char_p
print(curl.curl_version().decode().partition(" ")[0].partition("/")[2])' "$file")
  dpkg --compare-versions "$version" ge "$curl_oldest" || die "$1 has libcurl $version, of $file"
  note "${1##*/}: libcurl $version"
}

# Of a server that breaks the rules of HTTP/2's compression, libcurl 7.88 says so at once. Later ones
# wait for more, until the request has waited for as long as it may.
export_filter() { export GTEST_FILTER=-DeclinedRequestTest.WithAnAnswerThatCannotBeReadIsLost; }

# What was built with the release's headers meets the new library when it runs.
test_earlier_build() {
  local program=build/unity/bin/kvl_urlloading_tests
  configure_and_build unity kvl_urlloading_tests
  section "The build for the release's libcurl"
  (
    export LD_LIBRARY_PATH=$curl_libraries KVL_TEST_SECONDS=120
    require_newer "$program"
    "$program" --gtest_brief=1
  )
}

run_backports() {
  local curl_libraries test programs=(kvl_{urlloading,session,notary,integration,exhaustion,exit}_tests)
  fetch_curl
  curl_libraries=$(dirname "$(find "$curl_folder/root" -name libcurl.so.4)")
  export PKG_CONFIG_PATH=$curl_libraries/pkgconfig
  export_filter
  (
    unset PKG_CONFIG_PATH
    test_earlier_build
  )
  configure_and_build backports "${programs[@]}"
  for test in "${programs[@]}"; do require_newer "build/backports/bin/$test"; done
  section "Tests with it ($curl_suite)"
  ctest --test-dir build/backports --output-on-failure --no-tests=error -j$(($(nproc) * 2)) \
    -R "^($(IFS='|' && echo "${programs[*]}"))$"
}
