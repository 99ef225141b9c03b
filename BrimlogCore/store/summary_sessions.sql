SELECT provider, day, COUNT(*) FROM sessions WHERE day >= ?1 AND day <= ?2 GROUP BY provider, day
