#!/bin/sh
# Runs a command against a private Xvfb server on a free display.
# Usage: with-xvfb.sh COMMAND [ARGS...]   (exit status = the command's)
# Xvfb picks the display itself (-displayfd), so parallel ctest runs never collide.
set -u
XVFB_SCREEN=${XVFB_SCREEN:-1024x768x24}
dir=$(mktemp -d "${TMPDIR:-/tmp}/xvfb.XXXXXX") || exit 1
# Xvfb's own output goes to a file: a background child holding ctest's pipes
# would make ctest wait for it.
Xvfb -displayfd 3 -screen 0 "$XVFB_SCREEN" -nolisten tcp -noreset 3>"$dir/display" >"$dir/xvfb.log" 2>&1 &
xvfb_pid=$!
i=0
while [ ! -s "$dir/display" ]; do
  if ! kill -0 "$xvfb_pid" 2>/dev/null || [ $i -ge 200 ]; then
    echo "with-xvfb: Xvfb did not start:" >&2; cat "$dir/xvfb.log" >&2; rm -rf "$dir"; exit 1
  fi
  i=$((i + 1)); sleep 0.05
done
DISPLAY=":$(cat "$dir/display")"; export DISPLAY
unset WAYLAND_DISPLAY XAUTHORITY
"$@"
rc=$?
kill "$xvfb_pid" 2>/dev/null; wait "$xvfb_pid" 2>/dev/null
rm -rf "$dir"
exit $rc
