# The scripts source this file: it finds the tree, configures builds and prints messages.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=${JOBS:-$(nproc)}

# The labels of tests that take long, and of those for which only script/tin-mac builds the programs.
# shellcheck disable=SC2034  # read by the scripts
notNormal='^(long|full|tin)$'

say() {
  printf '\n== %s (%dm%02ds)\n' "$1" $((SECONDS / 60)) $((SECONDS % 60))
}

die() {
  printf '%s: %s\n' "$(basename "$0")" "$1" >&2
  exit 1
}

# Reports a mistake on the command line and ends.
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

# configure PRESET: makes build/PRESET ready and prints only failures. All presets share one
# compiler cache; it hashes paths relative to the tree, so a moved tree still hits.
configure() {
  if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1
    # Without these it would keep nothing that uses precompiled headers.
    export CCACHE_SLOPPINESS=pch_defines,time_macros
  fi
  local words
  words=$(cd "$root" && cmake --preset "$1" -Wno-dev 2>&1) || {
    printf '%s\n' "$words" >&2
    die "configuring $1 failed"
  }
}

# Returns true when build/PRESET can be written, or created.
canBuild() {
  local place=$root/build/$1
  while [[ ! -e $place ]]; do
    place=$(dirname "$place")
  done
  [[ -w $place ]]
}

# isBuilt PRESET [TARGET...]: returns true if nothing would be built. It asks a copy of the build's
# plan, because the plan's own update counts as work until it has been done.
isBuilt() {
  local tree=$root/build/$1
  [[ -f $tree/build.ninja ]] || return 1
  [[ -z $(find "$root" -path "$root/build" -prune -o \( -name CMakeLists.txt -o -name '*.cmake' \
    -o -name CMakePresets.json \) -newer "$tree/build.ninja" -print -quit) ]] || return 1
  local plan answer
  plan=$(mktemp)
  cp "$tree/build.ninja" "$plan"
  answer=$(ninja -C "$tree" -f "$plan" -n "${@:2}" 2>&1) || true
  rm -f "$plan"
  [[ $answer == *"ninja: no work to do."* ]]
}

# build PRESET [TARGET...]: configures and builds all or some targets of build/PRESET. In a tree
# that cannot be written, it uses a build that is up to date.
build() {
  if ! canBuild "$1"; then
    isBuilt "$@" || die "$root cannot be written and build/$1 is not built from it; build it first, as a user who may write there"
    return
  fi
  configure "$1"
  local targets=()
  if (($# > 1)); then
    targets=(--target "${@:2}")
  fi
  cmake --build "$root/build/$1" -j "$jobs" "${targets[@]}"
}

# runTests PRESET LOG [CTEST-ARGUMENT...]: runs tests of build/PRESET and copies the output to LOG.
# When the build cannot be written, the runner keeps its records elsewhere. Many tests wait for real
# time or for a browser, so more are run at once than there are processors.
runTests() {
  local tests=$root/build/$1 log=$2 elsewhere='' status=0
  if ! canBuild "$1"; then
    elsewhere=$(mktemp -d)
    printf 'subdirs("%s")\n' "$tests" >"$elsewhere/CTestTestfile.cmake"
    tests=$elsewhere
  fi
  shift 2
  ctest --test-dir "$tests" -j $((jobs * 2 + 1)) --output-on-failure --no-tests=error "$@" | tee "$log" ||
    status=$?
  [[ -z $elsewhere ]] || rm -rf "$elsewhere"
  return "$status"
}

# Prints the runner's summary, like "100% tests passed, 0 tests failed out of 123".
closingLine() {
  grep -E '^[0-9]+% tests passed, ' "$1" | tail -n 1
}
