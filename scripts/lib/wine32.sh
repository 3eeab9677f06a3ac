# shellcheck shell=bash
# The 32-bit Windows tests' own Debian 12 root. 32-bit Wine needs i386
# packages, which are never enabled on this machine: the root has i386 enabled,
# wine32 and the 32-bit ODBC stack that Wine's 32-bit odbc32 forwards to. It is
# built with mmdebstrap from the release and update suites of this machine's
# Debian mirror (the security suite's i386 index does not match the amd64 one),
# kept as a tarball in WINE32_CACHE and rebuilt when missing or when its recipe
# changes. Needs servers.sh (log, error) sourced first; runs as root.
#
#   wine32_ctest BUILD CTEST-ARGUMENTS...   unpacks the root into a temporary
#       directory, binds this checkout into it at the same path and runs ctest
#       in BUILD there under 32-bit Wine, with the data sources of
#       build/test-env.sh and the 32-bit drivers; the root and its mounts are
#       gone when it returns, however it ends.
#
# Returns non-zero with a message on failure; when the stage cannot run at all
# the message starts with "the 32-bit stage cannot run".

WINE32_CACHE=${SCADASTORE_WINE32_CACHE:-/var/cache/scadastore}
WINE32_PACKAGES=(wine wine32:i386 unixodbc:i386 libsqliteodbc:i386 odbc-postgresql:i386
  odbc-mariadb:i386 cmake locales)
# Made once in the root: the GBK locale the code-page test runs under and a
# 32-bit Wine prefix, so that a run starts Wine in a few seconds.
WINE32_ENV=(WINEPREFIX=/opt/wine32 WINEDEBUG=-all 'WINEDLLOVERRIDES=mscoree,mshtml=' LANG=C)
WINE32_SETUP="localedef -i zh_CN -f GBK zh_CN.GBK
export ${WINE32_ENV[*]} WINEARCH=win32
wine cmd /c exit
wineserver -w"

# The URI of this machine's apt sources that serves SUITE, in either format.
apt_mirror() {
  local suite=$1 files=()
  for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [ -s "$file" ] && files+=("$file")
  done
  {
    [ ${#files[@]} -gt 0 ] && sed 's/\[[^]]*\]//' "${files[@]}" \
      | awk -v s="$suite" '$1 == "deb" && $3 == s { print $2 }'
    for file in /etc/apt/sources.list.d/*.sources; do
      [ -s "$file" ] || continue
      awk -v s="$suite" 'BEGIN { RS = ""; FS = "\n" }
        { uri = ""; found = 0
          for (i = 1; i <= NF; i++) {
            n = split($i, word, " ")
            if (word[1] == "URIs:") uri = word[2]
            if (word[1] == "Suites:") for (j = 2; j <= n; j++) if (word[j] == s) found = 1
          }
          if (found && uri != "") print uri }' "$file"
    done
  } | head -n 1 | grep .
}

# The cached root's file, named after its recipe.
wine32_tarball() {
  local recipe
  recipe=$(printf '%s\n' "${WINE32_PACKAGES[@]}" "$WINE32_SETUP" | sha256sum | cut -c1-12)
  echo "$WINE32_CACHE/wine32-root-$recipe.tar.zst"
}

wine32_build_root() {  # TARBALL
  local tarball=$1 mirror partial started=$SECONDS
  mirror=$(apt_mirror bookworm) \
    || { error "the 32-bit stage cannot run: no bookworm source in this machine's apt sources"; return 1; }
  mkdir -p "$WINE32_CACHE" || return 1
  rm -f "$WINE32_CACHE"/wine32-root-*.tar.zst
  partial=${tarball%.tar.zst}.partial.tar.zst
  log "building the 32-bit root (mmdebstrap bookworm, bookworm-updates, i386)"
  if ! mmdebstrap --variant=apt --architectures=amd64,i386 --include="$(IFS=,; echo "${WINE32_PACKAGES[*]}")" \
      --aptopt='APT::Install-Recommends "false"' \
      --dpkgopt='path-exclude=/usr/share/doc/*' --dpkgopt='path-exclude=/usr/share/man/*' \
      --customize-hook="chroot \"\$1\" sh -ec '$WINE32_SETUP'" \
      bookworm "$partial" "deb $mirror bookworm main" "deb $mirror bookworm-updates main" \
      >"$WINE32_CACHE/mmdebstrap.log" 2>&1; then
    show_log_tail "$WINE32_CACHE/mmdebstrap.log"
    rm -f "$partial"
    error "the 32-bit stage cannot run: mmdebstrap could not build the root from $mirror"
    return 1
  fi
  mv "$partial" "$tarball" || return 1
  echo "built $tarball ($(du -h "$tarball" | cut -f1)) in $((SECONDS - started)) s"
}

WINE32_ROOT='' WINE32_RUNNER=''
wine32_cleanup() {
  [ -n "$WINE32_RUNNER" ] && kill -KILL "$WINE32_RUNNER" 2>/dev/null && wait "$WINE32_RUNNER" 2>/dev/null
  WINE32_RUNNER=
  [ -n "$WINE32_ROOT" ] && [ -d "$WINE32_ROOT" ] && rm -rf --one-file-system "$WINE32_ROOT"
  WINE32_ROOT=
}

wine32_ctest() {
  local build=$1 tarball checkout=$PWD status; shift
  [ "$(id -u)" -eq 0 ] || { error "the 32-bit stage cannot run: it needs root (chroot, mounts)"; return 1; }
  if ! command -v mmdebstrap >/dev/null || ! command -v unshare >/dev/null; then
    error "the 32-bit stage cannot run: mmdebstrap or unshare is missing"
    return 1
  fi
  tarball=$(wine32_tarball)
  [ -f "$tarball" ] || wine32_build_root "$tarball" || return 1
  WINE32_ROOT=$(mktemp -d /var/tmp/scadastore-wine32.XXXXXX) || return 1
  tar -C "$WINE32_ROOT" --zstd -xf "$tarball" || { error "cannot unpack $tarball"; return 1; }
  # The drivers of build/odbcinst.ini, as their 32-bit builds.
  mkdir -p "$build/odbc32" \
    && sed 's|/x86_64-linux-gnu/|/i386-linux-gnu/|' build/odbcinst.ini >"$build/odbc32/odbcinst.ini" || return 1
  # A private mount and PID namespace: its end drops the mounts and every process in it.
  unshare --mount --propagation private --pid --fork --kill-child -- bash -euo pipefail -c '
    root=$1 checkout=$2; shift 2
    mount -t proc proc "$root/proc"
    mount --bind /dev "$root/dev"
    mount -t tmpfs -o mode=1777,nosuid,nodev shm "$root/dev/shm"
    mkdir -p "$root$checkout"
    mount --bind "$checkout" "$root$checkout"
    exec chroot "$root" /usr/bin/env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"
  ' wine32 "$WINE32_ROOT" "$checkout" "${WINE32_ENV[@]}" bash -uo pipefail -c '
    cd "$1"; build=$2; shift 2
    source build/test-env.sh
    export ODBCSYSINI=$PWD/$build/odbc32
    wine cmd /c exit </dev/null >/dev/null 2>&1 || { echo "ERROR: 32-bit wine does not start" >&2; exit 1; }
    wineserver -p </dev/null >/dev/null 2>&1
    ctest --test-dir "$build" "$@"
  ' in_root "$checkout" "$build" "$@" &
  WINE32_RUNNER=$!
  wait "$WINE32_RUNNER"
  status=$?
  WINE32_RUNNER=
  wine32_cleanup
  return $status
}
