#!/usr/bin/env bash
# Builds the installer and a demo package from tools/demo/templates, then runs
# the installer on it, the way a user would start it from a distribution kit.
#
#   ./demo.sh            the wizard (or, with no display, the silent mode)
#   ./demo.sh -Lru       the same in another interface language
#   ./demo.sh -S         silent mode (headless when there is no display)
#
# The run uses a private home folder below out/demo/, so the starter settings
# of the real user are never touched. Missing build dependencies are installed
# when run as root (tools/setup-deps.sh); otherwise their install command is
# printed.
set -euo pipefail
cd "$(dirname "$0")"
repo=$PWD

bash tools/setup-deps.sh

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j2 --target installer tpk-build

demo=$repo/out/demo
kit=$demo/kit
home=$demo/home
rm -rf "$demo"
mkdir -p "$kit" "$home/Templates" "$home/.Orvo/zelbrun" "$demo/tmp"

# The distribution kit: the package with English and Russian texts.
build/tools/tpk-build tools/demo/templates -o "$kit/plom8.tpk" -q \
  --lang "en:Demo Configuration Templates:Demo Vendor:/docs/description_en.html" \
  --lang "ru:Демонстрационные шаблоны конфигураций:Демо-поставщик:/docs/description_ru.html"

# A starter program that already knows two template directories (both inside
# the demo folder); the installer proposes the first one and, after the
# installation, lists the chosen directory first.
cfg=$home/.Orvo/zelbrun/zelbrun.cfg
printf 'ConfigurationTemplatesLocation=%s\nConfigurationTemplatesLocation=%s\n' \
  "$home/Templates" "$demo/shared/templates" >"$cfg"

# The X server still needs the real credentials after HOME changes.
export XAUTHORITY=${XAUTHORITY:-${HOME:-/root}/.Xauthority}
export HOME=$home TMPDIR=$demo/tmp

args=("$@")
if [[ -z "${DISPLAY:-}" ]]; then
  echo "No display: installing silently (-S) without a window."
  args=(-S "${args[@]}")
fi

echo "Distribution kit: $kit"
set +e
(cd "$kit" && "$repo/build/app/installer" usecwd "${args[@]}")
status=$?
set -e
echo "Installer exit status: $status"

echo
echo "Starter configuration ($cfg):"
sed 's/^/  /' "$cfg"
target=$(sed -n 's/^ConfigurationTemplatesLocation=//p' "$cfg" | head -n 1)
if [[ -n "$target" && -d "$target/trade" ]]; then
  echo
  echo "Installed files in $target:"
  (cd "$target" && find . -type f | sort | sed 's|^\./|  |')
fi
exit "$status"
