-- A Brimlog database of schema 1, which kept day totals in the zone of each sync.
CREATE TABLE seen(key TEXT PRIMARY KEY, day TEXT);
CREATE TABLE daily(provider, model, day, uncached, cache_read, w5m, w1h, output, reasoning,
                   reported_usd, PRIMARY KEY(provider, model, day));
CREATE TABLE sessions(provider, session_id, day, PRIMARY KEY(provider, session_id));
CREATE TABLE cursors(path TEXT PRIMARY KEY, json TEXT);
CREATE TABLE limits(provider TEXT PRIMARY KEY, json TEXT);
INSERT INTO seen VALUES('a', '2025-03-01'), ('b', '2025-03-02');
INSERT INTO daily VALUES('claude', 'm1', '2025-03-01', 10, 0, 0, 0, 5, 0, NULL),
                        ('claude', 'm2', '2025-03-01', 1, 0, 0, 0, 1, 0, NULL),
                        ('claude', 'm1', '2025-03-02', 99, 0, 0, 0, 99, 0, NULL);
INSERT INTO sessions VALUES('claude', 's-old', '2025-03-01');
INSERT INTO cursors VALUES('/gone.jsonl', '{}');
INSERT INTO limits VALUES('codex', '{}');
PRAGMA user_version = 1;
