-- Shows what a rerating changed: the calls as they were billed, in the day's table, beside those of the CDR files, in
-- tables rerated_ingress and rerated_egress.
--
--   psql -v day_table=client_cdr20260131 -f show_rerated.sql
\set ON_ERROR_STOP on
\pset footer off
\pset null ''
SET timezone = 'UTC';

CREATE TEMPORARY VIEW both_prices AS
  SELECT 'ingress' AS side, ingress_id AS trunk, session_id, new.call_duration AS seconds,
         to_timestamp(new.start_time_of_date / 1000000) AS began, new.routing_digits AS dialled, rate_id, new.orig_code_name,
         min_time, time_profile_id, new.ingress_rate_type AS type,
         old.ingress_client_rate AS old_rate, old.ingress_client_bill_time AS old_billed, old.ingress_client_cost AS old_cost,
         new.ingress_client_rate AS new_rate, new.ingress_client_bill_time AS new_billed, new.ingress_client_cost AS new_cost
  FROM rerated_ingress new JOIN :day_table old USING (session_id, ingress_id)
  LEFT JOIN rate ON rate_id = new.ingress_rate_id AND new.ingress_client_rate >= 0
  UNION ALL
  SELECT 'egress', egress_id, session_id, new.call_duration, to_timestamp(new.start_time_of_date / 1000000),
         new.routing_digits, rate_id, new.term_code_name, min_time, time_profile_id, new.egress_rate_type,
         old.egress_rate, old.egress_bill_time, old.egress_cost, new.egress_rate, new.egress_bill_time, new.egress_cost
  FROM rerated_egress new JOIN :day_table old USING (session_id, egress_id)
  LEFT JOIN rate ON rate_id = new.egress_rate_id AND new.egress_rate >= 0;

\echo 'Two calls of each kind, on the side of the customers (ingress):'
WITH kinds AS (
  SELECT *, CASE WHEN new_rate < 0 AND old_rate IS NULL THEN '8 never had a price'
                 WHEN new_rate < 0 THEN '7 no price any more'
                 WHEN type = 1 THEN '5 between US states'
                 WHEN type = 2 THEN '6 within a US state'
                 WHEN seconds < min_time THEN '4 minimum time'
                 WHEN time_profile_id = 1 THEN '2 peak'
                 WHEN time_profile_id > 1 THEN '3 off-peak'
                 ELSE '1 any hour' END AS kind
  FROM both_prices WHERE side = 'ingress'
), numbered AS (
  SELECT *, row_number() OVER (PARTITION BY kind ORDER BY session_id) AS number FROM kinds
)
SELECT substr(kind, 3) AS "kind of call", dialled, left(orig_code_name, 26) AS destination,
       to_char(began, 'HH24:MI') AS began, seconds, round(old_rate, 4) AS "old rate", old_billed AS "billed s",
       round(old_cost, 5) AS "old cost", CASE WHEN new_rate < 0 THEN -1 ELSE round(new_rate, 4) END AS "new rate",
       new_billed AS "billed s", round(new_cost, 5) AS "new cost"
FROM numbered WHERE number <= 2 ORDER BY kind, session_id;

\echo 'A call without a price gets the rate -1 and keeps its other columns. A zero price is written in the same way.'
\echo
\echo 'Totals of each trunk, without the calls that have no price:'
SELECT side, coalesce(alias, 'all') AS trunk, count(*) AS calls, count(*) FILTER (WHERE new_rate < 0) AS "without price",
       round(sum(old_cost) FILTER (WHERE new_rate >= 0), 4) AS "old total",
       round(sum(new_cost) FILTER (WHERE new_rate >= 0), 4) AS "new total",
       to_char(100 * (sum(new_cost) FILTER (WHERE new_rate >= 0) / sum(old_cost) FILTER (WHERE new_rate >= 0) - 1),
               'FMS990.0') || ' %' AS change
FROM both_prices JOIN resource ON resource_id = trunk
GROUP BY GROUPING SETS ((side, alias), (side)) ORDER BY side DESC, alias NULLS LAST;
