# shellcheck shell=bash disable=SC2154
# Sourced by the demo: its short tour, which fits a few screens. Needs what
# exchange.sh needs, $root, $ctl (krtctl), $sim_said and start_simulator.

# run ARGUMENT...: krtctl, as a person types it, and what it prints.
run() {
  local argument typed=krtctl
  for argument; do
    [[ $argument != *\ * ]] || argument=\'$argument\'
    typed+=" $argument"
  done
  echo "  \$ $typed"
  "$ctl" --root "$root" "$@" 2>&1 | expand -t 14 | sed 's/^/    /'
}

brief_tour() {
  heading "A command is a file; so is its answer"
  envelope 123456 7 cmd-noop | drop 3456-007
  response 3456-007

  heading "What a bad command gets"
  envelope 123456 8 cmd-bogus respond=true | drop 3456-008
  response 3456-008

  heading "A client that does this for you: the phone book"
  run pb init
  run pb add palias=Ada name="Ada Lovelace" fax=555-0100
  run pb add palias=ADA lname=Byron || true
  run pb list

  heading "A fax, from its submission to its outcome; krtsim is the fax server"
  if ! start_simulator; then
    echo "  A fax server of this machine is running: not shown."
    return
  fi
  echo "Good morning." >"$root/letter.txt"
  run submit "$root/letter.txt" --to @Ada --subject Greetings --wait
  run status 1 --attempts
  run state

  heading "What krtsim had to tell"
  show "$sim_said"
}
