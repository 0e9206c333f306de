# Sourced by the scripts that run the console on an X server of their own.
#
#   source scripts/private-xvfb.sh
#   private_xvfb || exit 1
#
# private_xvfb starts Xvfb on a display it picks itself (-displayfd), with
# the console's DejaVu fonts (scripts/x11-fonts.sh) on the core font path as
# a user's desktop has them, waits until it accepts clients, exports DISPLAY
# and sets xvfb_pid; the caller stops it. It fails when Xvfb did not start.
private_xvfb() {
  local here font_dir font_path="built-ins" display_file
  here="$(dirname "${BASH_SOURCE[0]}")"
  font_dir="$(bash "$here/x11-fonts.sh" || true)"
  [ -n "$font_dir" ] && font_path="$font_dir,built-ins"
  display_file="$(mktemp)"
  Xvfb -displayfd 3 -screen 0 1600x1000x24 -nolisten tcp -fp "$font_path" 3>"$display_file" >/dev/null 2>&1 &
  xvfb_pid=$!
  for _ in $(seq 1 100); do
    [ -s "$display_file" ] && break
    kill -0 "$xvfb_pid" 2>/dev/null || break
    sleep 0.1
  done
  if [ ! -s "$display_file" ]; then
    rm -f "$display_file"
    kill "$xvfb_pid" 2>/dev/null && wait "$xvfb_pid" 2>/dev/null
    xvfb_pid=""
    echo "Xvfb did not start" >&2
    return 1
  fi
  export DISPLAY=":$(head -n1 "$display_file")"
  rm -f "$display_file"
}
