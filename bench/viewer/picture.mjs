// A picture of a page, as those in docs/pictures: headless Chromium, light.
//
//     node bench/viewer/picture.mjs PAGE FRAGMENT WIDTH HEIGHT PICTURE.png
//
// FRAGMENT is what stands behind the page's address, with its #; it may be empty. Needs the packages of viewer/
// (npm ci --prefix viewer) and Debian's chromium.
import { createRequire } from 'node:module';
import { resolve } from 'node:path';

const require = createRequire(new URL('../../viewer/package.json', import.meta.url));
const { chromium } = require('playwright-core');

const [file, fragment, width, height, picture] = process.argv.slice(2);
if (picture === undefined) {
  console.error('usage: picture.mjs PAGE FRAGMENT WIDTH HEIGHT PICTURE.png');
  process.exit(2);
}
const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
  args: ['--no-sandbox'],
});
const viewport = { width: Number(width), height: Number(height) };
const page = await browser.newPage({ viewport, colorScheme: 'light' });
await page.goto(`file://${resolve(file)}${fragment}`);
await page.waitForFunction(() => performance.getEntriesByName('opened').length > 0);
await page.waitForTimeout(500);
await page.screenshot({ path: picture });
await browser.close();
