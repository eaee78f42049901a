# What the commands of ./dev share. Sourced with the tree's root as working directory.
# shellcheck shell=bash

readonly package_list=packaging/debian-packages.txt
readonly presets='debug unity release asan tsan portable backports coverage plain mutants demo demo-qt'

# What one build tree has compiled, another one need not: paths count from the tree's root.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1

section() { printf '\n== %s\n' "$*"; }
note() { printf '   %s\n' "$*"; }
die() {
  printf 'dev: %s\n' "$*" >&2
  exit 1
}

# listed_packages GROUP...: when none is named all groups but the optional ones, with --all all of them.
listed_packages() {
  awk -v wanted=" $* " '
    /^#/ || /^[[:space:]]*$/ { next }
    /^\[/ { group = $1; gsub(/[][]/, "", group); optional = $2 == "optional:"; next }
    wanted == " --all " || (wanted == "  " ? !optional : index(wanted, " " group " ")) { print $1 }' "$package_list"
}

missing_packages() {
  comm -23 <(listed_packages "$@" | sort) \
    <(dpkg-query --show --showformat='${Package} ${db:Status-Status}\n' 2>/dev/null |
      sed -n 's/ installed$//p' | sort)
}

# install_packages GROUP...: what is missing of these groups, of all when none is named.
install_packages() {
  local missing
  mapfile -t missing < <(missing_packages "$@")
  [ ${#missing[@]} -gt 0 ] || return 0
  if [ "$(id -u)" -ne 0 ]; then
    die "packages are missing; install them with
  sudo apt-get install --no-install-recommends ${missing[*]}"
  fi
  section "Installing ${#missing[@]} packages"
  export DEBIAN_FRONTEND=noninteractive
  apt-get -o DPkg::Lock::Timeout=120 update -qq
  apt-get -o DPkg::Lock::Timeout=120 install -y -qq --no-install-recommends "${missing[@]}"
}

# Takes "--preset P" off the arguments: sets the variables `preset`, which the caller has set to the
# default, and `rest`.
parse_preset() {
  rest=()
  while [ $# -gt 0 ]; do
    case $1 in
      --preset)
        [ $# -ge 2 ] || die '--preset needs a name'
        preset=$2
        shift
        ;;
      --preset=*) preset=${1#--preset=} ;;
      *) rest+=("$1") ;;
    esac
    shift
  done
  [[ " $presets " == *" $preset "* ]] || die "no preset '$preset'; there are: $presets"
}

# configure_and_build PRESET [TARGET...]
configure_and_build() {
  local preset=$1 log
  shift
  log=build/$preset/configure.log
  mkdir -p "build/$preset"
  if ! cmake --preset "$preset" >"$log" 2>&1; then
    cat "$log" >&2
    die "configuring the preset '$preset' failed"
  fi
  cmake --build "build/$preset" --parallel "$(nproc)" ${1:+--target "$@"}
}

# Whoever unpacked the tree, git is to read it.
git_here() { git -c safe.directory="$PWD" "$@"; }

# The files of the tree: those that are or could be committed, without what has been deleted.
tree_files() {
  git_here ls-files --cached --others --exclude-standard -- "$@" | sort -u | while IFS= read -r file; do
    [ ! -f "$file" ] || printf '%s\n' "$file"
  done
}
