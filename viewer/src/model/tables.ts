// The rows of the tables: functions, libraries, files, processes, and callers and callees of one.

import type { Profile } from '../data/profile';
import { outermostNodes } from './flame';
import { countThreads, type Selection } from './selection';

export interface Row {
  /** A frame, library, file or thread. */
  number: number;
  own: number;
  total: number;
  baselineOwn: number;
  baselineTotal: number;
}

/** Own and total samples by what `labelOf` says of a frame; `firstBit`: see Profile.stackFirsts. */
function rowsBy(
  profile: Profile,
  selection: Selection,
  labelOf: (frame: number) => number,
  count: number,
  firstBit: number,
): Row[] {
  const own = new Uint32Array(count);
  const total = new Uint32Array(count);
  const baselineOwn = new Uint32Array(count);
  const baselineTotal = new Uint32Array(count);
  const { stackFrames, stackFirsts } = profile;
  for (let node = 1; node < stackFrames.length; ++node) {
    const inBaseline = selection.baselineTotal !== null && selection.baselineTotal[node] > 0;
    if (selection.total[node] === 0 && !inBaseline) {
      continue;
    }
    const label = labelOf(stackFrames[node]);
    own[label] += selection.own[node];
    const isFirst = (stackFirsts[node] & firstBit) !== 0;
    total[label] += isFirst ? selection.total[node] : 0;
    if (inBaseline) {
      baselineOwn[label] += selection.baselineOwn![node];
      baselineTotal[label] += isFirst ? selection.baselineTotal![node] : 0;
    }
  }
  const rows: Row[] = [];
  for (let number = 0; number < count; ++number) {
    if (total[number] > 0 || baselineTotal[number] > 0) {
      rows.push({
        number,
        own: own[number],
        total: total[number],
        baselineOwn: baselineOwn[number],
        baselineTotal: baselineTotal[number],
      });
    }
  }
  return rows;
}

export function functionRows(profile: Profile, selection: Selection): Row[] {
  return rowsBy(profile, selection, (frame) => frame, profile.frameNames.length, 1);
}

export function libraryRows(profile: Profile, selection: Selection): Row[] {
  const libraries = profile.frameLibraries;
  return rowsBy(profile, selection, (frame) => libraries[frame], profile.libraryNames.length, 2);
}

/** By source file; number 0 stands for functions whose file is not known, others are one more. */
export function fileRows(profile: Profile, selection: Selection): Row[] {
  const files = profile.frameFiles;
  return rowsBy(profile, selection, (frame) => files[frame], profile.fileNames.length + 1, 4);
}

export interface ThreadRow {
  thread: number;
  process: number;
  count: number;
  processCount: number;
}

export function threadRows(profile: Profile, selection: Selection): ThreadRow[] {
  const byThread = countThreads(profile, selection);
  const byProcess = new Uint32Array(profile.processes.length);
  byThread.forEach((count, thread) => {
    byProcess[profile.processOfThread[thread]] += count;
  });
  const rows: ThreadRow[] = [];
  byThread.forEach((count, thread) => {
    const process = profile.processOfThread[thread];
    if (count > 0) {
      rows.push({ thread, process, count, processCount: byProcess[process] });
    }
  });
  return rows;
}

export interface Relative {
  /** The calling or called function; -1: none, the function is where samples fell or began. */
  frame: number;
  count: number;
}

function sorted(counts: Map<number, number>): Relative[] {
  const rows = [...counts].map(([frame, count]) => ({ frame, count }));
  return rows.sort((left, right) => right.count - left.count || left.frame - right.frame);
}

/** Who called the function directly, and what it called. Both add up to its total: recursive calls count once. */
export function relativesOf(
  profile: Profile,
  selection: Selection,
  frame: number,
): { callers: Relative[]; callees: Relative[] } {
  const { stackFrames, stackParents, stackEnds } = profile;
  const callers = new Map<number, number>();
  const callees = new Map<number, number>();
  const add = (to: Map<number, number>, key: number, count: number) => {
    if (count > 0) {
      to.set(key, (to.get(key) ?? 0) + count);
    }
  };
  for (const node of outermostNodes(profile, selection.total, frame)) {
    const parent = stackParents[node];
    add(callers, parent === 0 ? -1 : stackFrames[parent], selection.total[node]);
    add(callees, -1, selection.own[node]);
    for (let child = node + 1; child < stackEnds[node]; child = stackEnds[child]) {
      add(callees, stackFrames[child], selection.total[child]);
    }
  }
  return { callers: sorted(callers), callees: sorted(callees) };
}

/** Samples by kind of library of the innermost function. */
export function countsByKind(profile: Profile, selection: Selection): number[] {
  const counts = [0, 0, 0, 0, 0];
  for (let node = 1; node < selection.own.length; ++node) {
    counts[profile.frameKind(profile.stackFrames[node])] += selection.own[node];
  }
  return counts;
}
