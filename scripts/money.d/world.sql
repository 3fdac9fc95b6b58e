-- Random trunks, rates and calls: scripts/money.
\set ON_ERROR_STOP on
SET client_min_messages = warning;
SET timezone = 'UTC';
SELECT setseed(sin(:seed)) \g /dev/null
SELECT 'client_cdr' || replace(:'day', '-', '') AS day_table \gset

INSERT INTO resource (resource_id, alias, rate_decimal, rate_rounding)
  SELECT side * 100 + 1 + 3 * decimals + rounding, format('t%s%s%s', side, decimals, rounding), decimals, rounding
  FROM generate_series(0, 1) side, generate_series(0, 6) decimals, generate_series(0, 2) rounding;

-- Ten area codes to a state; the state of some exchanges is another one.
INSERT INTO jurisdiction_prefix (prefix, jurisdiction_id, jurisdiction_country_id)
  SELECT '1' || area, area / 10, 1 FROM generate_series(210, 259) area;
INSERT INTO jurisdiction_prefix (prefix, jurisdiction_id, jurisdiction_country_id)
  SELECT '1' || area || 555, 99, 1 FROM generate_series(210, 259, 7) area;
INSERT INTO rate_table (rate_table_id, name, jurisdiction_country_id, jurisdiction_prefix, prefix_min_length,
                        prefix_max_length, noprefix_min_length, noprefix_max_length)
  VALUES (1, 'customers', 1, '1', 11, 11, 10, 10), (2, 'carriers', 1, NULL, 0, 0, 0, 0);
INSERT INTO time_profile (time_profile_id, type, start_week, end_week, start_time, end_time, time_zone) VALUES
  (1, 1, 1, 3, '06:00:00', '21:29:59', '+0000'), (2, 1, 2, 5, '00:00:00', '23:59:59', '+0500'),
  (3, 2, 0, 0, '09:15:30', '17:45:29', '-0600'), (4, 2, 0, 0, '00:00:00', '11:59:59', '+0200'), (5, 3, 0, 0, NULL, NULL, '');

-- Codes within codes; of each up to three rates, one after the other or overlapping, with hours or without.
CREATE TABLE destination AS
  SELECT DISTINCT code FROM (
    SELECT '1' || area AS code FROM generate_series(210, 259) area
    UNION ALL SELECT left('1' || area || lpad(floor(1e4 * random())::text, 4, '0'), 5 + floor(4 * random())::integer)
      FROM generate_series(210, 259) area, generate_series(1, 30)
    UNION ALL SELECT left((20 + n % 80)::text || floor(1e4 * random()), 2 + n % 4) FROM generate_series(1, 400) n) c;
INSERT INTO rate (rate_table_id, code, code_name, country, effective_date, end_date, time_profile_id, rate, inter_rate,
                  intra_rate, local_rate, setup_fee, min_time, grace_time, seconds, "interval")
  SELECT rate_table, code, 'to ' || code, 'C' || left(code, 2), began,
         CASE WHEN random() < 0.3 THEN began + interval '20 days' * random() END,
         CASE WHEN random() < 0.4 THEN 1 + floor(5 * random()) END,
         price[1], price[2], price[3], CASE WHEN random() < 0.5 THEN price[4] END,
         CASE WHEN random() < 0.2 THEN round(random()::numeric, 3) END,
         (array[0, 0, 1, 6, 30, 45])[ceil(6 * random())], (array[0, 0, 0, 3, 10])[ceil(5 * random())],
         (array[60, 60, 60, 60, 1, 30, 7, 256])[ceil(8 * random())], (array[1, 1, 6, 30, 60, 60, 300])[ceil(7 * random())]
  FROM (
    SELECT rate_table, code, began, array_agg(CASE
             WHEN random() < 0.03 THEN NULL WHEN random() < 0.03 THEN 0
             WHEN random() < 0.02 THEN round((5000 * random())::numeric, 2)
             ELSE round((10 ^ (-3 + 3.5 * random()))::numeric, 3 + (4 * random())::integer) END) AS price
    FROM (SELECT rate_table, code, date_trunc('second', :'day'::timestamptz + interval '1 day' - interval '20 days'
                   * (generation - random())) AS began
          FROM destination, generate_series(1, 2) rate_table, generate_series(1, 3) generation
          WHERE generation < 3 OR random() < 0.4) AS dated, generate_series(1, 4)
    GROUP BY rate_table, code, began) AS offered;

-- Calls from and to the area codes, with the country's 1 or without, and to elsewhere.
CREATE TABLE :day_table (LIKE client_cdr INCLUDING ALL);
INSERT INTO :day_table (time, session_id, start_time_of_date, call_duration, ingress_id, egress_id, routing_digits, lrn_dnis,
                        ingress_dnis_type, translation_ani, ingress_rate_type, egress_rate_type)
  SELECT :'day'::timestamptz + interval '23:59:59', n, floor((extract(epoch FROM :'day'::timestamptz) + 86400 * random()) * 1e6),
         CASE WHEN random() < 0.001 THEN 60000 + 10000 * random() ELSE ceil(exp(7 * random())) END,
         1 + floor(21 * random()), 101 + floor(21 * random()),
         CASE WHEN random() < 0.7 THEN '1' || called ELSE (20 + floor(80 * random())) || called END,
         CASE WHEN random() < 0.9 THEN '1' || left(called, 3) || reverse(substr(called, 4)) END,
         (array[NULL, 0, 0, 1, 2])[ceil(5 * random())],
         CASE WHEN random() < 0.02 THEN left(caller, 8) WHEN random() < 0.02 THEN NULL WHEN random() < 0.5 THEN '1' || caller
              ELSE caller END,
         CASE WHEN random() < 0.2 THEN 5 END, CASE WHEN random() < 0.2 THEN 5 END
  FROM (SELECT n, (205 + floor(60 * random())) || lpad(floor(1e7 * random())::text, 7, '5') AS called,
               (205 + floor(60 * random())) || lpad(floor(1e7 * random())::text, 7, '5') AS caller
        FROM generate_series(1, :calls) n) AS call;
ANALYZE;

-- What the daemon writes goes here, with the trunk that the file is of.
CREATE TABLE written (LIKE client_cdr);
ALTER TABLE written ADD trunk integer;
