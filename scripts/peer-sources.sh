#!/bin/sh
# Unpacks the upstream sources of Debian packages, for test peers that Debian does not build for
# Windows:
#
#   scripts/peer-sources.sh FOLDER PACKAGE...     into FOLDER/PACKAGE
#
# Needs no deb-src entries and no root: a package index of its own is made in FOLDER from the
# repositories that apt knows. Silent when all is there.
set -eu

folder=$1
shift

missing=
for package in "$@"; do
  [ -d "$folder/$package" ] || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

echo "Fetching the sources of:$missing"
mkdir -p "$folder"
folder=$(cd "$folder" && pwd)
apt=$folder/apt
mkdir -p "$apt/lists/partial" "$apt/cache/archives/partial" "$apt/download"
# shellcheck disable=SC2016
apt-get indextargets --format 'deb-src $(REPO_URI) $(RELEASE) $(COMPONENT)' \
  'Created-By: Packages' | sort -u >"$apt/sources.list"

private_apt_get() {
  apt-get -qq -o Dir::Etc::sourcelist="$apt/sources.list" -o Dir::Etc::sourceparts=- \
    -o Dir::State::Lists="$apt/lists" -o Dir::Cache="$apt/cache" \
    -o APT::Sandbox::User="$(id -un)" "$@"
}

private_apt_get update
for package in $missing; do
  (
    cd "$apt/download"
    private_apt_get source --download-only "$package"
  )
  mkdir -p "$folder/$package.part"
  tar -xf "$apt/download/$package"_*.orig.tar.[gx]z -C "$folder/$package.part" --strip-components=1
  mv "$folder/$package.part" "$folder/$package"
done
rm -r "$apt"
