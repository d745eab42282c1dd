// What the page is about: the recording, and how far it can be trusted.

import type { Profile } from '../data/profile';
import { h } from './dom';
import { formatCount, formatSeconds, shortened } from './format';
import type { Page, View } from './page';

type Json = null | boolean | number | string | Json[] | { [key: string]: Json };
type JsonObject = { [key: string]: Json };

const isObject = (value: Json | undefined): value is JsonObject =>
  typeof value === 'object' && value !== null && !Array.isArray(value);

/** 'wallClockOfFirstSample' as 'Wall clock of first sample'. */
export function titleOfKey(key: string): string {
  const words = key
    .replace(/[_-]+/g, ' ')
    .replace(/([a-z0-9])([A-Z])/g, (_, before, letter) => `${before} ${letter.toLowerCase()}`);
  return words.charAt(0).toUpperCase() + words.slice(1);
}

/** Whatever is under `key`, at any depth; the first that is found. */
export function findKey(value: unknown, keys: readonly string[]): Json | undefined {
  if (Array.isArray(value) || !isObject(value as Json)) {
    return undefined;
  }
  const object = value as JsonObject;
  for (const key of keys) {
    if (key in object) {
      return object[key];
    }
  }
  for (const member of Object.values(object)) {
    const found = findKey(member, keys);
    if (found !== undefined) {
      return found;
    }
  }
  return undefined;
}

/** Milliseconds since 1970 of the first sample; null if the recording does not tell. */
export function wallClockOf(quality: unknown): number | null {
  const nanoseconds = findKey(quality, ['wallClockNanoseconds']);
  const isNumber = typeof nanoseconds === 'string' && /^\d+$/.test(nanoseconds);
  // Nanoseconds since 1970 are more than a number holds; microseconds are not.
  return isNumber ? Number(BigInt(nanoseconds) / 1000n) / 1000 : null;
}

/** The sentence to put over everything where chains cannot be trusted; null where they can. */
export function warningOf(quality: unknown): string | null {
  const judgement = findKey(quality, ['judgement']);
  const isWarning = typeof judgement === 'string' && /cannot be trusted|only:/.test(judgement);
  return isWarning ? judgement : null;
}

function plainText(value: Json): string {
  if (typeof value === 'number') {
    return Number.isInteger(value) ? formatCount(value) : String(value);
  }
  if (Array.isArray(value)) {
    return value.map(plainText).join(' ');
  }
  return value === null
    ? 'unknown'
    : String(value === true ? 'yes' : value === false ? 'no' : value);
}

/** A list of reasons with cures, as a table with a column for each of their keys. */
function list(rows: JsonObject[]): HTMLElement {
  const keys = [...new Set(rows.flatMap((row) => Object.keys(row)))];
  return h(
    'table',
    { class: 'facts' },
    h('thead', {}, h('tr', {}, ...keys.map((key) => h('th', { scope: 'col' }, titleOfKey(key))))),
    h(
      'tbody',
      {},
      ...rows
        .slice(0, 200)
        .map((row) =>
          h(
            'tr',
            {},
            ...keys.map((key) => h('td', {}, shortened(plainText(row[key] ?? ''), 2000))),
          ),
        ),
    ),
  );
}

function pairs(entries: [string, string][]): HTMLElement {
  return h(
    'dl',
    { class: 'facts' },
    ...entries.flatMap(([key, value]) => [h('dt', {}, key), h('dd', {}, shortened(value, 4000))]),
  );
}

/** A report of any shape: objects are sections of keys and values, lists of objects are tables. */
function sections(value: JsonObject, level: number): HTMLElement[] {
  const simple: [string, string][] = [];
  const parts: HTMLElement[] = [];
  for (const [key, member] of Object.entries(value)) {
    const title = titleOfKey(key);
    if (Array.isArray(member) && member.length > 0 && member.every(isObject)) {
      parts.push(h('h3', {}, title), list(member as JsonObject[]));
    } else if (isObject(member)) {
      parts.push(h(level === 0 ? 'h2' : 'h3', {}, title), ...sections(member, level + 1));
    } else if (!Array.isArray(member) || member.length > 0) {
      simple.push([title, plainText(member)]);
    }
  }
  return simple.length === 0 ? parts : [pairs(simple), ...parts];
}

/** Seconds of the first sample on the recording's clock, as the quality report has them. */
export function firstSampleOf(quality: unknown): number | null {
  const first = findKey(quality, ['firstSample']);
  return typeof first === 'string' && /^\d+(\.\d+)?$/.test(first) ? Number(first) : null;
}

function recordingFacts(profile: Profile): [string, string][] {
  const { facts } = profile;
  const cpus = profile.cpuNumbers.filter((cpu) => cpu !== null);
  const entries: [string, string][] = [
    ['File', facts.name],
    ['Samples', formatCount(profile.count)],
    ['Length', formatSeconds(profile.duration)],
    ['Processes', formatCount(profile.processes.length)],
    ['Threads', formatCount(profile.threadTids.length)],
    ['CPUs', cpus.length === 0 ? 'not recorded' : formatCount(cpus.length)],
    ['Different call chains', formatCount(new Set(profile.stacks).size)],
  ];
  if (facts.timelessSamples > 0) {
    entries.push([
      'Samples without a time',
      `${formatCount(facts.timelessSamples)}: they stand at the end`,
    ]);
  }
  if (facts.baseline !== undefined) {
    entries.push([
      'Compared with',
      `${facts.baseline.name}: ${formatCount(facts.baseline.samples)} samples, ${formatSeconds(facts.baseline.seconds)}`,
    ]);
  }
  return entries;
}

const NO_REPORT =
  'There is no report on how good this recording is: the page was made from a document. tracemill-report on the recording itself adds one.';

/** What is known of the recording, then the judgement and what could be better, then the rest. */
function qualityReport(quality: JsonObject): HTMLElement[] {
  const { version: _, recording, judgement, nameless, ...rest } = quality;
  const parts: HTMLElement[] = isObject(recording) ? sections(recording, 1) : [];
  parts.push(h('h2', {}, 'How good it is'));
  if (typeof judgement === 'string') {
    parts.push(h('p', { class: 'judgement' }, judgement));
  }
  if (Array.isArray(nameless) && nameless.length > 0) {
    const rows = nameless.filter(isObject).map((row) => ({
      samples: row.samples ?? 0,
      'without a name in': row.name ?? '',
      why: row.text ?? row.reason ?? '',
      cure: row.cure ?? '',
    }));
    parts.push(h('h3', {}, 'What would make it better'), list(rows));
  }
  return [...parts, ...sections(rest, 1)];
}

export class AboutView implements View {
  readonly element = h('section', {
    class: 'about',
    'aria-label': 'About this recording',
    tabindex: '0',
  });
  private isDrawn = false;

  constructor(private readonly page: Page) {}

  draw(): void {
    if (this.isDrawn) {
      return;
    }
    this.isDrawn = true;
    const { profile } = this.page;
    const quality = profile.quality as Json;
    this.element.replaceChildren(
      h('h2', {}, 'About this recording'),
      pairs(recordingFacts(profile)),
      ...(isObject(quality) ? qualityReport(quality) : [h('p', { class: 'note' }, NO_REPORT)]),
    );
  }

  handleKey(): boolean {
    return false;
  }
}
