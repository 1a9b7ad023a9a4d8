-- The records of many machines, one row for each line of "orvanectl records --json".
CREATE TABLE IF NOT EXISTS records (
    host VARCHAR NOT NULL,        -- empty for records of this machine
    time VARCHAR NOT NULL,        -- 2026-11-21T10:15:30, the local time of the daemon
    type VARCHAR NOT NULL,
    failure VARCHAR NOT NULL,     -- what failed, in words
    errno INTEGER,                -- these two are null for a refused request
    error VARCHAR,
    src VARCHAR NOT NULL,
    dst VARCHAR NOT NULL,
    cause VARCHAR,                -- a stable word; null if no cause is certain
    cause_path VARCHAR,
    likely_cause VARCHAR,         -- the cause as a sentence
    to_check VARCHAR,
    file VARCHAR NOT NULL,
    position BIGINT NOT NULL,     -- "offset", which is a word of SQL
    line VARCHAR NOT NULL,        -- the whole JSON object, with its snapshots
    PRIMARY KEY (host, time, type, src, dst, position)  -- a rotated file has another name but the same positions
);
