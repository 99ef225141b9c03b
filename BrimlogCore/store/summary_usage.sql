SELECT provider, model, day, uncached, cache_read, w5m, w1h, output, reasoning, reported_usd
FROM daily WHERE day >= ?1 AND day <= ?2
