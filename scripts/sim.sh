# Sourced by the demo and the example runs: starts kxsim on a free port with
# its state and client configuration under a work directory.
# sim_start KXSIM WORK [kxsim options...]: sets SIM_PID and BASE, exports
# KX_CONFIG_FILE, KX_CONFIG_KEY_FILE and KX_LOG_FILE; returns 1 when kxsim did
# not come up. sim_stop stops it.
sim_start() {
  local kxsim=$1 work=$2
  shift 2
  export KX_CONFIG_FILE="$work/kxserverapi.ini"
  export KX_CONFIG_KEY_FILE="$work/config.key"
  export KX_LOG_FILE="$work/kxserverapi.log"
  "$kxsim" --port 0 --state-dir "$work/sim-state" --print-config "$KX_CONFIG_FILE" "$@" \
    >"$work/sim.out" 2>"$work/sim.err" &
  SIM_PID=$!
  for _ in $(seq 1 200); do
    grep -q "kxsim ready" "$work/sim.out" 2>/dev/null && break
    kill -0 "$SIM_PID" 2>/dev/null || break
    sleep 0.05
  done
  if ! grep -q "kxsim ready" "$work/sim.out"; then
    echo "kxsim did not start" >&2
    cat "$work/sim.err" >&2
    return 1
  fi
  BASE=$(sed -n 's/^kxsim ready //p' "$work/sim.out")
}

sim_stop() {
  if [ -n "${SIM_PID:-}" ] && kill -0 "$SIM_PID" 2>/dev/null; then
    kill -TERM "$SIM_PID" 2>/dev/null
    wait "$SIM_PID" 2>/dev/null
  fi
}
