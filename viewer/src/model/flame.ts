// Flame graphs: boxes of a tree, laid out from the stacks of a selection. Boxes narrower than a
// given number of samples are left out, with all that is above them, so that a graph has as many
// boxes as can be seen, however many stacks there are. Beside a box's children one box stands for
// those of them that are left out.

import type { Profile } from '../data/profile';

/** The frame of a box that stands for others. */
export const REST = Number.MIN_SAFE_INTEGER;

/** Boxes in the order of their making: a parent before its children. Box 0 is the whole. */
export interface FlameTree {
  /** A frame; -1 for box 0; -2 - n for group n; REST. */
  frames: number[];
  parents: number[];
  depths: number[];
  /** Samples: of the box, and left of it. */
  values: number[];
  starts: number[];
  /** Of the recording that is compared with; 0 without one. */
  baselines: number[];
  /** How many functions a box of REST stands for; 0 for the others. */
  rests: number[];
  maximumDepth: number;
  /** The box that `focus` leads to; null where the selection has none. */
  focused: number | null;
}

/** A box to be, and what its own children are made from. */
interface Child<Part> {
  frame: number;
  value: number;
  baseline: number;
  part: Part;
}

/** The children of a part that `isSeen` wants, which is asked once for each; others need not be made. */
type ChildrenOf<Part> = (
  part: Part,
  isSeen: (frame: number, value: number) => boolean,
) => Child<Part>[];

export interface FlameOptions {
  /** The share of the focused box that a box has at least. */
  least: number;
  /** Frames from box 0 on that alone are followed, until the last of them: the focused box. */
  focus: number[];
}

function newTree(value: number, baseline: number): FlameTree {
  return {
    frames: [-1],
    parents: [-1],
    depths: [0],
    values: [value],
    starts: [0],
    baselines: [baseline],
    rests: [0],
    maximumDepth: 0,
    focused: null,
  };
}

function push(tree: FlameTree, parent: number, box: Omit<Child<unknown>, 'part'>, start: number) {
  const depth = tree.depths[parent] + 1;
  tree.frames.push(box.frame);
  tree.parents.push(parent);
  tree.depths.push(depth);
  tree.values.push(box.value);
  tree.starts.push(start);
  tree.baselines.push(box.baseline);
  tree.rests.push(0);
  tree.maximumDepth = Math.max(tree.maximumDepth, depth);
}

/** Adds the children of `box` left to right, the largest first. Returns their boxes. */
function addChildren<Part>(
  tree: FlameTree,
  box: number,
  part: Part,
  childrenOf: ChildrenOf<Part>,
  options: FlameOptions,
): [number, Part][] {
  const depth = tree.depths[box] + 1;
  const wanted = depth <= options.focus.length ? options.focus[depth - 1] : null;
  if (depth === options.focus.length + 1) {
    tree.focused = box;
  }
  const minimum = Math.max(1, options.least * tree.values[tree.focused ?? 0]);
  const rest = { frame: REST, value: 0, baseline: 0 };
  let restCount = 0;
  const children = childrenOf(part, (frame, value) => {
    if (wanted !== null) {
      return frame === wanted && value > 0;
    }
    if (value < minimum && value > 0) {
      rest.value += value;
      ++restCount;
    }
    return value >= minimum;
  });
  children.sort((left, right) => right.value - left.value || left.frame - right.frame);
  const added: [number, Part][] = [];
  let start = tree.starts[box];
  for (const child of children) {
    added.push([tree.frames.length, child.part]);
    push(tree, box, child, start);
    start += child.value;
  }
  if (rest.value >= minimum) {
    push(tree, box, rest, start);
    tree.rests[tree.rests.length - 1] = restCount;
  }
  return added;
}

function grow<Part>(
  tree: FlameTree,
  whole: Part,
  childrenOf: ChildrenOf<Part>,
  options: FlameOptions,
): FlameTree {
  for (let queue: [number, Part][] = [[0, whole]]; queue.length > 0; ) {
    const next: [number, Part][] = [];
    for (const [box, part] of queue) {
      for (const child of addChildren(tree, box, part, childrenOf, options)) {
        next.push(child);
      }
    }
    queue = next;
  }
  return tree;
}

/** What the functions called in which some stacks end: stacks one frame longer. */
function calleesOf(
  profile: Profile,
  total: Uint32Array,
  baseline: Uint32Array | null,
): ChildrenOf<number[]> {
  const { stackFrames, stackEnds } = profile;
  return (nodes, isSeen) => {
    const byFrame = new Map<number, Child<number[]>>();
    for (const parent of nodes) {
      const end = stackEnds[parent];
      for (let node = parent + 1; node < end; node = stackEnds[node]) {
        if (total[node] === 0) {
          continue;
        }
        const frame = stackFrames[node];
        let child = byFrame.get(frame);
        if (child === undefined) {
          child = { frame, value: 0, baseline: 0, part: [] };
          byFrame.set(frame, child);
        }
        child.value += total[node];
        child.baseline += baseline === null ? 0 : baseline[node];
        child.part.push(node);
      }
    }
    return [...byFrame.values()].filter(({ frame, value }) => isSeen(frame, value));
  };
}

/** From the root: what called what, `roots` being stacks whose callees are the first row. */
export function flameFromRoot(
  profile: Profile,
  total: Uint32Array,
  baseline: Uint32Array | null,
  options: FlameOptions,
  roots: number[] = [0],
): FlameTree {
  const sum = (of: Uint32Array) => roots.reduce((result, node) => result + of[node], 0);
  const tree = newTree(sum(total), baseline === null ? 0 : sum(baseline));
  return grow(tree, roots, calleesOf(profile, total, baseline), options);
}

/** Stacks, and samples of each. */
interface Weighted {
  nodes: Uint32Array;
  weights: Uint32Array;
  baselines: Uint32Array | null;
  /** Whether the callers are wanted, not the stacks' own innermost functions. */
  isEntered: boolean;
}

function sumOf(values: ArrayLike<number> | null): number {
  let sum = 0;
  for (let i = 0; values !== null && i < values.length; ++i) {
    sum += values[i];
  }
  return sum;
}

/** Takes weighted stacks apart by their innermost functions, and these by their callers. */
class Callers {
  // By stack, and by frame: what the last call of an operation has seen is marked with its number.
  private readonly stackMarks: Uint32Array;
  private readonly places: Uint32Array;
  private readonly sums: Uint32Array;
  private readonly counts: Uint32Array;
  private mark = 0;

  constructor(private readonly profile: Profile) {
    this.stackMarks = new Uint32Array(profile.stackFrames.length);
    this.places = new Uint32Array(profile.stackFrames.length);
    this.sums = new Uint32Array(profile.frameNames.length);
    this.counts = new Uint32Array(profile.frameNames.length);
  }

  childrenOf: ChildrenOf<Weighted> = (part, isSeen) => {
    const stacks = part.isEntered ? this.shorter(part) : part;
    const { nodes, weights, baselines } = stacks;
    const { stackFrames } = this.profile;
    const { sums, counts } = this;
    const frames: number[] = [];
    for (let i = 0; i < nodes.length; ++i) {
      const frame = stackFrames[nodes[i]];
      if (nodes[i] !== 0) {
        if (counts[frame]++ === 0) {
          frames.push(frame);
        }
        sums[frame] += weights[i];
      }
    }
    const children = new Map<number, Child<Weighted>>();
    for (const frame of frames) {
      if (isSeen(frame, sums[frame])) {
        const column = () => new Uint32Array(counts[frame]);
        const child = {
          nodes: column(),
          weights: column(),
          baselines: baselines === null ? null : column(),
          isEntered: true,
        };
        children.set(frame, { frame, value: sums[frame], baseline: 0, part: child });
        sums[frame] = 1; // seen; from here on the place of the next stack, from the end
      } else {
        sums[frame] = 0;
      }
    }
    this.share(stacks, children);
    for (const frame of frames) {
      sums[frame] = 0;
      counts[frame] = 0;
    }
    return [...children.values()];
  };

  /** Hands the stacks to the children of their innermost frames. */
  private share({ nodes, weights, baselines }: Weighted, children: Map<number, Child<Weighted>>) {
    const { stackFrames } = this.profile;
    for (let i = 0; i < nodes.length; ++i) {
      const frame = stackFrames[nodes[i]];
      if (nodes[i] === 0 || this.sums[frame] === 0) {
        continue;
      }
      const child = children.get(frame)!;
      const place = --this.counts[frame];
      child.part.nodes[place] = nodes[i];
      child.part.weights[place] = weights[i];
      if (baselines !== null) {
        child.part.baselines![place] = baselines[i];
        child.baseline += baselines[i];
      }
    }
  }

  /** The same stacks without their innermost frame; those that fall together are added up. */
  private shorter(part: Weighted): Weighted {
    const { stackParents } = this.profile;
    const nodes = new Uint32Array(part.nodes.length);
    const weights = new Uint32Array(part.nodes.length);
    const baselines = part.baselines === null ? null : new Uint32Array(part.nodes.length);
    let count = 0;
    ++this.mark;
    for (let i = 0; i < part.nodes.length; ++i) {
      const parent = stackParents[part.nodes[i]];
      if (this.stackMarks[parent] !== this.mark) {
        this.stackMarks[parent] = this.mark;
        this.places[parent] = count;
        nodes[count++] = parent;
      }
      weights[this.places[parent]] += part.weights[i];
      if (baselines !== null) {
        baselines[this.places[parent]] += part.baselines![i];
      }
    }
    return {
      nodes: nodes.subarray(0, count),
      weights: weights.subarray(0, count),
      baselines: baselines?.subarray(0, count) ?? null,
      isEntered: false,
    };
  }
}

/** From the leaves: the first row are the functions that samples fell into, above them who called. */
export function flameFromLeaves(
  profile: Profile,
  own: Uint32Array,
  baseline: Uint32Array | null,
  options: FlameOptions,
): FlameTree {
  const isUsed = (node: number) => own[node] > 0 || (baseline !== null && baseline[node] > 0);
  let count = 0;
  for (let node = 1; node < own.length; ++node) {
    count += isUsed(node) ? 1 : 0;
  }
  const nodes = new Uint32Array(count);
  for (let node = own.length - 1; node > 0; --node) {
    if (isUsed(node)) {
      nodes[--count] = node;
    }
  }
  const part: Weighted = {
    nodes,
    weights: nodes.map((node) => own[node]),
    baselines: baseline === null ? null : nodes.map((node) => baseline[node]),
    isEntered: false,
  };
  const tree = newTree(sumOf(part.weights), sumOf(part.baselines));
  return grow(tree, part, new Callers(profile).childrenOf, options);
}

/** The callers of `frame`, upwards from it; recursive calls count once. */
export function flameOfCallers(
  profile: Profile,
  total: Uint32Array,
  frame: number,
  least: number,
): FlameTree {
  const nodes = Uint32Array.from(outermostNodes(profile, total, frame));
  const weights = nodes.map((node) => total[node]);
  const part: Weighted = { nodes, weights, baselines: null, isEntered: true };
  const options = { least, focus: [] };
  return grow(newTree(sumOf(weights), 0), part, new Callers(profile).childrenOf, options);
}

/** Stacks that end in `frame` and do not have it before. */
export function outermostNodes(profile: Profile, total: Uint32Array, frame: number): number[] {
  const nodes: number[] = [];
  const { stackFrames, stackFirsts } = profile;
  for (let node = 1; node < total.length; ++node) {
    if (stackFrames[node] === frame && (stackFirsts[node] & 1) === 1 && total[node] > 0) {
      nodes.push(node);
    }
  }
  return nodes;
}

/** Graphs side by side under one box: a group each, the largest first. */
export function joinGroups(
  trees: { group: number; tree: FlameTree }[],
  focus: number[],
): FlameTree {
  const whole = newTree(
    trees.reduce((sum, { tree }) => sum + tree.values[0], 0),
    0,
  );
  let start = 0;
  trees.sort((left, right) => right.tree.values[0] - left.tree.values[0]);
  for (const { group, tree } of trees) {
    const offset = whole.frames.length;
    if (focus[0] === -2 - group && tree.focused !== null) {
      whole.focused = tree.focused + offset;
    }
    for (let box = 0; box < tree.frames.length; ++box) {
      whole.frames.push(box === 0 ? -2 - group : tree.frames[box]);
      whole.parents.push(box === 0 ? 0 : tree.parents[box] + offset);
      whole.depths.push(tree.depths[box] + 1);
      whole.values.push(tree.values[box]);
      whole.starts.push(tree.starts[box] + start);
      whole.baselines.push(0);
      whole.rests.push(tree.rests[box]);
    }
    start += tree.values[0];
    whole.maximumDepth = Math.max(whole.maximumDepth, tree.maximumDepth + 1);
  }
  whole.focused = focus.length === 0 ? 0 : whole.focused;
  return whole;
}
