#!/usr/bin/env bash
# bench/idle_cost.sh [SECONDS] [BUILD]: what the agent costs while it waits,
# against cron on the same machine in the same run.
#
# Starts, side by side and each on its own private session bus (with a
# stand-in logind on a private system bus): the headless agent, the agent
# with its tray icon (under Xvfb with trayer), and `cron -f` as the
# baseline. Each agent reads a schedule of one nightly item, so that it beats
# every second and hands nothing over. After a short settling time it
# measures, over SECONDS (default 600), each process's CPU time (all threads,
# from /proc/PID/task/*/schedstat) and its wake-ups (voluntary context
# switches of all threads), and at the end its resident and proportional set
# sizes (/proc/PID/smaps_rollup). Prints each figure and its ratio to cron's.
# Run as root (cron needs it). Not part of the test command.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-600}
build=${2:-build}
agent=$build/src/agent/halyard-backgrounder
ctl=$build/src/tools/halyardctl
for program in "$agent" "$ctl" /usr/sbin/cron Xvfb trayer xwininfo; do
  command -v "$program" >/dev/null || { echo "missing: $program (scripts/setup, then build)"; exit 1; }
done
pgrep -x cron >/dev/null && { echo "cron is already running: stop it first, the baseline must be ours"; exit 1; }

work=$(mktemp -d /tmp/halyard-idle.XXXXXX)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# A private bus of that kind in $work/NAME; its address in $bus_address.
start_bus() {  # kind name
  local listen="unix:dir=$work/$2" pid
  mkdir -p "$work/$2"
  [ "$1" = system ] && listen="unix:path=$work/$2/socket"
  cat >"$work/$2.conf" <<CONF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>$1</type>
  <listen>$listen</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/> <allow send_destination="*"/> <allow receive_sender="*"/> <allow own="*"/>
  </policy>
</busconfig>
CONF
  { read -r bus_address; read -r pid; } < <(dbus-daemon --config-file="$work/$2.conf" --fork --print-address=1 --print-pid=1)
  pids+=("$pid")
}

start_bus system system
export DBUS_SYSTEM_BUS_ADDRESS=$bus_address
/usr/bin/python3 tests/agent/fake_logind.py >"$work/logind.log" 2>&1 &
pids+=($!)
for _ in $(seq 100); do grep -q ready "$work/logind.log" 2>/dev/null && break; sleep 0.05; done

# An agent with its own session bus and data folders; its pid in $agent_pid.
start_agent() {  # name, then environment assignments
  local name=$1
  shift
  mkdir -p "$work/$name/data" "$work/$name/config"
  start_bus session "$name-bus"
  local bus=$bus_address
  env XDG_DATA_HOME="$work/$name/data" XDG_CONFIG_HOME="$work/$name/config" \
    "$ctl" schedule add --description "Nightly" --document "$work/$name/Nightly.hsync" --type 4 \
    --hours 2 --minutes 30 >/dev/null
  env -u DISPLAY -u WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS="$bus" XDG_DATA_HOME="$work/$name/data" \
    XDG_CONFIG_HOME="$work/$name/config" "$@" "$agent" --log-stderr >"$work/$name.log" 2>&1 &
  agent_pid=$!
  pids+=("$agent_pid")
}

display=:$((90 + RANDOM % 9))
Xvfb "$display" -screen 0 800x600x24 -nolisten tcp >/dev/null 2>&1 &
pids+=($!)
for _ in $(seq 100); do DISPLAY=$display xwininfo -root >/dev/null 2>&1 && break; sleep 0.05; done
DISPLAY=$display trayer --edge top --align right --widthtype request --height 32 --SetDockType true \
  --transparent false --tint 0xd0d0d0 >/dev/null 2>&1 &
pids+=($!)
for _ in $(seq 100); do DISPLAY=$display xwininfo -root -tree | grep -q '"panel"' && break; sleep 0.1; done

/usr/sbin/cron -f >/dev/null 2>&1 &
cron_pid=$!
pids+=("$cron_pid")
start_agent headless
headless_pid=$agent_pid
start_agent tray DISPLAY="$display"
tray_pid=$agent_pid
# Settle: the agents' start-up (the strings, the first schedule read, the
# tray icon) is not idle cost.
sleep 10
for pid in "$cron_pid" "$headless_pid" "$tray_pid"; do
  kill -0 "$pid" 2>/dev/null || { echo "process $pid exited early"; cat "$work"/*.log; exit 1; }
done
DISPLAY=$display xwininfo -root -tree | grep -qi 'halyard\|sail' || echo "note: no tray window found for the tray agent"

# CPU nanoseconds and voluntary switches of all threads of a process.
cpu_ns() { cat /proc/"$1"/task/*/schedstat 2>/dev/null | awk '{s += $1} END {printf "%d", s}'; }
switches() {
  cat /proc/"$1"/task/*/status 2>/dev/null | awk '/^voluntary_ctxt_switches/ {s += $2} END {printf "%d", s}'
}
kb() { awk -v k="$2:" '$1 == k {print $2}' /proc/"$1"/smaps_rollup; }

declare -A cpu0 sw0
names=(cron headless tray)
declare -A pid_of=([cron]=$cron_pid [headless]=$headless_pid [tray]=$tray_pid)
for n in "${names[@]}"; do cpu0[$n]=$(cpu_ns "${pid_of[$n]}"); sw0[$n]=$(switches "${pid_of[$n]}"); done
start=$(date +%s.%N)
echo "measuring for $seconds s..."
sleep "$seconds"
elapsed=$(echo "$(date +%s.%N) - $start" | bc)

declare -A cpu_h wake rss pss
for n in "${names[@]}"; do
  p=${pid_of[$n]}
  cpu_h[$n]=$(echo "scale=6; ($(cpu_ns "$p") - ${cpu0[$n]}) / 1000000000 * 3600 / $elapsed" | bc)
  wake[$n]=$(echo "scale=4; ($(switches "$p") - ${sw0[$n]}) / $elapsed" | bc)
  rss[$n]=$(kb "$p" Rss)
  pss[$n]=$(kb "$p" Pss)
done
ratio() { [ "$(echo "$2 == 0" | bc)" = 1 ] && echo "n/a" || echo "x$(echo "scale=1; $1 / $2" | bc)"; }
printf "%-10s %14s %8s %12s %8s %10s %8s %10s %8s\n" process "CPU s/hour" ratio "wake-ups/s" ratio \
  "RSS kB" ratio "PSS kB" ratio
for n in "${names[@]}"; do
  printf "%-10s %14s %8s %12s %8s %10s %8s %10s %8s\n" "$n" "${cpu_h[$n]}" "$(ratio "${cpu_h[$n]}" "${cpu_h[cron]}")" \
    "${wake[$n]}" "$(ratio "${wake[$n]}" "${wake[cron]}")" "${rss[$n]}" "$(ratio "${rss[$n]}" "${rss[cron]}")" \
    "${pss[$n]}" "$(ratio "${pss[$n]}" "${pss[cron]}")"
done
echo "over $elapsed s; ratios against cron measured in the same run"
