import assert from 'node:assert/strict';
import { test } from 'node:test';
import type { Profile } from '../src/data/profile';
import { changeOf } from '../src/model/compare';
import {
  type FlameTree,
  flameFromLeaves,
  flameFromRoot,
  flameOfCallers,
  joinGroups,
  REST,
} from '../src/model/flame';
import { foldedStacks, groupsOf } from '../src/model/groups';
import { heatMap, secondsMap } from '../src/model/heat';
import { countMatches, searchFrames } from '../src/model/search';
import { select } from '../src/model/selection';
import type { State } from '../src/model/state';
import {
  countsByKind,
  fileRows,
  functionRows,
  libraryRows,
  relativesOf,
  threadRows,
} from '../src/model/tables';
import {
  LIBRARIES,
  LIBRARY_OF_FRAME,
  profileOf,
  randomSamples,
  type Sample,
  stateOf,
  tally,
} from './support';

const SAMPLES = randomSamples(600, 11);
const PROFILE = profileOf(SAMPLES);
const innermost = ({ chain }: Sample) => chain[chain.length - 1];

// Each filter, and what it means for one sample.
const FILTERS: [string, Partial<State>, (sample: Sample) => boolean][] = [
  ['none', {}, () => true],
  ['time', { time: [0.5, 1.5] }, ({ time }) => time >= 0.5 && time < 1.5],
  ['process', { pids: ['101'] }, ({ thread }) => thread < 2],
  ['threads', { tids: ['102', '201'] }, ({ thread }) => thread > 0],
  ['CPU that is not recorded', { cpus: ['unknown'] }, ({ cpu }) => cpu === 0],
  ['CPUs', { cpus: ['0', '2'] }, ({ cpu }) => cpu === 1 || cpu === 3],
  ['library', { libraries: [LIBRARIES[2]] }, (sample) => LIBRARY_OF_FRAME[innermost(sample)] === 2],
  ['kernel', { mode: 'kernel' }, (sample) => LIBRARY_OF_FRAME[innermost(sample)] === 0],
  ['user', { mode: 'user' }, (sample) => LIBRARY_OF_FRAME[innermost(sample)] !== 0],
  [
    'functions in the chain',
    { functions: ['app!f2', 'libwork.so!f5'] },
    ({ chain }) => chain.includes(2) && chain.includes(5),
  ],
  ['a function that is not here', { functions: ['app!nothing'] }, () => false],
  [
    'all together',
    { time: [0, 2], pids: ['101'], cpus: ['0', '1'], mode: 'user', functions: ['kernel!f1'] },
    (sample) =>
      sample.time < 2 &&
      sample.thread < 2 &&
      (sample.cpu === 1 || sample.cpu === 2) &&
      LIBRARY_OF_FRAME[innermost(sample)] !== 0 &&
      sample.chain.includes(1),
  ],
];

/** Boxes by the path of frames to them. */
function pathsOf(tree: FlameTree): Record<string, number> {
  const paths: string[] = [];
  const result: Record<string, number> = {};
  tree.frames.forEach((frame, box) => {
    const parent = tree.parents[box];
    paths[box] = parent <= 0 ? String(frame) : `${paths[parent]},${frame}`;
    if (box > 0) {
      result[paths[box]] = tree.values[box];
    }
  });
  return result;
}

const prefixes = (chain: number[]) => chain.map((_, end) => chain.slice(0, end + 1).join(','));

for (const [name, change, passes] of FILTERS) {
  const passing = SAMPLES.filter(passes);
  const selection = select(PROFILE, stateOf(change));

  test(`filter ${name}: the samples that pass`, () => {
    assert.equal(selection.count, passing.length);
  });

  test(`filter ${name}: functions, recursive calls count once`, () => {
    const own = tally(passing, (sample) => [String(innermost(sample))]);
    const total = tally(passing, ({ chain }) => new Set(chain.map(String)));
    const rows = functionRows(PROFILE, selection);
    assert.deepEqual(Object.fromEntries(rows.map((row) => [row.number, row.total])), total);
    for (const row of rows) {
      assert.equal(row.own, own[row.number] ?? 0);
    }
  });

  test(`filter ${name}: libraries and files`, () => {
    const libraries = tally(
      passing,
      ({ chain }) => new Set(chain.map((frame) => String(LIBRARY_OF_FRAME[frame]))),
    );
    const rows = libraryRows(PROFILE, selection);
    assert.deepEqual(Object.fromEntries(rows.map((row) => [row.number, row.total])), libraries);
    const files = tally(
      passing,
      ({ chain }) => new Set(chain.map((frame) => String(PROFILE.frameFiles[frame]))),
    );
    const fileTotals = fileRows(PROFILE, selection).map((row) => [row.number, row.total]);
    assert.deepEqual(Object.fromEntries(fileTotals), files);
  });

  test(`filter ${name}: threads`, () => {
    const counts = threadRows(PROFILE, selection).map((row) => [row.thread, row.count]);
    const wanted = tally(passing, ({ thread }) => [String(thread)]);
    assert.deepEqual(Object.fromEntries(counts), wanted);
  });

  test(`filter ${name}: the graph from the root and from the leaves`, () => {
    const options = { least: 0, focus: [] };
    const fromRoot = flameFromRoot(PROFILE, selection.total, null, options);
    assert.deepEqual(
      pathsOf(fromRoot),
      tally(passing, ({ chain }) => prefixes(chain)),
    );
    const fromLeaves = flameFromLeaves(PROFILE, selection.own, null, options);
    const reversed = tally(passing, ({ chain }) => prefixes(chain.slice().reverse()));
    assert.deepEqual(pathsOf(fromLeaves), reversed);
  });

  test(`filter ${name}: kinds of code`, () => {
    const kinds = [0, 0, 0, 0, 0];
    for (const sample of passing) {
      ++kinds[LIBRARY_OF_FRAME[innermost(sample)]];
    }
    assert.deepEqual(countsByKind(PROFILE, selection), kinds);
  });

  test(`filter ${name}: folded stacks`, () => {
    const wanted = tally(passing, ({ chain, thread }) => [
      [thread < 2 ? 'app' : 'other', ...chain.map((frame) => `f${frame}`)].join(';'),
    ]);
    const lines = Object.entries(wanted).map(([stack, count]) => `${stack} ${count}`);
    assert.deepEqual(foldedStacks(PROFILE, selection).sort(), lines.sort());
  });
}

test('callers and callees add up to the total of the function', () => {
  const selection = select(PROFILE, stateOf({}));
  for (const frame of LIBRARY_OF_FRAME.keys()) {
    const withIt = SAMPLES.filter(({ chain }) => chain.includes(frame));
    const { callers, callees } = relativesOf(PROFILE, selection, frame);
    const place = (chain: number[], step: number) => [
      String(chain[chain.indexOf(frame) + step] ?? -1),
    ];
    const byFrame = (rows: { frame: number; count: number }[]) =>
      Object.fromEntries(rows.map((row) => [row.frame, row.count]));
    assert.deepEqual(
      byFrame(callers),
      tally(withIt, ({ chain }) => place(chain, -1)),
    );
    assert.deepEqual(
      byFrame(callees),
      tally(withIt, ({ chain }) => place(chain, 1)),
    );
  }
});

test('the graph of callers begins at the outermost call', () => {
  const selection = select(PROFILE, stateOf({}));
  const tree = flameOfCallers(PROFILE, selection.total, 3, 0);
  const withIt = SAMPLES.filter(({ chain }) => chain.includes(3));
  assert.equal(tree.values[0], withIt.length);
  const wanted = tally(withIt, ({ chain }) => prefixes(chain.slice(0, chain.indexOf(3)).reverse()));
  assert.deepEqual(pathsOf(tree), wanted);
});

test('a focus follows its path alone, down to what is below', () => {
  const selection = select(PROFILE, stateOf({}));
  const focus = [SAMPLES[0].chain[0]];
  const tree = flameFromRoot(PROFILE, selection.total, null, { least: 0, focus });
  const below = SAMPLES.filter(({ chain }) => chain[0] === focus[0]);
  assert.deepEqual(
    pathsOf(tree),
    tally(below, ({ chain }) => prefixes(chain)),
  );
  assert.equal(tree.frames[tree.focused!], focus[0]);
});

test('a focus that the selection does not have is found out', () => {
  const selection = select(PROFILE, stateOf({}));
  const tree = flameFromRoot(PROFILE, selection.total, null, { least: 0, focus: [77] });
  assert.equal(tree.focused, null);
});

test('boxes below the least share are left out, those at it are not', () => {
  const profile: Profile = profileOf(
    [0, 0, 0, 1].map((frame, i) => ({ time: i, chain: [frame], thread: 0, cpu: 0 })),
  );
  const { total } = select(profile, stateOf({}));
  const boxes = (least: number) =>
    flameFromRoot(profile, total, null, { least, focus: [] }).frames.length - 1;
  assert.equal(boxes(0.25), 2);
  assert.equal(boxes(0.26), 1);
});

test('boxes that are left out have one that counts them, where that is wide enough', () => {
  const frames = [0, 0, 0, 0, 0, 0, 1, 2, 3, 3];
  const samples = frames.map((frame, i) => ({ time: i, chain: [7, frame], thread: 0, cpu: 0 }));
  const profile: Profile = profileOf(samples);
  const { total, own } = select(profile, stateOf({}));
  const rests = (tree: FlameTree) =>
    tree.frames.flatMap((frame, box) =>
      frame === REST
        ? [[tree.depths[box], tree.rests[box], tree.values[box], tree.starts[box]]]
        : [],
    );
  const fromRoot = (least: number, focus: number[] = []) =>
    rests(flameFromRoot(profile, total, null, { least, focus }));
  assert.deepEqual(fromRoot(0.1), []);
  assert.deepEqual(fromRoot(0.15), [[2, 2, 2, 8]]); // 1 and 2, right of six and two samples
  assert.deepEqual(fromRoot(0.3), [[2, 3, 4, 6]]);
  assert.deepEqual(fromRoot(0.5), []); // all others together are narrower than that
  assert.deepEqual(fromRoot(0.3, [7]), [[2, 3, 4, 6]]);
  assert.deepEqual(fromRoot(0.3, [7, 0]), []); // beside what is followed nothing is drawn
  const fromLeaves = flameFromLeaves(profile, own, null, { least: 0.3, focus: [] });
  assert.deepEqual(rests(fromLeaves), [[1, 3, 4, 6]]);
  const joined = joinGroups([{ group: 0, tree: fromLeaves }], []);
  assert.deepEqual(rests(joined), [[2, 3, 4, 6]]);
});

test('groups stand beside each other, the largest first', () => {
  const selection = select(PROFILE, stateOf({}));
  const groups = groupsOf(PROFILE, selection, 'thread');
  const counts = tally(SAMPLES, ({ thread }) => [String(thread)]);
  assert.deepEqual(
    groups.map((group) => group.stacks.length),
    [counts['0'], counts['1'], counts['2']],
  );
  const options = { least: 0, focus: [] };
  const tree = flameFromRoot(PROFILE, selection.total, null, options);
  const joined = joinGroups(
    [
      {
        group: 0,
        tree: flameFromRoot(PROFILE, new Uint32Array(selection.total.length), null, options),
      },
      { group: 1, tree },
    ],
    [],
  );
  assert.equal(joined.frames[1], -3); // group 1
  assert.equal(joined.values[0], tree.values[0]);
});

test('the heat map holds each sample once, in its row and column', () => {
  const { masks } = select(PROFILE, stateOf({}));
  const map = heatMap(PROFILE, masks, 'threads', [0.5, 1.5], 10);
  const inside = SAMPLES.filter(({ time }) => time >= 0.5 && time < 1.5);
  assert.equal(
    map.cells.reduce((sum, cell) => sum + cell, 0),
    inside.length,
  );
  const third = inside.filter(({ time }) => Math.floor((time - 0.5) * 10) === 3);
  assert.equal(map.sums[3], third.length);
  const worker = map.rows.findIndex(({ title }) => title === 'worker 102');
  assert.equal(map.cells[worker * 10 + 3], third.filter(({ thread }) => thread === 1).length);
});

test('second by second: a row for each part of a second, from below', () => {
  const { masks } = select(PROFILE, stateOf({}));
  const map = secondsMap(PROFILE, masks, [0, 3], 50);
  const cell = SAMPLES.filter(({ time }) => time >= 1.02 && time < 1.04).length;
  assert.equal(map.cells[(50 - 2) * map.columns + 1], cell);
  assert.equal(map.firstSecond, 0);
});

test('search: text without regard to case, expressions, and what is none', () => {
  const { total } = select(PROFILE, stateOf({}));
  const share = (text: string) => {
    const search = searchFrames(PROFILE, text);
    return search === null ? null : countMatches(PROFILE, total, search.matches);
  };
  const having = (...frames: number[]) =>
    SAMPLES.filter(({ chain }) => chain.some((frame) => frames.includes(frame))).length;
  assert.equal(share('F3'), having(3));
  assert.equal(share('/^f[12]$/'), having(1, 2));
  assert.equal(share('/F[12]/'), 0);
  assert.equal(share('/F[12]/i'), having(1, 2));
  assert.equal(share('/[/'), null);
  assert.equal(share(''), null);
});

test('the recording from before is counted by stack, under filters of stacks', () => {
  const before = randomSamples(300, 5);
  const profile = profileOf(SAMPLES, before);
  const all = select(profile, stateOf({ time: [0, 0.1] }));
  assert.equal(all.baselineCount, before.length);
  const kernel = select(profile, stateOf({ mode: 'kernel' }));
  const inKernel = before.filter((sample) => LIBRARY_OF_FRAME[innermost(sample)] === 0);
  assert.equal(kernel.baselineCount, inKernel.length);
  const rows = functionRows(profile, all);
  const total = tally(before, ({ chain }) => new Set(chain.map(String)));
  for (const row of rows) {
    assert.equal(row.baselineTotal, total[row.number] ?? 0);
  }
});

test('a recording without samples shows nothing, and nothing breaks', () => {
  const profile = profileOf([]);
  const selection = select(profile, stateOf({ functions: ['app!f2'] }));
  assert.equal(selection.count, 0);
  assert.deepEqual(functionRows(profile, selection), []);
  assert.equal(profile.duration, 0);
  const tree = flameFromLeaves(profile, selection.own, null, { least: 0.1, focus: [] });
  assert.equal(tree.frames.length, 1);
});

test('changes by samples are of shares, by time of samples a second', () => {
  // 600 samples now; before, every second of them, in one second (see profileOf).
  const profile = profileOf(
    SAMPLES,
    SAMPLES.filter((_, i) => i % 2 === 0),
  );
  const state = stateOf({ time: [0, 2] });
  const selection = select(profile, state);
  const bySamples = changeOf(profile, selection, state, 30, 60);
  assert.ok(Math.abs(bySamples - (3000 / selection.count - 20)) < 1e-9);
  // 30 in two seconds are 15 a second; 60 - 15 of 300 are missing.
  assert.equal(changeOf(profile, selection, { ...state, norm: 'time' }, 30, 60), -15);
});
