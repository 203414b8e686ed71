#!/usr/bin/env bash
# Fetches libdeflate's source once, from Debian's source package (the upstream
# release with its licence, COPYING), into the cache the build looks in:
#   ${XDG_CACHE_HOME:-$HOME/.cache}/meshdrone/libdeflate-1.14
# The build compiles its decompression, with third_party/libdeflate's patch,
# into the decoder (see third_party/libdeflate/README.md).
set -euo pipefail
version=1.14
package_version=1.14-1  # bookworm's; apt checks the tarball against the signed .dsc
cache=${XDG_CACHE_HOME:-${HOME:-/tmp}/.cache}/meshdrone
src=$cache/libdeflate-$version
[ -f "$src/libdeflate.h" ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
if ! apt-get source --print-uris "libdeflate=$package_version" >/dev/null 2>&1; then
  # No deb-src line yet: one for the system's own release.
  . /etc/os-release
  printf 'Types: deb-src\nURIs: http://deb.debian.org/debian\nSuites: %s\nComponents: main\nSigned-By: %s\n' \
    "$VERSION_CODENAME" /usr/share/keyrings/debian-archive-keyring.gpg |
    $sudo tee /etc/apt/sources.list.d/meshdrone-deb-src.sources >/dev/null
  $sudo apt-get update -qq
fi
mkdir -p "$cache/download"
if ! (cd "$cache/download" && apt-get source --download-only "libdeflate=$package_version" >/dev/null) \
  2> >(grep -v '^W: Download is performed unsandboxed' >&2); then
  # Another release, or no network: the build inflates with zlib alone, as
  # exactly and more slowly, and says so when it is configured.
  echo "libdeflate $package_version's source could not be fetched: zlib alone will inflate" >&2
  exit 0
fi
rm -rf "$src.tmp" && mkdir -p "$src.tmp"
tar -xzf "$(ls "$cache"/download/libdeflate_"$version"*.orig.tar.gz | tail -1)" -C "$src.tmp" --strip-components=1
mv "$src.tmp" "$src"
echo "fetched libdeflate $version into $src"
