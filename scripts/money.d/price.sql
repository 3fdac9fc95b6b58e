-- The same calls priced once more, from docs/billing.md and with exact numerics: scripts/money.
\set ON_ERROR_STOP on
SET client_min_messages = warning;
SET timezone = 'UTC';
SET jit = off;
SET work_mem = '256MB';
SELECT 'client_cdr' || replace(:'day', '-', '') AS day_table \gset

CREATE TABLE call AS
  SELECT session_id, side + 1 AS rate_table, to_timestamp(start_time_of_date / 1000000) AS began, call_duration::bigint AS duration,
         CASE side WHEN 0 THEN ingress_id ELSE egress_id END AS trunk,
         coalesce(CASE WHEN coalesce(ingress_dnis_type, 0) = 0 THEN routing_digits ELSE lrn_dnis END, '') AS number,
         coalesce(translation_ani, '') AS ani,
         CASE side WHEN 0 THEN ingress_rate_type ELSE egress_rate_type END AS own_type
  FROM :day_table, generate_series(0, 1) side;
ANALYZE call;

-- The record: the longest code that has one in force, and of that the oldest.
CREATE TABLE chosen AS
  SELECT DISTINCT ON (session_id, c.rate_table) c.*, r.*
  FROM call c CROSS JOIN LATERAL generate_series(1, least(length(number), (SELECT max(length(code)) FROM rate))) AS digits
  JOIN rate r ON r.rate_table_id = c.rate_table AND r.code = left(number, digits)
  LEFT JOIN time_profile t USING (time_profile_id)
  CROSS JOIN LATERAL (SELECT began + coalesce(left(t.time_zone, 3), '0')::integer * interval '1 hour' AS local) AS clock
  WHERE effective_date <= began AND (end_date IS NULL OR date_trunc('second', end_date) >= began)
    AND (time_profile_id IS NULL OR type = 3
         OR (local::time BETWEEN start_time AND end_time
             AND (type = 2 OR extract(isodow FROM local) BETWEEN start_week AND end_week)))
  ORDER BY session_id, c.rate_table, length(r.code) DESC, effective_date;
ANALYZE chosen;

-- The state of a number with the country's 1 in front: that of the exchange, or of the area.
CREATE TEMPORARY VIEW exchange AS SELECT prefix, jurisdiction_id AS state FROM jurisdiction_prefix WHERE length(prefix) = 7;
CREATE TEMPORARY VIEW area AS SELECT prefix, jurisdiction_id AS state FROM jurisdiction_prefix WHERE length(prefix) = 4;

CREATE TABLE priced AS
  SELECT *, CASE type WHEN 5 THEN local_rate WHEN 2 THEN intra_rate WHEN 1 THEN inter_rate ELSE rate END AS price,
         -- 16 bits of seconds are written; steps and units count by their low byte.
         CASE WHEN step = 0 OR unit IS NULL THEN 0 WHEN duration <= min_time THEN min_time
              ELSE (duration + step - 1) / step * step % 65536 END AS bill_time
  FROM (SELECT c.*, "interval" % 256 AS step, nullif(seconds % 256, 0) AS unit,
               CASE WHEN length(ani) NOT BETWEEN shortest AND longest THEN 3
                    WHEN own_type = 5 AND local_rate IS NOT NULL THEN 5
                    WHEN called IS NULL OR calling IS NULL THEN 3
                    WHEN called = calling THEN 2 ELSE 1 END AS type
        FROM (SELECT c.*, coalesce(ne.state, na.state) AS called, coalesce(ae.state, aa.state) AS calling,
                     CASE WHEN c.rate_table = 2 THEN 0 WHEN ani LIKE '1%' THEN 11 ELSE 10 END AS shortest,
                     CASE WHEN c.rate_table = 2 THEN 99 WHEN ani LIKE '1%' THEN 11 ELSE 10 END AS longest
              FROM chosen c CROSS JOIN LATERAL (SELECT CASE WHEN number LIKE '1%' THEN number ELSE '1' || number END AS n,
                                                       CASE WHEN ani LIKE '1%' THEN ani ELSE '1' || ani END AS a) f
              LEFT JOIN exchange ne ON ne.prefix = left(n, 7) LEFT JOIN area na ON na.prefix = left(n, 4)
              LEFT JOIN exchange ae ON ae.prefix = left(a, 7) LEFT JOIN area aa ON aa.prefix = left(a, 4)) c) c;

-- Six decimals as they are written: ties, which only singles with few bits have, go to the even digit.
CREATE FUNCTION six(amount double precision) RETURNS numeric LANGUAGE sql IMMUTABLE AS $$
  SELECT CASE WHEN abs(a % 1) = 0.5 THEN 2 * round(a / 2) ELSE round(a) END / 1e6 FROM (SELECT amount::numeric * 1e6 AS a) m
$$;
-- Drops all decimals but so many; "up" where the rounding asks for one more of the last kept decimal.
CREATE FUNCTION goes_up(amount numeric, decimals integer, rounding integer) RETURNS boolean LANGUAGE sql IMMUTABLE AS $$
  SELECT decimals BETWEEN 1 AND 5 AND CASE rounding WHEN 0 THEN amount > trunc(amount, decimals)
    WHEN 2 THEN amount - trunc(amount, decimals) >= 5 * 10::numeric ^ -(decimals + 1) ELSE false END
$$;

CREATE TABLE amounts AS
  SELECT *, CASE WHEN goes_up(exact, decimals, rounding) THEN step_up ELSE 0 END + trunc(exact, decimals) AS exact_cost,
         CASE WHEN decimals = 6 THEN single
              ELSE six((trunc(single, decimals)::float8
                        + CASE WHEN goes_up(single, decimals, rounding) THEN step_up::float8 ELSE 0 END)::real::float8)
         END AS single_cost
  FROM (SELECT p.*, rate_decimal AS decimals, rate_rounding AS rounding, 10::numeric ^ -rate_decimal AS step_up,
               CASE WHEN free THEN 0
                    ELSE round(coalesce(setup_fee, 0) + bill_time * price / unit, 6) END AS exact,
               CASE WHEN free THEN 0
                    ELSE six((coalesce(setup_fee, 0)::float8::real::float8
                              + bill_time::float8 / unit * price::float8::real::float8)::real::float8) END AS single
        FROM (SELECT *, duration < grace_time OR step = 0 OR unit IS NULL AS free FROM priced) p
        JOIN resource ON resource_id = trunk
        WHERE price >= 0.000001) a;

-- Side by side. A call without a price has a rate of -1, and its other columns as they were.
CREATE TABLE compared AS
  SELECT w.*, a.decimals, exact_cost,
         CASE WHEN a.session_id IS NULL
              THEN w.rate = -1 AND (w.bill_time, w.cost, w.minutes, w.rate_id, w.code) IS NOT DISTINCT FROM
                     (NULL::integer, NULL::numeric, NULL::numeric, NULL::integer, NULL::text)
              ELSE (w.rate, w.bill_time, w.rate_id, w.code, w.code_name, w.country, w.type, w.effective_date) =
                     (six(price::float8::real::float8), a.bill_time, a.rate_id, a.code, a.code_name, a.country, a.type,
                      extract(epoch FROM :'day'::timestamptz))
                   AND abs(w.rate - round(price, 6)) <= 0.000001 + price * 2 ^ -24
                   AND abs(w.minutes - coalesce(a.bill_time / unit::numeric, 0)) <= 0.000001 + w.minutes * 2 ^ -24
         END AS same,
         a.session_id IS NULL OR cost = single_cost AS explained,
         a.session_id IS NULL
           OR abs(cost - exact_cost) <= CASE WHEN a.decimals < 6 THEN step_up ELSE 0 END + 3 * 2 ^ -24 * exact_cost + 0.000001
           AS bounded,
         a.session_id IS NOT NULL AS is_priced, abs(cost - exact_cost) AS difference
  FROM (SELECT session_id, 1 AS rate_table, trunk, ingress_client_rate AS rate, ingress_client_cost AS cost,
               ingress_client_bill_time AS bill_time, ingress_bill_minutes AS minutes, ingress_rate_id AS rate_id,
               orig_code AS code, orig_code_name AS code_name, orig_country AS country, ingress_rate_type AS type,
               ingress_rate_effective_date AS effective_date FROM written WHERE trunk < 100
        UNION ALL
        SELECT session_id, 2, trunk, egress_rate, egress_cost, egress_bill_time, egress_bill_minutes, egress_rate_id,
               term_code, term_code_name, term_country, egress_rate_type, egress_rate_effective_date
        FROM written WHERE trunk > 100) w
  LEFT JOIN amounts a USING (session_id, rate_table, trunk);

\pset tuples_only on
\pset format unaligned
\pset fieldsep ' '
SELECT 'money_calls', count(*), 'priced sides of calls' FROM compared;
SELECT 'money_without_price', count(*), 'sides' FROM compared WHERE NOT is_priced;
SELECT 'money_other_than_exact', count(*), 'costs' FROM compared WHERE difference > 0;
SELECT 'money_not_explained', count(*), 'sides' FROM compared WHERE NOT (same AND explained AND bounded);
SELECT format('money_%s_decimals_%s', decimals, kind), value, unit FROM (
  SELECT decimals, count(*) AS priced, count(*) FILTER (WHERE difference > 0) AS other,
         count(*) FILTER (WHERE difference > 0 AND exact_cost < 16) AS small, max(difference) AS largest,
         sum(cost - exact_cost) / nullif(sum(exact_cost), 0) AS sum
  FROM compared WHERE is_priced GROUP BY decimals) f
CROSS JOIN LATERAL (VALUES (1, 'costs', priced::text, 'costs'), (2, 'other_than_exact', other::text, 'costs'),
  (3, 'other_than_exact_below_16', small::text, 'costs'), (4, 'largest_difference', trim_scale(largest)::text, 'units'),
  (5, 'error_of_the_sum', to_char(sum, '9.99EEEE'), 'ratio')) AS v (n, kind, value, unit)
ORDER BY decimals, n;
