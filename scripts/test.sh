#!/usr/bin/env bash
# Installs what the tests need, then builds and runs the whole suite three times: a Release build
# (build/), an ASan+UBSan build (build-asan/) and a TSan build (build-tsan/); then the libFuzzer
# targets for a short run each; last the armhf build, its unit tests and a smoke test under qemu
# and the Debian packages (scripts/test-armhf.sh). Any failure, sanitizer report or thread race
# fails the run.
#   TESSERA_TEST_BUILDS="release asan tsan fuzz armhf"  choose a subset
#   TESSERA_FUZZ_SECONDS=20                       seconds per fuzz target
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
python3 scripts/check-layers.py

builds=${TESSERA_TEST_BUILDS:-"release asan tsan fuzz armhf"}
fuzz_seconds=${TESSERA_FUZZ_SECONDS:-20}
jobs=$(nproc)
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
  # Paths relative to the checkout, so that another clone of the same sources hits the cache.
  export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1
fi

# TSan needs the classic address-space layout; newer kernels randomise mmap beyond what it maps.
tsan_run=()
if setarch "$(uname -m)" -R true 2>/dev/null; then tsan_run=(setarch "$(uname -m)" -R); fi

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:halt_on_error=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export TSAN_OPTIONS="halt_on_error=0:second_deadlock_stack=1"

run_suite() {  # name dir cmake-args...
  local name=$1 dir=$2; shift 2
  echo "== [$name] configure and build in $dir"
  cmake -S . -B "$dir" -G Ninja "${launcher[@]}" "$@" >/dev/null
  ninja -C "$dir" -j"$jobs"
  echo "== [$name] run the tests"
  if [ "$name" = tsan ]; then
    "${tsan_run[@]}" ctest --test-dir "$dir" --output-on-failure -j"$jobs"
  else
    ctest --test-dir "$dir" --output-on-failure -j"$jobs"
  fi
}

for b in $builds; do
  case $b in
    release) run_suite release build -DCMAKE_BUILD_TYPE=Release ;;
    asan) run_suite asan build-asan -DCMAKE_BUILD_TYPE=Debug -DTESSERA_SANITIZE=address -DTESSERA_BENCH=OFF ;;
    tsan) run_suite tsan build-tsan -DCMAKE_BUILD_TYPE=Debug -DTESSERA_SANITIZE=thread -DTESSERA_BENCH=OFF ;;
    fuzz)
      echo "== [fuzz] build the libFuzzer targets with clang"
      cmake -S . -B build-fuzz -G Ninja "${launcher[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
        -DTESSERA_FUZZ=ON -DTESSERA_TESTS=OFF -DTESSERA_BENCH=OFF >/dev/null
      ninja -C build-fuzz -j"$jobs" $(ninja -C build-fuzz -t targets all | sed -n 's/^\(fuzz_[a-z0-9_]*\): .*/\1/p' | sort -u)
      passed=0
      for f in build-fuzz/bin/fuzz_*; do
        [ -x "$f" ] || continue
        name=$(basename "$f"); corpus=fuzz/corpus/${name#fuzz_}
        work=$(mktemp -d)
        [ -d "$corpus" ] && cp -r "$corpus"/. "$work"/
        echo "-- $name for ${fuzz_seconds}s"
        rc=0
        "$f" -max_total_time="$fuzz_seconds" -print_final_stats=1 -artifact_prefix="$work/" "$work" >"$work.log" 2>&1 || rc=$?
        grep -E 'stat::number_of_executed_units' "$work.log" || true
        if [ $rc -ne 0 ]; then tail -n 60 "$work.log"; echo "fuzz target $name failed"; exit 1; fi
        rm -f "$work.log"
        rm -rf "$work"
        passed=$((passed + 1))
      done
      echo "fuzz: $passed passed, 0 failed"
      ;;
    armhf) bash scripts/test-armhf.sh ;;
    *) echo "unknown build '$b'"; exit 2 ;;
  esac
done

# The suite's size against the product's: tests are meant to stay at a quarter to a third.
lines() { find "$@" -type f \( -name '*.cc' -o -name '*.h' -o -name '*.py' -o -name '*.js' -o -name '*.sh' \) -print0 | xargs -0 cat | wc -l; }
test_lines=$(lines tests)
product_lines=$(lines src tools)
echo "tests: $test_lines lines, product: $product_lines lines (src/, tools/), ratio $((100 * test_lines / product_lines)) %"
