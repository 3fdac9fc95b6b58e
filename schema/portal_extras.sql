-- Optional additions to the portal's job tables. The daemon needs none of them and does not notice them.
--
-- Run it as the owner of the tables, once for each database. It can be run again: what is there stays.
--
--   created_at     when the job was inserted, or offered again: how long it has waited, without a server setting
--   unique index   the server refuses a second import of a rate table before the first one has ended
--   NOTIFY         channel qvn_job reports each job that is offered (status 0) and each that has ended (4 or 5)

ALTER TABLE rate_upload_task ADD COLUMN IF NOT EXISTS created_at timestamptz;
ALTER TABLE rerate_cdr_task ADD COLUMN IF NOT EXISTS created_at timestamptz;

-- The daemon's role needs no right on the column: a trigger writes it.
CREATE OR REPLACE FUNCTION qvn_job_offered() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
  NEW.created_at = clock_timestamp();
  RETURN NEW;
END $$;

-- The payload is the job table, the id and the status, for example "rate_upload_task 17 4".
CREATE OR REPLACE FUNCTION qvn_job_notify() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
  IF TG_OP = 'UPDATE' AND NEW.status = OLD.status THEN
    RETURN NULL;
  END IF;
  PERFORM pg_notify('qvn_job', format('%s %s %s', TG_TABLE_NAME, NEW.id, NEW.status));
  RETURN NULL;
END $$;

CREATE OR REPLACE TRIGGER qvn_insert BEFORE INSERT ON rate_upload_task
  FOR EACH ROW EXECUTE FUNCTION qvn_job_offered();
CREATE OR REPLACE TRIGGER qvn_insert BEFORE INSERT ON rerate_cdr_task
  FOR EACH ROW EXECUTE FUNCTION qvn_job_offered();
CREATE OR REPLACE TRIGGER qvn_offer BEFORE UPDATE ON rate_upload_task
  FOR EACH ROW WHEN (NEW.status = 0 AND OLD.status <> 0) EXECUTE FUNCTION qvn_job_offered();
CREATE OR REPLACE TRIGGER qvn_offer BEFORE UPDATE ON rerate_cdr_task
  FOR EACH ROW WHEN (NEW.status = 0 AND OLD.status <> 0) EXECUTE FUNCTION qvn_job_offered();

CREATE OR REPLACE TRIGGER qvn_notify AFTER INSERT OR UPDATE ON rate_upload_task
  FOR EACH ROW WHEN (NEW.status IN (0, 4, 5)) EXECUTE FUNCTION qvn_job_notify();
CREATE OR REPLACE TRIGGER qvn_notify AFTER INSERT OR UPDATE ON rerate_cdr_task
  FOR EACH ROW WHEN (NEW.status IN (0, 4, 5)) EXECUTE FUNCTION qvn_job_notify();

-- While a job stays at status 1, 2 or 3 after a crash, its rate table takes no other import: finish that job first.
CREATE UNIQUE INDEX IF NOT EXISTS rate_upload_task_one_per_rate_table ON rate_upload_task (rate_table_id)
  WHERE status < 4;
