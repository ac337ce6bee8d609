#!/bin/bash
# Installs the Debian packages that lenslark is built, run and tested with, those alone that are
# missing. With --tests also, where Node.js and npm are there, the client that one test talks to the
# server for agents with. Quick and silent when nothing is missing.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
list=$root/packaging/debian-packages.txt
client=$root/tests/mcp-client

say() { echo "setup: $*" >&2; }

# Nothing is built or run with it: where it cannot be had, its test says so and is skipped.
install_client() {
  local installed=$client/node_modules/.installed
  cmp -s "$client/package-lock.json" "$installed" && return
  command -v node >/dev/null && command -v npm >/dev/null || return 0
  say "installing the test client of the server for agents"
  if (cd "$client" && timeout 300 npm ci --ignore-scripts --no-audit --no-fund --loglevel=error \
    --fetch-retries=1 --fetch-retry-mintimeout=1000 >/dev/null); then
    cp "$client/package-lock.json" "$installed"
  else
    rm -rf "$client/node_modules"
    say "npm could not install it, see above. Its tests will be skipped."
  fi
}
[ "${1:-}" != --tests ] || install_client

if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
  say "this is no Debian system: install what $list names by other means."
  say "Going on with what is there."
  exit 0
fi

mapfile -t wanted < <(sed -e 's/#.*//' -e 's/[[:space:]]*$//' -e '/^$/d' "$list")
installed=$(dpkg-query -W -f='${Package} ${db:Status-Status}\n' "${wanted[@]}" 2>/dev/null |
  sed -n 's/ installed$//p' || true)
mapfile -t missing < <(comm -23 <(printf '%s\n' "${wanted[@]}" | sort -u) \
  <(printf '%s\n' "$installed" | sort -u))
[ ${#missing[@]} -eq 0 ] && exit 0

privilege=()
if [ "$(id -u)" -ne 0 ]; then
  # Without a terminal nobody can type a password: sudo must do without one or fail at once.
  if command -v sudo >/dev/null && { sudo -n true 2>/dev/null || { [ -t 0 ] && [ -z "${CI:-}" ]; }; }
  then
    privilege=(sudo)
  else
    say "packages are missing, and neither are you root nor can sudo be used here. As root, run:"
    say "  apt-get install ${missing[*]}"
    exit 1
  fi
fi

say "installing ${missing[*]}"
install() {
  "${privilege[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install --yes --no-install-recommends "${missing[@]}"
}
# The package lists of a fresh machine are empty, those of an old one out of date.
"${privilege[@]}" apt-get update || say "the package lists could not be brought up to date"
if ! install; then
  say "these packages could not be installed: ${missing[*]}"
  say "See what apt-get says above; with the network mended, run this again."
  exit 1
fi
