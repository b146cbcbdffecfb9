# shellcheck shell=bash
# Sourced by the scripts: steps that are silent unless they fail, and tell a person
# at a terminal how far they are.

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

# One line of a terminal, written over again and again.
progress_line() { printf '\r\033[K%s' "$*" >&2; }

# shown_by <function> <command>...: as quietly, but at a terminal the function
# gets the command's output while it runs, to tell how far it is.
shown_by() {
  local show=$1 log status=0
  shift
  if [[ ! -t 2 ]]; then
    quietly "$@"
    return
  fi
  log=$(mktemp)
  "$@" > >(tee "$log" | "$show") 2>&1 || status=$?
  wait $! || true
  progress_line ''
  ((status == 0)) || cat "$log"
  rm -f "$log"
  return "$status"
}

# The steps of a build: ninja's lines begin with "[at/all]".
build_steps() {
  local line
  while IFS= read -r line; do
    [[ $line != \[*/*\]* ]] || progress_line "  ${line%%]*}]"
  done
}

# The tests: ctest's lines of results begin with "at/all Test".
test_results() {
  local line passed=0 failed=0 skipped=0
  while IFS= read -r line; do
    [[ $line =~ ^\ *[0-9]+/([0-9]+)\ Test\ .*[\ .](Passed|\*\*\*[A-Za-z\ ]+) ]] || continue
    case ${BASH_REMATCH[2]} in
      Passed) ((passed += 1)) ;;
      '***Skipped'*) ((skipped += 1)) ;;
      *) ((failed += 1)) ;;
    esac
    progress_line "  $passed passed, $failed failed, $skipped skipped of ${BASH_REMATCH[1]}"
  done
}
