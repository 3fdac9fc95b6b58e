-- The portal of the memory sweeps. submit_import() and submit_rerate() make each job the same as the one before,
-- import_shown and rerate_shown show how it ended.

-- The server lets the daemon in without the many thousand allocations by which it would prove its password.
DO $$ BEGIN
  EXECUTE format('COPY (SELECT ''host all all 127.0.0.1/32 trust'') TO %L', current_setting('hba_file'));
  PERFORM pg_reload_conf();
END $$;

INSERT INTO code (code, code_deck_id, country, name) VALUES
  ('44', 1, 'United Kingdom', 'United Kingdom proper'),
  ('4', 1, 'World zone 4', 'Other countries of zone 4');

-- The price of a call hangs on trunk, time profile and jurisdiction.
INSERT INTO rate_table (rate_table_id, name, jurisdiction_country_id, jurisdiction_prefix) VALUES (1, 'deck', 1, '1');
INSERT INTO resource (resource_id, alias, rate_decimal, rate_rounding) VALUES
  (1, 'a_trunk_with_a_name_that_takes_memory', 3, 0),
  (2, 'a_trunk_with_a_name_that_takes_memory', 4, 0);
INSERT INTO rate (rate_table_id, code, code_name, country, rate, inter_rate, intra_rate, time_profile_id,
                  seconds, interval, min_time, grace_time, setup_fee, effective_date) VALUES
  (1, '44', 'UK', 'Britain', 0.1234567, NULL, NULL, 1, 60, 6, 0, 0, 0, '2026-01-01 00:00:00+00'),
  (1, '44', 'UK', 'Britain', 0.7, 0.7, 0.7, NULL, 60, 6, 0, 0, 0, '2026-01-01 00:00:00+00'),
  (1, '1213', 'UK', 'Britain', 0.1, 0.0123456, NULL, NULL, 60, 6, 0, 0, 0, '2026-01-01 00:00:00+00');
INSERT INTO time_profile VALUES (1, 'day', 2, 1, 7, '00:00:00', '23:59:59', '+0000');
INSERT INTO jurisdiction_prefix VALUES (1, '1212', 1, 1), (2, '1213', 2, 1);

CREATE TABLE client_cdr20260301 (LIKE client_cdr INCLUDING ALL);
CREATE TABLE client_cdr20260302 (LIKE client_cdr INCLUDING ALL);
INSERT INTO client_cdr20260301 (time, session_id, start_time_of_date, routing_digits, call_duration, ingress_id, egress_id,
                                translation_ani)
  SELECT '2026-03-01 12:00:00+00', 's', '1772366400000000', number, seconds, 1, 2, '12125550001'
  FROM (VALUES ('442012345678', 60), ('442012345678', 77), ('99', 60), ('12135550000', 60)) AS call (number, seconds);
INSERT INTO client_cdr20260302 SELECT * FROM client_cdr20260301;
UPDATE client_cdr20260302 SET time = '2026-03-02 12:00:00+00';

CREATE FUNCTION submit_import(job integer, folder text) RETURNS void LANGUAGE sql AS $$
  INSERT INTO rate (rate_table_id, code, rate, effective_date) VALUES
    (job, '33', 1, '2020-01-01 00:00:00+00'),
    (job, '44', 9, '2020-01-01 00:00:00+00'),
    (job, '49', 9, '2024-03-01 00:00:00+00');
  INSERT INTO rate_upload_task (id, upload_file_path, upload_format_file, rate_table_id, rate_date_format,
                                reduplicate_rate_action, code_deck_flag) VALUES
    (job, folder, 'memory_deck.csv', job, 'YYYY-MM-DD', 1, 1);
$$;

CREATE VIEW import_shown AS
  SELECT id, status, progress, result_file_path AS folder, (
    SELECT string_agg(code || '=' || trim_scale(rate) || coalesce(' until ' || (end_date AT TIME ZONE 'UTC'), ''), ', '
                      ORDER BY code, effective_date, rate_id)
    FROM rate WHERE rate.rate_table_id = rate_upload_task.rate_table_id) AS result
  FROM rate_upload_task;

CREATE FUNCTION submit_rerate(job integer, folder text) RETURNS void LANGUAGE sql AS $$
  INSERT INTO rerate_cdr_task (id, from_time, to_time, update_us_jurisdiction, ingress_trunk, egress_trunk) VALUES
    (job, 1772323200, 1772495999, 1, '1,1,1,0', '2,1,1,1772323200');
$$;

CREATE VIEW rerate_shown AS
  SELECT id, status, progress, cdr_file_path AS folder, cdr_file AS result FROM rerate_cdr_task;
