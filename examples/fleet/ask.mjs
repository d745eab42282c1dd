// Asks DuckDB the questions of a file: node ask.mjs 'FOLDER/*.jsonl.gz' QUESTIONS. Needs: npm install @duckdb/node-api
import { readFileSync } from 'node:fs';
import { DuckDBInstance } from '@duckdb/node-api';

const [files, questions] = process.argv.slice(2);
const connection = await (await DuckDBInstance.create(':memory:')).connect();
const quoted = `'${files.replaceAll("'", "''")}'`;
await connection.run(
  `CREATE TABLE samples AS SELECT host, recording, function, library, kind FROM read_json(${quoted}, format = 'newline_delimited',
   columns = {host: 'VARCHAR', recording: 'VARCHAR', function: 'VARCHAR', library: 'VARCHAR', kind: 'VARCHAR'})`,
);
for (const question of readFileSync(questions, 'utf8').split(/;\s*$/m)) {
  if (question.trim() !== '') {
    console.log(question.match(/^-- (?!The view).*$/m)?.[0] ?? '');
    const rows = (await connection.runAndReadAll(question)).getRowObjectsJson();
    console.table(rows);
  }
}
