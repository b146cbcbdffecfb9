# shellcheck shell=bash disable=SC2154
# Sourced by the demo: a user's phone book, from its creation to its end. Needs
# what exchange.sh needs.

# book SUBCOMMAND LINE...: a phone-book command on the user's own book.
book() {
  ask cmd-pbcmd "$(object objptr obj-pbcom "pbcmd=pbc-$1" pbtype=pbt-usr \
    pbmode=pbm-write "${@:2}")"
}
person() { object objptr obj-person "$@"; }

tour_phonebook() {
  heading "A phone book of one's own"
  book create
  heading "Three persons"
  book peradd "$(person palias=Ada lname=Lovelace fname=Ada flocal=5550100)"
  book peradd "$(person palias=grace lname=Hopper fname=Grace)"
  book peradd "$(person palias=alan lname=Turing fname=Alan flocal=5550102)"

  heading "An alias is taken, however it is spelled: 33"
  book peradd "$(person palias=ADA lname=Byron)"
  heading "Find one"
  book perget rcmd=pbc-alias pbkey=ada

  heading "List them by last name, two at a time"
  book lstper pbsort=pbs-lname rcmd=pbc-first pbmax=2
  heading "The next page: the same object, sent back"
  book lstper pbsort=pbs-lname rcmd=pbc-next pbmax=2 curper=1

  heading "A group, a member, and who is in it"
  book grpadd "$(object objptr obj-group galias=navy 'gdesc=Ships and nets')"
  book memadd "$(object objptr obj-member galias=navy palias=grace)"
  book lstmbg rcmd=pbc-first pbkey=navy

  heading "Change a number, count, and delete"
  book perupd "$(person palias=grace flocal=5550101)"
  book perdel pbkey=ada
  book cntper
}
