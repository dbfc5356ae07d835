#!/usr/bin/env bash
# Desktop end-to-end check of the launcher: a virtual X server (Xvfb), a tray
# host (trayer), the simulated daemon (zevd-sim) on an ephemeral port and the
# launcher from its bundle, pointed at that port. It checks that the tray icon
# shows, that a click opens the popover, that the dot follows the daemon
# (healthy, degraded, hostile, crowded, oversized, trickling, restarted,
# unreachable) within a memory bound, and that Restart asks first,
# and writes screenshots of the tray and the popover for each case.
#
#   desktop_e2e.sh LAUNCHER ZEVD_SIM ARTIFACTS_DIR
#
# Exit status: 0 when every check passed, 1 when one failed, 77 when the
# desktop tools are missing or no X server and tray host would come up (ctest
# reports the test as skipped). Nothing of
# the user's is touched: HOME is a scratch directory, systemctl is the demo
# stand-in (tools/demo/bin/systemctl) and there is no session bus.
set -uo pipefail

launcher=${1:?usage: desktop_e2e.sh LAUNCHER ZEVD_SIM ARTIFACTS_DIR}
sim=${2:?usage: desktop_e2e.sh LAUNCHER ZEVD_SIM ARTIFACTS_DIR}
artifacts=${3:?usage: desktop_e2e.sh LAUNCHER ZEVD_SIM ARTIFACTS_DIR}
source_dir=$(cd "$(dirname "$0")/../.." && pwd)

for tool in Xvfb trayer xdotool import convert curl setsid; do
  if ! command -v "$tool" >/dev/null; then
    echo "SKIP: $tool is not installed (tools/install-deps installs it)"
    exit 77
  fi
done
for file in "$launcher" "$sim"; do
  [ -x "$file" ] || { echo "FAIL: $file is not an executable"; exit 1; }
done

work=$(mktemp -d "${TMPDIR:-/tmp}/zev-e2e.XXXXXX")
mkdir -p "$artifacts" "$work/home" "$work/run"
chmod 700 "$work/run"
pids=()
desktop_pids=()
cleanup() {
  [ -f "$work/sim.pid" ] && pids+=("$(cat "$work/sim.pid")")
  pids=("${desktop_pids[@]}" "${pids[@]}")
  for (( i=${#pids[@]}-1; i>=0; i-- )); do kill "${pids[$i]}" 2>/dev/null; done
  wait 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

failures=0
pass() { echo "PASS: $*"; }
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# Polls `command` every 0.1 s for up to `seconds`; true as soon as it succeeds.
wait_for() {
  local seconds=$1; shift
  local deadline=$(( $(date +%s%N) + seconds * 1000000000 ))
  while [ "$(date +%s%N)" -lt "$deadline" ]; do
    "$@" && return 0
    sleep 0.1
  done
  return 1
}

# --- the desktop -------------------------------------------------------------
# Xvfb and trayer are started together and retried as a pair: an X server that
# reported its display but no longer answers (seen once on a CI machine, with
# nothing in the test's own output to say why) gets a fresh start instead of
# failing the run, and every failure prints the server's and the tray's logs.
# A machine where no X server or tray host stays up cannot run this check at
# all (the launcher has not even started yet), so that case is a skip.
display_answers() { xdotool getdisplaygeometry >/dev/null 2>&1; }
trayer_shows() { xdotool search --onlyvisible --class trayer >/dev/null 2>&1; }
stop_desktop() {
  local pid
  for pid in "${desktop_pids[@]}"; do kill "$pid" 2>/dev/null; wait "$pid" 2>/dev/null; done
  desktop_pids=()
}
show_logs() {
  local log
  for log in "$@"; do
    [ -s "$work/$log" ] && { echo "--- $log"; tail -n 20 "$work/$log"; }
  done
  return 0
}
desktop_up=false
server_ever_answered=false
for attempt in 1 2 3; do
  rm -f "$work/display"
  Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
  desktop_pids=($!)
  if ! wait_for 10 test -s "$work/display"; then
    echo "attempt $attempt: Xvfb did not report a display"; show_logs xvfb.log; stop_desktop; continue
  fi
  export DISPLAY=":$(head -n 1 "$work/display")"
  if ! wait_for 5 display_answers; then
    echo "attempt $attempt: Xvfb reported $DISPLAY but does not answer" \
         "($(kill -0 "${desktop_pids[0]}" 2>/dev/null && echo running || echo exited))"
    show_logs xvfb.log; stop_desktop; continue
  fi
  server_ever_answered=true
  unset WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS
  export XDG_RUNTIME_DIR="$work/run"
  trayer --edge top --align right --widthtype request --height 28 --SetDockType true \
    --transparent false --tint 0x2d2d2d --iconspacing 4 >"$work/trayer.log" 2>&1 &
  desktop_pids+=($!)
  if wait_for 10 trayer_shows; then desktop_up=true; break; fi
  echo "attempt $attempt: trayer did not show its panel on $DISPLAY"
  show_logs trayer.log xvfb.log; stop_desktop
done
if ! $desktop_up; then
  if $server_ever_answered; then
    echo "SKIP: trayer did not show its panel (three attempts); the desktop check needs a tray host"
  else
    echo "SKIP: no X server stayed up on this machine (three attempts); the desktop check needs one"
  fi
  exit 77
fi
pids+=("${desktop_pids[@]}")
desktop_pids=()

# --- the daemon --------------------------------------------------------------
# Started on port 0 to find a free port, then kept on that port, so that the
# stand-in systemctl can restart it where the launcher looks for it.
"$sim" --listen 127.0.0.1:0 --log-rate 0 >"$work/probe.log" 2>&1 &
probe=$!
wait_for 10 grep -q "listening on http://" "$work/probe.log" || { fail "zevd-sim did not start"; exit 1; }
port=$(sed -n 's|.*listening on http://[^:]*:\([0-9]*\).*|\1|p' "$work/probe.log" | head -1)
kill "$probe"; wait "$probe" 2>/dev/null
base="http://127.0.0.1:$port"
echo "exec env HOME='$work/home' '$sim' --listen 127.0.0.1:$port --log-rate 5 --err-rate 0.5" > "$work/sim.cmd"
setsid bash -c "$(cat "$work/sim.cmd")" >>"$work/sim.log" 2>&1 </dev/null &
echo $! > "$work/sim.pid"
answers() { curl -s -o /dev/null --max-time 1 "$base/sim"; }
wait_for 10 answers || { fail "zevd-sim does not answer on $base"; cat "$work/sim.log"; exit 1; }
scenario() { curl -s -X POST --max-time 2 "$base/sim/scenario?name=$1" >/dev/null; }

# --- the launcher ------------------------------------------------------------
start_ns=$(date +%s%N)
# A sanitizer build keeps freed memory in quarantine; a small one lets the
# memory bound below measure what the launcher holds, not what it freed.
env HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" ZEV_DEMO_DIR="$work" \
  PATH="$source_dir/tools/demo/bin:$PATH" ZEV_DAEMON_URL="$base" QT_QPA_PLATFORM=xcb \
  ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}quarantine_size_mb=4" \
  "$launcher" >"$work/launcher.log" 2>&1 &
launcher_pid=$!
pids+=("$launcher_pid")

# The launcher's visible windows, one "id x y width height" line each.
windows() {
  local id
  for id in $(xdotool search --onlyvisible --pid "$launcher_pid" 2>/dev/null); do
    eval "$(xdotool getwindowgeometry --shell "$id")"
    echo "$id $X $Y $WIDTH $HEIGHT"
  done
}
tray_icon() { windows | awk '$4 <= 64 && $5 <= 64' | head -1; }
popover() { windows | awk '$4 > 200' | head -1; }
has_tray_icon() { [ -n "$(tray_icon)" ]; }
has_popover() { [ -n "$(popover)" ]; }
no_popover() { [ -z "$(popover)" ]; }

if wait_for 30 has_tray_icon; then
  pass "the tray icon shows ($(( ($(date +%s%N) - start_ns) / 1000000 )) ms after start)"
else
  fail "no tray icon within 30 s"; cat "$work/launcher.log"; exit 1
fi
read -r icon_id icon_x icon_y icon_w icon_h <<<"$(tray_icon)"
icon_cx=$((icon_x + icon_w / 2)); icon_cy=$((icon_y + icon_h / 2))

# The status colours found in the tray icon, as #RRGGBB (the count is drawn
# across the dot, so its middle is not enough).
declare -A colours=([green]="#34C759" [yellow]="#FFCC00" [red]="#FF3B30")
icon_colour() {
  import -window root -crop "${icon_w}x${icon_h}+$icon_x+$icon_y" -depth 8 txt:- 2>/dev/null \
    | sed -n 's/.*\(#[0-9A-F]\{6\}\).*/\1/p' | grep -xE '#34C759|#FFCC00|#FF3B30' | sort -u | xargs
}
dot_is() { [ "$(icon_colour)" = "${colours[$1]}" ]; }
expect_dot() {
  if wait_for "${2:-12}" dot_is "$1"; then pass "the dot is $1"
  else fail "the dot should be $1, is $(icon_colour)"; fi
}

shoot_tray() {
  # The right end of the panel, three times enlarged so the dot reads well.
  import -window root -crop "160x28+$((1280 - 160))+0" +repage "$work/tray.png"
  convert "$work/tray.png" -scale 300% "$artifacts/tray-$1.png"
}
shoot_popover() {
  read -r _ px py pw ph <<<"$(popover)"
  local left=$(( px - 16 < 0 ? 0 : px - 16 ))
  import -window root -crop "$((1280 - left))x$((py + ph + 16))+$left+0" +repage \
    "$artifacts/popover-$1.png"
}
click_icon() { xdotool mousemove "$icon_cx" "$icon_cy" click 1; }
open_popover() {
  click_icon
  if wait_for 5 has_popover; then pass "a click opens the popover ($1)"
  else fail "the popover did not open ($1)"; return 1; fi
}
close_popover() {
  # A click outside the popover closes it.
  xdotool mousemove 200 500 click 1
  wait_for 3 no_popover && pass "a click outside closes the popover" \
    || fail "the popover stayed open after a click outside"
}

# --- healthy -----------------------------------------------------------------
expect_dot green 15
first_ms=$(( ($(date +%s%N) - start_ns) / 1000000 ))
echo "INFO: first status on screen about $first_ms ms after start"
xdotool mousemove "$icon_cx" "$icon_cy"
sleep 1.5   # the tooltip appears after the pointer rests
import -window root -crop "460x60+$((1280 - 460))+0" +repage "$artifacts/tooltip-healthy.png"
shoot_tray healthy
if open_popover healthy; then
  sleep 0.7
  shoot_popover healthy
  # A second click on the icon closes it, and it stays closed.
  click_icon
  sleep 0.8
  if no_popover; then pass "a click on the icon closes the popover"
  else fail "a click on the icon left the popover open"; close_popover; fi
fi

# --- degraded ----------------------------------------------------------------
scenario degraded
sleep 0.4
# Opening the popover polls at once, so it shows the new state right away.
if open_popover degraded; then
  expect_dot yellow 5
  sleep 0.5
  shoot_popover degraded
  shoot_tray degraded
  close_popover
fi

# --- restart asks first ------------------------------------------------------
if open_popover restart; then
  read -r _ px py pw ph <<<"$(popover)"
  # The action row is the popover's last; Restart is its second button.
  xdotool mousemove $((px + 145)) $((py + ph - 22)) click 1
  alert() { windows | awk '$4 > 200 && $3 > 100' | head -1; }
  has_alert() { [ -n "$(alert)" ]; }
  if wait_for 5 has_alert; then
    pass "Restart asks first"
    read -r _ ax ay aw ah <<<"$(alert)"
    import -window root -crop "$((aw + 40))x$((ah + 40))+$((ax - 20))+$((ay - 20))" +repage \
      "$artifacts/restart-alert.png"
    old_pid=$(cat "$work/sim.pid")
    xdotool key Return
    restarted() { [ "$(cat "$work/sim.pid")" != "$old_pid" ] && answers; }
    if wait_for 10 restarted; then pass "Restart restarts the daemon"
    else fail "the daemon was not restarted"; fi
    # The restarted daemon starts healthy again.
    expect_dot green 12
  else
    fail "no restart alert appeared"
  fi
fi

# --- the log window ----------------------------------------------------------
log_window() { windows | awk '$4 >= 800' | head -1; }
has_log_window() { [ -n "$(log_window)" ]; }
no_log_window() { [ -z "$(log_window)" ]; }
shoot_log_window() {
  read -r _ lx ly lw lh <<<"$(log_window)"
  import -window root -crop "${lw}x${lh}+$lx+$ly" +repage "$artifacts/log-window-$1.png"
}
if open_popover logs; then
  read -r _ px py pw ph <<<"$(popover)"
  # Logs is the action row's third button; View Log its menu's first entry.
  xdotool mousemove $((px + 222)) $((py + ph - 22)) click 1
  sleep 0.5
  xdotool key Down Return
  if wait_for 5 has_log_window; then
    pass "Logs → View Log opens the log window"
    read -r log_id lx ly lw lh <<<"$(log_window)"
    [ "$lw" = 900 ] && [ "$lh" = 600 ] && pass "the log window is 900 × 600" \
      || fail "the log window is $lw × $lh"
    sleep 1.5
    shoot_log_window daemon
    xdotool windowactivate --sync "$log_id" 2>/dev/null
    xdotool key ctrl+f
    xdotool type --delay 40 "front-door"
    sleep 0.8
    shoot_log_window search
    # The source picker is the controls row's first control.
    xdotool mousemove $((lx + 90)) $((ly + 20)) click 1
    sleep 0.5
    xdotool key Down Return
    sleep 1.5
    shoot_log_window stderr
    xdotool key ctrl+f ctrl+a BackSpace
    sleep 1.2
    shoot_log_window stderr-all
    # Closing only hides it; a second start with --show-logs brings it back
    # through the running launcher and exits.
    xdotool key ctrl+w
    wait_for 3 no_log_window || fail "the log window did not hide"
    env HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" ZEV_DEMO_DIR="$work" \
      PATH="$source_dir/tools/demo/bin:$PATH" QT_QPA_PLATFORM=xcb \
      timeout 20 "$launcher" --show-logs >"$work/second.log" 2>&1
    second_status=$?
    [ "$second_status" = 0 ] && pass "a second start hands over and exits" \
      || { fail "a second start exited $second_status"; cat "$work/second.log"; }
    if wait_for 5 has_log_window; then pass "--show-logs shows the log window again"
    else fail "--show-logs did not show the log window"; fi
    xdotool key ctrl+w
    wait_for 3 no_log_window || fail "Ctrl+W did not close the log window"
  else
    fail "View Log did not open the log window"
    close_popover
  fi
fi

# --- a daemon gone wrong ------------------------------------------------------
# Markup and absurd figures, ten thousand cameras, an answer far over the size
# cap, one that trickles a byte at a time: the launcher stays alive, opens its
# popover promptly and stays under a memory bound; the dot says what it should.
rss_kib() { awk '$1 == "VmRSS:" {print $2}' "/proc/$launcher_pid/status"; }
rss_start=$(rss_kib)
for bad in hostile:yellow crowd:green oversized:red trickle:red; do
  name=${bad%%:*}; colour=${bad##*:}
  scenario "$name"
  sleep 0.3
  if open_popover "$name"; then
    expect_dot "$colour" 12
    sleep 0.5
    case "$name" in hostile|crowd) shoot_popover "$name"; shoot_tray "$name" ;; esac
    close_popover
  fi
done
rss_end=$(rss_kib)
if [ -n "$rss_end" ] && [ $(( rss_end - rss_start )) -lt 65536 ]; then
  pass "the launcher grew by $(( (rss_end - rss_start) / 1024 )) MiB through them (bound 64 MiB)"
else
  fail "the launcher grew from ${rss_start:-?} to ${rss_end:-?} KiB"
fi
scenario healthy
expect_dot green 12

# --- unreachable -------------------------------------------------------------
kill "$(cat "$work/sim.pid")"
sleep 0.3
if open_popover unreachable; then
  expect_dot red 5
  sleep 0.5
  shoot_popover unreachable
  shoot_tray unreachable
  close_popover
fi

if kill -0 "$launcher_pid" 2>/dev/null; then pass "the launcher is still running"
else fail "the launcher exited"; fi
cp "$work/launcher.log" "$artifacts/launcher.log"
cp "$work/systemctl.calls" "$artifacts/systemctl.calls" 2>/dev/null
echo "screenshots in $artifacts:"
ls "$artifacts"/*.png 2>/dev/null | sed 's/^/  /'
if [ "$failures" -gt 0 ]; then
  echo "$failures check(s) failed; launcher log:"; cat "$work/launcher.log"
  exit 1
fi
echo "all checks passed"
