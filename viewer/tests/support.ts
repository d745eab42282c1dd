// Small recordings of chance, and the plainest way to look at them.

import { Profile, type ProfileColumns } from '../src/data/profile';
import { INITIAL, type State } from '../src/model/state';

export interface Sample {
  time: number;
  /** Frames, the outermost first. */
  chain: number[];
  thread: number;
  /** One more than the CPU; 0: none. */
  cpu: number;
}

/** Numbers from 0 to 1 that are the same in every run (mulberry32). */
export function chanceOf(seed: number): () => number {
  return () => {
    seed = (seed + 0x6d2b79f5) | 0;
    let mixed = Math.imul(seed ^ (seed >>> 15), 1 | seed);
    mixed = (mixed + Math.imul(mixed ^ (mixed >>> 7), 61 | mixed)) ^ mixed;
    return ((mixed ^ (mixed >>> 14)) >>> 0) / 4294967296;
  };
}

export const LIBRARIES = ['kernel', '/usr/bin/app', '/usr/lib/libwork.so'];
export const LIBRARY_OF_FRAME = [0, 0, 1, 1, 2, 2, 2, 1];
const THREADS = [
  { pid: 101, tid: 101, name: 'app', process: 'app' },
  { pid: 101, tid: 102, name: 'worker', process: 'app' },
  { pid: 201, tid: 201, name: 'other', process: 'other' },
];

export function randomSamples(count: number, seed: number): Sample[] {
  const chance = chanceOf(seed);
  const below = (limit: number) => Math.floor(chance() * limit);
  const samples: Sample[] = [];
  for (let i = 0, time = 0; i < count; ++i) {
    const chain = Array.from({ length: 1 + below(6) }, () => below(LIBRARY_OF_FRAME.length));
    samples.push({ time, chain, thread: below(THREADS.length), cpu: below(4) });
    time += chance() * 0.01;
  }
  return samples;
}

interface Node {
  frame: number;
  children: Map<number, Node>;
  number: number;
}

/** A profile of the samples, its stacks numbered as the report program numbers them. */
export function profileOf(samples: Sample[], baseline: Sample[] = []): Profile {
  const root: Node = { frame: 0, children: new Map(), number: 0 };
  const enter = (chain: number[]) => {
    let node = root;
    for (const frame of chain) {
      if (!node.children.has(frame)) {
        node.children.set(frame, { frame, children: new Map(), number: 0 });
      }
      node = node.children.get(frame)!;
    }
    return node;
  };
  const nodes = samples.map(({ chain }) => enter(chain));
  const before = baseline.map(({ chain }) => enter(chain));
  const depths: number[] = [];
  const frames: number[] = [];
  const number = (node: Node, depth: number) => {
    node.number = depths.length;
    depths.push(depth);
    frames.push(node.frame);
    for (const child of node.children.values()) {
      number(child, depth + 1);
    }
  };
  number(root, 0);
  const counts = new Uint32Array(depths.length);
  for (const node of before) {
    ++counts[node.number];
  }
  const columns: ProfileColumns = {
    facts: {
      name: 'test',
      timeUnit: 1000,
      firstTime: 0,
      timelessSamples: 0,
      ...(baseline.length === 0
        ? {}
        : { baseline: { name: 'before', samples: baseline.length, seconds: 1 } }),
    },
    quality: null,
    baselineQuality: null,
    libraryNames: LIBRARIES,
    libraryKinds: Uint8Array.of(0, 1, 2),
    fileNames: ['/src/a.cpp', '/src/b.cpp'],
    frameNames: LIBRARY_OF_FRAME.map((_, frame) => `f${frame}`),
    frameLibraries: Uint8Array.from(LIBRARY_OF_FRAME),
    frameFiles: Uint8Array.of(0, 0, 1, 1, 2, 2, 0, 1),
    threadPids: Uint16Array.from(THREADS.map(({ pid }) => pid + 1)),
    threadTids: Uint16Array.from(THREADS.map(({ tid }) => tid + 1)),
    threadNames: THREADS.map(({ name }) => name),
    threadProcesses: THREADS.map(({ process }) => process),
    stackDepths: Uint32Array.from(depths),
    stackFrames: Uint32Array.from(frames),
    stackBaseline: baseline.length === 0 ? null : counts,
    times: Float64Array.from(samples.map(({ time }) => time)),
    stacks: Uint32Array.from(nodes.map((node) => node.number)),
    threads: Uint8Array.from(samples.map(({ thread }) => thread)),
    cpus: Uint8Array.from(samples.map(({ cpu }) => cpu)),
  };
  return new Profile(columns);
}

export function stateOf(change: Partial<State>): State {
  return { ...structuredClone(INITIAL), ...change };
}

/** How often each key occurs. */
export function tally<Item>(items: Item[], keysOf: (item: Item) => Iterable<string>) {
  const counts: Record<string, number> = {};
  for (const item of items) {
    for (const key of keysOf(item)) {
      counts[key] = (counts[key] ?? 0) + 1;
    }
  }
  return counts;
}
