#!/usr/bin/env bash
# Desktop notifications end to end: a virtual X server (Xvfb), a private
# session bus (dbus-run-session) with a real notification server (dunst), the
# simulated daemon on an ephemeral port and the launcher from its bundle.
# zevd-sim is switched from healthy to HTTP 503 and back; dbus-monitor records
# the Notify calls the server received. Checks that the failure is announced
# once with its reason, the recovery once, and that the start-up colour is
# not. Writes a screenshot of the notification.
#
#   notifications_e2e.sh LAUNCHER ZEVD_SIM ARTIFACTS_DIR
#
# Exit status: 0 when every check passed, 1 when one failed, 77 when the tools
# are missing or no X server or notification server would come up.
set -uo pipefail

launcher=${1:?usage: notifications_e2e.sh LAUNCHER ZEVD_SIM ARTIFACTS_DIR}
sim=${2:?usage: notifications_e2e.sh LAUNCHER ZEVD_SIM ARTIFACTS_DIR}
artifacts=${3:?usage: notifications_e2e.sh LAUNCHER ZEVD_SIM ARTIFACTS_DIR}
source_dir=$(cd "$(dirname "$0")/../.." && pwd)

for tool in Xvfb dunst dbus-run-session dbus-send dbus-monitor import curl; do
  if ! command -v "$tool" >/dev/null; then
    echo "SKIP: $tool is not installed (tools/install-deps installs it)"
    exit 77
  fi
done

# Inside the private session bus: everything below runs from here.
if [ -z "${ZEV_NOTIFY_E2E_INNER:-}" ]; then
  work=$(mktemp -d "${TMPDIR:-/tmp}/zev-notify-e2e.XXXXXX")
  mkdir -p "$artifacts" "$work/home/.config" "$work/run"
  chmod 700 "$work/run"
  Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
  xvfb=$!
  for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.1; done
  if [ ! -s "$work/display" ]; then
    kill "$xvfb" 2>/dev/null; rm -rf "$work"
    echo "SKIP: Xvfb did not report a display"; exit 77
  fi
  env -u DBUS_SESSION_BUS_ADDRESS -u WAYLAND_DISPLAY DISPLAY=":$(head -n 1 "$work/display")" \
    XDG_RUNTIME_DIR="$work/run" ZEV_NOTIFY_E2E_INNER="$work" \
    dbus-run-session -- "$0" "$@"
  status=$?
  kill "$xvfb" 2>/dev/null; wait "$xvfb" 2>/dev/null
  rm -rf "$work"
  exit "$status"
fi

work=$ZEV_NOTIFY_E2E_INNER
pids=()
cleanup() {
  [ -f "$work/sim.pid" ] && pids+=("$(cat "$work/sim.pid")")
  for (( i=${#pids[@]}-1; i>=0; i-- )); do kill "${pids[$i]}" 2>/dev/null; done
  wait 2>/dev/null
}
trap cleanup EXIT
failures=0
pass() { echo "PASS: $*"; }
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
wait_for() {
  local deadline=$(( $(date +%s) + $1 )); shift
  while [ "$(date +%s)" -lt "$deadline" ]; do "$@" && return 0; sleep 0.2; done
  return 1
}

# --- the notification server ------------------------------------------------
cat > "$work/dunstrc" <<'RC'
[global]
    origin = top-right
    offset = 16x16
    width = 380
    font = DejaVu Sans 10
    frame_width = 1
    frame_color = "#5a5a5a"
    corner_radius = 6
    padding = 10
    horizontal_padding = 12
    format = "<b>%s</b>\n%b"
    show_indicators = no
[urgency_low]
    background = "#2d2d2d"
    foreground = "#f0f0f0"
    timeout = 0
[urgency_normal]
    background = "#2d2d2d"
    foreground = "#f0f0f0"
    timeout = 0
[urgency_critical]
    background = "#2d2d2d"
    foreground = "#f0f0f0"
    frame_color = "#FF3B30"
    timeout = 0
RC
dunst -config "$work/dunstrc" >"$work/dunst.log" 2>&1 &
pids+=($!)
# Asked through the bus itself: dunstctl would start a second dunst by D-Bus
# activation while ours is still coming up.
server_up() {
  dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
    org.freedesktop.DBus.NameHasOwner string:org.freedesktop.Notifications 2>/dev/null \
    | grep -q 'boolean true'
}
if ! wait_for 10 server_up; then
  echo "SKIP: dunst did not come up on the session bus"; tail -5 "$work/dunst.log"; exit 77
fi
dbus-monitor --session "type='method_call',interface='org.freedesktop.Notifications',member='Notify'" \
  >"$work/notify.log" 2>&1 &
pids+=($!)
sleep 0.5

# --- the daemon and the launcher --------------------------------------------
"$sim" --listen 127.0.0.1:0 --log-rate 0 --err-rate 0 >"$work/sim.log" 2>&1 &
echo $! > "$work/sim.pid"
wait_for 10 grep -q "listening on http://" "$work/sim.log" || { fail "zevd-sim did not start"; exit 1; }
base=$(sed -n 's|.*listening on \(http://[^ ]*\).*|\1|p' "$work/sim.log" | head -1)
base=${base%/}
scenario() { curl -s -d '' --max-time 2 "$base/sim/scenario?name=$1" >/dev/null; }

# systemctl stand-in: the demo's, with no demo daemon to restart.
env HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" ZEV_DEMO_DIR="$work" \
  PATH="$source_dir/tools/demo/bin:$PATH" ZEV_DAEMON_URL="$base" QT_QPA_PLATFORM=xcb \
  "$launcher" >"$work/launcher.log" 2>&1 &
pids+=($!)

notified() { grep -c "string \"$1\"" "$work/notify.log"; }
seen() { [ "$(notified "$1")" -ge 1 ]; }

# Healthy at start: nothing to say, for two polls and more.
sleep 11
if [ "$(grep -c 'member=Notify' "$work/notify.log")" -eq 0 ]; then
  pass "no notification for the start-up status"
else
  fail "a notification at start-up"; cat "$work/notify.log"
fi

scenario http-503
if wait_for 20 seen "ZEV recording stopped"; then
  pass "HTTP 503 for two polls: \"ZEV recording stopped\""
  grep -q 'string "The daemon answered HTTP 503"' "$work/notify.log" \
    && pass "the reason is named" || fail "no HTTP 503 reason in: $(cat "$work/notify.log")"
  sleep 1
  import -window root -crop 412x84+864+4 +repage "$artifacts/notification-stopped.png" \
    && pass "screenshot $artifacts/notification-stopped.png"
else
  fail "no notification for a daemon answering 503"; tail -20 "$work/launcher.log"
fi

sleep 6  # one more red poll: still one notification
[ "$(notified "ZEV recording stopped")" -eq 1 ] && pass "announced once" \
  || fail "announced $(notified "ZEV recording stopped") times"

scenario healthy
if wait_for 20 seen "ZEV recording is healthy again"; then
  pass "recovery announced"
  sleep 1
  import -window root -crop 412x84+864+4 +repage "$artifacts/notification-recovered.png"
else
  fail "no recovery notification"
fi

echo "--- what the server received (summary, body)"
grep -A5 'member=Notify' "$work/notify.log" | grep string | grep -v '"ZEV Launcher"\|string ""$'
[ "$failures" -eq 0 ] || { echo "--- launcher.log"; tail -20 "$work/launcher.log"; exit 1; }
exit 0
