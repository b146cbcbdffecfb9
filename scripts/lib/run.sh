# shellcheck shell=bash
# Sourced by the scripts: steps that are silent unless they fail.

# quietly <command>...: its output is shown only when it fails.
quietly() {
  local log status=0
  log=$(mktemp)
  "$@" >"$log" 2>&1 || status=$?
  ((status == 0)) || cat "$log"
  rm -f "$log"
  return "$status"
}

# say <text>: tells a person at a terminal what takes its time.
say() {
  [[ ! -t 2 ]] || echo "$*" >&2
}
