#!/usr/bin/env bash
# ThreadSanitizer: the tests that build handles and log from several threads at once, in a clang
# build with -DWSI_SANITIZE=thread (build directory WSI_TSAN_BUILD_DIR, default build-ci-tsan).
# The library starts no thread of its own; what it shares between the host's threads is the
# logger, set up once under pthread_once and written under its mutex, and these tests hammer
# exactly that. halt_on_error=1 makes the first report fail the run.
set -euo pipefail

cd "$(dirname "$0")/.."
root=$PWD
build=${WSI_TSAN_BUILD_DIR:-build-ci-tsan}
tests=(threads_test log_test log_setup_test fcgi_server_test)

cmake -S "$root" -B "$build" \
  -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DWSI_SANITIZE=thread -DWSI_WERROR=ON -DWSI_BUILD_EXAMPLES=OFF
cmake --build "$build" -j2 --target "${tests[@]}"

export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:history_size=4"
pattern="^($(IFS='|'; echo "${tests[*]}"))\$"
ctest --test-dir "$build" --output-on-failure --no-tests=error -R "$pattern"
# The threads test once more, repeated, so that an interleaving missed the first time gets
# another chance; each run is a fresh process, so the logging set-up races again.
ctest --test-dir "$build" --output-on-failure -R '^threads_test$' --repeat until-fail:5
