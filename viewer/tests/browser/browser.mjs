// Debian's Chromium or Firefox, headless, with an empty profile; and what its pages are held against.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { chromium, firefox } from 'playwright-core';

const CHROMIUM_ARGUMENTS = [
  '--no-sandbox', // tests may run as root
  '--disable-gpu',
  '--disable-quic',
  '--no-first-run',
  '--disable-background-networking',
  '--disable-component-update',
  '--disable-sync',
];

export const settings = {
  chromium: process.env.CHROMIUM ?? '/usr/bin/chromium',
  /** Firefox in Chromium's place, where it is named: as it is installed, through WebDriver BiDi. */
  firefox: process.env.FIREFOX ?? '',
  report: process.env.TRACEMILL_REPORT ?? '../build/release/bin/tracemill-report',
  python: process.env.PYTHON ?? 'python3',
  tools: process.env.REPORT_TESTS ?? '../tests/report',
};

export function temporaryFolder() {
  return mkdtempSync(join(tmpdir(), 'tracemill-page-'));
}

const CONTEXT = {
  viewport: { width: 1400, height: 900 },
  colorScheme: 'light',
  timezoneId: 'UTC',
  acceptDownloads: true,
};

async function startFirefox(options) {
  const browser = await firefox.launch({
    channel: 'moz-firefox',
    executablePath: settings.firefox,
    headless: true,
  });
  const context = await browser.newContext({ ...CONTEXT, ...options });
  return { context, close: () => browser.close() };
}

async function startChromium(options) {
  const folder = temporaryFolder();
  const context = await chromium.launchPersistentContext(folder, {
    executablePath: settings.chromium,
    headless: true,
    args: CHROMIUM_ARGUMENTS,
    ...CONTEXT,
    ...options,
  });
  return {
    context,
    async close() {
      await context.close();
      rmSync(folder, { recursive: true, force: true, maxRetries: 5 });
    },
  };
}

export function startBrowser(options = {}) {
  return settings.firefox === '' ? startChromium(options) : startFirefox(options);
}

/** Opens a page as a file, and keeps what must not happen: errors, and requests beside the file. */
export async function openPage(browser, file, fragment = '') {
  const page = await browser.context.newPage();
  const problems = [];
  page.on('pageerror', (error) => problems.push(String(error)));
  page.on('console', (message) => {
    if (message.type() === 'error') {
      problems.push(message.text());
    }
  });
  const url = `file://${file}`;
  page.on('request', (request) => {
    const other = request.url();
    if (!other.startsWith(url) && !other.startsWith('blob:') && !other.startsWith('data:')) {
      problems.push(`request to ${other}`);
    }
  });
  await page.goto(url + fragment);
  await page.waitForFunction(() => performance.getEntriesByName('opened').length > 0);
  return { page, problems };
}

export function python(script, ...parameters) {
  const options = { encoding: 'utf8', maxBuffer: 1 << 28 };
  return execFileSync(settings.python, [join(settings.tools, script), ...parameters], options);
}

/** What the page of a document should show, computed by another program. */
export function numbersOf(document, filters = {}) {
  return JSON.parse(python('document_numbers.py', document, JSON.stringify(filters)));
}

export function makePage(document, page, ...options) {
  const parameters = ['--quiet', '--no-open', '-o', page, ...options, document];
  execFileSync(settings.report, parameters, { encoding: 'utf8' });
}

/** Clicks, and returns what the page then saves. */
async function savedBy(page, click) {
  if (settings.firefox === '') {
    const [file] = await Promise.all([page.waitForEvent('download'), click()]);
    return readFileSync(await file.path());
  }
  // WebDriver BiDi has no downloads: what is saved is taken before the browser gets it.
  await page.evaluate(() => {
    HTMLAnchorElement.prototype.click = () => {};
    globalThis.saved = new Promise((done) => {
      URL.createObjectURL = (blob) => {
        blob.arrayBuffer().then((content) => done(Array.from(new Uint8Array(content))));
        return 'blob:saved';
      };
    });
  });
  await click();
  return Buffer.from(await page.evaluate(() => globalThis.saved));
}

/** What the browser saves when a button is clicked. */
export function download(page, button) {
  return savedBy(page, () =>
    page.getByRole('button', { name: button, exact: true }).first().click(),
  );
}

/** One step back in what was shown. */
export function goBack(page) {
  return page.evaluate(
    () =>
      new Promise((done) => {
        addEventListener('popstate', () => setTimeout(done), { once: true });
        history.back();
      }),
  );
}

/** The rows of a table by the columns' names, read from what it saves as CSV. */
export async function tableRows(page) {
  const text = (await download(page, 'CSV')).toString();
  const rows = [];
  let row = [''];
  for (const [token] of text.matchAll(/"(?:[^"]|"")*"|,|\r\n|[^,"\r\n]+/g)) {
    if (token === ',') {
      row.push('');
    } else if (token === '\r\n') {
      rows.push(row);
      row = [''];
    } else {
      row[row.length - 1] += token.startsWith('"')
        ? token.slice(1, -1).replaceAll('""', '"')
        : token;
    }
  }
  const [names, ...values] = rows;
  return values.map((cells) => Object.fromEntries(cells.map((cell, i) => [names[i], cell])));
}

/** How many samples the page says are selected. */
export async function selectedCount(page) {
  const text = await page.locator('.selected-count').textContent();
  return Number(/^([\d,]+) sample/.exec(text)[1].replaceAll(',', ''));
}

export function fileOf(path) {
  return path.slice(path.lastIndexOf('/') + 1) || path;
}

export function assertNoProblems(problems) {
  assert.deepEqual(problems, []);
}
