#!/usr/bin/env bash
# Makes a distribution kit in one command; see usage below.
set -euo pipefail

me=make-kit.sh
usage="Usage: tools/make-kit.sh TEMPLATE_DIR KIT_DIR [--with-tpk-list] [tpk-build options...]
       tools/make-kit.sh --help

Makes a distribution kit in KIT_DIR:
  installer          the installer program, stripped
  plom8.tpk          the package, packed from TEMPLATE_DIR by tpk-build with the
                     options given (--lang, --exclude, --level, -q ...; not -o);
                     SOURCE_DATE_EPOCH is honoured
  installer-LICENSE  the installer's licence, which goes with every copy of it
  tpk-list           only with --with-tpk-list: the package lister, which the
                     Ansible role in deploy/ansible runs on each host

The project is configured and built in BUILD_DIR (default: build/ beside
tools/) when that is needed. KIT_DIR is created when missing; an existing
KIT_DIR may hold only an earlier kit, which is replaced. When tpk-build
refuses, the kit stays as it was.

Exit status: 0 when the kit was made, 1 when tpk-build refused, 2 for a wrong
command line or folder."
die() { echo "$me: $*" >&2; exit 2; }

case ${1-} in -h|--help) echo "$usage"; exit 0 ;; esac
[[ $# -ge 2 ]] || die "usage: $me TEMPLATE_DIR KIT_DIR [--with-tpk-list] [tpk-build options...] (--help tells more)"
templates=$1 kit=$2
shift 2
with_list=false
build_options=()
for option in "$@"; do
  case $option in
    -o|--output) die "the package is always KIT_DIR/plom8.tpk; leave out $option" ;;
    --with-tpk-list) with_list=true ;;
    *) build_options+=("$option") ;;
  esac
done
[[ -d $templates ]] || die "not a directory: $templates"
templates=$(cd "$templates" && pwd -P)
if [[ -e $kit ]]; then
  [[ -d $kit ]] || die "not a directory: $kit"
  for entry in "$kit"/* "$kit"/.[!.]* "$kit"/..?*; do
    [[ -e $entry || -L $entry ]] || continue
    case ${entry##*/} in
      installer|plom8.tpk|installer-LICENSE|tpk-list) ;;
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
if ! "$stage/bin/tpk-build" "$templates" -o "$kit/plom8.tpk" ${build_options[@]+"${build_options[@]}"}; then
  for dir in "${made[@]}"; do rmdir "$dir"; done
  exit 1
fi
# Each file under a temporary name first, renamed into place when whole.
put() {
  cp "$1" "$kit/$2.part"
  chmod "$3" "$kit/$2.part"
  mv -f "$kit/$2.part" "$kit/$2"
}
put "$stage/bin/installer" installer 755
put "$repo/LICENSE" installer-LICENSE 644
if $with_list; then
  put "$stage/bin/tpk-list" tpk-list 755
else
  rm -f "$kit/tpk-list"
fi
echo "$me: kit in $kit: installer ($(stat -c %s "$kit/installer") bytes), plom8.tpk ($(stat -c %s "$kit/plom8.tpk") bytes)$($with_list && echo ", tpk-list")"
