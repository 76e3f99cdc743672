# Sourced by the scripts: where the tree is, how a build is configured, how to say things.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=${JOBS:-$(nproc)}

say() {
  printf '\n== %s (%dm%02ds)\n' "$1" $((SECONDS / 60)) $((SECONDS % 60))
}

die() {
  printf '%s: %s\n' "$(basename "$0")" "$1" >&2
  exit 1
}

# The words on the command line are wrong.
misuse() {
  printf '%s: %s (try --help)\n' "$(basename "$0")" "$1" >&2
  exit 2
}

# Prints the comment at the head of the calling script, and ends.
showHelp() {
  sed -n '2,/^[^#]/{/^#/!d;s/^# \{0,1\}//;p}' "$0"
  exit 0
}

# Accepts --help and nothing else.
onlyHelp() {
  for argument in "$@"; do
    case $argument in
      -h | --help) showHelp ;;
      *) misuse "unknown argument \"$argument\"" ;;
    esac
  done
}

# configure PRESET: makes build/PRESET ready; says something only when that fails. One compiler cache
# serves every preset; paths are hashed relative to the tree, so a moved tree still hits.
configure() {
  if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1
  fi
  local words
  words=$(cd "$root" && cmake --preset "$1" -Wno-dev 2>&1) || {
    printf '%s\n' "$words" >&2
    die "configuring $1 failed"
  }
}

# build PRESET [TARGET...]: configures and builds build/PRESET, all of it or some targets.
build() {
  configure "$1"
  local targets=()
  if (($# > 1)); then
    targets=(--target "${@:2}")
  fi
  cmake --build "$root/build/$1" -j "$jobs" "${targets[@]}"
}

# runTests PRESET LOG [CTEST-ARGUMENT...]: runs tests of build/PRESET, the runner's words also into
# LOG.
runTests() {
  local preset=$1 log=$2
  shift 2
  ctest --test-dir "$root/build/$preset" -j "$jobs" --output-on-failure --no-tests=error "$@" |
    tee "$log"
}

# The line in which the runner sums up: "100% tests passed, 0 tests failed out of 123".
closingLine() {
  grep -E '^[0-9]+% tests passed, ' "$1" | tail -n 1
}
