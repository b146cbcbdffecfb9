# shellcheck shell=bash disable=SC2154
# Sourced by the demo: all of it, and the life of a fax, with krtsim as the rest of
# the fax server. Needs what exchange.sh and phonebook.sh need, $root, $krtsim,
# $sim_said, krtsim's output, and start_simulator.

said() { await "word of krtsim: $1" grep -qF -- "$1" "$sim_said"; }
request_id() { object objptr obj-reqid "seqno=$1" reqtype=req-regular; }

# submit NUMBER [LINE...]: a command of the flat kind of envelope.
submit() {
  ask cmd-sendfax respond=true \
    "$(object objptr obj-senv "tofnum=$1" notify=not-okfail "${@:2}")"
}

tour_sending() {
  echo "Good morning." >"$root/letter.txt"
  heading "Submit a fax: krtsim queues it, and answers for the daemon"
  submit 555-0199 toname=Ann subject=Greetings "pathname=$root/letter.txt"

  heading "Its status"
  said "request 1: attempt 1 on"
  ask cmd-status "$(request_id 1)"

  heading "Its attempts, when it is over: busy once, then sent"
  said "request 1: over: Normal"
  ask cmd-statatt "$(request_id 1)"

  heading "Two destinations, to be sent in 2037: one request for each"
  ask cmd-sendfax respond=true "$(object objptr obj-env \
    "$(object destptr obj-list \
      "$(object objptr obj-dest toname=Ben tofnum=555-0100)" \
      "$(object objptr obj-dest toname=Cleo tofnum=555-0101)")" \
    "$(object paramptr obj-param sendtime=20370101000000)")"

  heading "Cancel one of them"
  ask cmd-cancel "$(request_id 2)"
  said "request 2: over: Cancelled"
  ask cmd-status "$(request_id 2)"

  heading "The state of the fax server: the other one waits"
  ask cmd-state

  heading "Try the other one now"
  ask cmd-try "$(request_id 3)"
  said "request 3: over: Normal"
}

tour_reading() {
  heading "A fax comes in; the received faxes"
  "$krtsim" receive "$root" "$client" --pages 3 | sed 's/^/  /'
  ask cmd-msglist "$(object objptr obj-reqlst listtype=lst-faxfiles)"

  heading "Hand it on to bob"
  ask cmd-copyfax "$(object objptr obj-route filename=in-1.fax \
    "fromid=$client" toid=bob)"

  heading "The messages, among them what became of the first fax"
  ask cmd-msglist "$(object objptr obj-reqlst listtype=lst-tmsgs)"
  ask cmd-msgret "$(object objptr obj-resource rname=fax-1.msg)"

  heading "The cover pages, the tags of one, and who has a certain tag"
  ask cmd-reslist "$(object objptr obj-reqlst listtype=lst-covers)"
  ask cmd-cvrtags "$(object objptr obj-resource rname=standard)"
  ask cmd-cvrmatch "$(object objptr obj-list \
    "$(object objptr obj-cvrtag tagname=subject)")"
}

tour_of_errors() {
  heading "A no-op: is anybody there?"
  envelope 123456 7 cmd-noop | drop 3456-007
  response 3456-007

  heading "A command type that this daemon does not serve"
  envelope 123456 8 cmd-login respond=true | drop 3456-008
  response 3456-008

  heading "A command type that nobody knows"
  envelope 123456 9 cmd-bogus respond=true | drop 3456-009
  response 3456-009

  heading "A file that is no command: logged, gone, and nobody is held up"
  echo "good morning" | drop garbage
  logged "Error processing cmd file garbage"
}

tour_of_all() {
  tour_of_errors
  tour_phonebook
  heading "krtsim plays the rest of the fax server"
  if ! start_simulator; then
    heading "Without it, requests cannot be shown"
    return
  fi
  tour_sending
  tour_reading
  heading "What krtsim had to tell"
  show "$sim_said"
}
