// How long pages take to open, and new selections to be drawn, in headless Chromium; best of some runs.
//
//     node bench/viewer/measure.mjs RUNS PAGE...
//
// "CPU" is the time of the page's own thread, which other load on the machine changes less. Memory is what JavaScript and
// its arrays hold after all that. Needs the packages of viewer/ (npm ci --prefix viewer) and Debian's chromium.
import { mkdtempSync, rmSync, statSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join, resolve } from 'node:path';

const require = createRequire(new URL('../../viewer/package.json', import.meta.url));
const { chromium } = require('playwright-core');

const SELECTIONS = {
  'a time': 't=5,50',
  'a time, kernel': 't=5,50&mode=kernel',
  'from the leaves': 'order=leaf',
  'functions, a time': 'tab=functions&t=3,33',
};

async function measure(context, file) {
  const page = await context.newPage();
  const tools = await context.newCDPSession(page);
  await tools.send('Performance.enable', { timeDomain: 'threadTicks' });
  const cpu = async () => {
    const { metrics } = await tools.send('Performance.getMetrics');
    return 1000 * metrics.find(({ name }) => name === 'TaskDuration').value;
  };
  await page.goto(`file://${file}`);
  await page.waitForFunction(() => performance.getEntriesByName('opened').length > 0, null, { timeout: 120000 });
  const opened = await page.evaluate(() => performance.getEntriesByName('opened')[0].startTime);
  const result = { open: [opened, await cpu()] };
  for (const [name, fragment] of Object.entries(SELECTIONS)) {
    const before = await cpu();
    const wall = await page.evaluate(async (next) => {
      const start = performance.now();
      location.hash = next;
      // Behind the frame that shows it.
      await new Promise((done) => {
        addEventListener('hashchange', () => requestAnimationFrame(() => setTimeout(done)), { once: true });
      });
      return performance.now() - start;
    }, fragment);
    result[name] = [wall, (await cpu()) - before];
  }
  await tools.send('HeapProfiler.collectGarbage');
  const heap = await tools.send('Runtime.getHeapUsage');
  result.bytes = heap.usedSize + heap.embedderHeapUsedSize + heap.backingStorageSize;
  result.samples = await page.evaluate(() => Number(document.querySelector('header .note').textContent.split(' ')[0].replaceAll(',', '')));
  await page.close();
  return result;
}

const [runs, ...files] = process.argv.slice(2);
const folder = mkdtempSync(join(tmpdir(), 'tracemill-bench-'));
const context = await chromium.launchPersistentContext(folder, {
  executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
  headless: true,
  args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  viewport: { width: 1400, height: 900 },
});
for (const file of files.map((name) => resolve(name))) {
  const results = [];
  for (let run = 0; run < Number(runs); ++run) {
    results.push(await measure(context, file));
  }
  const { samples, bytes } = results[0];
  console.log(`${file}: ${samples} samples, ${(statSync(file).size / samples).toFixed(1)} bytes a sample, ${(bytes / samples).toFixed(1)} in memory`);
  for (const name of ['open', ...Object.keys(SELECTIONS)]) {
    const [wall, cpu] = [0, 1].map((place) => Math.min(...results.map((result) => result[name][place])));
    console.log(`  ${name.padEnd(20)} ${wall.toFixed(0).padStart(6)} ms, CPU ${cpu.toFixed(0).padStart(5)} ms`);
  }
}
await context.close();
rmSync(folder, { recursive: true, force: true });
