#!/usr/bin/env bash
# Installs the Debian packages needed to build, test and run the installer,
# only those still missing. As root it uses apt-get; otherwise it prints the
# command to run.
set -euo pipefail

packages=(
  build-essential cmake pkg-config libgtest-dev
  libgtk2.0-dev zlib1g-dev libisal-dev
  xvfb xauth xdotool x11-utils imagemagick fonts-dejavu-core
  python3 clang clang-format pigz unzip zip time man-db ansible-core
  # the wizard seen through the accessibility tree, in a private D-Bus
  # session, under three window managers, on a desktop in another language
  dbus-daemon at-spi2-core python3-pyatspi libatk-adaptor libgail-common
  metacity openbox xfwm4 locales
)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

if [[ $(id -u) -ne 0 ]]; then
  echo "Missing packages: ${missing[*]}" >&2
  echo "Install them with: sudo apt-get install ${missing[*]}" >&2
  exit 1
fi

echo "Installing: ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
# Another apt may hold the lock for a while: retry the update, let install wait.
for i in 1 2 3 4 5 6; do apt-get update -qq && break; sleep 20; done
apt-get -o DPkg::Lock::Timeout=300 install -y -qq --no-install-recommends "${missing[@]}" >&2
