#!/usr/bin/env bash
# Builds and runs every test twice: a normal build, and an AddressSanitizer +
# UndefinedBehaviorSanitizer build (leaks detected too); runs the tests of
# state that threads share unawares under ThreadSanitizer; then runs each fuzz
# target briefly. Warnings are errors in all builds.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/deps.sh
jobs=$(nproc)
FUZZ_SECONDS=${FUZZ_SECONDS:-20}

echo "== normal build"
cmake -S . -B build-test -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build-test -j"$jobs"
ctest --test-dir build-test -j"$jobs" --output-on-failure

echo "== AddressSanitizer + UndefinedBehaviorSanitizer build"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DVOSYS_SANITIZE=ON
cmake --build build-asan -j"$jobs"
ctest --test-dir build-asan -j"$jobs" --output-on-failure

echo "== ThreadSanitizer build: the state threads share without knowing it"
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=Debug -DVOSYS_SANITIZE=thread
cmake --build build-tsan -j"$jobs" --target threads_test
ctest --test-dir build-tsan -j"$jobs" --output-on-failure -R '^Threads\.'

echo "== fuzz targets, ${FUZZ_SECONDS}s each"
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVOSYS_BUILD_FUZZ=ON -DVOSYS_BUILD_TESTS=OFF
cmake --build build-fuzz -j"$jobs"
for target in build-fuzz/fuzz/fuzz_*; do
  [ -f "$target" ] && [ -x "$target" ] || continue
  work=$(mktemp -d)
  mkdir "$work/corpus"
  echo "-- $(basename "$target")"
  if ! (cd "$work" && "$OLDPWD/$target" -max_total_time="$FUZZ_SECONDS" -print_final_stats=1 \
        corpus > log 2>&1); then
    cat "$work/log"
    exit 1
  fi
  grep -E "stat::number_of_executed_units|Done" "$work/log" || true
  rm -rf "$work"
done
echo "== all tests passed"
