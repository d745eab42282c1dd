// The selected samples by process or thread: for graphs beside each other, and as folded stacks.

import type { Profile } from '../data/profile';
import { countThreads, forEachSample, type Selection } from './selection';

export interface Group {
  title: string;
  /** The samples' stacks, one entry a sample. */
  stacks: Uint32Array;
}

/** Groups of processes or threads that have samples, in their order. */
export function groupsOf(
  profile: Profile,
  selection: Selection,
  by: 'process' | 'thread',
): Group[] {
  const count = by === 'process' ? profile.processes.length : profile.threadTids.length;
  const groupOf = (thread: number) => (by === 'process' ? profile.processOfThread[thread] : thread);
  const ends = new Uint32Array(count + 1);
  countThreads(profile, selection).forEach((samples, thread) => {
    ends[groupOf(thread) + 1] += samples;
  });
  for (let group = 0; group < count; ++group) {
    ends[group + 1] += ends[group];
  }
  const stacks = new Uint32Array(selection.count);
  const next = ends.slice();
  forEachSample(profile, selection.masks, selection.first, selection.last, (sample) => {
    stacks[next[groupOf(profile.threads[sample])]++] = profile.stacks[sample];
  });
  const groups: Group[] = [];
  for (let group = 0; group < count; ++group) {
    const title = by === 'process' ? profile.processTitle(group) : profile.threadTitle(group);
    groups.push({ title, stacks: stacks.subarray(ends[group], ends[group + 1]) });
  }
  return groups;
}

/** Lines `process;outermost;...;innermost count`, as flame graph programs read them. */
export function foldedStacks(profile: Profile, selection: Selection): string[] {
  const lines: string[] = [];
  const clean = (name: string) => name.replaceAll(';', ':').replaceAll('\n', ' ');
  groupsOf(profile, selection, 'process').forEach((group, process) => {
    const counts = new Map<number, number>();
    for (const stack of group.stacks) {
      counts.set(stack, (counts.get(stack) ?? 0) + 1);
    }
    const name = clean(profile.processes[process].name || '(no name)');
    for (const [stack, count] of counts) {
      const names: string[] = [];
      for (let node = stack; node !== 0; node = profile.stackParents[node]) {
        names.push(clean(profile.frameNames[profile.stackFrames[node]]));
      }
      lines.push(`${[name, ...names.reverse()].join(';')} ${count}`);
    }
  });
  return lines;
}
