// Numbers and names as people read them.

import type { State } from '../model/state';

export function formatCount(count: number): string {
  return count.toLocaleString('en-US');
}

export function plural(count: number, one: string, many = `${one}s`): string {
  return `${formatCount(count)} ${count === 1 ? one : many}`;
}

export function formatShare(part: number, whole: number): string {
  return whole === 0 ? '–' : `${((100 * part) / whole).toFixed(2)} %`;
}

/** A difference of shares in percentage points, with its sign. */
export function formatChange(points: number): string {
  const text = Math.abs(points).toFixed(2);
  return text === '0.00' ? '0.00' : `${points > 0 ? '+' : '−'}${text}`;
}

export function formatSeconds(seconds: number): string {
  const size = Math.abs(seconds);
  if (size >= 100 || size === 0) {
    return `${seconds.toFixed(size === 0 ? 0 : 1)} s`;
  }
  if (size >= 1) {
    return `${seconds.toFixed(3)} s`;
  }
  return size >= 1e-3 ? `${(seconds * 1e3).toFixed(2)} ms` : `${(seconds * 1e6).toFixed(1)} µs`;
}

/** Digits behind the point that tell two times apart that are `step` seconds from each other. */
export function digitsFor(step: number): number {
  return step >= 1 ? 0 : Math.min(9, Math.ceil(-Math.log10(step) - 1e-9));
}

/** Digits that show each multiple of `step` as it is: 2 for 0.25. */
export function digitsOf(step: number): number {
  let digits = 0;
  while (digits < 9 && Math.abs(step * 10 ** digits - Math.round(step * 10 ** digits)) > 1e-6) {
    ++digits;
  }
  return digits;
}

export interface ClockFacts {
  /** Seconds of the first sample on the recording's clock. */
  recorded: number;
  /** Milliseconds since 1970 of the first sample; null where the recording does not tell. */
  wall: number | null;
}

/** A time since the first sample on the clock that was chosen. */
export function formatTime(
  seconds: number,
  clock: State['clock'],
  facts: ClockFacts,
  digits: number,
): string {
  if (clock === 'wall' && facts.wall !== null) {
    const moment = new Date(facts.wall + seconds * 1e3);
    const pad = (value: number, width = 2) => String(value).padStart(width, '0');
    const time = `${pad(moment.getHours())}:${pad(moment.getMinutes())}:${pad(moment.getSeconds())}`;
    const fraction = (((facts.wall / 1e3 + seconds) % 1) + 1) % 1;
    return digits === 0 ? time : `${time}${fraction.toFixed(digits).slice(1)}`;
  }
  return (clock === 'recorded' ? facts.recorded + seconds : seconds).toFixed(digits);
}

/** The name up to its parameters. Not every bracket begins them: `(anonymous namespace)`, `operator()`, `{lambda()#1}`. */
function withoutParameters(name: string): string {
  let depth = 0; // of templates and lambdas
  for (let at = 0; at < name.length; ++at) {
    const isOperator = name.endsWith('operator', at) || name.endsWith('operator<', at);
    if ('<{'.includes(name[at]) && !isOperator) {
      ++depth;
    } else if ('>}'.includes(name[at]) && depth > 0 && name[at - 1] !== '-') {
      --depth;
    } else if (name[at] === '(' && depth === 0 && at > 0) {
      if (!name.startsWith('(anonymous', at) && !name.startsWith('operator()', at - 8)) {
        return name.slice(0, at);
      }
    }
  }
  return name;
}

/** Shorter forms of a function's name, the longest first: without parameters, templates, scopes. */
export function shorterNames(name: string): string[] {
  const cut = name.length > 400 ? name.slice(0, 400) : name;
  const bare = withoutParameters(cut);
  let plain = bare.replaceAll('(anonymous namespace)::', '');
  for (let before = ''; before !== plain; ) {
    before = plain;
    plain = plain.replace(/<[^<>]*>/g, '');
  }
  plain = plain || bare;
  const last = plain.slice(plain.lastIndexOf('::') + 1).replace(/^:/, '') || plain;
  return [cut, bare, plain, last];
}

export function shortened(text: string, length: number): string {
  return text.length <= length ? text : `${text.slice(0, length - 1)}…`;
}
