-- The portal's tables that the daemon reads and writes, as the demo and the tests use them.
--
-- A portal that has these tables already needs only these columns under these names; more columns do no
-- harm. Flags are small integers (0 or 1), not booleans: the daemon reads them as base-10 numbers. All
-- statements of the daemon name the tables without a schema, so they must lie in the user's search_path.

-- One upload of a rate deck: the portal inserts the row with status 0 and the daemon does the rest.
CREATE TABLE rate_upload_task (
    id                       serial PRIMARY KEY,

    -- Written by the portal.
    upload_file_path         text,               -- folder of the uploaded deck, as the daemon's host sees it
    upload_format_file       text,               -- file name of the deck in that folder
    rate_table_id            integer,            -- rate table that gets the rates
    rate_table_code_deck_id  integer,            -- code deck for names and countries; null: first that matches
    rate_date_format         text,               -- MM/DD/YYYY, YYYY-MM-DD, DD-MM-YYYY, MM-DD-YYYY, DD/MM/YYYY
                                                 -- or YYYY/MM/DD, for every date in the deck
    rate_end_date            text,               -- end of the rates that are followed by a later one; empty: one
                                                 -- second before the new rate's effective date
    reduplicate_rate_action  integer DEFAULT 0,  -- stored rate with the same effective date: 1 delete it, 2 end it
                                                 -- now, any other value leaves it
    code_deck_flag           smallint DEFAULT 0, -- 1: take code names and countries from table code
    use_ocn_lata_code        smallint DEFAULT 0, -- 1 is refused: decks by OCN and LATA are not supported

    -- Written by the daemon; the portal sets status to 0 and reads the rest.
    status                   integer NOT NULL DEFAULT 0,  -- 0 waiting, 1 loading stored rates, 2 validating the deck,
                                                          -- 3 writing, 4 finished, 5 failed
    progress                 text,               -- what is being done, the counts, or why it failed
    start_time               bigint,             -- seconds since the epoch
    end_time                 bigint,             -- seconds since the epoch
    expense_detail           text,               -- seconds of each phase
    result_file_path         text                -- folder of rate_import.log and rate_reimport.csv
);

-- The daemon looks for waiting rows every few seconds; finished ones pile up.
CREATE INDEX rate_upload_task_waiting ON rate_upload_task (id) WHERE status = 0;

-- What the rates of one agreement have in common.
CREATE TABLE rate_table (
    rate_table_id            serial PRIMARY KEY,
    name                     text NOT NULL,
    code_deck_id             integer,
    currency_id              integer,
    jur_type                 integer,            -- how the jurisdiction of a call is found
    rate_type                integer,
    lnp_dipping_rate         numeric(30, 10),    -- price of one number-portability query
    jurisdiction_country_id  integer,
    jurisdiction_prefix      text,
    noprefix_min_length      integer,
    noprefix_max_length      integer,
    prefix_min_length        integer,
    prefix_max_length        integer
);

-- One price of one code from one date on. A rate in force has an end_date later than now, or none.
CREATE TABLE rate (
    rate_id                  serial PRIMARY KEY, -- end-dating and deletion go by this key
    rate_table_id            integer NOT NULL,
    code                     text NOT NULL,      -- leading digits of the called number
    code_name                text,
    country                  text,
    rate                     numeric(30, 10),    -- price of a minute
    intra_rate               numeric(30, 10),    -- price of a minute within a state
    inter_rate               numeric(30, 10),    -- price of a minute between states
    local_rate               numeric(30, 10),    -- price of a local minute
    setup_fee                numeric(30, 10),    -- price of a call, added once
    effective_date           timestamptz,
    end_date                 timestamptz,        -- null: open-ended
    time_profile_id          integer,
    grace_time               integer,            -- a call shorter than these seconds is free, any other billed whole
    min_time                 integer,            -- seconds billed at least
    rate_type                integer,
    seconds                  integer,            -- seconds in a billed "minute"
    "interval"               integer,            -- billing increment in seconds
    zone                     text                -- time zone of the price, hours or hours:minutes
);

-- Imports load the stored rates of one rate table.
CREATE INDEX rate_rate_table_id ON rate (rate_table_id);

-- The system's own code decks: destination names by code, the same for every carrier's deck.
CREATE TABLE code (
    code_id                  serial PRIMARY KEY,
    code                     text NOT NULL,
    code_deck_id             integer NOT NULL,
    country                  text,               -- without commas, like name
    name                     text
);

CREATE INDEX code_code_deck_id ON code (code_deck_id);

-- Hours in which a rate applies.
CREATE TABLE time_profile (
    time_profile_id          serial PRIMARY KEY,
    name                     text,
    type                     integer,            -- 1: hours of certain weekdays, 2: hours of every day, else: always
    start_week               integer,            -- first weekday, 1 Monday to 7 Sunday; type 1 only
    end_week                 integer,            -- last weekday
    start_time               time,               -- hours of the day, both ends included; they do not run over midnight
    end_time                 time,
    time_zone                text                -- whole hours from UTC in which the above are meant, for example +0100
);

-- Which US jurisdiction (state) a number belongs to, by its leading digits.
CREATE TABLE jurisdiction_prefix (
    id                       serial PRIMARY KEY,
    prefix                   text,               -- with the country's 1
    jurisdiction_id          integer,
    jurisdiction_country_id  integer             -- as in table rate_table
);

-- The trunks.
CREATE TABLE resource (
    resource_id              serial PRIMARY KEY,
    alias                    text,               -- its name in progress texts; without quotes
    rate_decimal             integer,            -- decimals of a cost
    rate_rounding            integer             -- 0: any dropped digit rounds up, 1: cut, 2: above 4 rounds up
);

-- One order to rate the call records of a time range again.
--
-- A trunk text is a list of items separated by ";", each with four fields separated by ",": trunk, flag (1: rate it),
-- rate table, and the date (seconds since the epoch) of whose rates it is rated by, 0 for those of each call's own day.
-- With any other flag the last two may be empty. Example: 12,1,7,0;13,0,,
CREATE TABLE rerate_cdr_task (
    id                       serial PRIMARY KEY,

    -- Written by the portal.
    from_time                bigint,             -- seconds since the epoch
    to_time                  bigint,             -- seconds since the epoch, this second included
    timezone                 integer DEFAULT 0,  -- hours by which the range is moved back
    update_lrn               smallint DEFAULT 0, -- 1 needs the address or port below
    update_us_jurisdiction   smallint DEFAULT 0, -- 1: rates within and between states apply
    update_local_rate        smallint DEFAULT 0, -- 1: local rates apply to local calls
    ingress_trunk            text,               -- trunk text of the ingress side
    egress_trunk             text,               -- trunk text of the egress side
    lrn_server_ip            text,
    lrn_server_port          integer,
    include_q850             smallint DEFAULT 0, -- 1: two more columns in the files

    -- Written by the daemon; the portal sets status to 0 and reads the rest.
    status                   integer NOT NULL DEFAULT 0,  -- 0 waiting, 1 loading call records, 2 loading rates,
                                                          -- 3 rating, 4 finished, 5 failed
    progress                 text,               -- what is being done, or why it failed
    err_code                 integer,            -- 0 success, 1 invalid job, 2 call records, 3 reference data,
                                                 -- 4 system, 5 database connection, 6 rating or file
    load_cdr_elapsed_sec     integer,
    load_rate_elapsed_sec    integer,
    rerate_elapsed_sec       integer,            -- always 0
    start_time               bigint,             -- seconds since the epoch
    end_time                 bigint,             -- seconds since the epoch
    cdr_file                 text,               -- the files written, separated by ","
    cdr_file_path            text                -- their folder
);

CREATE INDEX rerate_cdr_task_waiting ON rerate_cdr_task (id) WHERE status = 0;

-- The call records. Each day (UTC) has a table of its own, for 31 January 2026 made by
--     CREATE TABLE client_cdr20260131 (LIKE client_cdr INCLUDING ALL);
-- Texts are without commas: the daemon splits a record at every comma.
CREATE TABLE client_cdr (
    time timestamptz,                        -- when the call ended
    connection_type text,
    session_id text,
    release_cause integer,
    start_time_of_date bigint,               -- microseconds since the epoch
    answer_time_of_date bigint,
    release_tod bigint,
    minutes_west_of_greenwich_mean_time integer,
    release_cause_from_protocol_stack integer,
    binary_value_of_release_cause_from_protocol_stack integer,
    first_release_dialogue integer,
    trunk_id_origination text,
    voip_protocol_origination text,
    origination_source_number text,
    origination_source_host_name text,
    origination_destination_number text,
    origination_destination_host_name text,
    origination_call_id text,
    origination_remote_payload_ip_address text,
    origination_remote_payload_udp_address integer,
    origination_local_payload_ip_address text,
    origination_local_payload_udp_address integer,
    origination_codec_list text,
    origination_ingress_packets bigint,
    origination_egress_packets bigint,
    origination_ingress_octets bigint,
    origination_egress_octets bigint,
    origination_ingress_packet_loss bigint,
    origination_ingress_delay bigint,
    origination_ingress_packet_jitter bigint,
    trunk_id_termination text,
    voip_protocol_termination text,
    termination_source_number text,
    termination_source_host_name text,
    termination_destination_number text,
    termination_destination_host_name text,
    termination_call_id text,
    termination_remote_payload_ip_address text,
    termination_remote_payload_udp_address integer,
    termination_local_payload_ip_address text,
    termination_local_payload_udp_address integer,
    termination_codec_list text,
    termination_ingress_packets bigint,
    termination_egress_packets bigint,
    termination_ingress_octets bigint,
    termination_egress_octets bigint,
    termination_ingress_packet_loss bigint,
    termination_ingress_delay bigint,
    termination_ingress_packet_jitter bigint,
    final_route_indication integer,
    routing_digits text,                     -- called number as routed
    call_duration integer,                   -- seconds; calls of 0 seconds are not rated
    pdd integer,
    ring_time integer,
    callduration_in_ms integer,
    conf_id text,
    call_type integer,
    ingress_id integer,                      -- trunk that the call came from; resource.resource_id
    ingress_client_id integer,
    ingress_client_rate_table_id integer,
    ingress_client_currency_id integer,
    ingress_client_rate numeric(30, 10),
    ingress_client_currency text,
    ingress_client_bill_time integer,
    ingress_client_bill_result integer,
    ingress_client_cost numeric(30, 10),
    egress_id integer,                       -- trunk that the call went to
    egress_rate_table_id integer,
    egress_rate numeric(30, 10),
    egress_cost numeric(30, 10),
    egress_bill_time integer,
    egress_client_id integer,
    egress_client_currency_id integer,
    egress_client_currency text,
    egress_six_seconds integer,
    egress_bill_minutes numeric(30, 10),
    egress_bill_result integer,
    ingress_bill_minutes numeric(30, 10),
    ingress_dnis_type integer,               -- empty or 0: billed by routing_digits, else by lrn_dnis
    ingress_rate_type integer,               -- 5: local
    lrn_number_vendor integer,
    lrn_dnis text,                           -- number after the portability lookup
    egress_dnis_type integer,
    egress_rate_type integer,                -- 5: local
    item_id integer,
    translation_ani text,                    -- calling number
    ingress_rate_id integer,
    egress_rate_id integer,
    orig_code text,
    orig_code_name text,
    orig_country text,
    term_code text,
    term_code_name text,
    term_country text,
    ingress_rate_effective_date bigint,
    egress_rate_effective_date bigint,
    egress_erro_string text,
    order_id integer,
    order_type integer,
    lnp_dipping_cost numeric(30, 10),
    is_final_call integer,
    egress_code_asr numeric(30, 10),
    egress_code_acd numeric(30, 10),
    static_route text,
    dynamic_route text,
    route_plan text,
    route_prefix text,
    orig_delay_second integer,
    term_delay_second integer,
    orig_call_duration integer,
    trunk_type integer,
    origination_profile_port integer,
    termination_profile_port integer,
    o_trunk_type2 integer,
    o_billing_method integer,
    t_trunk_type2 integer,
    t_billing_method integer,
    campaign_id integer,
    tax numeric(30, 10),
    agent_id integer,
    agent_rate numeric(30, 10),
    agent_cost numeric(30, 10),
    orig_jur_type integer,
    term_jur_type integer,
    ring_epoch bigint,
    end_epoch bigint,
    paid_user text,
    rpid_user text,
    timeout_type integer,
    q850_cause integer,
    q850_cause_string text
);
