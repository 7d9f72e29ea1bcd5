#!/bin/sh
# Installs what is missing of the named sets of Debian packages:
#
#   scripts/install-deps.sh build test bench lint
#
# Needs apt and, when something is missing, root or sudo. Silent when nothing is missing.
set -eu

packages_of() {
  case $1 in
    build) echo "cmake ninja-build g++ libcli11-dev" ;;
    test) echo "python3 libgtest-dev libgmock-dev zlib1g-dev libdeflate-dev libbz2-dev liblzo2-dev" \
               "gzip bzip2 lzop binutils pkg-config" ;;
    windows) echo "g++-mingw-w64-x86-64-posix libz-mingw-w64-dev googletest wine64 lld llvm" \
                  "python3 bzip2 gzip xz-utils" ;;
    demo) echo "gzip diffutils" ;;
    bench) echo "python3 libbenchmark-dev zlib1g-dev libdeflate-dev libbz2-dev liblzo2-dev" \
                "libdivsufsort-dev" ;;
    lint) echo "clang-format clang-tidy python3 git" ;;
    *) echo "install-deps: unknown set '$1'" >&2; exit 2 ;;
  esac
}

is_installed() {
  case $(dpkg-query -W -f='${Status}' "$1" 2>/dev/null) in
    *" installed") return 0 ;;
    *) return 1 ;;
  esac
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    echo "install-deps: root or sudo is needed to run: $*" >&2
    exit 1
  fi
}

wanted=
for set in "$@"; do
  set_packages=$(packages_of "$set")
  wanted="$wanted $set_packages"
done

if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
  echo "install-deps: no apt on this system; please have these packages or their like:$wanted" >&2
  exit 0
fi

missing=
for package in $wanted; do
  is_installed "$package" || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

echo "Installing:$missing"
# The words of $missing are meant to split.
# shellcheck disable=SC2086
{
  as_root apt-get -qq update
  as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get -qq install -y --no-install-recommends $missing >/dev/null
}
