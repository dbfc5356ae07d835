#!/usr/bin/env bash
# End-to-end check of certified updates on Linux, both ways an update ends.
#
#   update_e2e.sh BUNDLE ZEV_SIGN ARTIFACTS_DIR
#
# From the built BUNDLE, tools/release makes version 1.0.0 (installed into a
# scratch "apps" directory) and publishes 2.0.0 in an appcast served on an
# ephemeral loopback port. Launcher 1.0.0 starts with its daemon (the
# bundle's zevd-sim, started by a stand-in systemctl); touching the update
# sentinel makes it check, download, verify and stage 2.0.0, prepare (health
# baseline, archive of 1.0.0, manifest check), swap the bundle and relaunch;
# 2.0.0 certifies after three healthy samples. Then 3.0.0, whose daemon
# stays unhealthy (ZEVSimScenario=all-down), is published and ends `failed`
# with the time-out reason once the bundle's shortened certification window
# (ZEVCertificationWindowSeconds) has passed.
#
# Each run's reliability directory and the launcher's log are copied to
# ARTIFACTS_DIR/certified and ARTIFACTS_DIR/failed. Exit status: 0 when both
# paths behaved, 1 when a check failed, 77 when a tool is missing. Nothing
# outside a scratch directory is touched: HOME, the sentinel, the daemon's
# port and the feed are all the check's own.
set -uo pipefail

bundle=${1:?usage: update_e2e.sh BUNDLE ZEV_SIGN ARTIFACTS_DIR}
zev_sign=${2:?usage: update_e2e.sh BUNDLE ZEV_SIGN ARTIFACTS_DIR}
artifacts=${3:?usage: update_e2e.sh BUNDLE ZEV_SIGN ARTIFACTS_DIR}
source_dir=$(cd "$(dirname "$0")/../.." && pwd)
window=${ZEV_E2E_WINDOW_SECONDS:-40}

for tool in python3 curl setsid tar xz pgrep; do
  command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed (tools/install-deps)"; exit 77; }
done
[ -x "$bundle/Contents/Linux/ZEVLauncher" ] || { echo "FAIL: $bundle has no launcher"; exit 1; }
[ -x "$bundle/Contents/Helpers/zevd" ] || { echo "FAIL: $bundle has no daemon"; exit 1; }
[ -x "$zev_sign" ] || { echo "FAIL: $zev_sign is not an executable"; exit 1; }

work=$(mktemp -d "${TMPDIR:-/tmp}/zev-update-e2e.XXXXXX")
installed="$work/apps/ZEV.app"
launcher="$installed/Contents/Linux/ZEVLauncher"
mkdir -p "$work/home" "$work/bin" "$work/state" "$work/apps" "$work/out/feed" "$artifacts"
http_pid=""

launcher_pids() { pgrep -f "^$launcher" || true; }
cleanup() {
  for pid in $(launcher_pids); do kill "$pid" 2>/dev/null; done
  [ -f "$work/state/daemon.pid" ] && kill "$(cat "$work/state/daemon.pid")" 2>/dev/null
  [ -n "$http_pid" ] && kill "$http_pid" 2>/dev/null
  sleep 0.5
  rm -rf "$work"
}
trap cleanup EXIT

fail() {
  echo "FAIL: $*"
  echo "--- launcher log (last 40 lines)"; tail -40 "$work/launcher.log" 2>/dev/null
  echo "--- active-update.json"; cat "$work/reliability/active-update.json" 2>/dev/null; echo
  cp "$work/launcher.log" "$artifacts/launcher-failed-run.log" 2>/dev/null
  exit 1
}
# wait_for SECONDS DESCRIPTION COMMAND...: polls COMMAND every half second.
wait_for() {
  local seconds=$1 what=$2
  shift 2
  local deadline=$((SECONDS + seconds))
  until "$@" >/dev/null 2>&1; do
    [ $SECONDS -ge $deadline ] && fail "no $what within ${seconds}s"
    sleep 0.5
  done
  echo "ok: $what"
}
free_port() {
  python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}
daemon_reports() { curl -s --max-time 2 "http://127.0.0.1:$daemon_port/api/health" | grep -q "\"version\": \"$1\""; }
state_is() {
  local file="$work/reliability/active-update.json"
  grep -q "\"state\":\"$1\"" "$file" && grep -q "\"targetVersion\":\"$2\"" "$file"
}
keep() {
  mkdir -p "$artifacts/$1"
  rm -rf "${artifacts:?}/$1/reliability"
  cp -a "$work/reliability" "$artifacts/$1/reliability"
  cp "$work/launcher.log" "$artifacts/$1/launcher.log"
  cp "$work/state/systemctl.log" "$artifacts/$1/systemctl.log" 2>/dev/null
}

# The feed, on a port of its own.
python3 -m http.server 0 --bind 127.0.0.1 --directory "$work/out/feed" >"$work/http.log" 2>&1 &
http_pid=$!
for _ in $(seq 50); do grep -q "port [0-9]" "$work/http.log" 2>/dev/null && break; sleep 0.1; done
http_port=$(grep -o "port [0-9]*" "$work/http.log" | head -1 | cut -d' ' -f2)
[ -n "$http_port" ] || fail "the feed server did not start"
daemon_port=$(free_port)
feed_url="http://127.0.0.1:$http_port/appcast.xml"

release() {
  XZ_OPT=-0 "$source_dir/tools/release" --bundle "$bundle" --zev-sign "$zev_sign" \
    --key "$work/release.key" --out "$work/out" --feed-url "$feed_url" \
    --set "ZEVCertificationWindowSeconds=$window" --set "ZEVReliabilityDirectory=$work/reliability" \
    "$@" >>"$work/release.log" 2>&1 || fail "tools/release $* failed: $(tail -3 "$work/release.log")"
}
started=$SECONDS
release --version 1.0.0 --bundle-only
mv "$work/out/ZEV-1.0.0/ZEV.app" "$installed"
release --version 2.0.0 --notes "Steadier recording after network changes."
echo "ok: released 1.0.0 (installed) and 2.0.0 (in the feed) in $((SECONDS - started))s"

# systemctl for the launcher: "restart" runs the installed bundle's daemon.
cat >"$work/bin/systemctl" <<'SH'
#!/bin/sh
echo "systemctl $*" >>"$ZEV_E2E_STATE/systemctl.log"
case " $* " in
  *" is-enabled "*) echo enabled ;;
  *" restart "*)
    if [ -f "$ZEV_E2E_STATE/daemon.pid" ]; then
      pid=$(cat "$ZEV_E2E_STATE/daemon.pid")
      kill "$pid" 2>/dev/null
      i=0
      while kill -0 "$pid" 2>/dev/null && [ $i -lt 100 ]; do sleep 0.1; i=$((i + 1)); done
    fi
    setsid "$ZEV_E2E_BUNDLE/Contents/Helpers/zevd" --listen "127.0.0.1:$ZEV_E2E_DAEMON_PORT" \
      --sentinel "$ZEV_E2E_STATE/daemon-sentinel" --log-rate 0 --err-rate 0 \
      >>"$ZEV_E2E_STATE/zevd.log" 2>&1 </dev/null &
    echo $! >"$ZEV_E2E_STATE/daemon.pid"
    ;;
esac
exit 0
SH
chmod +x "$work/bin/systemctl"

env HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" XDG_CACHE_HOME="$work/home/.cache" \
  PATH="$work/bin:$PATH" ZEV_DAEMON_URL="http://127.0.0.1:$daemon_port" \
  ZEV_UPDATE_SENTINEL="$work/trigger" ZEV_E2E_STATE="$work/state" ZEV_E2E_BUNDLE="$installed" \
  ZEV_E2E_DAEMON_PORT="$daemon_port" QT_QPA_PLATFORM=offscreen \
  ASAN_OPTIONS="detect_leaks=0:strict_string_checks=0" \
  setsid "$launcher" >>"$work/launcher.log" 2>&1 </dev/null &

# --- 1.0.0 -> 2.0.0: certified ----------------------------------------------
wait_for 60 "daemon 1.0.0 answering" daemon_reports 1.0.0
wait_for 30 "push watcher running" grep -q "update push watcher started" "$work/launcher.log"
touch "$work/trigger"
started=$SECONDS
wait_for 120 "update 2.0.0 installing" state_is installing 2.0.0
wait_for 60 "daemon 2.0.0 answering after the relaunch" daemon_reports 2.0.0
wait_for 120 "update 2.0.0 certified" state_is certified 2.0.0
echo "ok: 2.0.0 certified $((SECONDS - started))s after the trigger"
grep -q "<string>2.0.0</string>" "$installed/Contents/Info.plist" || fail "bundle is not 2.0.0"
grep -q "update 2.0.0 finished state=certified" "$work/launcher.log" || fail "no finishing line"
archives=$(ls "$work/reliability/archives" | wc -l)
[ "$archives" -ge 1 ] || fail "no archive of 1.0.0 kept"
"$zev_sign" verify-manifest "$work/reliability/archives/$(ls "$work/reliability/archives" | head -1)" \
  "$("$zev_sign" public-key "$work/release.key")" || fail "the archive of 1.0.0 does not verify"
echo "ok: archive of 1.0.0 kept and verified ($archives in archives/)"
ls "$work/apps" | grep -q "^\.ZEV.app.staging-" && sleep 2
ls -A "$work/apps" | grep -qv "^ZEV.app$" && fail "leftovers beside the bundle: $(ls -A "$work/apps")"
keep certified

# --- 2.0.0 -> 3.0.0, whose daemon stays unhealthy: failed --------------------
release --version 3.0.0 --set ZEVSimScenario=all-down --notes "A build whose cameras never come up."
sleep 1.1  # a strictly later modification time
touch "$work/trigger"
started=$SECONDS
wait_for 120 "update 3.0.0 installing" state_is installing 3.0.0
wait_for 60 "daemon 3.0.0 answering after the relaunch" daemon_reports 3.0.0
wait_for $((window + 60)) "update 3.0.0 failed" state_is failed 3.0.0
grep -q "\"failureReason\":\"health certification timed out after $window seconds\"" \
  "$work/reliability/active-update.json" || fail "the failure reason is not the time-out"
echo "ok: 3.0.0 failed with the time-out reason $((SECONDS - started))s after the trigger"
[ "$(ls "$work/reliability/transactions" | wc -l)" -eq 2 ] || fail "history does not hold both attempts"
keep failed
echo "PASS: certified and failed updates; artifacts in $artifacts"
