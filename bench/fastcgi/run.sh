#!/usr/bin/env bash
# Requests per second and p50/p99 latency through nginx (kept-alive FastCGI connections to the
# host, the configuration of tests/integration/conf/nginx.conf) for three hosts that write the
# same bytes: the example host over wsi's FastCGI server, the same page code over libfcgi
# (bench/fastcgi/libfcgi_host.cpp), and fcgiwrap running `wsi_demo --cgi` (a process per
# request). Each is driven by wrk on loopback for the demo page and for a 64 KB response, with 1,
# 2 and 8 host threads (fcgiwrap: processes). Prints the table and writes it into the section
# "FastCGI through nginx" of bench/README.md.
#
#   bash bench/fastcgi/run.sh [BUILD_DIR]
#
# BUILD_DIR (default build-bench) is configured as a Release build with the benchmarks when it
# has no build yet. WSI_BENCH_SECONDS (default 5) and WSI_BENCH_CONNECTIONS (default 16) set
# wrk's duration and connection count, WSI_BENCH_HOSTS a subset of "wsi libfcgi fcgiwrap". Not a test: nothing here passes or fails on speed.
set -euo pipefail

root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build-bench}
seconds=${WSI_BENCH_SECONDS:-5}
connections=${WSI_BENCH_CONNECTIONS:-16}
readme=$root/bench/README.md
section_title="FastCGI through nginx"

for tool in /usr/sbin/nginx /usr/sbin/fcgiwrap /usr/bin/wrk; do
  [[ -x $tool ]] || { echo "run.sh: $tool is missing (packages nginx-light, fcgiwrap, wrk)" >&2; exit 1; }
done
if [[ ! -f $build/CMakeCache.txt ]]; then
  cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DWSI_BUILD_BENCH=ON
fi
cmake --build "$build" -j2 --target wsi_demo libfcgi_host
build=$(cd "$build" && pwd)
demo=$build/examples/wsi_demo
libfcgi_host=$build/bench/libfcgi_host

work=$(mktemp -d "${TMPDIR:-/tmp}/wsi-bench-XXXXXX")
groups=()
# Stops every process group this script started (by the leaders' pids), then removes `work`.
cleanup() {
  local pid
  for pid in "${groups[@]}"; do kill -TERM -- "-$pid" 2>/dev/null || true; done
  sleep 0.3
  for pid in "${groups[@]}"; do kill -KILL -- "-$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT

# start LOG COMMAND...: runs COMMAND in a new session (its own process group) with its output
# in LOG, and records the group; prints the pid.
start() {
  local log=$1
  shift
  setsid "$@" >"$log" 2>&1 </dev/null &
  groups+=("$!")
  last_pid=$!
}

# stop PID: ends the process group led by PID and waits for the leader.
stop() {
  kill -TERM -- "-$1" 2>/dev/null || true
  wait "$1" 2>/dev/null || true
}

# wait_for TEST...: retries the test for up to 10 s.
wait_for() {
  local i
  for ((i = 0; i < 500; ++i)); do
    if "$@" 2>/dev/null; then return 0; fi
    sleep 0.02
  done
  return 1
}

# A free loopback port: the kernel's choice for a socket bound to port 0.
port=$(perl -MIO::Socket::INET -e 'print IO::Socket::INET->new(LocalAddr => "127.0.0.1:0", Listen => 1)->sockport')
printf '#!/bin/sh\nexec %q --cgi\n' "$demo" >"$work/demo.cgi"
chmod 755 "$work/demo.cgi"
mkdir -p "$work/tmp"
# The tests' nginx configuration; fcgiwrap also needs the script's name (all hosts get it, so
# that every page shows the same variables).
sed -e "s|@DIR@|$work|g" -e "s|@PORT@|$port|g" -e "s|@HOSTS@|server unix:$work/host.sock;|" \
    -e "s|fastcgi_pass wsi_hosts;|fastcgi_pass wsi_hosts;\n      fastcgi_param SCRIPT_FILENAME $work/demo.cgi;|" \
    "$root/tests/integration/conf/nginx.conf" >"$work/nginx.conf"

# bench_one HOST THREADS PATH: one wrk run; prints "req/s p50 p99 errors".
bench_one() {
  local out rps p50 p99 errors
  out=$(wrk -t1 -c"$connections" -d"${seconds}s" --latency "http://127.0.0.1:$port$3")
  rps=$(awk '/^Requests\/sec:/ {printf "%.0f", $2}' <<<"$out")
  p50=$(awk '$1 == "50%" {print $2}' <<<"$out")
  p99=$(awk '$1 == "99%" {print $2}' <<<"$out")
  errors=$(awk '/Non-2xx/ {n += $NF} /Socket errors/ {gsub(",", ""); n += $4 + $6 + $8 + $10} END {print n + 0}' <<<"$out")
  echo "$rps $p50 $p99 $errors"
}

rows=()
for host in ${WSI_BENCH_HOSTS:-wsi libfcgi fcgiwrap}; do
  for threads in 1 2 8; do
    rm -f "$work/host.sock"
    case $host in
      wsi) start "$work/host.log" "$demo" --fastcgi "unix:$work/host.sock" --threads "$threads" ;;
      libfcgi) start "$work/host.log" "$libfcgi_host" "unix:$work/host.sock" "$threads" ;;
      fcgiwrap) start "$work/host.log" /usr/sbin/fcgiwrap -c "$threads" -s "unix:$work/host.sock" ;;
    esac
    host_pid=$last_pid
    wait_for test -S "$work/host.sock" || { cat "$work/host.log" >&2; exit 1; }
    start "$work/nginx.out" /usr/sbin/nginx -p "$work/" -c "$work/nginx.conf"
    nginx_pid=$last_pid
    if ! wait_for curl -sf -o /dev/null "http://127.0.0.1:$port/"; then
      curl -sS "http://127.0.0.1:$port/" >&2 || true
      grep -v 'closed keepalive' "$work/nginx-error.log" "$work/host.log" >&2 || true
      exit 1
    fi
    for page in "/demo?bench=1" "/bytes?n=65536"; do
      result=$(bench_one "$host" "$threads" "$page")
      rows+=("$host $threads $page $result")
      echo "$host threads=$threads $page: $result (req/s p50 p99 errors)"
    done
    stop "$nginx_pid"
    stop "$host_pid"
  done
done

# The table: one line per page and thread count, the three hosts side by side.
table() {
  echo "| page | threads | wsi req/s | wsi p50 | wsi p99 | libfcgi req/s | libfcgi p50 | libfcgi p99 | fcgiwrap req/s | fcgiwrap p50 | fcgiwrap p99 | wsi / libfcgi |"
  echo "|---|---|---|---|---|---|---|---|---|---|---|---|"
  local page threads
  for page in "/demo?bench=1" "/bytes?n=65536"; do
    for threads in 1 2 8; do
      printf '%s\n' "${rows[@]}" | awk -v page="$page" -v threads="$threads" '
        $2 == threads && $3 == page { rps[$1] = $4; p50[$1] = $5; p99[$1] = $6; err[$1] = $7 }
        END {
          line = "| `" page "` | " threads
          split("wsi libfcgi fcgiwrap", hosts, " ")
          for (i = 1; i <= 3; ++i) {
            h = hosts[i]
            line = line " | " rps[h] (err[h] > 0 ? " (" err[h] " errors)" : "") " | " p50[h] " | " p99[h]
          }
          ratio = rps["libfcgi"] > 0 ? sprintf("%.2f", rps["wsi"] / rps["libfcgi"]) : "-"
          print line " | " ratio " |"
        }'
    done
  done
}

model=$(lscpu | awk -F: '/^Model name/ {gsub(/^ +/, "", $2); print $2; exit}')
{
  echo "## $section_title"
  echo
  echo "Measured $(date -u '+%Y-%m-%d %H:%M UTC') on $(nproc) CPUs ($model), nginx $(/usr/sbin/nginx -v 2>&1 | sed 's|.*/||'),"
  echo "wrk with 1 thread and $connections connections for ${seconds} s per cell, all on loopback:"
  echo
  echo '    bash bench/fastcgi/run.sh'
  echo
  echo "nginx keeps up to 16 FastCGI connections open to the host (\`keepalive 16\`,"
  echo "\`fastcgi_keep_conn on\`). \"threads\" is the host's thread count (\`--threads\` of"
  echo "\`wsi_demo --fastcgi\`, the thread count of bench/fastcgi/libfcgi_host.cpp, \`fcgiwrap -c\`"
  echo "processes). wsi and libfcgi run the same page code (examples/demo_routes.cpp), so they"
  echo "differ only in the FastCGI transport; fcgiwrap starts \`wsi_demo --cgi\` for every request."
  echo "Latencies are wrk's; \"errors\" counts non-2xx answers and socket errors (timeouts among"
  echo "them)."
  echo
  table
} >"$work/section.md"
cat "$work/section.md"

# Replace this script's section of bench/README.md (or add it), leaving the others as they are.
if [[ -f $readme ]]; then
  awk -v title="## $section_title" -v file="$work/section.md" '
    $0 == title { skipping = 1; while ((getline line < file) > 0) print line; print ""; next }
    skipping && /^## / { skipping = 0 }
    !skipping { print }
    END { }' "$readme" >"$work/readme.new"
  if ! grep -qxF "## $section_title" "$readme"; then
    { cat "$readme"; echo; cat "$work/section.md"; } >"$work/readme.new"
  fi
  cp "$work/readme.new" "$readme"
else
  { echo "# Benchmarks"; echo; cat "$work/section.md"; } >"$readme"
fi
echo "run.sh: wrote the section \"$section_title\" of $readme"
