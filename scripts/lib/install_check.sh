# shellcheck shell=bash
# The installed library as a host project sees it. Needs servers.sh (for
# log, error and odbc_driver_path) sourced first.
#
#   check_install BUILD   installs BUILD into a temporary prefix, checks the
#                         files, the SONAME links and the versions, builds
#                         tests/install/consumer.c outside the tree with
#                         find_package, pkg-config and add_subdirectory, runs
#                         each on an SQLite data source, and reads its alarm
#                         back with the installed tool
#   build_deb BUILD       BUILD/package/scadastore_*.deb, its contents checked
#
# Both return non-zero with a message on failure.

# The version the header declares, and the SONAME the rule gives it.
header_version() {
  sed -n 's/^#define SCADASTORE_VERSION "\(.*\)"$/\1/p' include/scadastore.h
}
expected_soname() {
  local major minor
  IFS=. read -r major minor _ <<<"$(header_version)"
  if [ "$major" = 0 ]; then echo "libscadastore.so.0.$minor"; else echo "libscadastore.so.$major"; fi
}

expect_equal() {  # expect_equal WHAT ACTUAL EXPECTED
  [ "$2" = "$3" ] && return 0
  error "$1: '$2', expected '$3'"
  return 1
}

check_install() {
  local build=$1 work status=0
  work=$(mktemp -d /tmp/scadastore-install.XXXXXX) || return 1
  check_install_in "$build" "$work" || status=1
  rm -rf "$work"
  return $status
}

check_install_in() {
  local build=$1 work=$2 prefix=$2/prefix version soname libdir pcdir driver name output library
  version=$(header_version) soname=$(expected_soname)
  cmake --install "$build" --prefix "$prefix" >"$work/install.log" 2>&1 \
    || { cat "$work/install.log"; error "cmake --install failed"; return 1; }
  pcdir=$(dirname "$(find "$prefix" -name scadastore.pc)")
  libdir=$(dirname "$pcdir")
  for name in include/scadastore.h bin/scadastore bin/scadastore-monitor; do
    [ -f "$prefix/$name" ] || { error "not installed: $name"; return 1; }
  done
  [ -f "$libdir/cmake/scadastore/scadastoreConfig.cmake" ] || { error "no CMake package"; return 1; }
  expect_equal "libscadastore.so links to" "$(readlink "$libdir/libscadastore.so")" "$soname" || return 1
  expect_equal "$soname links to" "$(readlink "$libdir/$soname")" "libscadastore.so.$version" || return 1
  expect_equal "SONAME" "$(objdump -p "$libdir/libscadastore.so.$version" | awk '$1 == "SONAME" { print $2 }')" \
    "$soname" || return 1
  expect_equal "scadastore --version" "$("$prefix/bin/scadastore" --version)" "scadastore $version" || return 1
  expect_equal "scadastore-monitor --version" "$("$prefix/bin/scadastore-monitor" --version)" \
    "scadastore-monitor $version" || return 1
  expect_equal "pkg-config version" "$(PKG_CONFIG_PATH=$pcdir pkg-config --modversion scadastore)" \
    "$version" || return 1
  echo "installed $version: $soname, header, tool, monitor, CMake package, scadastore.pc"

  driver=$(odbc_driver_path libsqliteodbc libsqlite3odbc.so) || { error "SQLite3 ODBC driver not found"; return 1; }
  printf '[SQLite3]\nDriver=%s\n' "$driver" >"$work/odbcinst.ini"
  printf '[consumer_%s]\nDriver=SQLite3\nDatabase=%s\n' cmake "$work/cmake.db" pc "$work/pc.db" \
    subdirectory "$work/subdirectory.db" \
    >"$work/odbc.ini"

  build_consumer cmake -DCMAKE_PREFIX_PATH="$prefix" || return 1
  build_consumer subdirectory -DSCADASTORE_SOURCE_DIR="$PWD" || return 1
  mkdir -p "$work/pc"
  # shellcheck disable=SC2046  # pkg-config's flags are separate words
  cc -std=c11 -Wall -Werror -o "$work/pc/consumer" tests/install/consumer.c \
    $(PKG_CONFIG_PATH=$pcdir pkg-config --cflags --libs scadastore) -Wl,-rpath,"$libdir" \
    || { error "the pkg-config consumer did not build"; return 1; }
  for name in cmake pc subdirectory; do
    library=$libdir/$soname
    [ $name = subdirectory ] && library=$work/subdirectory/scadastore/$soname
    grep -q "$library" <<<"$(ldd "$work/$name/consumer")" \
      || { error "$name consumer: not linked to $library"; return 1; }
    output=$(ODBCSYSINI=$work ODBCINI=$work/odbc.ini "$work/$name/consumer" consumer_$name) \
      || { error "$name consumer failed: $output"; return 1; }
    echo "$name consumer: $output"
    output=$("$prefix/bin/scadastore" --sqlite "$work/$name.db" --format csv sql \
      'select station, tag, value from alarms') || { error "the installed tool failed: $output"; return 1; }
    expect_equal "alarms read by the installed tool" "$(echo "$output" | tail -n +2)" "north,temp,71.25" \
      || return 1
  done
}

# build_consumer NAME CMAKE-OPTIONS...: tests/install in WORK/NAME.
build_consumer() {
  local name=$1; shift
  cmake -S tests/install -B "$work/$name" "$@" >"$work/$name.log" 2>&1 \
    && cmake --build "$work/$name" -j"$(nproc)" >>"$work/$name.log" 2>&1 \
    || { cat "$work/$name.log"; error "the $name consumer did not build"; return 1; }
}

build_deb() {
  local build=$1 deb name contents
  rm -rf "$build/package"
  cpack --config "$build/CPackConfig.cmake" -B "$build/package" >"$build/cpack.log" 2>&1 \
    || { cat "$build/cpack.log"; error "cpack failed"; return 1; }
  deb=$(ls "$build"/package/scadastore_*.deb 2>/dev/null | head -n1)
  [ -n "$deb" ] || { error "cpack made no .deb"; return 1; }
  contents=$(dpkg-deb -c "$deb") || { error "dpkg-deb cannot read $deb"; return 1; }
  for name in ./usr/bin/scadastore ./usr/bin/scadastore-monitor ./usr/include/scadastore.h \
      "/$(expected_soname)" /scadastore.pc /scadastoreConfig.cmake; do
    grep -q -- "$name\( \|$\)" <<<"$contents" || { error "$deb lacks $name"; return 1; }
  done
  dpkg-deb -f "$deb" Depends | grep -q libodbc || { error "$deb does not depend on libodbc"; return 1; }
  echo "$deb: $(stat -c %s "$deb") bytes; depends on $(dpkg-deb -f "$deb" Depends)"
}
