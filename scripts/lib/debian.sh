# shellcheck shell=bash
# Sourced by the scripts that try something in a bare Debian system in a folder.
# For root.

# lay_out <target> [<option of mmdebstrap>...]: the least system of this machine's
# version of Debian, made into a folder, or a file *.tar. It comes from the
# machine's own sources of packages, so that a mirror is used again.
lay_out() {
  local target=$1 file sources=()
  shift
  for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.{list,sources}; do
    [[ ! -s $file ]] || sources+=("$file")
  done
  quietly mmdebstrap --variant=minbase "$@" \
    "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$target" "${sources[@]}"
}

# share_network <root>: names are resolved there, and packages fetched, as here.
share_network() {
  local root=$1 path
  cp -L /etc/resolv.conf "$root/etc/resolv.conf"
  apt-config dump --no-empty Acquire >"$root/etc/apt/apt.conf.d/90machine"
  for path in /etc/apt/keyrings /etc/apt/trusted.gpg.d /usr/share/keyrings \
    /etc/ssl/certs/ca-certificates.crt; do
    [[ ! -e $path ]] || (cd / && cp -aL --parents "${path#/}" "$root")
  done
}

# exec_inside <root> <command>...: with the folder as its whole file system, in
# namespaces of mounts, processes and System V IPC of its own. With the command,
# the child of this process, all other processes end, and the mounts are gone.
exec_inside() {
  local root=$1
  shift
  # shellcheck disable=SC2016
  exec unshare --mount --pid --ipc --fork --kill-child sh -ec '
    mount --bind "$0" "$0"
    cd "$0"
    mount -t proc proc proc
    mount --rbind /dev dev
    pivot_root . mnt
    umount -l /mnt
    cd /
    exec "$@"' "$root" "$@"
}
