# shellcheck shell=bash
# Sourced by scripts/test: a place unlike any in which the tests were written.

# The tests' names for users, each an account here, with numbers of its own.
odd_users=(krtfax alice bob carol clerk mallory runner jsmith ann dave eve
  krthome nobody-here zed)

# Whether a process here can have other accounts than the machine's.
can_have_accounts() { ((EUID == 0)) && unshare --mount true 2>/dev/null; }

# in_odd_place <command>...: with settings in the environment that a test must
# not see and, for root, with accounts of the tests' names in passwd and group.
in_odd_place() (
  umask 077
  export TZ=Pacific/Apia NO_COLOR=1 EDITOR=false VISUAL=false TMPDIR=/var/tmp \
    KFAXDIR=/nonexistent KFAXBIN=/nonexistent KFAXLIMITS=file-bytes=4K \
    KRTCTL_TIMEOUT=0 FXDEBUG=1
  # Bash says so where the language is not installed.
  { export LANG=tr_TR.UTF-8 LC_ALL=tr_TR.UTF-8; } 2>/dev/null
  can_have_accounts || exec "$@"
  local etc user id=3001 status=0
  etc=$(mktemp -d)
  chmod 755 "$etc"
  cp /etc/passwd /etc/group "$etc"
  for user in "${odd_users[@]}"; do
    echo "$user:x:$id:$((id + 500))::/nonexistent:/bin/false" >>"$etc/passwd"
    echo "$user:x:$((id + 500)):alice,jsmith" >>"$etc/group"
    ((id += 7))
  done
  chmod 644 "$etc"/*
  # shellcheck disable=SC2016
  unshare --mount sh -ec '
    for file in passwd group; do mount --bind "$0/$file" "/etc/$file"; done
    exec "$@"' "$etc" "$@" || status=$?
  rm -rf "$etc"
  return "$status"
)
