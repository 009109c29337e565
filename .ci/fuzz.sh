#!/usr/bin/env bash
# Fuzzing, run by .ci/run (or alone: `bash .ci/fuzz.sh`). Builds the libFuzzer targets of fuzz/
# with clang (-fsanitize=fuzzer,address,undefined; the preset fuzz, in build-ci-fuzz), replays
# each committed corpus, then runs each target for WSI_FUZZ_SECONDS seconds (default 40) over a
# scratch copy of its corpus, with its dictionary. Any crash, failed check, leak, timeout or
# out-of-memory stops the run with a non-zero status and leaves the input under
# build-ci-fuzz/artifacts. Each target's final stats (executions per second, total executions)
# are printed, and a table of them at the end.
set -euo pipefail

cd "$(dirname "$0")/.."
root=$PWD
build=$root/build-ci-fuzz
seconds=${WSI_FUZZ_SECONDS:-40}

# target:max_len, the longest input each target is given: a specification string is short; a
# connector request is framed and read through a socket; the field-based targets build long texts
# from short inputs with runs; a multipart body needs room for several parts.
targets=(spec:256 query:1024 header_rules:1024 request_config:2048 connector_request:4096
         response_block:1024 cgi_environment:2048 fcgi_records:4096 form_urlencoded:1024
         multipart:4096 cookies:1024)

cmake --preset fuzz
cmake --build --preset fuzz

export ASAN_OPTIONS=detect_leaks=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
artifacts=$build/artifacts
rm -rf "$artifacts" "$build/fuzz-corpus"
mkdir -p "$artifacts"

echo "== replaying the committed corpora"
for entry in "${targets[@]}"; do
  name=${entry%%:*}
  "$build/fuzz/fuzz_$name" -runs=0 -artifact_prefix="$artifacts/$name-" "$root/fuzz/corpus/$name"
done

stats=()
for entry in "${targets[@]}"; do
  name=${entry%%:*}
  max_len=${entry##*:}
  echo "== fuzzing $name for ${seconds}s (max_len $max_len)"
  corpus=$build/fuzz-corpus/$name
  mkdir -p "$corpus"
  cp "$root/fuzz/corpus/$name"/* "$corpus/"
  log=$build/fuzz-$name.log
  status=0
  "$build/fuzz/fuzz_$name" -max_total_time="$seconds" -rss_limit_mb=2048 -malloc_limit_mb=512 \
    -max_len="$max_len" -timeout=10 -dict="$root/fuzz/$name.dict" -print_final_stats=1 \
    -artifact_prefix="$artifacts/$name-" "$corpus" >"$log" 2>&1 || status=$?
  # The fuzzer's last progress line and its stats, then the whole log when it failed.
  grep -E '^#[0-9]+[[:space:]]+DONE|^stat::' "$log" || true
  if ((status != 0)); then
    cat "$log"
    echo "fuzz_$name failed (exit status $status); the input is under $artifacts" >&2
    exit 1
  fi
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  per_second=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
  stats+=("$(printf '%-18s %10s %12s' "$name" "$per_second" "$execs")")
done

echo "== fuzzing summary (${seconds}s each)"
printf '%-18s %10s %12s\n' target execs/s executions
printf '%s\n' "${stats[@]}"
