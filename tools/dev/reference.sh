# ./dev reference
# shellcheck shell=bash

readonly reference_folder=build/reference

packages_for_reference() { echo reference; }

# The warnings of doxygen, each of which is a fault, with paths from the tree's root. HTML is always
# made: some warnings come only while it is written.
make_reference() {
  local version pages
  version=$(sed -n 's/^#define KVL_VERSION_\(MAJOR\|MINOR\|PATCH\) //p' include/local/platform/Version.h |
    paste -sd.)
  rm -rf "${reference_folder:?}"/{html,pages,xml}
  mapfile -t pages < <(tree_files '*.md')
  python3 -B tools/dev/page_filter.py "$reference_folder/pages" "${pages[@]}" || return 1
  sed "s/@version@/$version/" packaging/Doxyfile.in >"$reference_folder/Doxyfile"
  if doxygen "$reference_folder/Doxyfile" >"$reference_folder/log" 2>&1; then
    python3 tools/dev/undocumented.py "$reference_folder/xml"
    return
  fi
  sed "s#$PWD/##g; s#$reference_folder/pages/##g" "$reference_folder/log"
  return 1
}

run_reference() {
  make_reference || die 'doxygen has complained'
  note "$reference_folder/html/index.html"
}
