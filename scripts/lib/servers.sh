# shellcheck shell=bash
# Throw-away database servers and ODBC data sources for the tests.
#
# Sourced by scripts/test and scripts/servers (bash). Runs as root on Debian 12:
# PostgreSQL runs as the user postgres, MariaDB as mysql; both listen on free
# ports of 127.0.0.1 only, with their data in temporary directories.
#
#   start_servers STATE STRICT        start (or keep) both servers, record them in STATE
#   stop_servers STATE                stop what STATE records, remove the data
#   write_odbc_files DIR STATE        DIR/odbcinst.ini, DIR/odbc.ini, DIR/test-env.sh
#   ensure_gbk_locale                 generate zh_CN.GBK when it is missing
#
# Every function returns non-zero on failure and never exits the caller's shell.

# mariadbd and runuser live in /usr/sbin, which a minimal PATH may lack.
case ":$PATH:" in *:/usr/sbin:*) ;; *) PATH=$PATH:/usr/sbin:/sbin ;; esac

TEST_DB=scadastore
TEST_USER=scadastore
TEST_PASSWORD=scadastore_pw

PG_DIR=${PG_DIR:-} PG_PORT=${PG_PORT:-} MARIA_DIR=${MARIA_DIR:-} MARIA_PORT=${MARIA_PORT:-}
BLACKHOLE_PORT=${BLACKHOLE_PORT:-} MARIA_BLACKHOLE_PORT=${MARIA_BLACKHOLE_PORT:-}

log() { printf '\n==== %s\n' "$*"; }
warn() { printf 'warning: %s\n' "$*" >&2; }
error() { printf 'ERROR: %s\n' "$*" >&2; }

# Seconds since an $EPOCHREALTIME taken earlier, one decimal.
elapsed_since() { awk -v a="$1" -v b="$EPOCHREALTIME" 'BEGIN { printf "%.1f", b - a }'; }

# Shows the end of a log file on stderr, framed, so a failure explains itself.
show_log_tail() {
  local file=$1 lines=${2:-30}
  [ -f "$file" ] || { echo "  ($file does not exist)" >&2; return 0; }
  echo "---- last $lines lines of $file" >&2
  tail -n "$lines" "$file" >&2
  echo "----" >&2
}

# --- ports --------------------------------------------------------------------

PORTS_HANDED_OUT=" "

# True when some socket of this machine (any state, IPv4 or IPv6) uses PORT.
port_in_use() {
  local hex
  hex=$(printf ':%04X' "$1")
  awk -v p="$hex" 'NR > 1 && substr($2, length($2) - 4) == p { found = 1 } END { exit !found }' \
    /proc/net/tcp /proc/net/tcp6 2>/dev/null
}

# Sets FREE_PORT to a port nothing uses, below the kernel's ephemeral range so
# that no outgoing connection takes it later (the silent-server ports stay free
# until a test listens there). Never hands out the same port twice in one shell
# (call it directly, not in $(...), so that it remembers).
free_port() {
  local low high first=20000 last port
  read -r low high </proc/sys/net/ipv4/ip_local_port_range 2>/dev/null || { low=32768; high=60999; }
  if [ "$low" -gt $((first + 1000)) ]; then
    last=$((low - 1))
  else
    first=$((high + 1)); last=65000
  fi
  for _ in $(seq 1 500); do
    port=$((first + (RANDOM * 32768 + RANDOM) % (last - first + 1)))
    case "$PORTS_HANDED_OUT" in *" $port "*) continue ;; esac
    port_in_use "$port" && continue
    PORTS_HANDED_OUT+="$port "
    FREE_PORT=$port
    return 0
  done
  error "no free port found"
  return 1
}

# --- state --------------------------------------------------------------------
# STATE/servers.env records what runs: PG_DIR PG_PORT MARIA_DIR MARIA_PORT
# BLACKHOLE_PORT MARIA_BLACKHOLE_PORT. The data directories are made with
# mktemp under /tmp (short socket paths, reachable by postgres and mysql).

load_state() {
  PG_DIR='' PG_PORT='' MARIA_DIR='' MARIA_PORT='' BLACKHOLE_PORT='' MARIA_BLACKHOLE_PORT=''
  # shellcheck disable=SC1091
  [ -f "$1/servers.env" ] && source "$1/servers.env"
  return 0
}

save_state() {
  mkdir -p "$1" || return 1
  {
    printf 'PG_DIR=%q\nPG_PORT=%q\n' "$PG_DIR" "$PG_PORT"
    printf 'MARIA_DIR=%q\nMARIA_PORT=%q\n' "$MARIA_DIR" "$MARIA_PORT"
    printf 'BLACKHOLE_PORT=%q\nMARIA_BLACKHOLE_PORT=%q\n' "$BLACKHOLE_PORT" "$MARIA_BLACKHOLE_PORT"
  } >"$1/servers.env"
}

# PID of the process that owns a pid file, when it still runs.
live_pid() {
  local pid
  [ -f "$1" ] || return 1
  pid=$(head -n1 "$1" 2>/dev/null)
  [[ "$pid" =~ ^[0-9]+$ ]] && kill -0 "$pid" 2>/dev/null && echo "$pid"
}

# Waits until PID has gone, up to SECONDS; then TERM, then KILL that PID only.
wait_gone_or_kill() {
  local pid=$1 seconds=$2
  for _ in $(seq 1 $((seconds * 10))); do
    kill -0 "$pid" 2>/dev/null || return 0
    sleep 0.1
  done
  kill -TERM "$pid" 2>/dev/null
  for _ in $(seq 1 50); do
    kill -0 "$pid" 2>/dev/null || return 0
    sleep 0.1
  done
  kill -KILL "$pid" 2>/dev/null
  sleep 0.2
}

as_user() {
  local user=$1; shift
  if [ "$(id -u)" -eq 0 ]; then runuser -u "$user" -- "$@"; else "$@"; fi
}

# --- PostgreSQL ---------------------------------------------------------------

postgres_bin() {
  local dir
  dir=$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V | tail -n1)
  [ -n "$dir" ] && [ -x "$dir/initdb" ] && echo "$dir"
}

postgres_running() { [ -n "$PG_DIR" ] && live_pid "$PG_DIR/data/postmaster.pid" >/dev/null; }

# Starts the server of PG_DIR on PG_PORT and waits until it accepts connections.
launch_postgres() {
  as_user postgres "$(postgres_bin)/pg_ctl" -D "$PG_DIR/data" -l "$PG_DIR/server.log" -w -t 30 \
    -o "-c listen_addresses=127.0.0.1 -p $PG_PORT -k $PG_DIR -c fsync=off -c synchronous_commit=off -c full_page_writes=off" \
    start >>"$PG_DIR/pg_ctl.log" 2>&1
}

# Stops the server of PG_DIR, ending its sessions mid-statement, keeping its
# data (a crash would lose commits: the test servers do not flush them).
halt_postgres() {
  as_user postgres "$(postgres_bin)/pg_ctl" -D "$PG_DIR/data" -m fast -w -t 20 stop \
    >>"$PG_DIR/pg_ctl.log" 2>&1
}

# Sets PG_DIR and PG_PORT; the server log is $PG_DIR/server.log.
start_postgres() {
  local bin attempt
  bin=$(postgres_bin) || { error "PostgreSQL is not installed (no initdb)"; return 1; }
  PG_DIR=$(mktemp -d /tmp/scadastore-pg.XXXXXX) || return 1
  [ "$(id -u)" -eq 0 ] && chown postgres: "$PG_DIR"
  printf '%s\n' "$TEST_PASSWORD" >"$PG_DIR/pwfile"
  [ "$(id -u)" -eq 0 ] && chown postgres: "$PG_DIR/pwfile"
  if ! as_user postgres "$bin/initdb" -D "$PG_DIR/data" -U "$TEST_USER" --pwfile="$PG_DIR/pwfile" \
      -A scram-sha-256 -E UTF8 --locale=C.UTF-8 --no-sync >"$PG_DIR/initdb.log" 2>&1; then
    error "initdb failed"; show_log_tail "$PG_DIR/initdb.log"; return 1
  fi
  for attempt in 1 2 3; do
    free_port || return 1; PG_PORT=$FREE_PORT
    if launch_postgres; then
      break
    fi
    # Another program took the port between the check and the start: try another.
    grep -q 'Address already in use' "$PG_DIR/server.log" 2>/dev/null && [ $attempt -lt 3 ] && continue
    error "PostgreSQL did not start on 127.0.0.1:$PG_PORT"
    show_log_tail "$PG_DIR/pg_ctl.log" 10; show_log_tail "$PG_DIR/server.log"
    return 1
  done
  if ! env PGPASSWORD="$TEST_PASSWORD" "$bin/createdb" -w -h 127.0.0.1 -p "$PG_PORT" -U "$TEST_USER" \
      "$TEST_DB" >>"$PG_DIR/pg_ctl.log" 2>&1; then
    error "createdb $TEST_DB failed"; show_log_tail "$PG_DIR/pg_ctl.log" 10; show_log_tail "$PG_DIR/server.log"
    return 1
  fi
}

# Stops the server of PG_DIR (fast shutdown, then its postmaster PID) and removes PG_DIR.
stop_postgres() {
  local bin pid
  [ -n "$PG_DIR" ] && [ -d "$PG_DIR" ] || return 0
  if pid=$(live_pid "$PG_DIR/data/postmaster.pid"); then
    bin=$(postgres_bin) && as_user postgres "$bin/pg_ctl" -D "$PG_DIR/data" -m fast -w -t 20 stop \
      >/dev/null 2>&1
    wait_gone_or_kill "$pid" 5
  fi
  case "$PG_DIR" in /tmp/scadastore-pg.*) rm -rf "$PG_DIR" ;; esac
  PG_DIR='' PG_PORT=''
}

# --- MariaDB --------------------------------------------------------------------

maria_running() { [ -n "$MARIA_DIR" ] && live_pid "$MARIA_DIR/mysqld.pid" >/dev/null; }

maria_ping() {
  mariadb-admin --no-defaults --connect-timeout=2 -h127.0.0.1 -P"$MARIA_PORT" \
    -u"$TEST_USER" -p"$TEST_PASSWORD" ping >/dev/null 2>&1
}

# Starts the server of MARIA_DIR on MARIA_PORT in the background ($! is its PID).
launch_maria() {
  setsid mariadbd --no-defaults --user=mysql --datadir="$MARIA_DIR/data" \
    --socket="$MARIA_DIR/mysqld.sock" --pid-file="$MARIA_DIR/mysqld.pid" --port="$MARIA_PORT" \
    --skip-networking=0 --bind-address=127.0.0.1 --skip-name-resolve \
    --innodb-flush-log-at-trx-commit=0 --innodb-buffer-pool-size=64M \
    --character-set-server=utf8mb4 --collation-server=utf8mb4_general_ci \
    --log-error="$MARIA_DIR/error.log" </dev/null >/dev/null 2>&1 &
}

# Stops the server of MARIA_DIR, ending its sessions mid-statement, keeping
# its data (a crash would lose commits: the test servers do not flush them).
halt_maria() {
  local pid
  pid=$(live_pid "$MARIA_DIR/mysqld.pid") || return 0
  kill -TERM "$pid"
  wait_gone_or_kill "$pid" 20
}

# The first statements of a new MariaDB data directory: the test user and database.
write_maria_init() {  # FILE
  cat >"$1" <<SQL
FLUSH PRIVILEGES;
CREATE USER '$TEST_USER'@'127.0.0.1' IDENTIFIED BY '$TEST_PASSWORD';
CREATE USER '$TEST_USER'@'localhost' IDENTIFIED BY '$TEST_PASSWORD';
CREATE DATABASE $TEST_DB CHARACTER SET utf8mb4 COLLATE utf8mb4_general_ci;
GRANT ALL ON *.* TO '$TEST_USER'@'127.0.0.1' WITH GRANT OPTION;
GRANT ALL ON *.* TO '$TEST_USER'@'localhost' WITH GRANT OPTION;
SQL
}

# Sets MARIA_DIR and MARIA_PORT; the server log is $MARIA_DIR/error.log.
start_maria() {
  local attempt pid
  if ! command -v mariadbd >/dev/null || ! command -v mariadb-install-db >/dev/null; then
    error "MariaDB is not installed (no mariadbd)"; return 1
  fi
  MARIA_DIR=$(mktemp -d /tmp/scadastore-maria.XXXXXX) || return 1
  [ "$(id -u)" -eq 0 ] && chown mysql: "$MARIA_DIR"
  write_maria_init "$MARIA_DIR/init.sql" || return 1
  if ! mariadb-install-db --no-defaults --user=mysql --datadir="$MARIA_DIR/data" \
      --auth-root-authentication-method=socket --skip-test-db --skip-name-resolve \
      --extra-file="$MARIA_DIR/init.sql" >"$MARIA_DIR/install.log" 2>&1; then
    error "mariadb-install-db failed"; show_log_tail "$MARIA_DIR/install.log"; return 1
  fi
  for attempt in 1 2 3; do
    free_port || return 1; MARIA_PORT=$FREE_PORT
    launch_maria
    pid=$!
    for _ in $(seq 1 600); do   # 60 s
      maria_ping && return 0
      kill -0 "$pid" 2>/dev/null || break
      sleep 0.1
    done
    kill -0 "$pid" 2>/dev/null && { kill -TERM "$pid"; wait_gone_or_kill "$pid" 10; }
    grep -qE 'Address already in use|Do you already have another' "$MARIA_DIR/error.log" 2>/dev/null \
      && [ $attempt -lt 3 ] && continue
    error "MariaDB did not start on 127.0.0.1:$MARIA_PORT"
    show_log_tail "$MARIA_DIR/error.log"
    return 1
  done
  return 1
}

# Stops the server of MARIA_DIR (shutdown through its socket, then its PID) and removes MARIA_DIR.
stop_maria() {
  local pid
  [ -n "$MARIA_DIR" ] && [ -d "$MARIA_DIR" ] || return 0
  if pid=$(live_pid "$MARIA_DIR/mysqld.pid"); then
    mariadb-admin --no-defaults --connect-timeout=5 --socket="$MARIA_DIR/mysqld.sock" -uroot \
      shutdown >/dev/null 2>&1
    wait_gone_or_kill "$pid" 20
  fi
  case "$MARIA_DIR" in /tmp/scadastore-maria.*) rm -rf "$MARIA_DIR" ;; esac
  MARIA_DIR='' MARIA_PORT=''
}

# --- both -----------------------------------------------------------------------

# start_servers STATE STRICT: starts each server that STATE does not record as
# running (so a second call reuses the first pair), picks the silent-server
# ports once, and records everything in STATE/servers.env.
# STRICT=true: a server that does not start is an error (return 1).
# Otherwise a warning; that server's test variables stay unset.
start_servers() {
  local state=$1 strict=$2 started status=0
  mkdir -p "$state" || return 1
  load_state "$state"

  if postgres_running; then
    echo "PostgreSQL already runs on 127.0.0.1:$PG_PORT ($PG_DIR)"
  else
    stop_postgres >/dev/null 2>&1
    log "starting PostgreSQL"
    started=$EPOCHREALTIME
    if start_postgres; then
      echo "PostgreSQL on 127.0.0.1:$PG_PORT, data in $PG_DIR ($(elapsed_since "$started") s)"
    else
      stop_postgres; save_state "$state"
      if [ "$strict" = true ]; then error "PostgreSQL did not start (CI=true: failing the run)"; status=1
      else warn "PostgreSQL did not start: its tests will skip"; fi
    fi
  fi
  save_state "$state"
  [ $status -ne 0 ] && return $status

  if maria_running; then
    echo "MariaDB already runs on 127.0.0.1:$MARIA_PORT ($MARIA_DIR)"
  else
    stop_maria >/dev/null 2>&1
    log "starting MariaDB"
    started=$EPOCHREALTIME
    if start_maria; then
      echo "MariaDB on 127.0.0.1:$MARIA_PORT, data in $MARIA_DIR ($(elapsed_since "$started") s)"
    else
      stop_maria; save_state "$state"
      if [ "$strict" = true ]; then error "MariaDB did not start (CI=true: failing the run)"; status=1
      else warn "MariaDB did not start: its tests will skip"; fi
    fi
  fi

  if [ -z "$BLACKHOLE_PORT" ] || port_in_use "$BLACKHOLE_PORT"; then
    free_port || return 1; BLACKHOLE_PORT=$FREE_PORT
  fi
  if [ -z "$MARIA_BLACKHOLE_PORT" ] || port_in_use "$MARIA_BLACKHOLE_PORT"; then
    free_port || return 1; MARIA_BLACKHOLE_PORT=$FREE_PORT
  fi
  save_state "$state"
  return $status
}

# stop_servers STATE: the servers this shell has started (even before they
# were recorded, as when Ctrl-C interrupts a start), then those STATE records.
stop_servers() {
  local state=$1
  stop_postgres
  stop_maria
  load_state "$state"
  stop_postgres
  stop_maria
  rm -f "$state/servers.env"
}

# --- ODBC data sources ------------------------------------------------------------

# Absolute path of a driver library from its package's file list.
odbc_driver_path() {
  local path
  path=$(dpkg -L "$1" 2>/dev/null | grep -m1 "/$2\$")
  [ -n "$path" ] || path=$(ls /usr/lib/*/odbc/"$2" 2>/dev/null | head -n1)
  [ -n "$path" ] && [ -e "$path" ] && echo "$path"
}

# write_odbc_files DIR STATE: the driver and data-source declarations for the
# servers STATE records, and DIR/test-env.sh exporting the tests' variables.
# Small files on purpose: unixODBC rereads them many times per connect.
write_odbc_files() {
  local dir=$1 state=$2 sqlite postgres maria
  load_state "$state"
  mkdir -p "$dir" && dir=$(cd "$dir" && pwd) || return 1
  sqlite=$(odbc_driver_path libsqliteodbc libsqlite3odbc.so) || { error "SQLite3 ODBC driver not found"; return 1; }
  postgres=$(odbc_driver_path odbc-postgresql psqlodbca.so) || { error "psqlODBC driver not found"; return 1; }
  maria=$(odbc_driver_path odbc-mariadb libmaodbc.so) || { error "MariaDB ODBC driver not found"; return 1; }

  cat >"$dir/odbcinst.ini" <<INI
[ODBC]
Pooling=No
[SQLite3]
Driver=$sqlite
DontDLClose=1
[PostgreSQL ANSI]
Driver=$postgres
DontDLClose=1
[MariaDB]
Driver=$maria
DontDLClose=1
INI

  {
    cat <<INI
[scadastore_sqlite]
Driver=SQLite3
Database=$dir/scadastore_test.sqlite
Timeout=5000
JournalMode=WAL
SyncPragma=NORMAL
[scadastore_sqlite_missing]
Driver=SQLite3
Database=/nonexistent/scadastore_test.sqlite
INI
    postgres_running && cat <<INI
[scadastore_pg]
Driver=PostgreSQL ANSI
Servername=127.0.0.1
Port=$PG_PORT
Database=$TEST_DB
Username=$TEST_USER
Password=$TEST_PASSWORD
INI
    maria_running && cat <<INI
[scadastore_maria]
Driver=MariaDB
SERVER=127.0.0.1
PORT=$MARIA_PORT
DATABASE=$TEST_DB
USER=$TEST_USER
PASSWORD=$TEST_PASSWORD
CHARSET=utf8mb4
CONN_TIMEOUT=10
INI
    cat <<INI
[scadastore_blackhole]
Driver=PostgreSQL ANSI
Servername=127.0.0.1
Port=$BLACKHOLE_PORT
Database=$TEST_DB
[scadastore_maria_blackhole]
Driver=MariaDB
SERVER=127.0.0.1
PORT=$MARIA_BLACKHOLE_PORT
DATABASE=$TEST_DB
CHARSET=utf8mb4
CONN_TIMEOUT=3
INI
  } >"$dir/odbc.ini"

  {
    echo "# Test environment written by scripts/lib/servers.sh; load it with: source $dir/test-env.sh"
    printf 'export ODBCSYSINI=%q\n' "$dir"
    printf 'export ODBCINI=%q\n' "$dir/odbc.ini"
    echo "export SCADASTORE_TEST_SQLITE='scadastore_sqlite;;'"
    # The server-fault tests freeze (SIGSTOP) and restart the servers.
    if postgres_running; then
      echo "export SCADASTORE_TEST_POSTGRES='scadastore_pg;$TEST_USER;$TEST_PASSWORD'"
      printf 'export SCADASTORE_TEST_PG_DATA=%q\n' "$PG_DIR/data"
      printf 'export SCADASTORE_TEST_PG_PIDFILE=%q\n' "$PG_DIR/data/postmaster.pid"
      printf 'export SCADASTORE_TEST_PG_CTL=%q\n' "$(postgres_bin)/pg_ctl"
    else
      echo "unset SCADASTORE_TEST_POSTGRES"
    fi
    if maria_running; then
      echo "export SCADASTORE_TEST_MARIADB='scadastore_maria;$TEST_USER;$TEST_PASSWORD'"
      printf 'export SCADASTORE_TEST_MARIA_PIDFILE=%q\n' "$MARIA_DIR/mysqld.pid"
    else
      echo "unset SCADASTORE_TEST_MARIADB"
    fi
    echo "export SCADASTORE_TEST_BLACKHOLE_PORT=$BLACKHOLE_PORT"
    echo "export SCADASTORE_TEST_MARIA_BLACKHOLE_PORT=$MARIA_BLACKHOLE_PORT"
  } >"$dir/test-env.sh"
  write_quoting_sources "$dir"
}

# Server configurations under which naive quoting of text values breaks:
# PostgreSQL reading backslash escapes in plain literals, MariaDB reading none,
# and MariaDB on a GBK connection (multibyte characters ending in a backslash).
write_quoting_sources() {
  local dir=$1
  if postgres_running; then
    cat >>"$dir/odbc.ini" <<INI
[scadastore_pg_escapes]
Driver=PostgreSQL ANSI
Servername=127.0.0.1
Port=$PG_PORT
Database=$TEST_DB
ConnSettings=SET standard_conforming_strings=off
INI
    echo "export SCADASTORE_TEST_POSTGRES_ESCAPES='scadastore_pg_escapes;$TEST_USER;$TEST_PASSWORD'" \
      >>"$dir/test-env.sh"
  fi
  if maria_running; then
    cat >>"$dir/odbc.ini" <<INI
[scadastore_maria_no_escapes]
Driver=MariaDB
SERVER=127.0.0.1
PORT=$MARIA_PORT
DATABASE=$TEST_DB
CHARSET=utf8mb4
CONN_TIMEOUT=10
INITSTMT=SET sql_mode=CONCAT(@@sql_mode, ',NO_BACKSLASH_ESCAPES')
[scadastore_maria_gbk]
Driver=MariaDB
SERVER=127.0.0.1
PORT=$MARIA_PORT
DATABASE=$TEST_DB
CHARSET=gbk
CONN_TIMEOUT=10
INI
    {
      echo "export SCADASTORE_TEST_MARIADB_NO_ESCAPES='scadastore_maria_no_escapes;$TEST_USER;$TEST_PASSWORD'"
      echo "export SCADASTORE_TEST_MARIADB_GBK='scadastore_maria_gbk;$TEST_USER;$TEST_PASSWORD'"
    } >>"$dir/test-env.sh"
  fi
}

# The tests run hosts in a GBK locale; Debian generates none by default.
ensure_gbk_locale() {
  locale -a 2>/dev/null | grep -qi '^zh_CN\.gbk$' && return 0
  log "generating the zh_CN.GBK locale"
  localedef -i zh_CN -f GBK zh_CN.GBK || { error "localedef zh_CN.GBK failed"; return 1; }
}
