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
    grace_time               integer,            -- seconds that are not billed
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

-- One order to rate the call records of a time range again.
CREATE TABLE rerate_cdr_task (
    id                       serial PRIMARY KEY,
    from_time                bigint,             -- seconds since the epoch
    to_time                  bigint,             -- seconds since the epoch
    timezone                 text,               -- offset from UTC, for example +0000
    update_lrn               smallint DEFAULT 0,
    update_us_jurisdiction   smallint DEFAULT 0,
    update_local_rate        smallint DEFAULT 0,
    ingress_trunk            text,
    egress_trunk             text,
    lrn_server_ip            text,
    lrn_server_port          integer,
    include_q850             smallint DEFAULT 0,

    status                   integer NOT NULL DEFAULT 0,
    progress                 text
);
