// Which samples count under the filters, added up by stack. A pass over the fewer of the samples inside and
// outside the selected time, one over the stacks: that is what a new selection costs.

import type { Numbers } from '../data/columns';
import { Kind, type Profile } from '../data/profile';
import type { State } from './state';

export interface Masks {
  /** By thread, CPU + 1, stack: 1 where it passes; null where all do. */
  threads: Uint8Array | null;
  cpus: Uint8Array | null;
  stacks: Uint8Array | null;
}

export interface Selection {
  /** Samples by number: from `first` up to `last`, which is not part of it. */
  first: number;
  last: number;
  masks: Masks;
  /** How many samples pass. */
  count: number;
  /** By stack: samples whose stack it is, and samples whose stack it or one below it is. */
  own: Uint32Array;
  total: Uint32Array;
  /** Of the recording that this one is compared with; filters of time, thread and CPU do not apply. */
  baselineOwn: Uint32Array | null;
  baselineTotal: Uint32Array | null;
  baselineCount: number;
}

const idText = (id: number | null): string => (id === null ? 'unknown' : String(id));

function threadMask(profile: Profile, state: State): Uint8Array | null {
  if (state.pids.length === 0 && state.tids.length === 0) {
    return null;
  }
  const pids = new Set(state.pids);
  const tids = new Set(state.tids);
  const mask = new Uint8Array(profile.threadTids.length);
  for (let thread = 0; thread < mask.length; ++thread) {
    const tid = profile.threadTids[thread];
    const { pid } = profile.processes[profile.processOfThread[thread]];
    const passes =
      (pids.size === 0 || pids.has(idText(pid))) &&
      (tids.size === 0 || tids.has(idText(tid === 0 ? null : tid - 1)));
    mask[thread] = passes ? 1 : 0;
  }
  return mask;
}

function cpuMask(profile: Profile, state: State): Uint8Array | null {
  if (state.cpus.length === 0) {
    return null;
  }
  const cpus = new Set(state.cpus);
  const last = profile.cpuNumbers.at(-1) ?? 0;
  const mask = new Uint8Array(last + 2);
  for (const cpu of profile.cpuNumbers) {
    mask[cpu === null ? 0 : cpu + 1] = cpus.has(idText(cpu)) ? 1 : 0;
  }
  return mask;
}

/** Stacks that `frame` is part of. */
function markChains(profile: Profile, frame: number | null, mask: Uint8Array): void {
  const { stackFrames, stackEnds } = profile;
  for (let node = 1; node < mask.length; ) {
    if (stackFrames[node] === frame) {
      node = stackEnds[node];
    } else {
      mask[node++] = 0;
    }
  }
}

function stackMask(profile: Profile, state: State): Uint8Array | null {
  if (state.libraries.length === 0 && state.mode === '' && state.functions.length === 0) {
    return null;
  }
  const libraries = new Set(state.libraries);
  const frameMask = new Uint8Array(profile.frameNames.length);
  for (let frame = 0; frame < frameMask.length; ++frame) {
    const isKernel = profile.frameKind(frame) === Kind.Kernel;
    const passes =
      (libraries.size === 0 ||
        libraries.has(profile.libraryNames[profile.frameLibraries[frame]])) &&
      (state.mode === '' || (state.mode === 'kernel') === isKernel);
    frameMask[frame] = passes ? 1 : 0;
  }
  const mask = new Uint8Array(profile.stackFrames.length);
  for (let node = 1; node < mask.length; ++node) {
    mask[node] = frameMask[profile.stackFrames[node]];
  }
  for (const key of state.functions) {
    markChains(profile, profile.frameOfKey(key), mask);
  }
  return mask;
}

export function masksOf(profile: Profile, state: State): Masks {
  return {
    threads: threadMask(profile, state),
    cpus: cpuMask(profile, state),
    stacks: stackMask(profile, state),
  };
}

/** The masks with ones where all pass, for loops without questions; null where there is no mask. */
export function passMasks(
  profile: Profile,
  masks: Masks,
): { [name in keyof Masks]: Uint8Array } | null {
  if (masks.threads === null && masks.cpus === null && masks.stacks === null) {
    return null;
  }
  const ones = (length: number) => new Uint8Array(length).fill(1);
  return {
    threads: masks.threads ?? ones(profile.threadTids.length),
    cpus: masks.cpus ?? ones((profile.cpuNumbers.at(-1) ?? 0) + 2),
    stacks: masks.stacks ?? ones(profile.stackFrames.length),
  };
}

/** Calls `use` with each sample from `first` to `last` that passes the masks. */
export function forEachSample(
  profile: Profile,
  masks: Masks,
  first: number,
  last: number,
  use: (sample: number) => void,
): void {
  const { threads, cpus, stacks } = masks;
  for (let sample = first; sample < last; ++sample) {
    if (
      (threads === null || threads[profile.threads[sample]] === 1) &&
      (cpus === null || cpus[profile.cpus[sample]] === 1) &&
      (stacks === null || stacks[profile.stacks[sample]] === 1)
    ) {
      use(sample);
    }
  }
}

/** What each stack has with all that are below it. */
export function totalsOf(profile: Profile, own: Uint32Array): Uint32Array {
  const total = own.slice();
  const parents = profile.stackParents;
  for (let node = total.length - 1; node > 0; --node) {
    total[parents[node]] += total[node];
  }
  return total;
}

/** Adds `step` to the stack of each sample from `first` to `last`. */
function addSamples(
  stacks: Numbers,
  first: number,
  last: number,
  step: number,
  counts: Uint32Array,
): void {
  for (let sample = first; sample < last; ++sample) {
    counts[stacks[sample]] += step;
  }
}

/** Samples from `first` to `last` by stack. Of a larger part those outside are taken off: they are fewer. */
function countStacks(profile: Profile, first: number, last: number): Uint32Array {
  const { stacks, stackCounts, count } = profile;
  if (last - first <= count / 2) {
    const counts = new Uint32Array(stackCounts.length);
    addSamples(stacks, first, last, 1, counts);
    return counts;
  }
  const counts = stackCounts.slice();
  addSamples(stacks, 0, first, -1, counts);
  addSamples(stacks, last, count, -1, counts);
  return counts;
}

/** Samples from `first` to `last` that pass, by stack. */
function countPassing(profile: Profile, masks: Masks, first: number, last: number): Uint32Array {
  if (masks.threads === null && masks.cpus === null) {
    const counts = countStacks(profile, first, last);
    for (let node = 0; masks.stacks !== null && node < counts.length; ++node) {
      counts[node] *= masks.stacks[node];
    }
    return counts;
  }
  const counts = new Uint32Array(profile.stackCounts.length);
  const { stacks, threads, cpus } = profile;
  const passing = passMasks(profile, masks)!;
  for (let sample = first; sample < last; ++sample) {
    if ((passing.threads[threads[sample]] & passing.cpus[cpus[sample]]) === 1) {
      counts[stacks[sample]] += passing.stacks[stacks[sample]];
    }
  }
  return counts;
}

/** Selected samples by thread. */
export function countThreads(profile: Profile, selection: Selection): Uint32Array {
  const counts = new Uint32Array(profile.threadTids.length);
  const { first, last } = selection;
  const { stacks, threads, cpus } = profile;
  const passing = passMasks(profile, selection.masks);
  for (let sample = first; sample < last; ++sample) {
    counts[threads[sample]] +=
      passing === null
        ? 1
        : passing.threads[threads[sample]] &
          passing.cpus[cpus[sample]] &
          passing.stacks[stacks[sample]];
  }
  return counts;
}

export function select(profile: Profile, state: State): Selection {
  const masks = masksOf(profile, state);
  const first = state.time === null ? 0 : profile.firstAt(state.time[0]);
  const last = state.time === null ? profile.count : profile.firstAt(state.time[1]);
  const own = countPassing(profile, masks, first, last);
  const total = totalsOf(profile, own);
  const baselineOwn = profile.baseline === null ? null : new Uint32Array(profile.baseline.counts);
  if (baselineOwn !== null && masks.stacks !== null) {
    for (let node = 0; node < baselineOwn.length; ++node) {
      baselineOwn[node] *= masks.stacks[node];
    }
  }
  const baselineTotal = baselineOwn === null ? null : totalsOf(profile, baselineOwn);
  return {
    first,
    last,
    masks,
    count: total[0],
    own,
    total,
    baselineOwn,
    baselineTotal,
    baselineCount: baselineTotal === null ? 0 : baselineTotal[0],
  };
}
