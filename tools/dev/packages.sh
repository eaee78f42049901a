# ./dev packages: the Debian packages, built in a copy of the tree, looked at by lintian and, with --test,
# used on machines of their own.
# shellcheck shell=bash

readonly packages_dir=build/packages
readonly bare_dir=build/bare

packages_for_packages() {
  printf '%s\n' build qt qml webengine packages
  [ "${1:-}" != --test ] || printf '%s\n' checks peers
}

copy_of_tree() { # FOLDER
  mkdir -p "$1"
  tree_files | tar -c --files-from=- | tar -x -C "$1"
}

# Others' warnings are theirs; in development they stop this build, too.
build_in_copy() { # FOLDER
  cd "$1" || return
  CCACHE_DIR=$(ccache --get-config cache_dir 2>/dev/null || true)
  export CCACHE_DIR CCACHE_BASEDIR=$PWD CCACHE_DEPEND=1
  DEB_BUILD_OPTIONS="nocheck parallel=$(nproc)" KVL_CMAKE_OPTIONS=-DKVL_WERROR=ON \
    dpkg-buildpackage --build=binary --no-sign
}

build_packages() {
  local tree=$packages_dir/tree log=$packages_dir/build.log
  section 'Packages'
  rm -rf "$packages_dir"
  copy_of_tree "$tree"
  if ! (build_in_copy "$tree") >"$log" 2>&1 </dev/null; then
    tail -n 60 "$log" >&2
    die "the packages cannot be built; $log has all of it"
  fi
  rm -rf "$tree"
  (cd "$packages_dir" && ls -- *.deb) | sed 's/^/   /'
}

# Errors fail; warnings are shown. That nobody has asked for the packages only matters in an archive.
look_at_packages() {
  section 'Lintian'
  lintian --allow-root --fail-on error --tag-display-limit 0 --suppress-tags initial-upload-closes-no-bugs \
    "$packages_dir"/*.changes || die 'lintian refuses the packages'
}

# mirror_of SUITE: where this machine gets it from.
mirror_of() {
  # shellcheck disable=SC2016 # the names are apt's
  apt-get indextargets --format '$(CODENAME) $(REPO_URI)' 'Created-By: Packages' |
    awk -v suite="$1" '$1 == suite { print $2; found = 1; exit }
      END { if (!found) print "http://deb.debian.org/debian" (suite ~ /security/ ? "-security" : "") }'
}

# A minimal Debian, kept for a week.
make_bare_machine() {
  local mirror try
  mirror=$(mirror_of bookworm)
  [ -z "$(find "$bare_dir/made" -mtime -7 2>/dev/null)" ] || return 0
  section 'A bare machine'
  for try in 1 2; do
    rm -rf "$bare_dir"
    mkdir -p "$bare_dir"
    if mmdebstrap --quiet --mode=root --variant=minbase --aptopt='Acquire::Retries "3"' bookworm \
      "$bare_dir/root" "deb $mirror bookworm main" "deb $mirror bookworm-updates main" \
      "deb $(mirror_of bookworm-security) bookworm-security main"; then
      touch "$bare_dir/made"
      return
    fi
    note "mmdebstrap failed ($try)"
  done
  die 'there is no bare machine to try the packages on'
}

# on_machine ROOT SCRIPT [ARGUMENT...]: with the packages, as root, changing nothing here.
on_machine() {
  local given=$packages_dir/given
  mkdir -p "$given"
  find "$packages_dir" -maxdepth 1 -name '*.deb' ! -name '*-dbgsym_*' -exec ln -f -t "$given" {} +
  tests/packages/machine.sh "$1" "$packages_dir/work" "$given" "${@:2}" || die "$2 failed"
}

test_packages() {
  [ "$(id -u)" -eq 0 ] || die 'trying the packages on machines of their own needs root'
  if ! unshare --mount --pid --fork --propagation private mount -t tmpfs tmpfs /mnt; then
    section 'Packages not tried: nobody may mount here, as in most containers'
    return 0
  fi
  make_bare_machine
  section 'The packages on a bare machine'
  on_machine "$bare_dir/root" bare.sh "$(dpkg-parsechangelog --show-field Version | sed 's/-[^-]*$//')"
  section 'The packages and the hosts of others'
  on_machine / consumers.sh
}

run_packages() {
  case "$*" in
    '' | --test) ;;
    *) die "packages has one option, --test" ;;
  esac
  python3 -B tests/packages/agree.py . || die 'the packages are not what is built'
  build_packages
  look_at_packages
  [ "${1:-}" != --test ] || test_packages
}
