// The page in a real browser, its numbers against those of tests/report/document_numbers.py.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { readFileSync, rmSync, statSync } from 'node:fs';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import {
  assertNoProblems,
  download,
  fileOf,
  goBack,
  makePage,
  numbersOf,
  openPage,
  python,
  selectedCount,
  settings,
  startBrowser,
  tableRows,
  temporaryFolder,
} from './browser.mjs';

const FOLDER = temporaryFolder();
const DOCUMENT = join(FOLDER, 'varied.json');
const PAGE = join(FOLDER, 'varied.html');
let browser;

before(async () => {
  python('make_document.py', '--samples', '4000', DOCUMENT);
  makePage(DOCUMENT, PAGE);
  browser = await startBrowser();
});

after(async () => {
  await browser.close();
  rmSync(FOLDER, { recursive: true, force: true });
});

/** A test with a page of its own, in which nothing must go wrong. */
function pageTest(name, fragment, body, file = PAGE) {
  test(name, async () => {
    const { page, problems } = await openPage(browser, file, fragment);
    await body(page);
    assertNoProblems(problems);
    await page.close();
  });
}

const byFunction = (rows) =>
  Object.fromEntries(
    rows.map((row) => [`${row.Function}!${row.Library}`, [Number(row.Own), Number(row.Total)]]),
  );
const expectedFunctions = (numbers) =>
  Object.fromEntries(
    Object.entries(numbers.functions).map(([key, value]) => {
      const place = key.lastIndexOf('!');
      return [`${key.slice(0, place)}!${fileOf(key.slice(place + 1))}`, value];
    }),
  );

pageTest('the page is cut off from the network', '', async (page) => {
  const policy = await page.locator('meta[http-equiv]').getAttribute('content');
  assert.match(policy, /^default-src 'none'; script-src 'sha256-[^']+'; style-src 'unsafe-inline'/);
  assert.equal(await page.locator('script[src], link[href], img[src^=http]').count(), 0);
  const size = statSync(PAGE).size - statSync('dist/template.html').size;
  assert.ok(size < 12 * 4000 + 20000, `${size} bytes`);
});

test('what a script from elsewhere, or a request, would do is refused', async () => {
  const { page } = await openPage(browser, PAGE);
  const outcome = await page.evaluate(async () => {
    const script = document.createElement('script');
    script.textContent = 'window.hacked = true';
    document.body.append(script);
    const answer = await fetch('http://127.0.0.1:9/').then(
      () => 'sent',
      (error) => error.constructor.name,
    );
    return { hacked: 'hacked' in window, answer };
  });
  assert.deepEqual(outcome, { hacked: false, answer: 'TypeError' });
  await page.close();
});

const FILTERS = [
  ['all samples', '', {}],
  ['a time', 't=1.5,4', { time: [1.5, 4] }],
  ['a process', 'pid=200', { pids: ['200'] }],
  ['threads', 'tid=101&tid=102', { tids: ['101', '102'] }],
  ['CPUs, one not recorded', 'cpu=1&cpu=unknown', { cpus: ['1', 'unknown'] }],
  ['a library', 'lib=%2Fusr%2Fbin%2Fapp', { libraries: ['/usr/bin/app'] }],
  ['kernel code', 'mode=kernel', { mode: 'kernel' }],
  [
    'all at once',
    't=1,6&pid=100&cpu=0&cpu=3&mode=user',
    { time: [1, 6], pids: ['100'], cpus: ['0', '3'], mode: 'user' },
  ],
];
for (const [name, fragment, filters] of FILTERS) {
  pageTest(
    `${name}: functions, libraries, files, threads`,
    `#tab=functions&${fragment}`,
    async (page) => {
      const numbers = numbersOf(DOCUMENT, filters);
      assert.equal(await selectedCount(page), numbers.count);
      assert.deepEqual(byFunction(await tableRows(page)), expectedFunctions(numbers));

      await page.getByRole('tab', { name: 'Libraries' }).click();
      const libraries = (await tableRows(page)).map((row) => [
        row.Library,
        [Number(row.Own), Number(row.Total)],
      ]);
      assert.deepEqual(Object.fromEntries(libraries), numbers.libraries);

      await page.getByRole('tab', { name: 'Files' }).click();
      const files = (await tableRows(page)).map((row) => [
        row['Source file'].replace('(not known)', ''),
        [Number(row.Own), Number(row.Total)],
      ]);
      assert.deepEqual(Object.fromEntries(files), numbers.files);

      await page.getByRole('tab', { name: 'Processes' }).click();
      const threads = (await tableRows(page)).map((row) => {
        const id = (text) => (text === '-1' ? 'unknown' : text);
        const name = (text) => text.replace('(no name)', '');
        return [
          `${id(row.Pid)}/${id(row.Tid)}/${name(row['Thread name'])}/${name(row['Process name'])}`,
          Number(row.Samples),
        ];
      });
      assert.deepEqual(Object.fromEntries(threads), numbers.threads);
    },
  );
}

/** Boxes of the graph by path, out of the picture that it saves. */
async function savedBoxes(page) {
  const picture = (await download(page, 'SVG')).toString();
  const boxes = [
    ...picture.matchAll(
      /<title>([\s\S]*?): (\d+) samples, [^<]*<\/title><rect x="([-\d.]+)" y="(\d+)" width="([\d.]+)"/g,
    ),
  ];
  const plain = (text) =>
    text
      .replaceAll('&lt;', '<')
      .replaceAll('&gt;', '>')
      .replaceAll('&quot;', '"')
      .replaceAll('&amp;', '&');
  return boxes.map(([, title, count, x, y, width]) => ({
    title: plain(title),
    count: Number(count),
    x: Number(x),
    depth: Number(y) / 18,
    width: Number(width),
  }));
}

pageTest('the flame graph from the root has each path with its samples', '', async (page) => {
  const { paths } = numbersOf(DOCUMENT);
  const boxes = await savedBoxes(page);
  const chain = [];
  const drawn = new Set();
  const rests = [];
  let seen = 0;
  // A box belongs to the one above it that reaches over its middle.
  for (const box of boxes.filter(({ depth }) => depth > 0)) {
    const middle = box.x + box.width / 2;
    chain.length = 0;
    for (let depth = 1; depth < box.depth; ++depth) {
      chain.push(
        boxes.find(
          (other) =>
            other.depth === depth && other.x <= middle && middle <= other.x + other.width + 0.5,
        ).title,
      );
    }
    const path = [...chain, box.title].join('\n');
    if (/^[\d,]+ more$/.test(box.title)) {
      rests.push({ ...box, parent: chain.join('\n') });
      continue;
    }
    drawn.add(path);
    // Two functions of a name in two libraries are two boxes of the same path.
    assert.ok(paths[path] >= box.count, `${path}: ${paths[path]} and ${box.count}`);
    seen += paths[path] === box.count ? 1 : 0;
  }
  let exact = 0;
  for (const { title, count, parent } of rests) {
    const missing = Object.keys(paths).filter(
      (path) => path.slice(0, path.lastIndexOf('\n')) === parent && !drawn.has(path),
    );
    const sum = missing.reduce((samples, path) => samples + paths[path], 0);
    // One of two functions of a name may be drawn.
    assert.ok(sum <= count && count <= paths[parent], `${parent}: ${title}, ${count} and ${sum}`);
    exact += sum === count && title === `${missing.length} more` ? 1 : 0;
  }
  assert.ok(rests.length > 5 && exact > 0.7 * rests.length, `${exact} of ${rests.length}`);
  assert.ok(boxes.length > 200 && seen > 0.95 * drawn.size, `${seen} of ${boxes.length}`);
});

pageTest('from the leaves: the first row are own samples', '#order=leaf', async (page) => {
  const { functions } = numbersOf(DOCUMENT);
  const own = Object.entries(functions).map(([key, [count]]) => [
    key.slice(0, key.lastIndexOf('!')),
    count,
  ]);
  const row = (await savedBoxes(page)).filter(({ depth }) => depth === 1);
  const wanted = own.filter(([, count]) => count > 0).sort();
  assert.deepEqual(row.map(({ title, count }) => [title, count]).sort(), wanted);
});

pageTest('by process: a box each', '#by=process', async (page) => {
  const row = (await savedBoxes(page)).filter(({ depth }) => depth === 1);
  const counts = {};
  for (const [key, count] of Object.entries(numbersOf(DOCUMENT).threads)) {
    const [pid, , , name] = key.split('/');
    const title = `${name || '(no name)'} ${pid}`;
    counts[title] = (counts[title] ?? 0) + count;
  }
  assert.deepEqual(Object.fromEntries(row.map(({ title, count }) => [title, count])), counts);
});

pageTest('a click zooms, escape and the back button return', '', async (page) => {
  await page.locator('canvas.flame').click({ position: { x: 60, y: 27 } });
  assert.match(await page.evaluate(() => location.hash), /focus=\d+/);
  assert.ok(await page.locator('.path strong').isVisible());
  await page.keyboard.press('Escape');
  assert.equal(await page.evaluate(() => location.hash), '');
  await goBack(page);
  assert.match(await page.evaluate(() => location.hash), /focus=\d+/);
});

pageTest('search tells the share of chains', '', async (page) => {
  await page.keyboard.press('/');
  await page.keyboard.type('FUNCTION_7(');
  const { found, count } = numbersOf(DOCUMENT, { search: 'function_7(' });
  const share = `${((100 * found) / count).toFixed(2)} %`;
  await page.getByText(`${share} in chains with 1 function`).waitFor();
  await page.locator('.flame-view input').fill('/function_(7|8)\\(/');
  await page.getByText('in chains with 2 functions').waitFor();
  await page.locator('.flame-view input').fill('/(/');
  await page.getByText('not an expression').waitFor();
});

pageTest('callers and callees of a function, one click away', '#tab=functions', async (page) => {
  await page.locator('.table-main .rows .row').first().click();
  const name = await page.locator('.function-name').textContent();
  const { callers, callees, functions } = numbersOf(DOCUMENT);
  const key = Object.keys(functions).find((other) => other.startsWith(`${name}!`));
  for (const [label, wanted] of [
    ['Callers', callers[key]],
    ['Callees', callees[key]],
  ]) {
    const grid = page.getByRole('grid', { name: label });
    const total = Object.values(wanted).reduce((sum, count) => sum + count, 0);
    const largest = Math.max(...Object.values(wanted));
    const first = await grid.locator('.rows .row .number').first().textContent();
    assert.equal(first, `${((100 * largest) / total).toFixed(2)} %`);
    assert.equal(await grid.getAttribute('aria-rowcount'), String(Object.keys(wanted).length + 1));
  }
});

pageTest('dragging selects a time; everything follows; back undoes', '', async (page) => {
  const heat = await page.locator('canvas.heat').boundingBox();
  await page.mouse.move(heat.x + heat.width * 0.25, heat.y + 8);
  await page.mouse.down();
  await page.mouse.move(heat.x + heat.width * 0.4, heat.y + 8);
  await page.mouse.move(heat.x + heat.width * 0.5, heat.y + 8);
  await page.mouse.up();
  const time = await page.evaluate(() =>
    new URLSearchParams(location.hash.slice(1)).get('t').split(',').map(Number),
  );
  const duration = await page.evaluate(() =>
    Number(/([\d.]+) s$/.exec(document.querySelector('header .note').textContent)[1]),
  );
  assert.ok(
    Math.abs(time[0] - duration * 0.25) < 0.02 && Math.abs(time[1] - duration * 0.5) < 0.02,
    String(time),
  );
  assert.equal(await selectedCount(page), numbersOf(DOCUMENT, { time }).count);
  await goBack(page);
  assert.equal(await selectedCount(page), 4000);
});

pageTest('the wheel zooms around the pointer, keys do too', '', async (page) => {
  const heat = await page.locator('canvas.heat').boundingBox();
  await page.mouse.move(heat.x + heat.width / 2, heat.y + 8);
  await page.mouse.wheel(0, -200);
  const zoom = () =>
    page.evaluate(
      () => new URLSearchParams(location.hash.slice(1)).get('z')?.split(',').map(Number) ?? null,
    );
  await page.waitForFunction(() => location.hash.includes('z='));
  const [from, to] = await zoom();
  assert.ok(Math.abs((from + to) / 2 - 4) < 0.2, `${from} ${to}`);
  await page.keyboard.press('w');
  const closer = await zoom();
  assert.ok(closer[1] - closer[0] < 0.6 * (to - from));
  await page.keyboard.press('0');
  assert.equal(await zoom(), null);
});

pageTest('the mark on the heat map selects with keys alone', '', async (page) => {
  await page.locator('canvas.heat').focus();
  await page.keyboard.press('ArrowLeft');
  for (let i = 0; i < 10; ++i) {
    await page.keyboard.press('Shift+ArrowRight');
  }
  await page.keyboard.press('Enter');
  const time = await page.evaluate(() =>
    new URLSearchParams(location.hash.slice(1)).get('t').split(',').map(Number),
  );
  assert.equal(await selectedCount(page), numbersOf(DOCUMENT, { time }).count);
});

pageTest(
  'rows of the heat map filter: process, thread, CPU that is not recorded',
  '',
  async (page) => {
    await page.getByRole('button', { name: 'other 200' }).click();
    assert.equal(await selectedCount(page), numbersOf(DOCUMENT, { pids: ['200'] }).count);
    await page.getByRole('button', { name: 'Remove filter process other 200' }).click();
    await page.getByRole('button', { name: 'CPUs', exact: true }).click();
    await page.getByRole('button', { name: 'CPU not recorded' }).click();
    assert.equal(await selectedCount(page), numbersOf(DOCUMENT, { cpus: ['unknown'] }).count);
    await page.getByRole('button', { name: 'Clear all' }).click();
    assert.equal(await selectedCount(page), 4000);
  },
);

pageTest('clicks in tables filter, and show it', '#tab=libraries', async (page) => {
  await page.getByRole('row', { name: /\/usr\/bin\/app/ }).click();
  assert.equal(
    await selectedCount(page),
    numbersOf(DOCUMENT, { libraries: ['/usr/bin/app'] }).count,
  );
  await page.getByRole('tab', { name: 'Processes' }).click();
  await page.getByRole('row', { name: /worker 101/ }).click();
  const both = { libraries: ['/usr/bin/app'], tids: ['101'] };
  assert.equal(await selectedCount(page), numbersOf(DOCUMENT, both).count);
  await goBack(page);
  await goBack(page);
  await goBack(page);
  assert.equal(await selectedCount(page), 4000);
});

pageTest('only chains with a function', '#tab=functions', async (page) => {
  await page.locator('.table-main .rows .row').first().click();
  const name = await page.locator('.function-name').textContent();
  await page.getByRole('button', { name: 'Only chains with it' }).click();
  assert.equal(await selectedCount(page), numbersOf(DOCUMENT, { functions: [name] }).count);
});

pageTest('an address shows the same to somebody else', '', async (page) => {
  await page.keyboard.press('k');
  await page.keyboard.press('2');
  await page.locator('.table-view input').fill('function_1');
  await page.keyboard.press('Enter');
  const rows = await tableRows(page);
  const address = await page.evaluate(() => location.href);
  const other = await openPage(browser, address.slice('file://'.length));
  assert.equal(await selectedCount(other.page), numbersOf(DOCUMENT, { mode: 'kernel' }).count);
  assert.deepEqual(await tableRows(other.page), rows);
  await other.page.close();
});

pageTest('keys: tabs, kernel and user, order, theme, help', '', async (page) => {
  for (const [key, tab] of [
    ['2', 'Functions'],
    ['3', 'Libraries'],
    ['4', 'Processes'],
    ['5', 'Files'],
    ['6', 'About'],
    ['1', 'Flame graph'],
  ]) {
    await page.keyboard.press(key);
    assert.equal(await page.locator('[role=tab][aria-selected=true]').textContent(), tab);
  }
  await page.keyboard.press('u');
  assert.equal(await selectedCount(page), numbersOf(DOCUMENT, { mode: 'user' }).count);
  await page.keyboard.press('x');
  await page.keyboard.press('i');
  await page.keyboard.press('g');
  await page.keyboard.press('r');
  assert.equal(await page.evaluate(() => location.hash), '#rows=threads&order=leaf&by=process');
  await page.keyboard.press('t');
  assert.equal(await page.evaluate(() => document.documentElement.dataset.theme), 'dark');
  await page.keyboard.press('?');
  assert.ok(await page.getByRole('dialog', { name: 'Keys' }).isVisible());
  await page.keyboard.press('Escape');
  assert.ok(!(await page.getByRole('dialog', { name: 'Keys' }).isVisible()));
});

pageTest('the graph is walked through with arrows, and read aloud', '', async (page) => {
  await page.locator('canvas.flame').focus();
  await page.keyboard.press('ArrowDown');
  const [, largest] = (await savedBoxes(page)).filter(({ depth }) => depth <= 1);
  await page.locator('canvas.flame').focus();
  await page.keyboard.press('ArrowUp');
  await page.keyboard.press('ArrowDown');
  const said = await page.locator('[aria-live]').textContent();
  assert.ok(said.startsWith(largest.title), said);
  await page.keyboard.press('f');
  assert.equal(
    await selectedCount(page),
    numbersOf(DOCUMENT, { functions: [largest.title] }).count,
  );
});

pageTest('exports: picture, pixels, folded stacks', '#t=1,5&mode=user', async (page) => {
  const svg = (await download(page, 'SVG')).toString();
  execFileSync(
    settings.python,
    ['-c', 'import sys, xml.dom.minidom as m; m.parseString(sys.stdin.buffer.read())'],
    { input: svg },
  );
  assert.deepEqual([...(await download(page, 'PNG')).subarray(0, 4)], [0x89, 0x50, 0x4e, 0x47]);
  const folded = (await download(page, 'Folded')).toString().trim().split('\n');
  const counts = {};
  for (const line of folded) {
    const [, stack, count] = /^([\s\S]*) (\d+)$/.exec(line);
    counts[stack] = (counts[stack] ?? 0) + Number(count);
  }
  assert.deepEqual(counts, numbersOf(DOCUMENT, { time: [1, 5], mode: 'user' }).folded);
});

test('folded stacks are those of the format, too', async () => {
  const text = execFileSync(settings.report, [
    '-q',
    '-f',
    'folded',
    '-o',
    '-',
    DOCUMENT,
  ]).toString();
  const lines = text
    .trim()
    .split('\n')
    .map((line) => /^([\s\S]*) (\d+)$/.exec(line).slice(1));
  const counts = Object.fromEntries(lines.map(([stack, count]) => [stack, Number(count)]));
  // Two libraries may have a function of a name: two lines of the same text.
  assert.equal(
    lines.reduce((sum, [, count]) => sum + Number(count), 0),
    4000,
  );
  assert.deepEqual(Object.keys(counts).sort(), Object.keys(numbersOf(DOCUMENT).folded).sort());
});

test('second by second: dragging selects from one part of a second to another', async () => {
  const { page, problems } = await openPage(browser, PAGE, '#rows=seconds');
  const heat = await page.locator('canvas.heat').boundingBox();
  const seconds = await page.evaluate(() =>
    Math.ceil(Number(/([\d.]+) s$/.exec(document.querySelector('header .note').textContent)[1])),
  );
  await page.mouse.move(heat.x + (heat.width * 1.5) / seconds, heat.y + heat.height * 0.75);
  await page.mouse.down();
  await page.mouse.move(heat.x + (heat.width * 2.5) / seconds, heat.y + heat.height * 0.5, {
    steps: 3,
  });
  await page.mouse.up();
  const time = await page.evaluate(() =>
    new URLSearchParams(location.hash.slice(1)).get('t').split(',').map(Number),
  );
  assert.ok(Math.abs(time[0] - 1.25) < 0.03 && Math.abs(time[1] - 2.5) < 0.03, String(time));
  assert.equal(await selectedCount(page), numbersOf(DOCUMENT, { time }).count);
  assertNoProblems(problems);
  await page.close();
});

test('two recordings: changes of shares, by function and in the graph', async () => {
  const slower = join(FOLDER, 'slower.json');
  const file = join(FOLDER, 'compared.html');
  python('make_document.py', '--samples', '3000', '--seed', '1', '--slower', '7', slower);
  makePage(slower, file, '--compare', DOCUMENT);
  const { page, problems } = await openPage(browser, file, '#tab=functions&sort=-change');
  assert.match(await page.locator('h1').textContent(), /^slower\.json compared with varied\.json$/);
  assert.match(await page.locator('.table-main .rows .row').first().textContent(), /function_7\(/);
  const now = numbersOf(slower);
  const before = numbersOf(DOCUMENT);
  const rows = await tableRows(page);
  for (const row of rows) {
    const key = Object.keys(now.functions).find(
      (other) =>
        other.startsWith(`${row.Function}!`) &&
        fileOf(other.slice(other.lastIndexOf('!') + 1)) === row.Library,
    );
    const [own, total] = now.functions[key] ?? [0, 0];
    const [ownBefore, totalBefore] = before.functions[key] ?? [0, 0];
    const change = 100 * (own / now.count - ownBefore / before.count);
    const totalChange = 100 * (total / now.count - totalBefore / before.count);
    assert.ok(Math.abs(Number(row['Own, change']) - change) < 1e-9, row.Function);
    assert.ok(Math.abs(Number(row['Total, change']) - totalChange) < 1e-9, row.Function);
  }
  assert.ok(rows.length >= Object.keys(now.functions).length);
  await page.getByRole('tab', { name: 'Flame graph' }).click();
  await page.getByText('less', { exact: true }).waitFor();
  assertNoProblems(problems);
  await page.close();
});

test('a hostile document shows as text and breaks nothing', async () => {
  const hostile = join(FOLDER, 'hostile.json');
  const file = join(FOLDER, 'hostile.html');
  python('make_document.py', '--hostile', hostile);
  makePage(hostile, file);
  const text = readFileSync(file, 'utf8');
  assert.equal(
    text.split('</script>').length,
    readFileSync('dist/template.html', 'utf8').split('</script>').length +
      text.split('class="column"').length -
      1,
  );
  const { page, problems } = await openPage(browser, file, '#tab=functions');
  assert.equal(await selectedCount(page), 2000);
  const names = (await tableRows(page)).map((row) => row.Function);
  assert.ok(names.includes('</script><script>window.hacked = 1</script>'));
  assert.ok(names.includes(`"quoted" and 'quoted' & \\ back`));
  assert.ok(names.includes('right <U+202E> to left <U+2066> marks <U+200F>'));
  assert.ok(names.includes('--> <!-- comment'));
  assert.ok(names.includes('long'.repeat(262144)));
  assert.ok(names.some((name) => name.startsWith('semi\ufffd\ufffd\ufffdcolon;')));
  for (const tab of ['Libraries', 'Processes', 'Files', 'About', 'Flame graph']) {
    await page.getByRole('tab', { name: tab }).click();
  }
  await page.getByRole('tab', { name: 'About' }).click();
  await page.getByText('they stand at the end').waitFor();
  await page.getByRole('tab', { name: 'Flame graph' }).click();
  const svg = await download(page, 'SVG');
  execFileSync(
    settings.python,
    ['-c', 'import sys, xml.dom.minidom as m; m.parseString(sys.stdin.buffer.read())'],
    { input: svg },
  );
  assert.equal(await page.evaluate(() => 'hacked' in window), false);
  assertNoProblems(problems);
  await page.close();
});

test('a document without samples opens', async () => {
  const empty = join(FOLDER, 'empty.json');
  const file = join(FOLDER, 'empty.html');
  python('make_document.py', '--samples', '0', empty);
  makePage(empty, file);
  const { page, problems } = await openPage(browser, file);
  assert.equal(await selectedCount(page), 0);
  for (const key of ['2', '3', '4', '5', '6', '1', 'w', 'i', 'g', 'r', 'r', 'r']) {
    await page.keyboard.press(key);
  }
  assertNoProblems(problems);
  await page.close();
});

test('800 pixels wide, nothing is cut off', async () => {
  const { page, problems } = await openPage(browser, PAGE, '#t=1,5&mode=user&pid=100');
  await page.setViewportSize({ width: 800, height: 700 });
  for (const key of ['1', '2', '3', '4', '5', '6']) {
    await page.keyboard.press(key);
    const overflow = await page.evaluate(() => document.documentElement.scrollWidth);
    assert.ok(overflow <= 800, `tab ${key}: ${overflow}`);
  }
  assertNoProblems(problems);
  await page.close();
});
