INSERT INTO sessions(provider, session_id, day) VALUES(?1, ?2, ?3)
ON CONFLICT(provider, session_id) DO UPDATE SET day = MIN(day, excluded.day)
