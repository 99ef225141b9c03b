INSERT INTO kept_days(provider, model, day, uncached, cache_read, w5m, w1h, output, reasoning, reported_usd)
  SELECT provider, model, day, uncached, cache_read, w5m, w1h, output, reasoning, reported_usd FROM daily;
UPDATE kept_days SET sessions =
  (SELECT COUNT(*) FROM sessions_v1 s WHERE s.provider = kept_days.provider AND s.day = kept_days.day)
  WHERE model = (SELECT MIN(k.model) FROM kept_days k
                 WHERE k.provider = kept_days.provider AND k.day = kept_days.day);
DROP TABLE daily;
DROP TABLE sessions_v1;
DROP TABLE seen;
DELETE FROM cursors;
