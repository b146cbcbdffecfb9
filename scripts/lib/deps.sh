# shellcheck shell=bash
# Sourced by the scripts: installs the packages that a purpose needs.
#
#   need build            what the programs and their tests are built with
#   need test lint bench peers fuzz docs package system
#                         further purposes, as many as wanted
#
# Prints nothing and asks for nothing when all is there. Elsewhere than on a
# Debian-like system nothing is installed: what is missing shows in the build,
# and in tests that skip themselves.

packages_for() {
  case $1 in
    build) echo g++ cmake ninja-build libgtest-dev libgmock-dev ;;
    test) echo fish make man-db pkg-config python3 scdoc systemd zsh ;;
    lint) echo clang-format clang-tidy codespell python3 ;;
    bench) echo libbenchmark-dev python3 ;;
    peers) echo libsqlite3-dev liblmdb-dev libdb-dev ;;
    fuzz) echo clang libclang-rt-14-dev ;;
    docs) echo graphviz gnuplot-nox ;;
    package) echo dpkg-dev fakeroot lintian scdoc ;;
    system) echo mmdebstrap ;;
    *) echo "deps.sh: no such purpose: $1" >&2; return 1 ;;
  esac
}

is_installed() {
  [[ $(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

as_root() {
  if ((EUID == 0)); then "$@"; else sudo "$@"; fi
}

# Nobody's packages are removed for a test.
apt_install() {
  as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -q --no-install-recommends --no-remove "$@"
}

# The list of packages may be missing or older than the archive.
apt_install_or_update() {
  apt_install "$@" || { as_root apt-get update -q && apt_install "$@"; }
}

need() {
  command -v apt-get >/dev/null || return 0
  local purpose package log missing=()
  for purpose in "$@"; do
    for package in $(packages_for "$purpose"); do
      is_installed "$package" || missing+=("$package")
    done
  done
  ((${#missing[@]})) || return 0

  if ((EUID == 0)) || command -v sudo >/dev/null; then
    echo "Installing with apt-get: ${missing[*]}" >&2
    log=$(mktemp)
    if apt_install_or_update "${missing[@]}" >"$log" 2>&1; then
      rm -f "$log"
      return 0
    fi
    cat "$log" >&2
    rm -f "$log"
  fi
  echo "Missing, for root to install: apt-get install ${missing[*]}" >&2
  return 1
}
