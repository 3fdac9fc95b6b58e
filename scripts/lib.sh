# shellcheck shell=bash
# What scripts/, bench/ and .ci/run share. Sourced, not run.
#
# Sets QVN_ROOT (the repository) and WORK (a temporary folder that is gone when the script ends, whatever way it ends,
# together with the private PostgreSQL cluster and the daemon that the script started).

set -euo pipefail

QVN_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# What building and testing takes; .ci/run adds the clang tools.
# shellcheck disable=SC2034 # used by those who source this
BUILD_PACKAGES=(g++ cmake ninja-build libpq-dev libgtest-dev libgmock-dev libbenchmark-dev postgresql)

say() { printf '\n%s== %s%s\n' "$BOLD" "$*" "$PLAIN"; }
die() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

if [[ -t 1 ]]; then
  BOLD=$'\e[1m' PLAIN=$'\e[0m'
else
  BOLD='' PLAIN=''
fi

as_root() {
  if [[ $EUID -eq 0 ]]; then "$@"; else sudo "$@"; fi
}

# install_packages NAME...: installs the Debian packages that are missing, and does nothing when none is.
install_packages() {
  local package missing=()
  for package in "$@"; do
    dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
  done
  [[ ${#missing[@]} -eq 0 ]] && return
  command -v apt-get >/dev/null || die "please install: ${missing[*]}"
  [[ $EUID -eq 0 ]] || command -v sudo >/dev/null || die "please install as root: ${missing[*]}"

  say "Installing ${missing[*]}"
  as_root apt-get -qq update
  if [[ " ${missing[*]} " == *" postgresql "* ]]; then
    install_postgresql
  fi
  apt_install "${missing[@]}"
}

# apt-get is chatty on a bare machine; what it says is shown when it fails.
apt_install() {
  local said
  said=$(as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -y install --no-install-recommends "$@" 2>&1) && return
  printf '%s\n' "$said" >&2
  return 1
}

# Debian's server package makes a cluster of its own and starts it on port 5432. It is not wanted here: it is
# switched off while the package is installed, and the setting is put back for whoever wants a cluster later.
install_postgresql() {
  local settings=/etc/postgresql-common/createcluster.conf rc=0
  apt_install postgresql-common
  as_root cp -p "$settings" "$settings.qvn-saved"
  echo 'create_main_cluster = false' | as_root tee -a "$settings" >/dev/null
  apt_install postgresql || rc=$?
  as_root mv "$settings.qvn-saved" "$settings"
  return "$rc"
}

# configure PRESET and build PRESET [TARGET]. Warnings are errors where CI=true.
configure() {
  local werror=OFF
  [[ ${CI:-} == true ]] && werror=ON
  (cd "$QVN_ROOT" && cmake --preset "$1" -DQVN_WERROR="$werror")
}

build() {
  (cd "$QVN_ROOT" && cmake --build --preset "$1" --parallel "$(nproc)" ${2:+--target "$2"})
}

# --- temporary folder --------------------------------------------------------------------------------------------------

DAEMON_HOME=''  # installation of the started daemon
DAEMON_PID=''   # its process
PG_DATA=''      # data folder of the started cluster
HELPERS=()      # further processes to end

make_work() {
  WORK=$(mktemp -d "${TMPDIR:-/tmp}/qvn-${0##*/}.XXXXXX")
  chmod 755 "$WORK"
  trap clean_up EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM HUP
}

clean_up() {
  local rc=$?
  trap - EXIT
  [[ ${#HELPERS[@]} -eq 0 ]] || kill "${HELPERS[@]}" || true
  daemon_stop || true
  cluster_stop || true
  rm -rf "$WORK"
  exit "$rc"
}

# wait_for SECONDS COMMAND...: repeats the command until it succeeds, or fails when the time is over.
wait_for() {
  local deadline=$((SECONDS + $1))
  shift
  until "$@"; do
    ((SECONDS < deadline)) || return 1
    sleep 0.1
  done
}

# --- private PostgreSQL cluster ------------------------------------------------------------------------------------------

# The server refuses to run as root.
as_server() {
  (
    cd "$WORK"
    if [[ $EUID -eq 0 ]]; then runuser -u postgres -- "$@"; else "$@"; fi
  )
}

# free_port: a port of 127.0.0.1 that is free at this moment.
free_port() {
  local port
  for port in $(shuf -i 20000-29999 -n 20); do
    port_is_taken "$port" || break
  done
  echo "$port"
}

port_is_taken() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

# cluster_start [SERVER OPTION...]: makes a cluster below WORK, in folder CLUSTER or pg, and starts it on a free port.
# psql and the like find it through the environment; DB_HOST, DB_PORT, DB_USER and DB_PASSWORD say it to the daemon.
# Several clusters have one user and password.
cluster_start() {
  local bin folder=$WORK/${CLUSTER:-pg}
  bin=$(pg_config --bindir)
  [[ -x $bin/initdb ]] || die "no PostgreSQL server in $bin"
  PG_CTL=$bin/pg_ctl
  DB_HOST=127.0.0.1 DB_USER=portal DB_PASSWORD=${DB_PASSWORD:-$(od -An -N12 -tx1 /dev/urandom | tr -d ' \n')}

  mkdir "$folder"
  printf '%s\n' "$DB_PASSWORD" >"$folder/password"
  [[ $EUID -ne 0 ]] || chown -R postgres: "$folder"
  as_server "$bin/initdb" -D "$folder/data" -U "$DB_USER" -A scram-sha-256 --pwfile="$folder/password" \
    -E UTF8 --no-locale --no-sync >"$WORK/initdb.log" || die "initdb failed: $(cat "$WORK/initdb.log")"
  rm "$folder/password"

  for _ in 1 2 3 4 5; do
    DB_PORT=$(free_port)
    PG_DATA=$folder/data
    if as_server "$PG_CTL" -D "$PG_DATA" -l "$folder/server.log" -w -s start \
      -o "-p $DB_PORT -c listen_addresses=$DB_HOST -c unix_socket_directories=$folder $*"; then
      export PGHOST=$DB_HOST PGPORT=$DB_PORT PGUSER=$DB_USER PGPASSWORD=$DB_PASSWORD PGDATABASE=postgres
      return
    fi
    PG_DATA=''
  done
  die "PostgreSQL does not start: $(tail -n 3 "$folder/server.log")"
}

# cluster_stop: all that run.
cluster_stop() {
  local data
  [[ -n ${WORK:-} ]] || return 0
  for data in "$WORK"/*/data; do
    [[ ! -f $data/postmaster.pid ]] || as_server "$PG_CTL" -D "$data" -m immediate -w -s stop
  done
  PG_DATA=''
}

# create_database NAME: makes it with the portal's tables.
create_database() {
  psql -Xqc "CREATE DATABASE $1"
  psql -Xq -v ON_ERROR_STOP=1 -d "$1" -f "$QVN_ROOT/schema/portal.sql"
}

# value SQL...: the statement's only value.
value() { psql -XAtqc "$1"; }

# keep_steps TABLE: from now on a trigger keeps each state of the job table's rows in table step.
keep_steps() {
  psql -Xq <<SQL
SET client_min_messages = warning;
CREATE TABLE IF NOT EXISTS step (id serial, job integer, at timestamptz, status integer, progress text);
CREATE OR REPLACE FUNCTION keep_step() RETURNS trigger LANGUAGE plpgsql AS \$\$
BEGIN
  INSERT INTO step (job, at, status, progress) VALUES (NEW.id, clock_timestamp(), NEW.status, NEW.progress);
  RETURN NEW;
END \$\$;
CREATE TRIGGER keep_step AFTER INSERT OR UPDATE ON $1 FOR EACH ROW EXECUTE FUNCTION keep_step();
SQL
}

# --- the daemon ------------------------------------------------------------------------------------------------------------

# daemon_install FOLDER: the release build, installed into FOLDER, with a free port for its console.
daemon_install() {
  cmake --install "$QVN_ROOT/build/release" --prefix "$1" >/dev/null
  CONSOLE_PORT=$(free_port)
  sed -i "s/^cli_listen_port=.*/cli_listen_port=$CONSOLE_PORT/" "$1/conf/qvn_web_helper.conf"
}

# daemon_databases FOLDER NAME[@PORT]...: writes the list of the databases to serve, the cluster's but for those with a
# port of their own.
daemon_databases() {
  local folder=$1 entry name port
  shift
  for entry in "$@"; do
    name=${entry%@*} port=$DB_PORT
    [[ $entry != *@* ]] || port=${entry#*@}
    printf '[%s]\ndb_host=%s\ndb_listen_port=%s\ndb_name=%s\ndb_user=%s\ndb_user_password=%s\n' \
      "$name" "$DB_HOST" "$port" "$name" "$DB_USER" "$DB_PASSWORD"
  done >"$folder/conf/qvn_db_info.conf"
}

# daemon_start FOLDER: starts the installed daemon and waits until its modules run; DAEMON_PID is its process.
# With TZ=UTC midnight of a deck's dates is midnight UTC, as the dates are written to the database.
daemon_start() {
  TZ=UTC "$1/qvn_web_helper" 2>/dev/null || die "the daemon does not start"
  DAEMON_HOME=$1
  DAEMON_LOG=$1/log/qvn_web_helper.log
  wait_for 10 grep -qs 'Start running' "$DAEMON_LOG" || die "the daemon does not start: $(tail -n 5 "$DAEMON_LOG")"
  DAEMON_PID=$(head -n 1 "$1/run/qvn_web_helper.pid")
}

# A zombie whose parent has not waited for it yet is gone as well.
daemon_is_gone() { ! readlink -q "/proc/$DAEMON_PID/exe" >/dev/null; }

# daemon_stop: asks the daemon to end, as an operator does, and waits until it has.
daemon_stop() {
  [[ -n $DAEMON_HOME ]] || return 0
  "$DAEMON_HOME/qvn_web_helper" -kill
  DAEMON_HOME=''
  [[ -n $DAEMON_PID ]] || return 0
  wait_for 10 daemon_is_gone && return
  kill -KILL "$DAEMON_PID"
  echo "the daemon did not end within 10 seconds" >&2
  return 1
}
