// Samples by row and by time, for the heat map and the curve over it.

import type { Numbers } from '../data/columns';
import type { Profile } from '../data/profile';
import { forEachSample, type Masks, passMasks } from './selection';
import type { Range, State } from './state';

export interface HeatRow {
  title: string;
  /** The filter that a click on the row sets. */
  filter: Partial<Pick<State, 'pids' | 'tids' | 'cpus'>>;
  count: number;
}

export interface HeatMap {
  rows: HeatRow[];
  columns: number;
  /** Samples by row, then column. */
  cells: Uint32Array;
  /** Samples by column, all rows. */
  sums: Uint32Array;
  largest: number;
}

interface Rows {
  rows: HeatRow[];
  /** By sample, what its row goes by: its thread, or its CPU + 1. */
  keys: Numbers;
  rowOfKey: Uint32Array;
}

const idText = (id: number | null): string => (id === null ? 'unknown' : String(id));

function processRows(profile: Profile): Rows {
  return {
    rows: profile.processes.map((process, number) => ({
      title: profile.processTitle(number),
      filter: { pids: [idText(process.pid)] },
      count: 0,
    })),
    keys: profile.threads,
    rowOfKey: profile.processOfThread,
  };
}

function threadRows(profile: Profile): Rows {
  return {
    rows: profile.threadNames.map((_, thread) => {
      const tid = profile.threadTids[thread];
      return {
        title: profile.threadTitle(thread),
        filter: { tids: [idText(tid === 0 ? null : tid - 1)] },
        count: 0,
      };
    }),
    keys: profile.threads,
    rowOfKey: Uint32Array.from(profile.threadNames, (_, thread) => thread),
  };
}

function cpuRows(profile: Profile): Rows {
  const rowOfCpu = new Uint32Array((profile.cpuNumbers.at(-1) ?? 0) + 2);
  profile.cpuNumbers.forEach((cpu, row) => {
    rowOfCpu[cpu === null ? 0 : cpu + 1] = row;
  });
  return {
    rows: profile.cpuNumbers.map((cpu) => ({
      title: cpu === null ? 'CPU not recorded' : `CPU ${cpu}`,
      filter: { cpus: [idText(cpu)] },
      count: 0,
    })),
    keys: profile.cpus,
    rowOfKey: rowOfCpu,
  };
}

function largestOf(cells: Uint32Array): number {
  let largest = 0;
  for (const cell of cells) {
    largest = Math.max(cell, largest);
  }
  return largest;
}

/** Rows with the most samples first, CPUs in their order; rows without samples are left out. */
function sortRows(map: HeatMap, byCount: boolean): HeatMap {
  const order = [...map.rows.keys()].filter((row) => map.rows[row].count > 0);
  if (byCount) {
    order.sort((left, right) => map.rows[right].count - map.rows[left].count || left - right);
  }
  const cells = new Uint32Array(order.length * map.columns);
  order.forEach((row, place) => {
    const from = row * map.columns;
    cells.set(map.cells.subarray(from, from + map.columns), place * map.columns);
  });
  return { ...map, rows: order.map((row) => map.rows[row]), cells };
}

/** Adds the samples from `first` to `last` that pass to their rows' cells of one column. */
function fillColumn(
  profile: Profile,
  passing: ReturnType<typeof passMasks>,
  [first, last]: [number, number],
  keys: Numbers,
  cellOfKey: Uint32Array,
  cells: Uint32Array,
): void {
  if (passing === null) {
    for (let sample = first; sample < last; ++sample) {
      ++cells[cellOfKey[keys[sample]]];
    }
    return;
  }
  const { stacks, threads, cpus } = profile;
  for (let sample = first; sample < last; ++sample) {
    cells[cellOfKey[keys[sample]]] +=
      passing.stacks[stacks[sample]] &
      passing.threads[threads[sample]] &
      passing.cpus[cpus[sample]];
  }
}

/** Samples that pass the masks, whatever the selected time, in `columns` columns over `range`. */
export function heatMap(
  profile: Profile,
  masks: Masks,
  kind: 'processes' | 'threads' | 'cpus',
  range: Range,
  columns: number,
): HeatMap {
  const { rows, keys, rowOfKey } =
    kind === 'processes'
      ? processRows(profile)
      : kind === 'threads'
        ? threadRows(profile)
        : cpuRows(profile);
  const cells = new Uint32Array(rows.length * columns);
  const sums = new Uint32Array(columns);
  const passing = passMasks(profile, masks);
  // Samples are ordered by time: a column's are beside each other, and no sample's time is looked at.
  const cellOfKey = rowOfKey.map((row) => row * columns);
  const width = (range[1] - range[0]) / columns;
  let first = profile.firstAt(range[0]);
  for (let column = 0; column < columns; ++column) {
    const last = profile.firstAt(column + 1 < columns ? range[0] + (column + 1) * width : range[1]);
    fillColumn(profile, passing, [first, last], keys, cellOfKey, cells.subarray(column));
    first = last;
  }
  rows.forEach((row, number) => {
    for (let column = 0; column < columns; ++column) {
      const count = cells[number * columns + column];
      row.count += count;
      sums[column] += count;
    }
  });
  return sortRows({ rows, columns, cells, sums, largest: largestOf(cells) }, kind !== 'cpus');
}

/** A column a second, upwards through the second: what comes back every second is a line across. */
export function secondsMap(
  profile: Profile,
  masks: Masks,
  range: Range,
  rows: number,
): HeatMap & { firstSecond: number } {
  const firstSecond = Math.floor(range[0]);
  const columns = Math.max(1, Math.ceil(range[1]) - firstSecond);
  const cells = new Uint32Array(rows * columns);
  const sums = new Uint32Array(columns);
  const { times } = profile;
  const last = profile.firstAt(range[1]);
  forEachSample(profile, masks, profile.firstAt(range[0]), last, (sample) => {
    const second = Math.floor(times[sample]);
    const row = rows - 1 - Math.min(rows - 1, ((times[sample] - second) * rows) | 0);
    ++cells[row * columns + second - firstSecond];
    ++sums[second - firstSecond];
  });
  return { rows: [], columns, cells, sums, largest: largestOf(cells), firstSecond };
}
