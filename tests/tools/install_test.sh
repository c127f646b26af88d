#!/usr/bin/env bash
# cmake --install --strip into a private prefix: the three programs and their
# manual pages, each page rendered by man with every groff warning on (any
# warning fails), and --help and --version of every installed program, with
# no display.
#   install_test.sh BUILD_DIR VERSION
set -euo pipefail
build=$1 version=$2
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" --strip >/dev/null
expected="bin/installer
bin/tpk-build
bin/tpk-list
share/man/man1/installer.1
share/man/man1/tpk-build.1
share/man/man1/tpk-list.1"
got=$(cd "$prefix" && find . -type f | sed 's|^\./||' | sort)
[[ $got == "$expected" ]] || fail "installed files:"$'\n'"$got"

for program in installer tpk-build tpk-list; do
  exe=$prefix/bin/$program
  readelf -S "$exe" | grep -q '\.symtab' && fail "$program is not stripped"
  [[ -x $exe ]] || fail "$program is not executable"
  out=$(env -u DISPLAY "$exe" --version) || fail "$program --version exits $?"
  [[ $out == "$program $version" ]] || fail "$program --version printed '$out'"
  for help in --help -h; do
    out=$(env -u DISPLAY "$exe" "$help" 2>/dev/null) || fail "$program $help exits $?"
    [[ $out == Usage:* ]] || fail "$program $help printed '$out'"
  done

  page=$prefix/share/man/man1/$program.1
  warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings=all -E UTF-8 -l "$page" 2>&1 >/dev/null) ||
    fail "man -l $page exits $?"
  [[ -z $warnings ]] || fail "$page: $warnings"
  text=$(LC_ALL=C.UTF-8 MANWIDTH=80 man -E UTF-8 -l "$page" 2>/dev/null)
  grep -q "template_installer $version" <<<"$text" || fail "$page does not show version $version"
  grep -q '^EXIT STATUS' <<<"$text" || fail "$page has no EXIT STATUS section"
done
echo "install layout ok"
