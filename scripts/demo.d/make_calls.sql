-- Stores calls of one day, as a switch would, in the day's table (made when it is missing):
--
--   psql -v day=2026-01-31 -v count=1000 -v traffic=TABLE -v callers=TABLE -v ingress=1,2 -v egress=11 -f make_calls.sql
--
-- traffic   table of what is called, most called first: id (1, 2, 3, ...), code, code_name, country, and for both sides
--           the rate that a call was billed by and its rate_id (without a rate the call was not billed)
-- callers   table of where calls come from: id (1, 2, 3, ...), code
-- ingress   customers' trunks, busiest first; egress: carriers' trunks
--
-- Seven of eight calls are answered. Addresses are those reserved for documentation, subscribers' digits are dice, and
-- the dice fall alike on every run.
\set ON_ERROR_STOP on
SET client_min_messages = warning;
SET timezone = 'UTC';
SET jit = off;  -- compiling 128 columns takes longer than what it saves
SELECT 'client_cdr' || replace(:'day', '-', '') AS day_table \gset
CREATE TABLE IF NOT EXISTS :day_table (LIKE client_cdr INCLUDING ALL);
CREATE TEMPORARY TABLE called AS SELECT * FROM :traffic;
CREATE TEMPORARY TABLE caller AS SELECT * FROM :callers;
SELECT count(*) AS stored FROM :day_table \gset
SELECT extract(epoch FROM :'day'::timestamptz)::bigint * 1000 AS midnight_ms \gset
SELECT setseed(sin(0.5 + :stored)) \g /dev/null

INSERT INTO :day_table
WITH dice AS MATERIALIZED (
  SELECT n,
         -- Quiet nights, a busy morning and afternoon: how many of 280 calls begin before each full hour.
         width_bucket(280 * random(), '{2,3,4,5,6,8,12,20,34,54,76,98,118,138,160,182,202,220,236,250,262,271,277,280}'
                                      ::float8[]) * 3600 + floor(3600 * random()) AS second_of_day,
         -- Talk time is log-normal: half of the calls take less than a minute, a few take an hour.
         least(7200, greatest(1, round(exp(4.1 + 1.1 * sqrt(-2 * ln(1 - random())) * cos(2 * pi() * random()))))) AS talk,
         random() < 0.875 AS answered,
         (2000 + 9000 * random() ^ 2)::integer AS ring_ms,
         -- Few destinations get most of the calls.
         1 + floor((SELECT count(*) FROM called) * random() ^ 2.5)::integer AS called_id,
         1 + floor((SELECT count(*) FROM caller) * random())::integer AS caller_id,
         (array[:ingress])[1 + floor(cardinality(array[:ingress]) * random() ^ 1.5)::integer] AS ingress_id,
         (array[:egress])[1 + floor(cardinality(array[:egress]) * random() ^ 1.2)::integer] AS egress_id,
         lpad((1e9 * random())::bigint::text, 10, '0') AS dnis_digits,
         lpad((1e9 * random())::bigint::text, 10, '0') AS ani_digits,
         floor(random() * 30)::integer AS loss, 20 + floor(80 * random())::integer AS delay
  FROM generate_series(:stored + 1, :stored + :count) n
), attempt AS MATERIALIZED (
  SELECT d.*, c.code, c.code_name, c.country, c.ingress_rate, c.ingress_rate_id, c.egress_rate, c.egress_rate_id,
         c.code || left(d.dnis_digits, greatest(11 - length(c.code), 3)) AS dnis,
         f.code || left(d.ani_digits, greatest(11 - length(f.code), 3)) AS ani,
         CASE WHEN d.answered THEN d.talk::integer ELSE 0 END AS seconds,
         left(md5(d.n::text), 24) AS id
  FROM dice d JOIN called c ON c.id = d.called_id JOIN caller f ON f.id = d.caller_id
), call AS MATERIALIZED (
  -- The day's table holds the calls that end on that day.
  SELECT *, seconds * 50 AS packets, seconds * 1000 AS talk_ms,
         least(second_of_day * 1000, 86399000 - ring_ms - seconds * 1000)::bigint + :midnight_ms AS begin_ms
  FROM attempt
)
SELECT to_timestamp(floor((begin_ms + ring_ms + talk_ms) / 1000.0)), 'VoIP',
       format('%s-%s', to_char(n, 'FM000000000'), left(id, 12)), CASE WHEN answered THEN 16 ELSE 19 END, begin_ms * 1000,
       CASE WHEN answered THEN (begin_ms + ring_ms) * 1000 ELSE 0 END, (begin_ms + ring_ms + talk_ms) * 1000, 0,
       CASE WHEN answered THEN 200 ELSE 480 END, CASE WHEN answered THEN 16 ELSE 19 END, n % 2,
       -- The call as it came in, and as it went out.
       format('trunk%s', ingress_id), 'SIP', ani, format('192.0.2.%s', ingress_id % 200 + 10), dnis, '192.0.2.1',
       format('%s@192.0.2.%s', id, ingress_id % 200 + 10), format('192.0.2.%s', ingress_id % 200 + 11),
       10000 + n % 20000 * 2, '192.0.2.2', 30000 + n % 15000 * 2, 'G729 PCMU PCMA', packets - loss, packets,
       (packets - loss) * 60, packets * 60, loss, delay, loss % 7,
       format('trunk%s', egress_id), 'SIP', ani, '198.51.100.1', dnis, format('198.51.100.%s', egress_id % 200 + 10),
       format('%s@198.51.100.1', reverse(id)), format('198.51.100.%s', egress_id % 200 + 11),
       12000 + n % 20000 * 2, '198.51.100.2', 32000 + n % 15000 * 2, 'G729 PCMU PCMA', packets, packets - loss,
       packets * 60, (packets - loss) * 60, loss % 3, delay + 12, loss % 5,
       1, dnis, seconds, ring_ms / 4, ring_ms / 1000, talk_ms, format('conf-%s', left(id, 8)), 1,
       -- What it was billed at: every second counts.
       ingress_id, 100 + ingress_id, 2, 1, ingress_rate, 'USD', CASE WHEN ingress_rate IS NOT NULL THEN seconds END,
       CASE WHEN ingress_rate IS NULL THEN 2 ELSE 1 END, round(ingress_rate * seconds / 60, 6),
       egress_id, 4, egress_rate, round(egress_rate * seconds / 60, 6),
       CASE WHEN egress_rate IS NOT NULL THEN seconds END, 200 + egress_id, 1, 'USD', 6,
       round(CASE WHEN egress_rate IS NOT NULL THEN seconds END / 60.0, 6), CASE WHEN egress_rate IS NULL THEN 2 ELSE 1 END,
       round(CASE WHEN ingress_rate IS NOT NULL THEN seconds END / 60.0, 6), 0, 3, NULL, dnis, 0, 3, n, ani,
       ingress_rate_id, egress_rate_id, code, code_name, country, code, code_name, country,
       NULL, NULL, NULL, NULL, NULL, NULL, 1, NULL, NULL, NULL, format('routes-%s', n % 40), 'lcr', NULL, 0, 0, seconds,
       1, 5060, 5060, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL,
       begin_ms + ring_ms / 4, begin_ms + ring_ms + talk_ms, NULL, NULL, CASE WHEN answered THEN 0 ELSE 1 END,
       CASE WHEN answered THEN 16 ELSE 19 END, CASE WHEN answered THEN 'Normal call clearing' ELSE 'No answer' END
FROM call;
ANALYZE :day_table (time, call_duration, ingress_id, egress_id);
