#!/usr/bin/env bash
# The install-pipeline benchmark in one command: builds the programs it needs
# (Release-like build in build-bench, or $BUILD_DIR), generates the corpora
# once (cached in bench/out or $BENCH_DIR), then times our package load and
# installs beside tar -xzf, unzip -o -q and the headless installer -S, and
# prints the table. Options are those of bench/bench.py, for example:
#   bench/run.sh [--runs N] [--shape release|library|all] [--report FILE]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")
build=${BUILD_DIR:-$root/build-bench}

if [[ ! -f "$build/CMakeCache.txt" ]]; then
  cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" -j2 --target bench_install tpk-build >/dev/null
# The whole installer is optional: without it the end-to-end row says so.
if ! cmake --build "$build" -j2 --target installer >/dev/null 2>&1; then
  echo "note: the installer program did not build; the end-to-end row will be missing" >&2
fi
exec python3 "$here/bench.py" --build-dir "$build" "$@"
