#!/usr/bin/env bash
# What the launcher costs while it sits in the tray, next to the smallest Qt
# tray application (bench/tray_baseline) built in the same release build:
#
#   - time from process start to the first status on screen: the moment the
#     tray icon shows the dot's colour a fifth of the way down its middle (green for a healthy
#     daemon), sampled with ImageMagick every few tens of milliseconds;
#   - CPU time used over a window of idle polling (default 60 s; the launcher
#     polls zevd-sim every 5 s meanwhile), from /proc/<pid>/stat;
#   - resident memory at the end of the window: RSS and PSS (PSS shares the
#     Qt libraries fairly between the processes that map them).
#
#   bench/launcher_idle.sh [--seconds N]
#
# Runs on a private Xvfb display with trayer as the tray host, so it needs no
# desktop and leaves the user's alone. Prints figures; asserts nothing.
set -uo pipefail
cd "$(dirname "$0")/.."
seconds=60
[ "${1:-}" = "--seconds" ] && seconds=${2:?--seconds needs a number}

for tool in Xvfb trayer xdotool import; do
  command -v "$tool" >/dev/null || { echo "launcher_idle: $tool is missing (tools/install-deps)" >&2; exit 1; }
done

echo "building (release preset) ..."
{ cmake --preset release >/dev/null &&
  cmake --build --preset release -j2 --target ZEVLauncher zevd-sim tray_baseline >/dev/null; } ||
  { echo "launcher_idle: build failed; run: cmake --build --preset release" >&2; exit 1; }
launcher=build/release/ZEV.app/Contents/Linux/ZEVLauncher
baseline=build/release/bench/tray_baseline/tray_baseline
sim=build/release/tools/zevd-sim/zevd-sim

work=$(mktemp -d "${TMPDIR:-/tmp}/zev-bench.XXXXXX")
mkdir -p "$work/home" "$work/run"; chmod 700 "$work/run"
pids=()
cleanup() {
  for (( i=${#pids[@]}-1; i>=0; i-- )); do kill "${pids[$i]}" 2>/dev/null; done
  wait 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" 2>/dev/null &
pids+=($!)
for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.1; done
export DISPLAY=":$(cat "$work/display")" XDG_RUNTIME_DIR="$work/run"
unset WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS
trayer --edge top --align right --widthtype request --height 28 --SetDockType true \
  --transparent false --iconspacing 4 >/dev/null 2>&1 &
pids+=($!)
sleep 1

"$sim" --listen 127.0.0.1:0 --log-rate 0 --err-rate 0 >"$work/sim.log" 2>&1 &
pids+=($!)
for _ in $(seq 100); do grep -q "listening on" "$work/sim.log" && break; sleep 0.1; done
base=$(sed -n 's|.*listening on \(http://[^ ]*\).*|\1|p' "$work/sim.log" | head -1)

now_ms() { echo $(( $(date +%s%N) / 1000000 )); }

# Starts "$@" and prints "<pid> <ms to a visible green dot>".
start_and_time() {
  local start pid id X Y WIDTH HEIGHT
  start=$(now_ms)
  env HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" ZEV_DEMO_DIR="$work" \
    PATH="$PWD/tools/demo/bin:$PATH" ZEV_DAEMON_URL="$base" "$@" >>"$work/apps.log" 2>&1 &
  pid=$!
  while [ $(( $(now_ms) - start )) -lt 30000 ]; do
    for id in $(xdotool search --onlyvisible --pid "$pid" 2>/dev/null); do
      eval "$(xdotool getwindowgeometry --shell "$id")"
      [ "$WIDTH" -le 64 ] || continue
      # A fifth of the way down the middle: inside both dots, and above the
      # count the launcher draws across its own.
      if import -window root -crop "1x1+$((X + WIDTH / 2))+$((Y + HEIGHT / 5))" -depth 8 \
         txt:- 2>/dev/null | grep -q '#34C759'; then echo "$pid $(( $(now_ms) - start ))"; return; fi
    done
    sleep 0.02
  done
  echo "$pid -1"
}

cpu_ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }
kib() { awk -v key="$2:" '$1 == key {print $2}' "/proc/$1/${3:-status}"; }

read -r base_pid base_first <<<"$(start_and_time "$baseline")"
pids+=("$base_pid")
read -r zev_pid zev_first <<<"$(start_and_time "$launcher")"
pids+=("$zev_pid")

sleep 5  # let both settle before the idle window
tick=$(getconf CLK_TCK)
base_t0=$(cpu_ticks "$base_pid"); zev_t0=$(cpu_ticks "$zev_pid")
echo "measuring ${seconds} s of idle ..."
sleep "$seconds"
base_t1=$(cpu_ticks "$base_pid"); zev_t1=$(cpu_ticks "$zev_pid")

row() {  # name first_ms ticks pid
  local cpu_ms=$(( ($3) * 1000 / tick ))
  printf '%-16s %14s %12s %10s %10s %10s\n' "$1" "$2 ms" "$cpu_ms ms" \
    "$(awk -v ms="$cpu_ms" -v s="$seconds" 'BEGIN{printf "%.2f %%", ms / (s * 10)}')" \
    "$(( $(kib "$4" VmRSS) / 1024 )) MiB" "$(( $(kib "$4" Pss smaps_rollup) / 1024 )) MiB"
}
echo
echo "idle over ${seconds} s, polling zevd-sim at $base every 5 s (launcher only)"
printf '%-16s %14s %12s %10s %10s %10s\n' "" "first status" "CPU time" "CPU" "RSS" "PSS"
row "tray_baseline" "$base_first" "$((base_t1 - base_t0))" "$base_pid"
row "ZEVLauncher" "$zev_first" "$((zev_t1 - zev_t0))" "$zev_pid"
echo
echo "(first status: process start to the green dot on screen, sampled every ~50 ms;"
echo " CPU time resolution 1/${tick} s)"
