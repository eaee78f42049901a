# Static analysis with clang-tidy, which looks at a file again only when something that the file
# is compiled from has changed.
# shellcheck shell=bash

readonly tidy_cache=build/tidy
readonly tidy_build=build/debug
# The header of RapidJSON 1.1 assigns to a constant member, which clang 19 takes for an error.
readonly tidy_cannot_read='^bench/JSONPeerRapidJSON\.cpp '

# Prints each compiled file of the tree followed by the tree's files that it is made from, one
# file's in one line. The first dependency of an object is its source; generated sources are passed
# over.
compiled_files() {
  ninja -C "$tidy_build" -t deps | awk -v root="$PWD/" '
    function flush() { if (line != "") print line; line = "" }
    function in_tree(path) { return index(path, root) == 1 && index(path, root "build/") != 1 }
    /^[^ ]/ { flush(); is_source = 1; next }
    NF == 1 && is_source { is_generated = !in_tree($1); is_source = 0 }
    NF == 1 && !is_generated && in_tree($1) {
      line = line (line == "" ? "" : " ") substr($1, length(root) + 1)
    }
    END { flush() }' | grep -v "$tidy_cannot_read" | sort -u -k1,1
}

# Prints the files without a recorded clean result, each with the name of the result to record.
files_to_tidy() {
  local files hash
  while read -r -a files; do
    hash=$(cat .clang-tidy CMakeLists.txt cmake/KVLTargets.cmake "${files[@]}" | sha256sum)
    hash=${hash%% *}
    [ -e "$tidy_cache/$hash" ] || printf '%s %s\n' "${files[0]}" "$hash"
  done < <(compiled_files)
}

# shellcheck disable=SC2016 # the inner shell expands
check_tidy() {
  local pending
  mkdir -p "$tidy_cache"
  mapfile -t pending < <(files_to_tidy)
  note "${#pending[@]} files to look at"
  [ ${#pending[@]} -gt 0 ] || return 0
  printf '%s\n' "${pending[@]}" | xargs -P "$(nproc)" -L1 bash -c '
    output=$(clang-tidy-19 --quiet --extra-arg=-Wno-unknown-warning-option -p "$1" "$3" 2>&1) && : >"$2/$4" && exit 0
    printf "%s\n" "$output"
    exit 1' tidy "$tidy_build" "$tidy_cache"
}
