-- Old and new prices of customers and carriers, trunks, and the calls to be expected, for a rerating of one day:
--
--   psql -v day=2026-01-31 -f rerate_prices.sql
--
-- Destinations are those of rate table 1. The new prices are in force from the day on, the old ones ended one second
-- before. Leaves tables world and america (what is called, for make_calls.sql).
\set ON_ERROR_STOP on
SET client_min_messages = warning;
SET timezone = 'UTC';

INSERT INTO time_profile (time_profile_id, name, type, start_time, end_time, time_zone) VALUES
  (1, 'peak', 2, '08:00:00', '19:59:59', '+0000'),
  (2, 'off-peak (evening)', 2, '20:00:00', '23:59:59', '+0000'),
  (3, 'off-peak (night)', 2, '00:00:00', '07:59:59', '+0000');

INSERT INTO rate_table (rate_table_id, name, jurisdiction_country_id) VALUES
  (2, 'Customers, world', NULL), (3, 'Customers, calls within the US', 1), (4, 'Carriers', NULL);

INSERT INTO resource (resource_id, alias, rate_decimal, rate_rounding) VALUES
  (1, 'ALDER-LON', 4, 2), (2, 'BIRCH-FRA', 4, 2), (3, 'CEDAR-NYC', 5, 0), (11, 'MAPLE-AMS', 5, 1), (12, 'ROWAN-MIA', 5, 1);

CREATE TEMPORARY TABLE destination AS
  SELECT DISTINCT ON (code) code, code_name, country, rate AS price, code_name ~ 'Mobile|Satellite' AS mobile
  FROM rate WHERE rate_table_id = 1 ORDER BY code, effective_date DESC;
ANALYZE destination;
CREATE TEMPORARY VIEW american AS SELECT * FROM destination WHERE country = 'United States';

CREATE TEMPORARY VIEW old_price AS SELECT *, :'day'::timestamptz - interval '1 year' AS begins,
                                          :'day'::timestamptz - interval '1 second' AS ends FROM destination;
INSERT INTO rate (rate_table_id, code, code_name, country, rate, effective_date, end_date, seconds, "interval")
  SELECT 2, code, code_name, country, round(price * 1.3, 4), begins, ends, 60, 1 FROM old_price
  UNION ALL
  SELECT 3, code, code_name, country, round(price * 1.3, 4), begins, ends, 60, 1 FROM old_price
  WHERE country = 'United States'
  UNION ALL
  SELECT 4, code, code_name, country, round(price, 5), begins, ends, 60, 1 FROM old_price;

-- Calls to mobile networks now cost more by day, less by night, and 30 seconds at least; Cape Verde is not sold any more.
INSERT INTO rate (rate_table_id, code, code_name, country, rate, effective_date, time_profile_id, min_time, seconds,
                  "interval")
  SELECT 2, code, code_name, country, round(price * factor, 4), :'day'::timestamptz, profile, 30, 60, 6
  FROM destination, (VALUES (1, 1.35), (2, 1.1), (3, 0.9)) AS hours (profile, factor)
  WHERE mobile AND country <> 'Cape Verde'
  UNION ALL
  SELECT 2, code, code_name, country, round(price * 1.2, 4), :'day'::timestamptz, NULL::integer, NULL, 60, 1
  FROM destination WHERE NOT mobile AND country <> 'Cape Verde'
  UNION ALL
  SELECT 4, code, code_name, country, round(price * 0.95, 5), :'day'::timestamptz, NULL, CASE WHEN mobile THEN 30 END, 60, 1
  FROM destination;

-- Within the US the states of caller and called decide.
INSERT INTO rate (rate_table_id, code, code_name, country, rate, inter_rate, intra_rate, effective_date, min_time, seconds,
                  "interval")
  SELECT 3, code, code_name, country, round(price * 1.2, 4), round(price * 1.1, 4), round(price * 1.6, 4), :'day', 6, 60, 6
  FROM american;
INSERT INTO jurisdiction_prefix (prefix, jurisdiction_id, jurisdiction_country_id)
  SELECT code, dense_rank() OVER (ORDER BY code_name), 1 FROM american;

-- Countries with break-outs are called by these; 999 is not in use.
CREATE TEMPORARY TABLE leaf AS
  SELECT code, code_name, country FROM destination d
  WHERE NOT EXISTS (SELECT FROM destination longer WHERE longer.code LIKE d.code || '_%')
  UNION ALL SELECT '999', NULL, NULL;
CREATE TEMPORARY TABLE leaf_price AS
  SELECT leaf.*, c.rate_table_id AS customers_table, c.rate AS ingress_rate, c.rate_id AS ingress_rate_id,
         s.rate AS egress_rate, s.rate_id AS egress_rate_id
  FROM leaf
  LEFT JOIN rate c ON c.code = leaf.code AND c.rate_table_id IN (2, 3) AND c.end_date IS NOT NULL
  LEFT JOIN rate s ON s.code = leaf.code AND s.rate_table_id = 4 AND s.end_date IS NOT NULL;

SELECT setseed(0.25) \g /dev/null
CREATE TABLE world AS
  SELECT row_number() OVER (ORDER BY popularity)::integer AS id, destinations.*
  FROM (SELECT *, CASE WHEN code = '999' OR country = 'Cape Verde' THEN 0.02 ELSE random() END AS popularity
        FROM (SELECT * FROM leaf_price WHERE customers_table IS DISTINCT FROM 3 ORDER BY code) AS sorted) AS destinations;
CREATE TABLE america AS
  SELECT row_number() OVER (ORDER BY random())::integer AS id, sorted.*
  FROM (SELECT * FROM leaf_price WHERE customers_table = 3 ORDER BY code) AS sorted;
