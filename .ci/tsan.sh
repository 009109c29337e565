#!/usr/bin/env bash
# ThreadSanitizer: the tests that build handles and log from several threads at once
# (threads_test, log_test, log_setup_test, fcgi_server_test), in a clang build with
# -DWSI_SANITIZE=thread: the preset tsan, in build-ci-tsan, whose tests stop at the first report
# (halt_on_error=1). The library starts no thread of its own; what it shares between the host's
# threads is the logger, set up once under pthread_once and written under its mutex, and the
# FastCGI server's connections, which these tests hammer.
set -euo pipefail

cd "$(dirname "$0")/.."

cmake --preset tsan
cmake --build --preset tsan
ctest --preset tsan
# The threads test once more, repeated, so that an interleaving missed the first time gets
# another chance; each run is a fresh process, so the logging set-up races again.
ctest --preset tsan -R '^threads_test$' --repeat until-fail:5
