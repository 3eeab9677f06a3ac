# shellcheck shell=bash
# Throw-away clusters on loopback for the failover and several-writer tests.
# Sourced after servers.sh (its ports, users, logs and stop helpers).
#
#   start_galera DIR        three MariaDB Galera nodes on 127.0.0.1, ports of their own
#   start_pgpair DIR        a PostgreSQL primary on 127.0.0.1 and a streaming standby on
#                           127.0.0.2, one port, synchronous replication
#   stop_cluster DIR        stops every server DIR records, by its process id
#   node_start DIR N        (re)starts node N of the cluster that DIR records
#   node_signal DIR N SIG   signals node N's server and its children (KILL, STOP, CONT)
#   pg_promote DIR N        promotes node N, the standby
#   pg_standby DIR N P      node N (stopped) starts again as the standby of node P
#   write_cluster_odbc DIR  DIR/odbc.ini (the test data sources plus the cluster's),
#                           DIR/odbcinst.ini and DIR/cluster-env.sh
#
# DIR/cluster.env records the cluster: CLUSTER (galera or pg), PORT_1.. and the
# data directories DIR/node1.. Every function returns non-zero on failure.

GALERA_PROVIDER=${GALERA_PROVIDER:-/usr/lib/galera/libgalera_smm.so}

cluster_state() {
  # shellcheck disable=SC1091
  [ -f "$1/cluster.env" ] && source "$1/cluster.env"
}

# --- Galera -------------------------------------------------------------------------

galera_ping() {
  mariadb --no-defaults --connect-timeout=2 -h127.0.0.1 -P"$1" -u"$TEST_USER" -p"$TEST_PASSWORD" \
    -Nse "show status like 'wsrep_local_state_comment'" 2>/dev/null | grep -q Synced
}

# galera_node DIR N BOOTSTRAP: starts node N in the background and waits until it is Synced.
galera_node() {
  local dir=$1 n=$2 bootstrap=$3 node=$1/node$2 address='' i port gport pid
  for i in 1 2 3; do
    gport=GPORT_$i
    address+=${address:+,}127.0.0.1:${!gport}
  done
  port=PORT_$n gport=GPORT_$n
  local ist=IST_$n sst=SST_$n
  local first=()
  [ "$bootstrap" = true ] && address='' && first=(--wsrep-new-cluster)
  setsid mariadbd --no-defaults --user=mysql --datadir="$node/data" \
    --socket="$node/mysqld.sock" --pid-file="$node/mysqld.pid" --port="${!port}" \
    --skip-networking=0 --bind-address=127.0.0.1 --skip-name-resolve \
    --innodb-flush-log-at-trx-commit=0 --innodb-buffer-pool-size=48M \
    --character-set-server=utf8mb4 --collation-server=utf8mb4_general_ci \
    --binlog-format=ROW --default-storage-engine=InnoDB --innodb-autoinc-lock-mode=2 \
    --wsrep-on=ON --wsrep-provider="$GALERA_PROVIDER" --wsrep-cluster-name=scadastore \
    --wsrep-cluster-address="gcomm://$address" --wsrep-node-name="node$n" \
    --wsrep-node-address="127.0.0.1:${!gport}" --wsrep-sst-method=rsync \
    --wsrep-sst-receive-address="127.0.0.1:${!sst}" \
    --wsrep-provider-options="gmcast.listen_addr=tcp://127.0.0.1:${!gport};ist.recv_addr=127.0.0.1:${!ist};evs.keepalive_period=PT0.5S;evs.suspect_timeout=PT2S;evs.inactive_timeout=PT4S;evs.install_timeout=PT4S;gcache.size=64M" \
    "${first[@]}" --log-error="$node/error.log" </dev/null >/dev/null 2>&1 &
  pid=$!
  for _ in $(seq 1 1200); do   # 120 s
    galera_ping "${!port}" && return 0
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  error "Galera node $n did not reach Synced on 127.0.0.1:${!port}"
  show_log_tail "$node/error.log"
  return 1
}

start_galera() {
  local dir=$1 n
  mkdir -p "$dir" && chown mysql: "$dir" || return 1
  {
    echo CLUSTER=galera
    for n in 1 2 3; do
      for kind in PORT GPORT IST SST; do free_port || return 1; echo "${kind}_$n=$FREE_PORT"; done
    done
  } >"$dir/cluster.env"
  cluster_state "$dir"
  write_maria_init "$dir/init.sql" || return 1
  mkdir -p "$dir/node1" && chown mysql: "$dir/node1" || return 1
  mariadb-install-db --no-defaults --user=mysql --datadir="$dir/node1/data" \
    --auth-root-authentication-method=socket --skip-test-db --skip-name-resolve \
    --extra-file="$dir/init.sql" >"$dir/install.log" 2>&1 \
    || { error "mariadb-install-db failed"; show_log_tail "$dir/install.log"; return 1; }
  # Joiners start from the same files and take the rest by state transfer.
  for n in 2 3; do cp -a "$dir/node1" "$dir/node$n" || return 1; done
  galera_node "$dir" 1 true || return 1
  galera_node "$dir" 2 false && galera_node "$dir" 3 false
}

# --- PostgreSQL primary and standby ---------------------------------------------------

# pg_node DIR N: starts node N (1 on 127.0.0.1, 2 on 127.0.0.2), one port.
pg_node() {
  local dir=$1 n=$2 bin
  bin=$(postgres_bin) || return 1
  as_user postgres "$bin/pg_ctl" -D "$dir/node$n/data" -l "$dir/node$n/server.log" -w -t 60 \
    -o "-c listen_addresses=127.0.0.$n -p $PORT_1 -k $dir/node$n -c fsync=off -c full_page_writes=off" \
    start >>"$dir/node$n/pg_ctl.log" 2>&1 \
    || { error "PostgreSQL node $n did not start"; show_log_tail "$dir/node$n/server.log"; return 1; }
}

start_pgpair() {
  local dir=$1 bin
  bin=$(postgres_bin) || { error "PostgreSQL is not installed (no initdb)"; return 1; }
  mkdir -p "$dir/node1" "$dir/node2" && chown -R postgres: "$dir" || return 1
  free_port || return 1
  printf 'CLUSTER=pg\nPORT_1=%s\n' "$FREE_PORT" >"$dir/cluster.env"
  cluster_state "$dir"
  printf '%s\n' "$TEST_PASSWORD" >"$dir/pwfile" && chown postgres: "$dir/pwfile"
  as_user postgres "$bin/initdb" -D "$dir/node1/data" -U "$TEST_USER" --pwfile="$dir/pwfile" \
    -A scram-sha-256 -E UTF8 --locale=C.UTF-8 --no-sync >"$dir/initdb.log" 2>&1 \
    || { error "initdb failed"; show_log_tail "$dir/initdb.log"; return 1; }
  {
    echo "host replication all 127.0.0.0/8 scram-sha-256"
    echo "host all all 127.0.0.0/8 scram-sha-256"
  } >>"$dir/node1/data/pg_hba.conf"
  pg_node "$dir" 1 || return 1
  env PGPASSWORD="$TEST_PASSWORD" "$bin/createdb" -w -h 127.0.0.1 -p "$PORT_1" -U "$TEST_USER" \
    "$TEST_DB" >>"$dir/node1/pg_ctl.log" 2>&1 || { error "createdb failed"; return 1; }
  pg_standby "$dir" 2 1
}

# pg_standby DIR N PRIMARY: node N, from a fresh copy of node PRIMARY, becomes
# its synchronous standby.
pg_standby() {
  local dir=$1 n=$2 primary=$3 bin
  cluster_state "$dir" && bin=$(postgres_bin) || return 1
  rm -rf "$dir/node$n/data"
  as_user postgres env PGPASSWORD="$TEST_PASSWORD" "$bin/pg_basebackup" -w -h "127.0.0.$primary" \
    -p "$PORT_1" -U "$TEST_USER" -D "$dir/node$n/data" -R -c fast >"$dir/basebackup.log" 2>&1 \
    || { error "pg_basebackup failed"; show_log_tail "$dir/basebackup.log"; return 1; }
  echo "primary_conninfo = 'host=127.0.0.$primary port=$PORT_1 user=$TEST_USER password=$TEST_PASSWORD application_name=standby'" \
    >>"$dir/node$n/data/postgresql.auto.conf"
  pg_node "$dir" "$n" || return 1
  # From now on a commit returns only once the standby has it: no acknowledged
  # write is lost when the primary dies and the standby is promoted.
  printf "synchronous_standby_names = '*'\nsynchronous_commit = on\n" \
    >>"$dir/node$primary/data/postgresql.conf"
  as_user postgres "$bin/pg_ctl" -D "$dir/node$primary/data" reload >/dev/null
}

# --- both -----------------------------------------------------------------------------

node_pid() {
  local dir=$1 n=$2
  cluster_state "$dir"
  if [ "$CLUSTER" = galera ]; then live_pid "$dir/node$n/mysqld.pid"
  else live_pid "$dir/node$n/data/postmaster.pid"; fi
}

node_start() {
  local dir=$1 n=$2
  cluster_state "$dir" || return 1
  node_pid "$dir" "$n" >/dev/null && return 0
  if [ "$CLUSTER" = galera ]; then galera_node "$dir" "$n" false; else pg_node "$dir" "$n"; fi
}

# node_signal DIR N SIGNAL: node N's server and its children (PostgreSQL's
# backends: left running, they would keep serving their sessions).
node_signal() {
  local pid
  pid=$(node_pid "$1" "$2") || return 1
  # shellcheck disable=SC2046
  kill -"$3" "$pid" $(ps -o pid= --ppid "$pid") 2>/dev/null
  # Gone, its sockets closed, when a kill returns.
  [ "$3" != KILL ] || wait_gone_or_kill "$pid" 10
}

pg_promote() {
  as_user postgres "$(postgres_bin)/pg_ctl" -D "$1/node$2/data" -w promote >/dev/null
}

# Stops each node by its process id (a frozen one is woken first), then
# removes DIR's data.
stop_cluster() {
  local dir=$1 n pid
  [ -f "$dir/cluster.env" ] || return 0
  for n in 1 2 3; do
    pid=$(node_pid "$dir" "$n") || continue
    kill -CONT "$pid" 2>/dev/null
    kill -TERM "$pid" 2>/dev/null
    wait_gone_or_kill "$pid" 20
  done
  case "$dir" in */cluster-galera|*/cluster-pg) rm -rf "$dir" ;; esac
}

write_cluster_odbc() {
  local dir=$1 build=$2 name
  cluster_state "$dir" || return 1
  [ -f "$build/odbcinst.ini" ] || write_odbc_files "$build" "$build/test-servers" || return 1
  cp "$build/odbcinst.ini" "$dir/odbcinst.ini" && cp "$build/odbc.ini" "$dir/odbc.ini" || return 1
  if [ "$CLUSTER" = galera ]; then
    name=SCADASTORE_TEST_GALERA
    cat >>"$dir/odbc.ini" <<INI
[scadastore_galera]
Driver=MariaDB
SERVER=127.0.0.1:$PORT_1,127.0.0.1:$PORT_2,127.0.0.1:$PORT_3
DATABASE=$TEST_DB
USER=$TEST_USER
PASSWORD=$TEST_PASSWORD
CHARSET=utf8mb4
CONN_TIMEOUT=3
[scadastore_galera_node2]
Driver=MariaDB
SERVER=127.0.0.1
PORT=$PORT_2
DATABASE=$TEST_DB
USER=$TEST_USER
PASSWORD=$TEST_PASSWORD
CHARSET=utf8mb4
CONN_TIMEOUT=3
INI
  else
    name=SCADASTORE_TEST_PGPAIR
    cat >>"$dir/odbc.ini" <<INI
[scadastore_pgpair]
Driver=PostgreSQL ANSI
Servername=127.0.0.2,127.0.0.1
Port=$PORT_1
Database=$TEST_DB
Username=$TEST_USER
Password=$TEST_PASSWORD
pqopt=target_session_attrs=read-write
[scadastore_pg_standby]
Driver=PostgreSQL ANSI
Servername=127.0.0.2
Port=$PORT_1
Database=$TEST_DB
Username=$TEST_USER
Password=$TEST_PASSWORD
INI
  fi
  {
    grep -v 'ODBCSYSINI\|ODBCINI' "$build/test-env.sh"
    printf 'export ODBCSYSINI=%q ODBCINI=%q\n' "$dir" "$dir/odbc.ini"
    printf 'export SCADASTORE_CLUSTER=%q\n' "$(cd "$build/.." && pwd)/scripts/cluster"
    if [ "$CLUSTER" = galera ]; then
      echo "export $name='scadastore_galera;;' ${name}_SECOND='scadastore_galera_node2;;'"
    else
      echo "export $name='scadastore_pgpair;;' ${name}_STANDBY='scadastore_pg_standby;;'"
    fi
  } >"$dir/cluster-env.sh"
}

# cluster_stage ROOT: the failover and several-writer tests of build/ on each
# cluster in turn (up, ctest -L cluster, down); non-zero when one fails.
cluster_stage() {
  local root=$1 cluster status=0
  for cluster in pg galera; do
    "$root/scripts/cluster" up "$cluster" || { status=1; continue; }
    # shellcheck disable=SC1090
    ( source "$root/build/cluster-$cluster/cluster-env.sh" &&
      ctest --test-dir "$root/build" --output-on-failure -L cluster -R "${cluster}" \
        --timeout 600 --no-tests=error ) || status=1
    "$root/scripts/cluster" down "$cluster" >/dev/null
  done
  return $status
}
