INSERT OR IGNORE INTO share_marks(kind, day, mark)
  SELECT 'usage', day, 1 FROM day_usage GROUP BY day;
INSERT OR IGNORE INTO share_marks(kind, day, mark)
  SELECT 'usage', CAST(julianday(day) - 2440587.5 AS INTEGER), 1 FROM kept_days GROUP BY day;
INSERT OR IGNORE INTO share_marks(kind, day, mark)
  SELECT 'limits', CAST((read_at + 978307200) / 86400 AS INTEGER), 1 FROM limit_readings
  GROUP BY 2;
