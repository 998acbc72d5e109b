#!/bin/sh
# Installs, from Debian's packages, what storegen needs and is missing:
#   tools/install-deps.sh           to build the programs and the sample store
#   tools/install-deps.sh --tests   also everything the tests use
# Packages already installed are left alone; nothing is done when none is
# missing. Run it as root, or as a user who may use sudo.
set -eu

build="cmake g++ make libsqlite3-dev libpq-dev libfcgi-dev"
# GoogleTest; Python for the web, docs and tutorial tests; lighttpd, Chromium
# and curl for the web suite and the deployment recipes; swish-e for the
# search index; groff and man-db for the manual pages; the PostgreSQL server
# for the PostgreSQL library's tests, which start one of their own, and
# libfcgi's cgi-fcgi, with which they and the SQLite tests pass requests to
# storegen-fcgi.
tests="libgtest-dev python3 lighttpd chromium curl swish-e groff-base man-db postgresql libfcgi-bin"

case "${1:-}" in
  "") wanted=$build ;;
  --tests) wanted="$build $tests" ;;
  *) echo "usage: $0 [--tests]" >&2; exit 2 ;;
esac

missing=""
for pkg in $wanted; do
  dpkg -s "$pkg" >/dev/null 2>&1 || missing="$missing $pkg"
done
[ -n "$missing" ] || exit 0

echo "install-deps: installing$missing"
if [ "$(id -u)" -eq 0 ]; then
  as_root=""
elif command -v sudo >/dev/null 2>&1; then
  as_root="sudo"
else
  echo "install-deps: run as root: apt-get install -y$missing" >&2
  exit 1
fi
$as_root apt-get update -q
# shellcheck disable=SC2086 # one word per package
$as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q $missing
