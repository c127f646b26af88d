#!/usr/bin/env bash
# Regenerates docs/screenshots/<code>-<n>-<page>.png: the six wizard pages
# (welcome, directory, progress, success, error, cancelled) in all twelve
# interface languages at the default desktop font (10 points), and as
# <code>-<size>pt-<n>-<page>.png in English at 15 and 20 points (and a few
# other languages at one of them). They are taken in-process by the language
# test of the wizard, on a private X server at 96 dots per inch, and stored
# as small palette PNGs.
#
#   tools/screenshots.sh [BUILD_DIR]      (default: build)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
out=$PWD/docs/screenshots

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j2 --target ui_tests

mkdir -p "$out"
rm -f "$out"/*.png
GTKTEST_SCREENSHOTS=$out tests/with-xvfb.sh "$build/tests/ui/ui_tests" \
  --gtest_filter='All/EveryLanguage.*' --gtest_brief=1
for png in "$out"/*.png; do
  convert "$png" -strip -colors 256 "PNG8:$png"
done
echo "$(ls "$out"/*.png | wc -l) screenshots in $out"
