-- The view `samples` has the lines of all files. Each question ends with a semicolon.

-- Top functions over the fleet.
SELECT function, library, count(*) AS samples, round(100.0 * count(*) / sum(count(*)) OVER (), 2) AS percent
FROM samples GROUP BY ALL ORDER BY samples DESC LIMIT 10;

-- Version B against version A, which are parts of the recordings' names: percentage points.
WITH shares AS (
  SELECT function,
         count(*) FILTER (recording LIKE '%-A-%') * 100.0 / (SELECT count(*) FROM samples WHERE recording LIKE '%-A-%') AS a,
         count(*) FILTER (recording LIKE '%-B-%') * 100.0 / (SELECT count(*) FROM samples WHERE recording LIKE '%-B-%') AS b
  FROM samples GROUP BY function)
SELECT function, round(a, 2) AS a, round(b, 2) AS b, round(b - a, 2) AS change
FROM shares ORDER BY abs(b - a) DESC LIMIT 10;

-- Recordings that are unlike the others: the share of kernel code, in standard deviations from the mean.
WITH kernel AS (
  SELECT host, recording, avg(CASE WHEN kind = 'kernel' THEN 100.0 ELSE 0 END) AS percent
  FROM samples GROUP BY ALL)
SELECT host, recording, round(percent, 2) AS kernel_percent,
       round((percent - avg(percent) OVER ()) / nullif(stddev(percent) OVER (), 0), 1) AS deviations
FROM kernel ORDER BY abs(deviations) DESC LIMIT 5;
