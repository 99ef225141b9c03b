INSERT INTO usage(slot, session, model, uncached, cache_read, w5m, w1h, output, reasoning, reported_usd)
VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10)
ON CONFLICT(slot, session, model) DO UPDATE SET
  uncached = uncached + excluded.uncached,
  cache_read = cache_read + excluded.cache_read,
  w5m = w5m + excluded.w5m,
  w1h = w1h + excluded.w1h,
  output = output + excluded.output,
  reasoning = reasoning + excluded.reasoning,
  reported_usd = CASE WHEN excluded.reported_usd IS NULL THEN reported_usd
                      WHEN reported_usd IS NULL THEN excluded.reported_usd
                      ELSE reported_usd + excluded.reported_usd END
