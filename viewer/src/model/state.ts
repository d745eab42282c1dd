// What the page shows, as the fragment of its address keeps it.

export const TABS = ['flame', 'functions', 'libraries', 'processes', 'files', 'about'] as const;
export type Tab = (typeof TABS)[number];
export type Range = [number, number];

export interface State {
  tab: Tab;
  // Filters. Kinds add up; of one kind, one of the values has to match, but for functions, which all
  // have to be in the chain.
  time: Range | null; // seconds since the first sample; the end is not part of it
  pids: string[]; // numbers as text; 'unknown' where none was recorded, here and below
  tids: string[];
  cpus: string[];
  libraries: string[]; // whole names: of the innermost function
  mode: '' | 'user' | 'kernel';
  functions: string[]; // keys of Profile.frameKey
  // What is seen of the time, and how.
  zoom: Range | null;
  rows: 'auto' | 'processes' | 'threads' | 'cpus' | 'seconds';
  clock: 'start' | 'recorded' | 'wall';
  // The flame graph.
  order: 'root' | 'leaf';
  by: 'all' | 'process' | 'thread';
  focus: number[]; // frames from the graph's root to the box that fills it
  search: string;
  /** What changes against another recording are shares of: all samples, or the time. */
  norm: 'samples' | 'time';
  // The tables.
  selected: string; // key of the function whose callers and callees are shown
  sort: string; // a column, with '-' in front for descending
  filter: string; // text that names in the table have
}

export const INITIAL: State = {
  tab: 'flame',
  time: null,
  pids: [],
  tids: [],
  cpus: [],
  libraries: [],
  mode: '',
  functions: [],
  zoom: null,
  rows: 'auto',
  clock: 'start',
  order: 'root',
  by: 'all',
  focus: [],
  search: '',
  norm: 'samples',
  selected: '',
  sort: '',
  filter: '',
};

const LISTS = {
  pid: 'pids',
  tid: 'tids',
  cpu: 'cpus',
  lib: 'libraries',
  fn: 'functions',
} as const;
const RANGES = { t: 'time', z: 'zoom' } as const;
const CHOICES = {
  tab: ['tab', TABS],
  mode: ['mode', ['', 'user', 'kernel']],
  rows: ['rows', ['auto', 'processes', 'threads', 'cpus', 'seconds']],
  clock: ['clock', ['start', 'recorded', 'wall']],
  order: ['order', ['root', 'leaf']],
  by: ['by', ['all', 'process', 'thread']],
  norm: ['norm', ['samples', 'time']],
} as const;
const TEXTS = { q: 'search', sel: 'selected', sort: 'sort', has: 'filter' } as const;

type Writable = Record<string, unknown>;

function rangeOf(text: string | null): Range | null {
  const ends = (text ?? '').split(',').map(Number);
  const isRange = ends.length === 2 && ends.every(Number.isFinite) && ends[0] < ends[1];
  return isRange ? [ends[0], ends[1]] : null;
}

/** The state of a fragment. What it does not say, or says wrongly, is as at the beginning. */
export function parseState(fragment: string): State {
  const parameters = new URLSearchParams(fragment.replace(/^#/, ''));
  const state: State = structuredClone(INITIAL);
  const target = state as unknown as Writable;
  for (const [key, field] of Object.entries(LISTS)) {
    target[field] = parameters.getAll(key);
  }
  for (const [key, field] of Object.entries(RANGES)) {
    target[field] = rangeOf(parameters.get(key));
  }
  for (const [key, [field, values]] of Object.entries(CHOICES)) {
    const value = parameters.get(key);
    if (value !== null && (values as readonly string[]).includes(value)) {
      target[field] = value;
    }
  }
  for (const [key, field] of Object.entries(TEXTS)) {
    target[field] = parameters.get(key) ?? '';
  }
  const focus = (parameters.get('focus') ?? '').split('.').filter((part) => /^-?\d+$/.test(part));
  state.focus = focus.map(Number);
  return state;
}

/** The fragment of a state, without '#'; only what differs from the beginning. */
export function formatState(state: State): string {
  const parameters = new URLSearchParams();
  const source = state as unknown as Writable;
  for (const [key, [field]] of Object.entries(CHOICES)) {
    if (source[field] !== INITIAL[field]) {
      parameters.set(key, String(source[field]));
    }
  }
  for (const [key, field] of Object.entries(RANGES)) {
    const range = source[field] as Range | null;
    if (range !== null) {
      parameters.set(key, range.map((end) => Number(end.toFixed(9))).join(','));
    }
  }
  for (const [key, field] of Object.entries(LISTS)) {
    for (const value of source[field] as string[]) {
      parameters.append(key, value);
    }
  }
  if (state.focus.length > 0) {
    parameters.set('focus', state.focus.join('.'));
  }
  for (const [key, field] of Object.entries(TEXTS)) {
    if (source[field] !== '') {
      parameters.set(key, String(source[field]));
    }
  }
  return parameters.toString();
}

/** The parts of a state that decide which samples count. */
export function filtersOf(state: State): string {
  const { time, pids, tids, cpus, libraries, mode, functions } = state;
  return JSON.stringify([time, pids, tids, cpus, libraries, mode, functions]);
}

export function withoutFilters(state: State): State {
  return {
    ...state,
    time: null,
    pids: [],
    tids: [],
    cpus: [],
    libraries: [],
    mode: '',
    functions: [],
    focus: [],
  };
}
