// Flame graphs: boxes of a tree, laid out from the stacks of a selection. Boxes narrower than a
// given number of samples are left out, with all that is above them, so that a graph has as many
// boxes as can be seen, however many stacks there are.

import type { Profile } from '../data/profile';

/** Boxes in the order of their making: a parent before its children. Box 0 is the whole. */
export interface FlameTree {
  /** A frame; -1 for box 0; -2 - n for group n. */
  frames: number[];
  parents: number[];
  depths: number[];
  /** Samples: of the box, and left of it. */
  values: number[];
  starts: number[];
  /** Of the recording that is compared with; 0 without one. */
  baselines: number[];
  maximumDepth: number;
  /** The box that `focus` leads to; null where the selection has none. */
  focused: number | null;
}

/** Stacks with weights that a box stands for. */
interface Part {
  nodes: ArrayLike<number>;
  /** By place in `nodes`; null where a node weighs what `Weights` say. */
  weights: ArrayLike<number> | null;
  baselines: ArrayLike<number> | null;
}

interface Child {
  frame: number;
  value: number;
  baseline: number;
  part: Part;
}

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
    maximumDepth: 0,
    focused: null,
  };
}

/** Adds the children of `box` left to right, the largest first. Returns their boxes. */
function addChildren(
  tree: FlameTree,
  box: number,
  children: Child[],
  options: FlameOptions,
): [number, Part][] {
  const depth = tree.depths[box] + 1;
  const wanted = depth <= options.focus.length ? options.focus[depth - 1] : null;
  if (depth === options.focus.length + 1) {
    tree.focused = box;
  }
  const minimum = wanted === null ? options.least * tree.values[tree.focused ?? 0] : 0;
  children.sort((left, right) => right.value - left.value || left.frame - right.frame);
  const added: [number, Part][] = [];
  let start = tree.starts[box];
  for (const child of children) {
    const isSeen = wanted === null ? child.value >= minimum : child.frame === wanted;
    if (isSeen && child.value > 0) {
      added.push([tree.frames.length, child.part]);
      tree.frames.push(child.frame);
      tree.parents.push(box);
      tree.depths.push(depth);
      tree.values.push(child.value);
      tree.starts.push(start);
      tree.baselines.push(child.baseline);
      tree.maximumDepth = Math.max(tree.maximumDepth, depth);
    }
    start += child.value;
  }
  return added;
}

function grow(
  tree: FlameTree,
  roots: [number, Part][],
  childrenOf: (part: Part) => Child[],
  options: FlameOptions,
): FlameTree {
  for (let queue = roots; queue.length > 0; ) {
    const next: [number, Part][] = [];
    for (const [box, part] of queue) {
      for (const child of addChildren(tree, box, childrenOf(part), options)) {
        next.push(child);
      }
    }
    queue = next;
  }
  return tree;
}

/** What the called functions of a part are: stacks one frame longer. */
function calleesOf(profile: Profile, total: Uint32Array, baseline: Uint32Array | null) {
  const { stackFrames, stackEnds } = profile;
  return (part: Part): Child[] => {
    const byFrame = new Map<number, Child & { part: { nodes: number[] } }>();
    for (let i = 0; i < part.nodes.length; ++i) {
      const end = stackEnds[part.nodes[i]];
      for (let node = part.nodes[i] + 1; node < end; node = stackEnds[node]) {
        if (total[node] === 0 && (baseline === null || baseline[node] === 0)) {
          continue;
        }
        const frame = stackFrames[node];
        let child = byFrame.get(frame);
        if (child === undefined) {
          child = {
            frame,
            value: 0,
            baseline: 0,
            part: { nodes: [], weights: null, baselines: null },
          };
          byFrame.set(frame, child);
        }
        child.value += total[node];
        child.baseline += baseline === null ? 0 : baseline[node];
        child.part.nodes.push(node);
      }
    }
    return [...byFrame.values()];
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
  const part: Part = { nodes: roots, weights: null, baselines: null };
  return grow(tree, [[0, part]], calleesOf(profile, total, baseline), options);
}

/** The innermost functions of weighted stacks; what then called them are stacks one frame shorter. */
class Callers {
  private readonly marks: Uint32Array;
  private readonly places: Uint32Array;
  private mark = 0;

  constructor(private readonly profile: Profile) {
    this.marks = new Uint32Array(profile.stackFrames.length);
    this.places = new Uint32Array(profile.stackFrames.length);
  }

  /** Parts by the innermost frame of their stacks. */
  byFrame(part: Part): Child[] {
    const { stackFrames } = this.profile;
    const children = new Map<
      number,
      Child & { part: { nodes: number[]; weights: number[]; baselines: number[] | null } }
    >();
    for (let i = 0; i < part.nodes.length; ++i) {
      const node = part.nodes[i];
      if (node === 0) {
        continue;
      }
      const frame = stackFrames[node];
      let child = children.get(frame);
      if (child === undefined) {
        const baselines = part.baselines === null ? null : [];
        child = { frame, value: 0, baseline: 0, part: { nodes: [], weights: [], baselines } };
        children.set(frame, child);
      }
      child.value += part.weights![i];
      child.part.nodes.push(node);
      child.part.weights.push(part.weights![i]);
      if (part.baselines !== null) {
        child.baseline += part.baselines[i];
        child.part.baselines!.push(part.baselines[i]);
      }
    }
    return [...children.values()];
  }

  /** The same stacks without their innermost frame; those that fall together are added up. */
  shorter(part: Part): Part {
    const { stackParents } = this.profile;
    const nodes: number[] = [];
    const weights: number[] = [];
    const baselines: number[] | null = part.baselines === null ? null : [];
    ++this.mark;
    for (let i = 0; i < part.nodes.length; ++i) {
      const parent = stackParents[part.nodes[i]];
      if (this.marks[parent] !== this.mark) {
        this.marks[parent] = this.mark;
        this.places[parent] = nodes.length;
        nodes.push(parent);
        weights.push(0);
        baselines?.push(0);
      }
      weights[this.places[parent]] += part.weights![i];
      if (baselines !== null) {
        baselines[this.places[parent]] += part.baselines![i];
      }
    }
    return { nodes, weights, baselines };
  }
}

/** From the leaves: the first row are the functions that samples fell into, above them who called. */
export function flameFromLeaves(
  profile: Profile,
  own: Uint32Array,
  baseline: Uint32Array | null,
  options: FlameOptions,
): FlameTree {
  const nodes: number[] = [];
  for (let node = 1; node < own.length; ++node) {
    if (own[node] > 0 || (baseline !== null && baseline[node] > 0)) {
      nodes.push(node);
    }
  }
  const part: Part = {
    nodes,
    weights: nodes.map((node) => own[node]),
    baselines: baseline === null ? null : nodes.map((node) => baseline[node]),
  };
  const sum = (values: ArrayLike<number>) => Array.from(values).reduce((a, b) => a + b, 0);
  const tree = newTree(sum(part.weights!), part.baselines === null ? 0 : sum(part.baselines));
  const callers = new Callers(profile);
  const isWhole = (of: Part) => of === part;
  return grow(
    tree,
    [[0, part]],
    (of) => callers.byFrame(isWhole(of) ? of : callers.shorter(of)),
    options,
  );
}

/** The callers of `frame`, upwards from it; recursive calls count once. */
export function flameOfCallers(
  profile: Profile,
  total: Uint32Array,
  frame: number,
  least: number,
): FlameTree {
  const nodes = outermostNodes(profile, total, frame);
  const part: Part = { nodes, weights: nodes.map((node) => total[node]), baselines: null };
  const callers = new Callers(profile);
  const tree = newTree(
    nodes.reduce((sum, node) => sum + total[node], 0),
    0,
  );
  return grow(tree, [[0, part]], (of) => callers.byFrame(callers.shorter(of)), {
    least,
    focus: [],
  });
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
    }
    start += tree.values[0];
    whole.maximumDepth = Math.max(whole.maximumDepth, tree.maximumDepth + 1);
  }
  whole.focused = focus.length === 0 ? 0 : whole.focused;
  return whole;
}
