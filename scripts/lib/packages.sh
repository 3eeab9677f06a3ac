# shellcheck shell=bash
# The Debian packages the scripts need, and the one installer they share.
#
#   install_packages PACKAGE...   apt-get install those that are not installed
#
# Prints what it installs and how long it took; on failure it says why on
# stderr and returns non-zero. Never exits the caller's shell, and is safe
# under set -euo pipefail.

# Building the library, the tool and the monitor, and playing the demo on SQLite.
SCADASTORE_BUILD_PACKAGES=(g++ make cmake unixodbc unixodbc-dev libsqliteodbc
  libcli11-dev libfmt-dev nlohmann-json3-dev)
# The tests: the servers and their drivers, GoogleTest, Google Benchmark (its
# SQLite baseline), pkg-config and dpkg-dev for the install and package checks,
# headless Chromium, which renders the HTML report, and jq, which reads the
# tool's JSON in the spool test.
SCADASTORE_TEST_PACKAGES=("${SCADASTORE_BUILD_PACKAGES[@]}" odbc-postgresql odbc-mariadb
  postgresql mariadb-server mariadb-client libgtest-dev libbenchmark-dev sqlite3
  libsqlite3-dev procps pkgconf dpkg-dev locales chromium galera-4 rsync jq)
# The Windows builds and their tests under Wine (64-bit Wine only: no i386
# packages; mmdebstrap and zstd make and keep the root of the 32-bit tests),
# GoogleTest's source and the zh_CN.GBK locale's sources.
SCADASTORE_WINE_PACKAGES=(g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix wine wine64
  googletest locales mmdebstrap zstd)

# The named packages that dpkg does not list as installed, one a line.
missing_packages() {
  local installed
  # dpkg-query exits 1 when any name is unknown to dpkg; what it prints still counts.
  installed=" $({ dpkg-query -W -f='${Package}:${db:Status-Abbrev}\n' "$@" 2>/dev/null || true; } \
    | sed -n 's/^\([^:]*\):ii *$/\1/p' | tr '\n' ' ')"
  local package
  for package in "$@"; do
    case "$installed" in *" $package "*) ;; *) echo "$package" ;; esac
  done
}

install_packages() {
  local missing=() started=$SECONDS log
  mapfile -t missing < <(missing_packages "$@")
  if [ ${#missing[@]} -eq 0 ]; then
    echo "packages: all $# present"
    return 0
  fi
  echo "packages: installing ${missing[*]}"
  if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
    echo "ERROR: no apt-get: install these packages by hand: ${missing[*]}" >&2
    return 1
  fi
  if [ "$(id -u)" -ne 0 ]; then
    echo "ERROR: run as root to install them, or install them by hand: ${missing[*]}" >&2
    return 1
  fi
  log=$(mktemp /tmp/scadastore-apt.XXXXXX) || return 1
  if ! DEBIAN_FRONTEND=noninteractive apt-get update -q >"$log" 2>&1 \
    || ! DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends \
           "${missing[@]}" </dev/null >>"$log" 2>&1; then
    tail -n 25 "$log" >&2
    echo "ERROR: apt-get could not install: ${missing[*]} (log above)" >&2
    rm -f "$log"
    return 1
  fi
  rm -f "$log"
  mapfile -t missing < <(missing_packages "${missing[@]}")
  if [ ${#missing[@]} -gt 0 ]; then
    echo "ERROR: still not installed after apt-get: ${missing[*]}" >&2
    return 1
  fi
  echo "packages: installed in $((SECONDS - started)) s"
}
