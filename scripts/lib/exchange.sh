# shellcheck shell=bash disable=SC2154
# Sourced by the demo: drops command files and shows what comes back. Needs
# $spool, the watched directory, $log, the daemon's log, and $client.

# Bold on a terminal only.
bold='' plain=''
if [[ -t 1 ]]; then
  bold=$(tput bold 2>/dev/null || true)
  plain=$(tput sgr0 2>/dev/null || true)
fi
heading() { printf '\n%s%s%s\n' "$bold" "$1" "$plain"; }
show() { sed "s/^/    /" "$1"; }

# await WHAT COMMAND...: until the command succeeds; gives up after 10 seconds.
await() {
  local what=$1 waited=0
  shift
  until "$@" 2>/dev/null; do
    ((waited++ < 1000)) || { echo "demo: no $what" >&2; exit 1; }
    sleep 0.01
  done
}

# drop NAME: the command on standard input, as a client drops it: written under
# another name, then renamed, so that nobody sees half a file.
drop() {
  cat >"$spool/$1.new"
  echo "  $1.cmd"
  show "$spool/$1.new"
  mv "$spool/$1.new" "$spool/$1.cmd"
}

# response NAME: waits for it, shows it and takes it away, as a client does.
response() {
  await "response $1.rsp" test -e "$spool/$1.rsp"
  echo "  $1.rsp"
  show "$spool/$1.rsp"
  rm "$spool/$1.rsp"
}

# logged TEXT: waits until the daemon's log holds it, and shows the line.
logged() {
  await "line in the log: $1" grep -q -- "$1" "$log"
  echo "  in the daemon's log"
  grep -- "$1" "$log" | sed 's/^/    /'
}

# envelope SESSION REFERENCE TYPE [LINE...]: a command in text form.
envelope() {
  printf '%s\n' objbeg=obj-cmdrsp "clientid=$client" hostname=hostA \
    "sessionid=$1" "reference=$2" "cmdtype=$3" iscmd=true "${@:4}" \
    objend=obj-cmdrsp
}

# object FIELD TYPE [LINE...]: an object in text form, as the value of a field.
object() {
  printf '%s\n' "$1=$2" "objbeg=$2" "${@:3}" "objend=$2"
}

# ask TYPE [LINE...]: one exchange of a session of its own, command and response.
ask() {
  local name
  printf -v name '0001-%03d' "$((++reference))"
  envelope 1 "$reference" "$@" | drop "$name"
  response "$name"
}
reference=0
