#!/usr/bin/env bash
# The ABI check of libqvwsi.so: host programs compiled against an earlier build must keep working
# with this one (docs/abi.md).
#
#   bash .ci/abi.sh            compares the library built from this tree with abi/libqvwsi.abi
#   bash .ci/abi.sh --update   writes abi/libqvwsi.abi from the library built from this tree
#
# The library is built the same way every time, whatever the caller's environment (the preset
# abi, in build-ci-abi): g++, Debug with -g alone, no sanitizer, source paths recorded relative
# to the tree (so the baseline does not depend on where the tree is checked out). abidw writes
# the interface that the exported names reach, without source locations or paths, with type ids
# that hash the type, so the baseline changes only when the interface does.
#
# The check fails when abidiff reports an incompatible change (exit status bit 8: a name removed,
# a virtual function moved, ...) or any change other than added names (a changed class layout, a
# changed parameter type, ...); names that were added are compatible and only reported. After a
# change that docs/abi.md allows, run --update and commit the new baseline with the change.
set -euo pipefail

cd "$(dirname "$0")/.."
root=$PWD
baseline=abi/libqvwsi.abi
build=$root/build-ci-abi
update=false
case "${1-}" in
  --update) update=true ;;
  "") ;;
  *)
    echo "usage: bash .ci/abi.sh [--update]" >&2
    exit 2
    ;;
esac

for tool in abidw abidiff g++ gcc; do
  if ! command -v "$tool" >/dev/null; then
    echo "abi.sh needs $tool (abigail-tools, g++)" >&2
    exit 1
  fi
done

# The fixed build: the preset sets every flag that reaches the debug information.
cmake --preset abi >/dev/null
cmake --build --preset abi >/dev/null
library=$build/libqvwsi.so

if $update; then
  mkdir -p "$(dirname "$baseline")"
  abidw --no-corpus-path --no-comp-dir-path --no-show-locs --type-id-style hash \
    --exported-interfaces-only --out-file "$baseline" "$library"
  echo "wrote $baseline from $library"
  exit 0
fi

if [[ ! -f $baseline ]]; then
  echo "no baseline $baseline: run 'bash .ci/abi.sh --update' and commit it" >&2
  exit 1
fi

# abidiff(options...): the report and exit status of comparing the baseline with the new build.
compare() {
  set +e
  report=$(abidiff --no-show-locs --exported-interfaces-only "$@" "$baseline" "$library" 2>&1)
  status=$?
  set -e
}

compare
if ((status == 0)); then
  echo "ABI of $library: no change against $baseline"
  exit 0
fi
echo "$report"
if ((status & 3)); then
  echo "abidiff could not compare $library with $baseline (status $status)" >&2
  exit 1
fi
if ((status & 8)); then
  echo "INCOMPATIBLE ABI change against $baseline (abidiff status $status): hosts compiled" \
    "against the baseline would break. See docs/abi.md." >&2
  exit 1
fi
# Only a change: compatible when nothing but added names remains once additions are left out.
compare --no-added-syms
if ((status != 0)); then
  echo "ABI change beyond added names against $baseline (abidiff status $status, above)." \
    "If docs/abi.md allows it, run 'bash .ci/abi.sh --update' and commit the baseline." >&2
  exit 1
fi
echo "ABI of $library: compatible additions only (above); the baseline may be updated with" \
  "'bash .ci/abi.sh --update'"
