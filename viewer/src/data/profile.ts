// A recording in memory: columns of numbers, and what is worked out of them once.

import { ColumnSource, type Numbers } from './columns';

/** What a library is. The numbers are those of the report program (LibraryKind). */
export enum Kind {
  Kernel = 0,
  Program = 1,
  Library = 2,
  Jit = 3,
  Unknown = 4,
}
export const KIND_NAMES = ['kernel', 'program', 'libraries', 'JIT', 'unknown'];

export interface Baseline {
  name: string;
  samples: number;
  seconds: number;
  /** How many of its samples have a stack as theirs. */
  counts: Numbers;
}

export interface Facts {
  name: string;
  /** Nanoseconds of a step of the times. */
  timeUnit: number;
  /** Nanoseconds on the recording's clock. */
  firstTime: number;
  timelessSamples: number;
  baseline?: { name: string; samples: number; seconds: number };
}

export interface Process {
  pid: number | null;
  name: string;
  /** Numbers of its threads. */
  threads: number[];
}

/** What a Profile is made from; see docs/formats.md for the columns. */
export interface ProfileColumns {
  facts: Facts;
  quality: unknown;
  baselineQuality: unknown;
  libraryNames: string[];
  libraryKinds: Numbers;
  fileNames: string[];
  frameNames: string[];
  frameLibraries: Numbers;
  /** One more than the file's number, 0 for none; so are the thread ids and CPUs below. */
  frameFiles: Numbers;
  threadPids: Numbers;
  threadTids: Numbers;
  threadNames: string[];
  threadProcesses: string[];
  stackDepths: Numbers;
  stackFrames: Numbers;
  stackBaseline: Numbers | null;
  times: Float64Array;
  stacks: Numbers;
  threads: Numbers;
  cpus: Numbers;
}

// Characters that change the direction of the text around them, or that show as nothing at all.
const INVISIBLE = /[\u061c\u200b-\u200f\u2028-\u202e\u2060-\u2069\ufeff]/g;

/** The text with a name in place of each character that would not be seen. */
export function visibleText(text: string): string {
  if (!INVISIBLE.test(text)) {
    return text;
  }
  return text.replace(
    INVISIBLE,
    (mark) => `<U+${mark.charCodeAt(0).toString(16).toUpperCase().padStart(4, '0')}>`,
  );
}

export function fileNameOf(path: string): string {
  return path.slice(path.lastIndexOf('/') + 1) || path;
}

/** For each node of a tree in pre-order: 1 where its label stands on the path to it for the first time. */
function firstOnPath(depths: Numbers, labels: (node: number) => number, count: number): Uint8Array {
  const result = new Uint8Array(depths.length);
  const onPath = new Uint32Array(count + 1);
  const path: number[] = [];
  for (let node = 1; node < depths.length; ++node) {
    while (path.length >= depths[node]) {
      --onPath[path.pop()!];
    }
    const label = labels(node);
    result[node] = onPath[label]++ === 0 ? 1 : 0;
    path.push(label);
  }
  return result;
}

export class Profile {
  readonly facts: Facts;
  readonly quality: unknown;
  readonly libraryNames: string[];
  readonly libraryKinds: Numbers;
  readonly fileNames: string[];
  readonly frameNames: string[];
  readonly frameLibraries: Numbers;
  readonly frameFiles: Numbers;
  readonly processes: Process[] = [];
  readonly processOfThread: Uint32Array;
  readonly threadPids: Numbers;
  readonly threadTids: Numbers;
  readonly threadNames: string[];
  /** Numbers of the CPUs that occur, in order; null where none was recorded. */
  readonly cpuNumbers: (number | null)[] = [];

  // Stacks: a tree in pre-order. Node 0 is the empty stack.
  readonly stackFrames: Numbers;
  readonly stackParents: Uint32Array;
  /** The node behind the last one below a node. */
  readonly stackEnds: Uint32Array;
  /** Bits: the node's frame (1), library (2), source file (4) is the first of its kind on its path. */
  readonly stackFirsts: Uint8Array;
  readonly baseline: Baseline | null;
  /** How many samples have a stack as theirs. */
  readonly stackCounts: Uint32Array;

  // Samples, ordered by time.
  readonly count: number;
  /** Seconds since the first sample. */
  readonly times: Float64Array;
  readonly stacks: Numbers;
  readonly threads: Numbers;
  /** One more than the CPU, 0 where none was recorded. */
  readonly cpus: Numbers;

  private readonly frameKeys = new Map<string, number>();

  constructor(columns: ProfileColumns) {
    this.facts = columns.facts;
    this.quality = columns.quality;
    this.libraryNames = columns.libraryNames.map(visibleText);
    this.libraryKinds = columns.libraryKinds;
    this.fileNames = columns.fileNames.map(visibleText);
    this.frameNames = columns.frameNames.map(visibleText);
    this.frameLibraries = columns.frameLibraries;
    this.frameFiles = columns.frameFiles;
    this.threadPids = columns.threadPids;
    this.threadTids = columns.threadTids;
    this.threadNames = columns.threadNames.map(visibleText);
    this.stackFrames = columns.stackFrames;
    this.times = columns.times;
    this.stacks = columns.stacks;
    this.threads = columns.threads;
    this.cpus = columns.cpus;
    this.count = columns.times.length;

    const nodes = columns.stackDepths.length;
    this.stackParents = new Uint32Array(nodes);
    this.stackEnds = new Uint32Array(nodes);
    this.linkStacks(columns.stackDepths);
    this.stackCounts = new Uint32Array(nodes);
    for (let sample = 0, { stacks } = this; sample < stacks.length; ++sample) {
      ++this.stackCounts[stacks[sample]];
    }
    this.stackFirsts = this.findFirsts(columns.stackDepths);
    this.baseline =
      columns.facts.baseline === undefined || columns.stackBaseline === null
        ? null
        : { ...columns.facts.baseline, counts: columns.stackBaseline };

    this.processOfThread = new Uint32Array(this.threadTids.length);
    this.groupThreads(columns.threadProcesses.map(visibleText));
    this.findCpus();
    for (let frame = this.frameNames.length - 1; frame >= 0; --frame) {
      this.frameKeys.set(this.frameKey(frame), frame);
    }
  }

  /** The length in seconds. */
  get duration(): number {
    return this.count === 0 ? 0 : this.times[this.count - 1];
  }

  frameKind(frame: number): Kind {
    return this.libraryKinds[this.frameLibraries[frame]];
  }

  libraryFile(library: number): string {
    return fileNameOf(this.libraryNames[library]);
  }

  /** A frame's name for addresses: it stays the same when the recording is made into a page again. */
  frameKey(frame: number): string {
    return `${this.libraryFile(this.frameLibraries[frame])}!${this.frameNames[frame]}`;
  }

  frameOfKey(key: string): number | null {
    return this.frameKeys.get(key) ?? null;
  }

  threadTitle(thread: number): string {
    const tid = this.threadTids[thread];
    const id = tid === 0 ? 'unknown' : String(tid - 1);
    return `${this.threadNames[thread] || '(no name)'} ${id}`;
  }

  processTitle(process: number): string {
    const { pid, name } = this.processes[process];
    return `${name || '(no name)'} ${pid ?? 'unknown'}`;
  }

  /** The first sample at or after `time`. */
  firstAt(time: number): number {
    let low = 0;
    let high = this.count;
    while (low < high) {
      const middle = (low + high) >>> 1;
      if (this.times[middle] < time) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    return low;
  }

  private linkStacks(depths: Numbers): void {
    const path: number[] = [0];
    for (let node = 1; node < depths.length; ++node) {
      while (path.length > depths[node]) {
        this.stackEnds[path.pop()!] = node;
      }
      this.stackParents[node] = path[path.length - 1];
      path.push(node);
    }
    for (const node of path) {
      this.stackEnds[node] = depths.length;
    }
  }

  private findFirsts(depths: Numbers): Uint8Array {
    const frames = this.stackFrames;
    const libraries = this.frameLibraries;
    const files = this.frameFiles;
    const result = firstOnPath(depths, (node) => frames[node], this.frameNames.length);
    const byLibrary = firstOnPath(
      depths,
      (node) => libraries[frames[node]],
      this.libraryNames.length,
    );
    const byFile = firstOnPath(depths, (node) => files[frames[node]], this.fileNames.length + 1);
    for (let node = 0; node < result.length; ++node) {
      result[node] |= (byLibrary[node] << 1) | (byFile[node] << 2);
    }
    return result;
  }

  private groupThreads(processNames: string[]): void {
    const known = new Map<number, number>();
    for (let thread = 0; thread < this.threadTids.length; ++thread) {
      const pid = this.threadPids[thread];
      let process = known.get(pid);
      if (process === undefined) {
        process = this.processes.length;
        known.set(pid, process);
        const name = processNames[thread];
        this.processes.push({ pid: pid === 0 ? null : pid - 1, name, threads: [] });
      }
      this.processes[process].threads.push(thread);
      this.processOfThread[thread] = process;
    }
  }

  private findCpus(): void {
    const seen = new Set<number>();
    for (let i = 0; i < this.count; ++i) {
      seen.add(this.cpus[i]);
    }
    for (const cpu of [...seen].sort((left, right) => left - right)) {
      this.cpuNumbers.push(cpu === 0 ? null : cpu - 1);
    }
  }
}

/** Reads the page's columns, those of the samples at the same time. */
export async function readProfile(document: Document): Promise<Profile> {
  const source = new ColumnSource(document);
  const facts = (await source.json('facts')) as Facts;
  const optionalJson = (name: string) => (source.has(name) ? source.json(name) : null);
  const [times, stacks, threads, cpus, stackDepths, stackFrames, stackBaseline] = await Promise.all(
    [
      source.times('sample.time', facts.timeUnit * 1e-9),
      source.numbers('sample.stack'),
      source.numbers('sample.thread'),
      source.numbers('sample.cpu'),
      source.numbers('stack.depth'),
      source.numbers('stack.frame'),
      source.has('stack.baseline') ? source.numbers('stack.baseline') : null,
    ],
  );
  return new Profile({
    facts,
    quality: await optionalJson('quality'),
    baselineQuality: await optionalJson('baseline.quality'),
    libraryNames: await source.texts('library.name'),
    libraryKinds: await source.numbers('library.kind'),
    fileNames: await source.texts('file.name'),
    frameNames: await source.texts('frame.name'),
    frameLibraries: await source.numbers('frame.library'),
    frameFiles: await source.numbers('frame.file'),
    threadPids: await source.numbers('thread.pid'),
    threadTids: await source.numbers('thread.tid'),
    threadNames: await source.texts('thread.name'),
    threadProcesses: await source.texts('thread.process'),
    stackDepths,
    stackFrames,
    stackBaseline,
    times,
    stacks,
    threads,
    cpus,
  });
}
