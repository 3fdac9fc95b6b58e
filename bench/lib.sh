# shellcheck shell=bash
# What the benchmark scripts share, beside scripts/lib.sh. Sourced, not run.

# figure NAME VALUE UNIT
figure() { printf '%s %s %s\n' "$1" "$2" "$3"; }

# A private cluster with the server's ordinary settings, the release build's daemon, and database portal with a trigger
# that keeps each change of a job's row in table step.
bench_setup() {
  install_packages "${BUILD_PACKAGES[@]}"
  { configure release && build release qvn_web_helper; } >/dev/null
  make_work
  cluster_start
  create_database portal
  export PGDATABASE=portal
  psql -Xq <<'SQL'
CREATE TABLE step (job integer, at timestamptz, status integer, progress text);
CREATE FUNCTION keep_step() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
  INSERT INTO step VALUES (NEW.id, clock_timestamp(), NEW.status, NEW.progress);
  RETURN NEW;
END $$;
CREATE TRIGGER keep_step AFTER UPDATE ON rate_upload_task FOR EACH ROW EXECUTE FUNCTION keep_step();
SQL
  daemon_install "$WORK/daemon"
  bench_daemon portal
}

# bench_daemon NAME...: starts the daemon for these databases.
bench_daemon() {
  rm -f "$WORK/daemon/log/"*
  daemon_databases "$WORK/daemon" "$@"
  daemon_start "$WORK/daemon"
}

# run_job FILE: imports the file of WORK into rate table 1 of database portal and waits for its end.
run_job() {
  psql -Xqc "TRUNCATE step" -c "INSERT INTO rate_upload_task
    (upload_file_path, upload_format_file, rate_table_id, rate_date_format) VALUES ('$WORK', '$1', 1, 'YYYY-MM-DD')"
  wait_for 600 no_job_waits_or_runs || die "the job does not end"
  [[ $(value "select status from rate_upload_task order by id desc limit 1") == 4 ]] ||
    die "the job failed: $(value "select progress from rate_upload_task order by id desc limit 1")"
}

no_job_waits_or_runs() { [[ $(value "select count(*) from rate_upload_task where status < 4") == 0 ]]; }

# memory FIELD: of the daemon's process, in kB.
memory() { awk -v field="$1:" '$1 == field { print $2 }' "/proc/$DAEMON_PID/status"; }

# Processor time of the daemon in clock ticks.
cpu_ticks() { awk '{ print $14 + $15 }' "/proc/$DAEMON_PID/stat"; }
