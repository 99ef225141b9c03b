INSERT INTO sessions(provider, session_id, project, first_reply, last_reply)
VALUES(?1, ?2, ?3, ?4, ?5)
ON CONFLICT(provider, session_id) DO UPDATE SET
  project = CASE WHEN project = '' THEN excluded.project ELSE project END,
  first_reply = MIN(first_reply, excluded.first_reply),
  last_reply = MAX(last_reply, excluded.last_reply)
RETURNING id
