#!/usr/bin/env bash
# tools/make-kit.sh on a small template tree, with the current build: the kit
# holds exactly the stripped installer and plom8.tpk, the package lists the
# tree less what --exclude left out, and bad input changes nothing.
#   make_kit_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
source_dir=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }
make_kit() { BUILD_DIR=$build bash "$source_dir/tools/make-kit.sh" "$@"; }

tree=$work/templates
mkdir -p "$tree/docs" "$tree/Orders/forms" "$tree/.git"
echo '<html></html>' >"$tree/docs/readme.html"
echo 'order' >"$tree/Orders/order.cfg"
echo 'form' >"$tree/Orders/forms/form.cfg"
echo 'backup' >"$tree/Orders/order.cfg~"
echo 'ref: refs/heads/main' >"$tree/.git/HEAD"

make_kit "$tree" "$work/kit" -q --exclude .git --exclude '*~' \
  --lang 'en:Order templates:Vendor:/docs/readme.html' >"$work/out" 2>&1 ||
  fail "make-kit.sh: $(cat "$work/out")"
[[ $(ls -A "$work/kit") == $'installer\ninstaller-LICENSE\nplom8.tpk' ]] || fail "kit holds: $(ls -A "$work/kit")"
cmp -s "$work/kit/installer-LICENSE" "$source_dir/LICENSE" || fail "the kit's licence is not LICENSE"
readelf -S "$work/kit/installer" | grep -q '\.symtab' && fail "the kit's installer is not stripped"
listing=$("$build/tools/tpk-list" "$work/kit/plom8.tpk") || fail "tpk-list refuses the kit's package"
names=$(sed -n '/^files: /,$p' <<<"$listing" | tail -n +2 | awk '{print $NF}')
[[ $names == $'Orders/forms/form.cfg\nOrders/order.cfg\ndocs/readme.html' ]] || fail "package holds: $names"
grep -q '"en" "Order templates" "Vendor" "/docs/readme.html"' <<<"$listing" || fail "languages: $listing"

# --with-tpk-list adds the lister to a kit made again in the same folder; a
# kit made without it again drops it.
make_kit "$tree" "$work/kit" --with-tpk-list -q --exclude .git --exclude '*~' >"$work/out" 2>&1 ||
  fail "make-kit.sh --with-tpk-list: $(cat "$work/out")"
"$work/kit/tpk-list" "$work/kit/plom8.tpk" >/dev/null || fail "the kit's tpk-list does not run"
make_kit "$tree" "$work/kit" -q --exclude .git --exclude '*~' >"$work/out" 2>&1 || fail "make-kit.sh: $(cat "$work/out")"
[[ ! -e $work/kit/tpk-list ]] || fail "a kit made without --with-tpk-list keeps tpk-list"
# grep reads all of it: with -q it may stop early and the writer die of SIGPIPE.
bash "$source_dir/tools/make-kit.sh" --help | grep -- '--with-tpk-list' >/dev/null || fail "make-kit.sh --help"

# Bad input: a refused build, a folder with other files, a kit inside the
# tree, an -o of its own. Each is refused and changes nothing.
mkdir "$work/other"
echo 'notes' >"$work/other/notes.txt"
# Every file with its size and time, every folder by name (the output file aside).
state() { (cd "$work" && find . -path ./out -prune -o -type f -printf '%p %s %T@\n' -o -printf '%p\n' | sort); }
before=$(state)
for args in "$tree $work/kit --lang xx:P:V:/d" "$tree $work/new/kit --lang de:P:V:/d --lang de:P:V:/d" "$tree $work/other" "$tree $tree/kit" \
            "$tree $work/kit -o x.tpk" "$work/absent $work/kit"; do
  # shellcheck disable=SC2086
  if make_kit $args >"$work/out" 2>&1; then fail "make-kit.sh $args succeeded"; fi
  [[ -s $work/out ]] || fail "make-kit.sh $args gave no message"
  [[ $(state) == "$before" ]] || fail "make-kit.sh $args changed files"
done
echo "make-kit ok"
