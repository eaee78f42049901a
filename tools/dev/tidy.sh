# Static analysis with clang-tidy, which looks at a source again only when something that the source
# is compiled from has changed. It reads what the preset `unity` compiles: the files of a target in
# one source, so that what they share is read once.
# shellcheck shell=bash

readonly tidy_cache=build/tidy
readonly tidy_build=build/unity
# The header of RapidJSON 1.1 assigns to a constant member, which clang 19 takes for an error.
readonly tidy_cannot_read='bench/JSONPeerRapidJSON.cpp'

# Prints each compiled source followed by the tree's files that it is made from, one source in one
# line. The first dependency of an object is its source; what a generator wrote is passed over, but
# not the sources that join others.
compiled_sources() {
  ninja -C "$tidy_build" -t deps | awk -v root="$PWD/" '
    function flush() { if (line != "") print line; line = "" }
    function in_tree(path) { return index(path, root) == 1 && index(path, root "build/") != 1 }
    # A compiler cache may have made it relative to the build tree.
    function absolute(path) {
      if (index(path, "/") == 1) return path
      if (sub(/^\.\.\/\.\.\//, "", path)) return root path
      return root "'"$tidy_build"'/" path
    }
    function add(path) { line = line (line == "" ? "" : " ") path }
    /^[^ ]/ { flush(); is_source = 1; next }
    NF != 1 { next }
    { path = absolute($1) }
    is_source {
      is_source = 0
      joins = path ~ /\/Unity\/unity_[0-9]+_cxx\.cxx$/
      is_ours = joins || in_tree(path)
      if (is_ours) add(substr(path, length(root) + 1))
      next
    }
    is_ours && in_tree(path) { add(substr(path, length(root) + 1)) }
    END { flush() }' | sort -u -k1,1
}

# Every file of the tree is in some source, or named here.
check_all_are_looked_at() {
  local file missing=0 looked_at reported
  looked_at=$(tr ' ' '\n' <<<"$1")
  reported=$(sed -n "s/^HeaderFilterRegex: '\(.*\)'$/\1/p" .clang-tidy)
  while IFS= read -r file; do
    belongs_to_own_project "$file" && continue
    [[ $file != */portable/* ]] || continue # check_portable_tidy
    [ "$file" != "$tidy_cannot_read" ] || continue
    [[ $PWD/$file =~ $reported ]] && grep -qxF "$file" <<<"$looked_at" && continue
    note "nothing compiles $file, or .clang-tidy leaves its findings out"
    missing=1
  done < <(tree_files '*.cpp')
  return $missing
}

# Prints the sources without a recorded clean result, each with the name of the result to record; first
# those of most files, so that in the end not everything waits for one of them.
sources_to_tidy() {
  local files hash
  while read -r -a files; do
    [ "${files[0]}" != "$tidy_cannot_read" ] || continue
    hash=$(cat .clang-tidy CMakeLists.txt cmake/KVLTargets.cmake "${files[@]}" | sha256sum)
    hash=${hash%% *}
    [ -e "$tidy_cache/$hash" ] || printf '%d %s %s\n' "${#files[@]}" "${files[0]}" "$hash"
  done <<<"$1" | sort -k1,1nr -k2 | cut -d ' ' -f 2-
}

# What stands in for Linux's own means, as the preset `portable` compiles it.
check_portable_tidy() {
  cmake --preset portable >"$tidy_cache/portable.log" 2>&1 || {
    cat "$tidy_cache/portable.log"
    return 1
  }
  tree_files '*/portable/*.cpp' | xargs -P "$(nproc)" -n 1 clang-tidy-19 --quiet \
    --extra-arg=-Wno-unknown-warning-option -p build/portable 2>/dev/null
}

# shellcheck disable=SC2016 # the inner shell expands
check_tidy() {
  local pending sources
  mkdir -p "$tidy_cache"
  sources=$(compiled_sources)
  check_all_are_looked_at "$sources" || return 1
  check_portable_tidy || return 1
  mapfile -t pending < <(sources_to_tidy "$sources")
  note "${#pending[@]} sources to look at"
  [ ${#pending[@]} -gt 0 ] || return 0
  # Looking for arguments that are copied takes a third of the time of a test; there they cost nothing.
  printf '%s\n' "${pending[@]}" | xargs -P "$(nproc)" -L1 bash -c '
    checks=-bugprone-suspicious-include
    [[ /$3 != */tests/* ]] || checks+=,-performance-unnecessary-value-param
    output=$(clang-tidy-19 --quiet --checks="$checks" \
      --extra-arg=-Wno-unknown-warning-option -p "$1" "$3" 2>&1) && : >"$2/$4" && exit 0
    printf "%s\n" "$output"
    exit 1' tidy "$tidy_build" "$tidy_cache"
}
