#!/usr/bin/env bash
# Runs the comparison program pinned to one core with repetitions and prints the table of ratios
# (medians of the repetitions), as bench/README.md keeps it.
#
#   bench/compare.sh [BUILD_DIR [TABLE_FILE]]
#
# BUILD_DIR is a Release build configured with -DWSI_BUILD_BENCH=ON (default build-bench); the
# table also goes to TABLE_FILE when given. WSI_COMPARE_CPU (default 1) picks the core,
# WSI_COMPARE_REPS (default 7) the repetitions.
set -euo pipefail

build=${1:-build-bench}
table=${2:-/dev/null}
program=$build/bench/compare_bench
[ -x "$program" ] || { echo "compare.sh: $program not found: build the compare_bench target" >&2; exit 1; }

json=$(mktemp)
trap 'rm -f "$json"' EXIT
taskset -c "${WSI_COMPARE_CPU:-1}" "$program" --benchmark_repetitions="${WSI_COMPARE_REPS:-7}" \
  --benchmark_report_aggregates_only=true --benchmark_min_time=0.2 \
  --benchmark_out="$json" --benchmark_out_format=json >/dev/null 2>&1

python3 "$(dirname "$0")/compare_table.py" "$json" | tee "$table"
