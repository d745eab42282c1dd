// Builds dist/template.html: the page without samples, in one file, byte for byte the same from the same sources.
//
//     node build.mjs            the template
//     node build.mjs --tests    the unit tests, into build/tests/
//
// The one script that may run in the page is named by its hash in the content security policy; whatever else a
// name in a recording might smuggle in does not run.
import { createHash } from 'node:crypto';
import { mkdirSync, readdirSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { build } from 'esbuild';

const BUNDLED = ['uplot', '@tanstack/virtual-core'];

function licences() {
  return BUNDLED.map((name) => {
    const folder = `node_modules/${name}`;
    const { version } = JSON.parse(readFileSync(`${folder}/package.json`, 'utf8'));
    const file = readdirSync(folder).find((entry) => /^licen[cs]e/i.test(entry));
    const text = readFileSync(`${folder}/${file}`, 'utf8').replaceAll('--', '- -');
    return `${name} ${version}\n\n${text.trim()}`;
  }).join('\n\n----\n\n'.replaceAll('--', '- -'));
}

async function bundle(entry, options) {
  const result = await build({
    entryPoints: [entry],
    bundle: true,
    minify: true,
    write: false,
    target: ['chrome102', 'firefox113', 'safari16.4'],
    legalComments: 'none', // all of them stand in the template, see licences()
    charset: 'utf8',
    loader: { '.css': 'text' },
    ...options,
  });
  return result.outputFiles[0].text;
}

async function buildTemplate() {
  const style = await bundle('src/style.css', { loader: {} });
  const script = (await bundle('src/main.ts', { format: 'iife' }))
    .replaceAll('</script', '<\\/script')
    .trim();
  const hash = createHash('sha256').update(script).digest('base64');
  const page = readFileSync('src/template.html', 'utf8')
    .replace('{{licences}}', () => licences())
    .replace('{{style}}', () => style.trim())
    .replace('{{hash}}', () => hash)
    .replace('{{script}}', () => script);
  mkdirSync('dist', { recursive: true });
  writeFileSync('dist/template.html', page);
}

async function buildTests() {
  rmSync('build/tests', { recursive: true, force: true });
  await build({
    entryPoints: readdirSync('tests')
      .filter((name) => name.endsWith('.test.ts'))
      .map((name) => `tests/${name}`),
    bundle: true,
    platform: 'node',
    format: 'esm',
    outdir: 'build/tests',
    outExtension: { '.js': '.mjs' },
  });
}

await (process.argv.includes('--tests') ? buildTests() : buildTemplate());
