#!/bin/sh
# Prints the functions of a time window, the most sampled first, with sqlite3.
#
#   window_functions.sh DOCUMENT START END
#
# Times are those of the document, in seconds: START <= time < END. On Debian: apt install sqlite3
set -eu
if [ $# -ne 3 ]; then
  sed -n '2,6s/^# \{0,1\}//p' "$0" >&2
  exit 1
fi
document=$(printf %s "$1" | sed "s/'/''/g")

# Addresses do not fit into sqlite's integers; they are not needed here.
sqlite3 -batch :memory: <<SQL
.mode column --wrap 0
CREATE TABLE document AS SELECT CAST(readfile('$document') AS TEXT) AS text;
CREATE TABLE samples AS
  SELECT json_extract(value, '\$[2]') AS mapkey, json_extract(value, '\$[3]') AS time
  FROM document, json_each(text, '\$.samples.data');
-- One "mapkey" refers to either table: their keys never collide.
CREATE TABLE places AS
  SELECT json_extract(value, '\$[0]') AS key, json_extract(value, '\$[1]') AS name
  FROM document, json_each(text, '\$.functions.data')
  UNION ALL
  SELECT json_extract(value, '\$[0]'), json_extract(value, '\$[2]')
  FROM document, json_each(text, '\$.libraries.data');
SELECT count(*) AS samples,
       round(100.0 * count(*) / sum(count(*)) OVER (), 1) AS percent,
       name AS function
FROM samples JOIN places ON key = mapkey
WHERE time >= CAST('$2' AS REAL) AND time < CAST('$3' AS REAL)
GROUP BY mapkey
ORDER BY samples DESC, name;
SQL
