#!/usr/bin/env bash
# valgrind memcheck over the whole test suite: a plain g++ Debug build (no sanitizer: the preset
# valgrind, in build-ci-valgrind), every test run once under memcheck
# with full leak checking. Any memory error, and any definitely or indirectly lost block, makes
# valgrind exit with 1, so the test and this script fail.
#
# The tests that are CMake scripts (headers_self_contained, install_consumer, symbols_exported)
# run too; memcheck then watches cmake itself, and the compilers and programs it starts are not
# followed. The programs they check are the same libraries that the test programs load under
# memcheck here. No test is left out: build and run take about 3 minutes on 2 cores.
set -euo pipefail

cd "$(dirname "$0")/.."
root=$PWD
build=$root/build-ci-valgrind

cmake --preset valgrind
cmake --build --preset valgrind

options="--leak-check=full --error-exitcode=1 --errors-for-leak-kinds=definite,indirect"
options+=" --show-leak-kinds=definite,indirect --track-origins=yes --num-callers=30"
ctest --test-dir "$build" --output-on-failure -j2 -T memcheck \
  --overwrite MemoryCheckCommand="$(command -v valgrind)" \
  --overwrite MemoryCheckCommandOptions="$options"
