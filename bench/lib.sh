# shellcheck shell=bash
# What the benchmark scripts share, beside scripts/lib.sh. Sourced, not run.

# figure NAME VALUE UNIT
figure() { printf '%s %s %s\n' "$1" "$2" "$3"; }

# timed COMMAND...: its wall clock seconds.
timed() {
  local begin=$EPOCHREALTIME
  "$@" >/dev/null
  awk -v a="$begin" -v b="$EPOCHREALTIME" 'BEGIN { printf "%.3f\n", b - a }'
}
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f\n", a / b }'; }

# A private cluster with the server's ordinary settings, the release build's daemon, and database portal with triggers
# that keep each change of a job's row in table step.
bench_setup() {
  install_packages "${BUILD_PACKAGES[@]}"
  { configure release && build release programs; } >/dev/null
  make_work
  cluster_start
  create_database portal
  export PGDATABASE=portal
  keep_steps rate_upload_task
  keep_steps rerate_cdr_task
  daemon_install "$WORK/daemon"
  bench_daemon portal
}

# bench_daemon NAME...: starts the daemon for these databases.
bench_daemon() {
  rm -f "$WORK/daemon/log/"*
  daemon_databases "$WORK/daemon" "$@"
  daemon_start "$WORK/daemon"
}

# run_job TABLE STATEMENT: submits a job by the statement and waits for its end; the job table is TABLE.
run_job() {
  psql -Xqc "TRUNCATE step" -c "$2"
  wait_for_jobs "$1" 600 || die "the job does not end"
  [[ $(value "select status from $1 order by id desc limit 1") == 4 ]] ||
    die "the job failed: $(value "select progress from $1 order by id desc limit 1")"
}

# import_deck FILE: imports the file of WORK into rate table 1 of database portal.
import_deck() {
  run_job rate_upload_task "INSERT INTO rate_upload_task
    (upload_file_path, upload_format_file, rate_table_id, rate_date_format) VALUES ('$WORK', '$1', 1, 'YYYY-MM-DD')"
}

# wait_for_jobs TABLE SECONDS: until no job of the table waits or runs. One connection watches, so that it takes nothing
# from what is measured.
wait_for_jobs() {
  psql -Xq -v ON_ERROR_STOP=1 -c "SET statement_timeout = '$2s'" -c "DO \$\$
    BEGIN
      WHILE EXISTS (SELECT FROM $1 WHERE status < 4) LOOP
        COMMIT;
        PERFORM pg_sleep(0.1);
      END LOOP;
    END \$\$"
}

# memory FIELD: of the daemon's process, in kB.
memory() { awk -v field="$1:" '$1 == field { print $2 }' "/proc/$DAEMON_PID/status"; }

# Processor time of the daemon in clock ticks.
cpu_ticks() { awk '{ print $14 + $15 }' "/proc/$DAEMON_PID/stat"; }
