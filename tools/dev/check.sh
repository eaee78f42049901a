# ./dev check: everything that can be wrong without a test failing.
# shellcheck shell=bash
source tools/dev/tidy.sh
source tools/dev/reference.sh

readonly longest_file=450
readonly header_flags='-std=c++20 -Wall -Wextra -Wpedantic -Wshadow -Werror -fsyntax-only'

check_format() {
  tree_files '*.h' '*.cpp' | xargs --no-run-if-empty clang-format-19 --dry-run -Werror
}

# Every header of a folder compiles alone, with both compilers: compile_headers FOLDER [FLAGS]
# shellcheck disable=SC2016 # the inner shell expands
compile_headers() {
  (cd "$1" && find local -name '*.h') | sort |
    xargs -P "$(nproc)" -I{} bash -c '
      for compiler in g++ clang++-19; do
        echo "#include <{}>" | $compiler '"$header_flags -I$1 ${2:-}"' -x c++ - || exit 255
      done'
}

# Hosts may or may not use Qt's keywords; the warnings of Qt's own headers are not ours. That no header
# uses a keyword shows as well when they are compiled together.
check_headers() {
  local qt_flags compiler
  compile_headers include || return 1
  if ! qt_flags=$(pkg-config --cflags Qt6Widgets); then
    note 'Qt is not installed'
    return 0
  fi
  qt_flags="-Iinclude -fPIC ${qt_flags//-I/-isystem}"
  compile_headers qt/include "$qt_flags" || return 1
  for compiler in g++ clang++-19; do
    # shellcheck disable=SC2086 # flags are words
    (cd qt/include && find local -name '*.h' -printf '#include <%p>\n' | sort) |
      $compiler $header_flags -Iqt/include $qt_flags -DQT_NO_KEYWORDS -x c++ - || return 1
  done
}

# A project of its own, such as the consumer of the installed package, is built by its test.
belongs_to_own_project() {
  grep -qs '^project(' "$(dirname "$1")/CMakeLists.txt"
}

# Each promise of a page names the tests that show it, and they exist.
check_promises() { python3 tools/dev/promises.py; }

# Each log line, complaint and error code is explained, the paths that pages name are there, and
# tables are whole.
check_symptoms() {
  (cd tools/dev && python3 -B symptoms_test.py --quiet 2>&1) && python3 tools/dev/symptoms.py
}
check_paths() { python3 tools/dev/paths.py && python3 tools/dev/tables.py; }

# Which folder may include which; tools/dev/arrows.py has the table.
check_arrows() { python3 tools/dev/arrows.py; }

check_lengths() {
  tree_files '*.h' '*.cpp' '*.sh' '*.md' '*.cmake' '*CMakeLists.txt' dev .ci/run |
    xargs wc -l | awk -v limit=$longest_file '
      $2 != "total" && $1 > limit { print "   " $2 " has " $1 " lines, more than " limit; bad = 1 }
      END { exit bad }'
}

check_scripts() {
  if ! command -v shellcheck >/dev/null; then
    note 'shellcheck is not installed'
    return 0
  fi
  shellcheck --external-sources dev .ci/run packaging/completions/kvlocal.bash \
    tools/dev/*.sh
  tree_files 'tests/*.sh' | xargs --no-run-if-empty shellcheck
}

# Every public declaration is documented, and doxygen understands the comments and the pages.
check_reference() {
  if ! command -v doxygen >/dev/null; then
    note 'doxygen is not installed'
    return 0
  fi
  make_reference
}

# The translators' files agree with the sources and are complete.
check_texts() {
  (cd tools/dev && python3 -B texts_test.py --quiet 2>&1) && python3 tools/dev/texts.py check
}

# What pages lead to exists, and what looks at pages would tell.
check_links() {
  (cd tools/dev && python3 -B pages_test.py --quiet 2>&1) && python3 tools/dev/links.py
}

# What uses Linux's own means stands on the page for other systems.
check_porting() { python3 tools/dev/porting.py; }

# The code that guides and the README show is the one that is compiled.
check_shown() {
  (cd tools/dev && python3 -B shown_test.py --quiet 2>&1) && python3 -B tools/dev/shown.py
}

# The goals of speed are judged by what was measured.
check_goals() { (cd tools/dev && python3 -B goals_test.py --quiet 2>&1); }

# The packages' files say what the build says.
check_packages() { python3 -B tests/packages/agree.py .; }

# The faults of `./dev mutants` are found where they should be, and those with a name still apply.
check_mutations() {
  local fault stale=0
  for fault in tests/mutants/*.patch; do
    if ! patch -p1 --dry-run --forward --silent <"$fault" >/dev/null; then
      note "$fault no longer applies"
      stale=1
    fi
  done
  (cd tools/dev && python3 -B mutations_test.py --quiet 2>&1) && [ "$stale" -eq 0 ]
}

run_check() {
  local part failed=()
  configure_and_build unity
  for part in format headers reference arrows promises symptoms paths links porting lengths scripts texts packages \
    mutations goals shown tidy; do
    section "Check: $part"
    if "check_$part"; then note ok; else failed+=("$part"); fi
  done
  [ ${#failed[@]} -eq 0 ] || die "failed: ${failed[*]}"
}
