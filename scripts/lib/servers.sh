# Throw-away database servers and ODBC data sources for the tests.
# Sourced by scripts/test and scripts/servers; every function is safe to call
# again after a failure.

SCADASTORE_PACKAGES=(unixodbc unixodbc-dev libsqliteodbc odbc-postgresql odbc-mariadb
  mariadb-server postgresql cmake g++ make libgtest-dev libbenchmark-dev
  libcli11-dev libfmt-dev nlohmann-json3-dev sqlite3 libsqlite3-dev python3)

log() { printf '\n== %s\n' "$*"; }
warn() { printf 'warning: %s\n' "$*" >&2; }

# Installs the packages that are missing (apt-get only when something is).
install_missing_packages() {
  local missing=() package
  for package in "${SCADASTORE_PACKAGES[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' \
      || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  log "installing ${missing[*]}"
  if [ "$(id -u)" -ne 0 ]; then
    echo "missing packages: ${missing[*]} (run as root to install them)" >&2
    return 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq && apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

free_port() {
  python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1]); s.close()'
}

odbc_driver_path() { dpkg -L "$1" 2>/dev/null | grep -m1 "/$2\$"; }

TEST_DB=scadastore
TEST_USER=scadastore
TEST_PASSWORD=scadastore-test

# start_postgres DIR: PostgreSQL 15 on 127.0.0.1, data under DIR; sets PG_PORT.
start_postgres() {
  local dir=$1 bin=/usr/lib/postgresql/15/bin
  [ -x "$bin/initdb" ] || { warn "PostgreSQL 15 is not installed"; return 1; }
  mkdir -p "$dir" && chown postgres "$dir" && chmod 700 "$dir"
  PG_PORT=$(free_port)
  echo "$TEST_PASSWORD" > "$dir/pwfile" && chown postgres "$dir/pwfile"
  runuser -u postgres -- "$bin/initdb" -D "$dir/data" -U "$TEST_USER" --pwfile="$dir/pwfile" \
    -A scram-sha-256 -E UTF8 --locale=C.UTF-8 --no-sync >"$dir/initdb.log" 2>&1 || {
    tail -5 "$dir/initdb.log" >&2; return 1; }
  runuser -u postgres -- "$bin/pg_ctl" -D "$dir/data" -l "$dir/server.log" -w -t 30 \
    -o "-c listen_addresses=127.0.0.1 -p $PG_PORT -k $dir -c fsync=off -c synchronous_commit=off -c full_page_writes=off" \
    start >/dev/null || { tail -5 "$dir/server.log" >&2; return 1; }
  env PGPASSWORD="$TEST_PASSWORD" createdb -w -h 127.0.0.1 -p "$PG_PORT" -U "$TEST_USER" "$TEST_DB" \
    || { tail -5 "$dir/server.log" >&2; return 1; }
}

stop_postgres() {
  local dir=$1
  [ -f "$dir/data/postmaster.pid" ] || return 0
  runuser -u postgres -- /usr/lib/postgresql/15/bin/pg_ctl -D "$dir/data" -m fast -w stop >/dev/null 2>&1
}

# start_mariadb DIR: MariaDB on 127.0.0.1, data under DIR; sets MARIA_PORT.
start_mariadb() {
  local dir=$1 i
  command -v mariadbd >/dev/null || { warn "MariaDB is not installed"; return 1; }
  mkdir -p "$dir" && chown mysql "$dir"
  MARIA_PORT=$(free_port)
  cat > "$dir/init.sql" <<SQL
FLUSH PRIVILEGES;
CREATE USER '$TEST_USER'@'127.0.0.1' IDENTIFIED BY '$TEST_PASSWORD';
CREATE USER '$TEST_USER'@'localhost' IDENTIFIED BY '$TEST_PASSWORD';
CREATE DATABASE $TEST_DB CHARACTER SET utf8mb4 COLLATE utf8mb4_general_ci;
GRANT ALL ON $TEST_DB.* TO '$TEST_USER'@'127.0.0.1';
GRANT ALL ON $TEST_DB.* TO '$TEST_USER'@'localhost';
SQL
  mariadb-install-db --no-defaults --user=mysql --datadir="$dir/data" \
    --auth-root-authentication-method=socket --skip-test-db --skip-name-resolve \
    --extra-file="$dir/init.sql" >"$dir/install.log" 2>&1 || { tail -5 "$dir/install.log" >&2; return 1; }
  setsid mariadbd --no-defaults --user=mysql --datadir="$dir/data" --socket="$dir/mysqld.sock" \
    --pid-file="$dir/mysqld.pid" --port="$MARIA_PORT" --skip-networking=0 \
    --bind-address=127.0.0.1 --skip-name-resolve --innodb-flush-log-at-trx-commit=0 \
    --innodb-buffer-pool-size=64M --character-set-server=utf8mb4 \
    --collation-server=utf8mb4_general_ci --log-error="$dir/error.log" </dev/null >/dev/null 2>&1 &
  for i in $(seq 1 300); do
    mariadb-admin --no-defaults -h127.0.0.1 -P"$MARIA_PORT" -u"$TEST_USER" -p"$TEST_PASSWORD" \
      ping >/dev/null 2>&1 && return 0
    sleep 0.1
  done
  tail -5 "$dir/error.log" >&2
  return 1
}

stop_mariadb() {
  local dir=$1
  [ -S "$dir/mysqld.sock" ] || return 0
  mariadb-admin --no-defaults --socket="$dir/mysqld.sock" -uroot shutdown >/dev/null 2>&1
}

# write_odbc_files DIR: odbcinst.ini, odbc.ini and test-env.sh for the servers
# started (PG_PORT / MARIA_PORT set when they run).
write_odbc_files() {
  local dir=$1
  local sqlite postgres mariadb
  sqlite=$(odbc_driver_path libsqliteodbc libsqlite3odbc.so)
  postgres=$(odbc_driver_path odbc-postgresql psqlodbca.so)
  mariadb=$(odbc_driver_path odbc-mariadb libmaodbc.so)
  BLACKHOLE_PORT=$(free_port)
  MARIA_BLACKHOLE_PORT=$(free_port)
  cat > "$dir/odbcinst.ini" <<INI
[ODBC]
Pooling=No
[SQLite3]
Driver=$sqlite
[PostgreSQL]
Driver=$postgres
[MariaDB]
Driver=$mariadb
INI
  cat > "$dir/odbc.ini" <<INI
[scadastore_sqlite]
Driver=SQLite3
Database=$dir/test.sqlite
Timeout=5000
JournalMode=WAL
SyncPragma=NORMAL
[scadastore_pg]
Driver=PostgreSQL
Servername=127.0.0.1
Port=${PG_PORT:-1}
Database=$TEST_DB
Username=$TEST_USER
Password=$TEST_PASSWORD
[scadastore_maria]
Driver=MariaDB
SERVER=127.0.0.1
PORT=${MARIA_PORT:-1}
DATABASE=$TEST_DB
USER=$TEST_USER
PASSWORD=$TEST_PASSWORD
CHARSET=utf8mb4
CONN_TIMEOUT=10
[scadastore_blackhole]
Driver=PostgreSQL
Servername=127.0.0.1
Port=$BLACKHOLE_PORT
Database=$TEST_DB
[scadastore_maria_blackhole]
Driver=MariaDB
SERVER=127.0.0.1
PORT=$MARIA_BLACKHOLE_PORT
DATABASE=$TEST_DB
CONN_TIMEOUT=3
INI
  {
    echo "export ODBCSYSINI='$dir'"
    echo "export ODBCINI='$dir/odbc.ini'"
    echo "export SCADASTORE_TEST_SQLITE='scadastore_sqlite;;'"
    [ -n "${PG_PORT:-}" ] && echo "export SCADASTORE_TEST_POSTGRES='scadastore_pg;$TEST_USER;$TEST_PASSWORD'"
    [ -n "${PG_PORT:-}" ] && echo "export SCADASTORE_TEST_BLACKHOLE_PORT=$BLACKHOLE_PORT"
    [ -n "${MARIA_PORT:-}" ] && echo "export SCADASTORE_TEST_MARIADB='scadastore_maria;$TEST_USER;$TEST_PASSWORD'"
    [ -n "${MARIA_PORT:-}" ] && echo "export SCADASTORE_TEST_MARIA_BLACKHOLE_PORT=$MARIA_BLACKHOLE_PORT"
    true
  } > "$dir/test-env.sh"
}

# start_servers STATE_DIR ODBC_DIR STRICT: both servers and the data sources.
# With STRICT=true a server that does not start is an error; otherwise its
# tests skip themselves.
start_servers() {
  local state=$1 odbc=$2 strict=$3
  mkdir -p "$state" "$odbc"
  chmod 755 "$state"
  unset PG_PORT MARIA_PORT
  log "starting PostgreSQL"
  if ! start_postgres "$state/postgres"; then
    unset PG_PORT
    [ "$strict" = true ] && { echo "PostgreSQL did not start" >&2; return 1; }
    warn "PostgreSQL did not start: its tests will skip"
  fi
  log "starting MariaDB"
  if ! start_mariadb "$state/mariadb"; then
    unset MARIA_PORT
    [ "$strict" = true ] && { echo "MariaDB did not start" >&2; return 1; }
    warn "MariaDB did not start: its tests will skip"
  fi
  write_odbc_files "$odbc"
}

stop_servers() {
  local state=$1
  stop_postgres "$state/postgres"
  stop_mariadb "$state/mariadb"
}
