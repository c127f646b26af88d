#!/usr/bin/env bash
# Smoke test of the benchmark driver: a 3-file package goes through every
# phase (fresh install, verify, up-to-date reinstall, plain copy, install over
# an older copy) in a private temporary folder, and the driver's figures must
# describe what happened.
#   smoke_test.sh BENCH_INSTALL TPK_BUILD
set -euo pipefail
driver=$1
builder=$2

work=$(mktemp -d "${TMPDIR:-/tmp}/bench-smoke.XXXXXX")
trap 'rm -rf "$work"' EXIT
export HOME="$work/home" TMPDIR="$work/tmp" LC_ALL=C.UTF-8
mkdir -p "$HOME" "$TMPDIR" "$work/src/sub dir/Отчёты"
printf 'one\n' >"$work/src/a.txt"
head -c 3000000 /dev/zero | tr '\0' 'x' >"$work/src/sub dir/big.bin"   # more than one copy buffer
: >"$work/src/sub dir/Отчёты/empty.xml"
touch -d '2022-05-01 10:00:00.1234567' "$work/src/a.txt"

"$builder" "$work/src" -o "$work/plom8.tpk" -q
"$driver" "$work/plom8.tpk" --fresh "$work/t" --verify "$work/t" --reinstall "$work/t" \
  --floor "$work/f" --prepare-older "$work/o" --older "$work/o" --verify "$work/o" \
  >"$work/out.json"

python3 - "$work/out.json" <<'EOF'
import json, sys
rows = [json.loads(line) for line in open(sys.argv[1])]
by = {}
for r in rows:
    by.setdefault(r["phase"], []).append(r)
problems = []
def check(cond, what):
    if not cond:
        problems.append(what)
load = by["load"][0]
check(load["error"] == "" and load["files"] == 3 and load["directories"] == 2, "load: %r" % load)
fresh, again, older = by["fresh"][0], by["reinstall"][0], by["older"][0]
for r in (fresh, again, older):
    check(r["result"] == 0 and r["final_percent"] == 100, "%s failed: %r" % (r["phase"], r))
    check(r["pause_measured"] and 0.9 < r["pause_seconds"] < 5, "%s pause: %r" % (r["phase"], r))
    check(abs(r["copy_seconds"] + r["pause_seconds"] - r["seconds"]) < 1e-3, "%s split" % r["phase"])
check(fresh["files_written"] == 3, "fresh wrote %d files" % fresh["files_written"])
# At most one mkdir per directory: those of the package, the target itself
# and the journal's backup directory.
check(fresh["command_verbs"].get("mkdir", 0) <= load["directories"] + 2
      and "mv" not in fresh["command_verbs"],
      "fresh commands %r" % fresh["command_verbs"])
check(again["files_written"] == 0 and "mv" not in again["command_verbs"], "reinstall wrote: %r" % again)
check(older["files_written"] == 3 and older["command_verbs"].get("mv") == 3, "older: %r" % older)
check(all(v["mismatches"] == 0 for v in by["verify"]), "verify: %r" % by["verify"])
check(by["floor"][0]["failures"] == 0 and by["floor"][0]["commands"] == 0, "floor: %r" % by["floor"])
check(fresh["heap_peak_bytes"] >= load["copy_buffer_bytes"], "heap peak below the copy buffer")
if problems:
    print("\n".join(problems))
    sys.exit(1)
print("bench_install smoke test: all phases as expected")
EOF
