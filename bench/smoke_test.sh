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
by = {}
for line in open(sys.argv[1]):
    row = json.loads(line)
    by.setdefault(row["phase"], []).append(row)
load, fresh, again, older = by["load"][0], by["fresh"][0], by["reinstall"][0], by["older"][0]
verbs = lambda r: r["command_verbs"]
checks = {
    "load": load["error"] == "" and load["files"] == 3 and load["directories"] == 2,
    "every install finished": all(r["result"] == 0 and r["final_percent"] == 100
                                  for r in (fresh, again, older)),
    "pauses measured": all(r["pause_measured"] and 0.9 < r["pause_seconds"] < 5
                           for r in (fresh, again, older)),
    # At most one mkdir per directory: the package's, the target and the backup directory.
    "fresh": fresh["files_written"] == 3 and "mv" not in verbs(fresh)
             and verbs(fresh).get("mkdir", 0) <= load["directories"] + 2,
    "reinstall": again["files_written"] == 0 and "mv" not in verbs(again),
    "older": older["files_written"] == 3 and verbs(older).get("mv") == 3,
    "verify": all(v["mismatches"] == 0 for v in by["verify"]),
    "floor": by["floor"][0]["failures"] == 0 and by["floor"][0]["commands"] == 0,
}
failed = [name for name, ok in checks.items() if not ok]
print("bench_install smoke test: " + ("failed: " + ", ".join(failed) if failed else "all phases as expected"))
sys.exit(1 if failed else 0)
EOF
