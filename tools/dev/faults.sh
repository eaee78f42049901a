# ./dev faults
# shellcheck shell=bash

readonly faults_page=docs/reliability.md
readonly faults_begin='<!-- from here on written by ./dev faults --write -->'

packages_for_faults() { printf '%s\n' build peers tests; }

# Makes tables of what the tests have written: for each part what the host sees, and then figures.
fault_tables() {
  awk -F '\t' '
    BEGIN { known = split("notary,bus,key store,service,server,resources,clock,second copy", order, ",") }
    !($1 in rows) { rows[$1] = 0; if (index(",notary,bus,key store,service,server,resources,clock,second copy,", "," $1 ",") == 0) order[++known] = $1 }
    { row[$1, ++rows[$1]] = $0 }
    function told(cell) { return cell == "" ? "–" : cell }
    END {
      for (part = 1; part <= known; part++) {
        name = order[part]
        if (!(name in rows)) continue
        printf "\n### %s%s\n\n", toupper(substr(name, 1, 1)), substr(name, 2)
        print "| fault | states | progress | requests meanwhile | log | next attempt | test |"
        print "|---|---|---|---|---|---|---|"
        for (i = 1; i <= rows[name]; i++) {
          split(row[name, i], cell, "\t")
          printf "| %s | %s | %s | %s | %s | %s | `%s` |\n", cell[2], told(cell[3]), told(cell[4]),
            told(cell[5]), told(cell[6]), told(cell[7]), cell[12]
        }
        print "\n| fault | well again after | threads | descriptors | memory, MiB |"
        print "|---|---|---|---|---|"
        for (i = 1; i <= rows[name]; i++) {
          split(row[name, i], cell, "\t")
          printf "| %s | %s | %s | %s | %s |\n", cell[2], cell[8], cell[9], cell[10], cell[11]
        }
      }
    }' "$1"
}

# Keeps what somebody has written above the mark, and puts `file` below it.
write_fault_tables() {
  local kept
  grep -qxF -- "$faults_begin" "$faults_page" || die "no mark in $faults_page"
  kept=$(awk -v mark="$faults_begin" '{ print } $0 == mark { exit }' "$faults_page")
  { printf '%s\n' "$kept" && cat "$1"; } >"$faults_page"
  note "written to $faults_page"
}

# run_faults [--write] [--preset P]: meets all faults and shows what a host saw of them.
run_faults() {
  local preset=unity rest status=0 rows
  parse_preset "$@"
  [ ${#rest[@]} -eq 0 ] || [ "${rest[*]}" = --write ] || die 'usage: ./dev faults [--write] [--preset P]'
  configure_and_build "$preset" kvl_faults
  # shellcheck source=/dev/null
  source tools/dev/test.sh
  sanitizer_environment "$preset"
  rows=build/$preset/faults.tsv
  rm -f "$rows"
  export KVL_FAULT_TABLE=$PWD/$rows
  # One after the other: times and memory are those of a host by itself.
  ctest --test-dir "build/$preset" --output-on-failure --no-tests=error -R '^kvl_fault' -j1 || status=$?
  [ -f "$rows" ] || die 'no fault was met'
  fault_tables "$rows" >"$rows.md"
  cat "$rows.md"
  [ "$status" -eq 0 ] || die 'a row is missing: its test failed'
  [ "${rest[*]}" != --write ] || write_fault_tables "$rows.md"
}
