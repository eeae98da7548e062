# SPDX-License-Identifier: Apache-2.0
# What the stages of ./check share. A stage sources this first; it then stands in the project's root.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.." || exit
jobs=$(nproc)

step() { printf '== %s\n' "$*"; }
report() { printf 'report: %s\n' "$*"; }
complain() {
  echo "FAILED: $*"
  exit 1
}
skip() {
  echo "SKIPPED: $*"
  exit 77
}

# Compilers, analysers and fuzzers give way to tests that run beside them: the tool's have the library's real time-outs
# in them.
unhurried() { # command...
  (
    renice -n 19 -p "$BASHPID" >/dev/null
    "$@"
  )
}
unhurried_stage() { renice -n 19 -p $$ >/dev/null; }

set_up() { # what: see scripts/set-up
  step "packages"
  scripts/set-up "$1"
}

build() { # directory, cmake options..., then "--" and targets if not all of them
  local directory=$1 options=() targets=()
  shift
  while [ $# -gt 0 ] && [ "$1" != -- ]; do
    options+=("$1")
    shift
  done
  [ $# -gt 1 ] && targets=(--target "${@:2}")
  # A tree that somebody configured keeps its generator.
  [ -f "$directory/CMakeCache.txt" ] || options=(-G Ninja "${options[@]}")
  if command -v ccache >/dev/null; then
    options+=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  fi
  step "configuring $directory"
  unhurried cmake -S . -B "$directory" -DVORN_WERROR=ON -DVORN_FAST_BUILD=ON "${options[@]}" || complain "configuring $directory"
  step "building $directory"
  unhurried cmake --build "$directory" -j "$jobs" "${targets[@]}" || complain "building $directory"
}

# GoogleTest's result files as "141 passed, 0 failed, 2 skipped".
sum_up() { # files...
  cat "$@" 2>/dev/null | awk '
    /<testsuites / {
      match($0, / tests="[0-9]+"/); tests += substr($0, RSTART + 8, RLENGTH - 9)
      match($0, / failures="[0-9]+"/); lost += substr($0, RSTART + 11, RLENGTH - 12)
    }
    /<testcase .*result="skipped"/ { skipped++ }
    END { printf "%d passed, %d failed, %d skipped\n", tests - lost - skipped, lost, skipped }'
}

# Runs tests of a build tree; returns ctest's status. Where a test sleeps it takes no processor: twice as many as there
# are processors run side by side.
run_tests() { # directory, ctest options...
  local directory=$1
  shift
  step "tests in $directory"
  rm -rf "$directory/test-results"
  ctest --test-dir "$directory" -j "$((2 * jobs))" --no-tests=error --output-on-failure "$@"
}
