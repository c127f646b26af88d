#!/usr/bin/env bash
# Makes a distribution kit in one command: KIT_DIR/installer (stripped) and
# KIT_DIR/plom8.tpk packed from TEMPLATE_DIR.
#
#   tools/make-kit.sh TEMPLATE_DIR KIT_DIR [tpk-build options...]
#
# The options go to tpk-build as they are (--lang, --exclude, --level, -q ...);
# SOURCE_DATE_EPOCH is honoured as tpk-build honours it. The project is
# configured and built in BUILD_DIR (default: build/ beside tools/) when that
# is needed. KIT_DIR is created when missing; an existing KIT_DIR may hold
# only an earlier kit (installer and plom8.tpk), which is replaced.
set -euo pipefail

me=make-kit.sh
die() { echo "$me: $*" >&2; exit 2; }

[[ $# -ge 2 ]] || die "usage: $me TEMPLATE_DIR KIT_DIR [tpk-build options...]"
templates=$1 kit=$2
shift 2
for option in "$@"; do
  case $option in
    -o|--output) die "the package is always KIT_DIR/plom8.tpk; leave out $option" ;;
  esac
done
[[ -d $templates ]] || die "not a directory: $templates"
templates=$(cd "$templates" && pwd -P)
if [[ -e $kit ]]; then
  [[ -d $kit ]] || die "not a directory: $kit"
  for entry in "$kit"/* "$kit"/.[!.]* "$kit"/..?*; do
    [[ -e $entry || -L $entry ]] || continue
    case ${entry##*/} in
      installer|plom8.tpk) ;;
      *) die "$kit holds other files than a kit ($entry); give an empty or new folder" ;;
    esac
  done
fi
kit=$(realpath -m "$kit")
case $kit/ in
  "$templates"/*) die "the kit folder must not lie inside the template tree" ;;
esac

repo=$(cd "$(dirname "$0")/.." && pwd -P)
build=${BUILD_DIR:-$repo/build}
if [[ ! -f $build/CMakeCache.txt ]]; then
  cmake -S "$repo" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" -j2 --target installer tpk-build tpk-list >/dev/null

stage=$(mktemp -d "${TMPDIR:-/tmp}/make-kit.XXXXXX")
trap 'rm -rf "$stage"' EXIT
cmake --install "$build" --prefix "$stage" --strip >/dev/null

# The package first: when tpk-build refuses, the kit stays as it was (the
# folders made for it are removed again).
made=()
dir=$kit
while [[ ! -e $dir ]]; do made+=("$dir"); dir=$(dirname "$dir"); done
mkdir -p "$kit"
if ! "$stage/bin/tpk-build" "$templates" -o "$kit/plom8.tpk" "$@"; then
  for dir in "${made[@]}"; do rmdir "$dir"; done
  exit 1
fi
cp "$stage/bin/installer" "$kit/installer.part"
chmod 755 "$kit/installer.part"
mv -f "$kit/installer.part" "$kit/installer"
echo "$me: kit in $kit: installer ($(stat -c %s "$kit/installer") bytes), plom8.tpk ($(stat -c %s "$kit/plom8.tpk") bytes)"
