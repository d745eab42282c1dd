// The flame graph of what is selected.

import type { Kind, Profile } from '../data/profile';
import { changeOf } from '../model/compare';
import { type FlameTree, flameFromLeaves, flameFromRoot, joinGroups, REST } from '../model/flame';
import { foldedStacks, type Group, groupsOf } from '../model/groups';
import { countMatches, matcherOf, type Search, searchFrames } from '../model/search';
import { totalsOf } from '../model/selection';
import { boxColour, changeColour, MATCH } from './colours';
import { choice, h, iconButton, saveFile } from './dom';
import { BOX_HEIGHT, type Box, FONT, layOut, NameFitter } from './flameLayout';
import { legendOf } from './flameLegend';
import { flamePicture } from './flamePicture';
import { formatChange, formatCount, formatShare, plural, shortened } from './format';
import { normChoice } from './normChoice';
import type { Page, View } from './page';

const ORDERS = [
  ['root', 'From the root', 'Below each function what it called'],
  ['leaf', 'From the leaves', 'First the functions that ran, below them who called'],
] as const;
const GROUPS = [
  ['all', 'All'],
  ['process', 'By process'],
  ['thread', 'By thread'],
] as const;
/** Boxes narrower than this many pixels are not drawn: they would be mixed into one. */
const NARROWEST = 1;

export class FlameView implements View {
  readonly element: HTMLElement;
  private readonly tools = h('div', { class: 'tools' });
  private readonly legend = h('div', { class: 'legend' });
  private readonly path = h('div', { class: 'path' });
  private readonly canvas = h('canvas', {
    class: 'flame',
    tabindex: '0',
    role: 'application',
    'aria-label':
      'Flame graph. Arrow keys walk through the boxes, enter zooms, escape zooms out, f shows only chains with the function.',
  });
  private readonly scroll = h('div', { class: 'flame-scroll' }, this.canvas);
  private readonly tip = h('div', { class: 'tip', role: 'tooltip', hidden: true });
  private readonly searchField: HTMLInputElement;
  private readonly searchResult = h('span', { class: 'note search-result', role: 'status' });
  private tree: FlameTree | null = null;
  private boxes: Box[] = [];
  private groups: Group[] = [];
  private search: Search | null = null;
  private current = -1; // the box that keys act on, or that the pointer is over
  private fitter: NameFitter | null = null;

  constructor(private readonly page: Page) {
    this.searchField = h('input', {
      type: 'search',
      placeholder: 'Search: text or /expression/',
      'aria-label': 'Search functions by text or regular expression',
      oninput: () => this.page.show({ search: this.searchField.value }, true),
    });
    this.element = h(
      'section',
      { class: 'flame-view', 'aria-label': 'Flame graph' },
      this.tools,
      this.path,
      this.scroll,
      this.tip,
    );
    this.canvas.addEventListener('pointermove', (event) => this.hover(event));
    this.canvas.addEventListener('pointerleave', () => this.leave());
    this.canvas.addEventListener('click', (event) => this.click(event));
    this.canvas.addEventListener('keydown', (event) => this.walk(event));
    new ResizeObserver(() => this.draw()).observe(this.scroll);
  }

  draw(): void {
    const width = this.scroll.clientWidth;
    if (width < 50 || !this.element.isConnected) {
      return;
    }
    this.makeTree(width);
    this.drawTools();
    this.drawPath();
    this.boxes = layOut(this.tree!, width);
    this.current = -1;
    this.tip.hidden = true;
    this.paint();
  }

  handleKey(event: KeyboardEvent): boolean {
    if (event.key === '/') {
      this.searchField.focus();
      this.searchField.select();
    } else if (event.key === 'i') {
      this.page.show({ order: this.page.state.order === 'root' ? 'leaf' : 'root', focus: [] });
    } else if (event.key === 'g') {
      const kinds = GROUPS.map(([kind]) => kind);
      const next = kinds[(kinds.indexOf(this.page.state.by) + 1) % kinds.length];
      this.page.show({ by: next, focus: [] });
    } else if (event.key === 'Escape' && this.page.state.focus.length > 0) {
      this.page.show({ focus: [] });
    } else {
      return false;
    }
    return true;
  }

  private makeTree(width: number): void {
    const { profile, selection, state } = this.page;
    const least = NARROWEST / width;
    const build = (own: Uint32Array, total: Uint32Array, focus: number[]): FlameTree => {
      const options = { least, focus };
      return state.order === 'root'
        ? flameFromRoot(profile, total, selection.baselineTotal, options)
        : flameFromLeaves(profile, own, selection.baselineOwn, options);
    };
    const whole = (focus: number[]) => {
      if (state.by === 'all') {
        return build(selection.own, selection.total, focus);
      }
      this.groups = groupsOf(profile, selection, state.by);
      return this.buildGroups(state.order, focus, least);
    };
    this.tree = whole(state.focus);
    if (this.tree.focused === null) {
      this.tree = whole([]); // the selection no longer has what was focused
      this.tree.focused = 0;
    }
    this.search = searchFrames(profile, state.search);
  }

  private buildGroups(order: 'root' | 'leaf', focus: number[], least: number): FlameTree {
    const { profile, selection } = this.page;
    const own = new Uint32Array(profile.stackFrames.length);
    const trees: { group: number; tree: FlameTree }[] = [];
    this.groups.forEach((group, number) => {
      const isWanted = focus.length === 0 || focus[0] === -2 - number;
      if (!isWanted || group.stacks.length <= least * selection.count) {
        return;
      }
      own.fill(0);
      for (const stack of group.stacks) {
        ++own[stack];
      }
      const share = focus.length === 0 ? selection.count / group.stacks.length : 1;
      const options = { least: least * share, focus: focus.slice(1) };
      const tree =
        order === 'root'
          ? flameFromRoot(profile, totalsOf(profile, own), null, options)
          : flameFromLeaves(profile, own, null, options);
      trees.push({ group: number, tree });
    });
    return joinGroups(trees, focus);
  }

  private drawTools(): void {
    const { state } = this.page;
    if (this.searchField.value !== state.search) {
      this.searchField.value = state.search;
    }
    this.drawSearchResult();
    if (
      this.tools.contains(document.activeElement) &&
      document.activeElement === this.searchField
    ) {
      this.legend.replaceChildren(...legendOf(this.page));
      return; // taking the field out would take the caret with it
    }
    this.tools.replaceChildren(
      choice('Order', ORDERS, state.order, (order) => this.page.show({ order, focus: [] })),
      choice('Groups', GROUPS, state.by, (by) => this.page.show({ by, focus: [] })),
      ...normChoice(this.page),
      this.searchField,
      this.searchResult,
      h(
        'div',
        { class: 'tools-end' },
        this.legend,
        iconButton('SVG', 'Save this graph as a picture (SVG)', () => this.saveSvg()),
        iconButton('PNG', 'Save this graph as a picture (PNG)', () => this.savePng()),
        iconButton('Folded', 'Save what is selected as folded stacks', () => this.saveFolded()),
      ),
    );
    this.legend.replaceChildren(...legendOf(this.page));
  }

  private drawSearchResult(): void {
    const { profile, selection, state } = this.page;
    if (state.search === '') {
      this.searchResult.textContent = '';
    } else if (this.search === null) {
      this.searchResult.textContent = matcherOf(state.search) === null ? 'not an expression' : '';
    } else {
      const count = countMatches(profile, selection.total, this.search.matches);
      this.searchResult.textContent = `${formatShare(count, selection.count)} in chains with ${plural(this.search.frames, 'function')}`;
    }
  }

  private titleOf(box: number): string {
    const frame = this.tree!.frames[box];
    if (frame >= 0) {
      return this.page.profile.frameNames[frame];
    }
    if (frame === REST) {
      return `${formatCount(this.tree!.rests[box])} more`;
    }
    return frame === -1 ? 'all' : this.groups[-2 - frame].title;
  }

  private pathTo(box: number): number[] {
    const path: number[] = [];
    for (let at = box; at > 0; at = this.tree!.parents[at]) {
      path.unshift(this.tree!.frames[at]);
    }
    return path;
  }

  /** The focused box and what can be done with it. */
  private drawPath(): void {
    const { profile, selection, state } = this.page;
    const focused = this.tree!.focused ?? 0;
    this.path.hidden = focused === 0;
    if (focused === 0) {
      this.path.replaceChildren();
      return;
    }
    const frame = this.tree!.frames[focused];
    const share = formatShare(this.tree!.values[focused], selection.count);
    const actions: HTMLElement[] = [
      iconButton('Zoom out', 'Escape', () => this.page.show({ focus: [] })),
    ];
    if (frame >= 0) {
      const key = profile.frameKey(frame);
      actions.push(
        iconButton('Only chains with it', 'f', () => this.filterBy(frame)),
        iconButton('Callers and callees', '', () =>
          this.page.show({ tab: 'functions', selected: key, filter: '' }),
        ),
      );
    }
    this.path.replaceChildren(
      h('strong', {}, shortened(this.titleOf(focused), 160)),
      h('span', { class: 'note' }, `${share}, ${plural(this.tree!.values[focused], 'sample')}`),
      ...actions,
    );
    if (state.focus.length === 0) {
      this.path.hidden = true;
    }
  }

  private filterBy(frame: number): void {
    const key = this.page.profile.frameKey(frame);
    const { functions } = this.page.state;
    if (!functions.includes(key)) {
      this.page.show({ functions: [...functions, key], focus: [] });
    }
  }

  private paint(): void {
    const { canvas, scroll } = this;
    const ratio = devicePixelRatio;
    const width = scroll.clientWidth;
    const rows = Math.min(this.tree!.maximumDepth + 1, Math.floor(30000 / (BOX_HEIGHT * ratio)));
    const height = rows * BOX_HEIGHT;
    canvas.style.height = `${height}px`;
    canvas.width = Math.round(width * ratio);
    canvas.height = Math.round(height * ratio);
    const context = canvas.getContext('2d')!;
    context.scale(ratio, ratio);
    context.font = FONT;
    context.textBaseline = 'middle';
    this.fitter ??= new NameFitter(this.page.profile, context);
    const style = getComputedStyle(this.element);
    const textColour = style.getPropertyValue('--box-text').trim();
    for (const box of this.boxes) {
      this.paintBox(context, box, width, textColour);
    }
    if (this.current >= 0) {
      const { x, y, width: boxWidth } = this.boxes[this.current];
      context.strokeStyle = style.getPropertyValue('--text').trim();
      context.lineWidth = 1.5;
      context.globalAlpha = 1;
      context.strokeRect(x + 0.5, y + 0.5, Math.max(1, boxWidth - 1), BOX_HEIGHT - 1.5);
    }
  }

  private paintBox(
    context: CanvasRenderingContext2D,
    { number, x, y, width }: Box,
    canvasWidth: number,
    textColour: string,
  ): void {
    if (x + width < 0 || x > canvasWidth) {
      return;
    }
    const frame = this.tree!.frames[number];
    const isFound = this.search !== null && frame >= 0 && this.search.matches[frame] === 1;
    context.globalAlpha = this.search !== null && !isFound ? 0.35 : 1;
    context.fillStyle = this.colourOf(number);
    const gap = width > 3 ? 1 : 0;
    context.fillRect(x, y, Math.max(0.5, width - gap), BOX_HEIGHT - 1);
    if (isFound) {
      context.fillStyle = MATCH[this.page.theme];
      context.fillRect(x, y + BOX_HEIGHT - 4, Math.max(0.5, width - gap), 3);
    }
    const left = Math.max(0, x);
    const seen = Math.min(canvasWidth, x + width) - left;
    const text = this.fitter!.fit(frame, this.titleOf(number), seen);
    if (text !== '') {
      context.fillStyle = textColour;
      context.fillText(text, left + 4, y + BOX_HEIGHT / 2 - 0.5);
    }
  }

  private colourOf(box: number): string {
    const { profile, theme } = this.page;
    const frame = this.tree!.frames[box];
    if (profile.baseline !== null && frame !== REST) {
      return changeColour(theme, this.changeOf(box) / 5);
    }
    if (frame < 0) {
      return theme === 'light' ? '#dfe3e8' : '#3b424d';
    }
    return boxColour(theme, profile.frameKind(frame) as Kind, profile.frameNames[frame]);
  }

  /** How much more a box has than before. */
  private changeOf(box: number): number {
    const { profile, selection, state } = this.page;
    const { values, baselines } = this.tree!;
    return changeOf(profile, selection, state, values[box], baselines[box]);
  }

  private boxAt(event: MouseEvent): number {
    const bounds = this.canvas.getBoundingClientRect();
    const x = event.clientX - bounds.left;
    const row = Math.floor((event.clientY - bounds.top) / BOX_HEIGHT);
    return this.boxes.findIndex(
      (box) => this.tree!.depths[box.number] === row && x >= box.x && x < box.x + box.width,
    );
  }

  private hover(event: PointerEvent): void {
    const box = this.boxAt(event);
    if (box !== this.current) {
      this.current = box;
      this.paint();
    }
    if (box < 0) {
      this.tip.hidden = true;
      return;
    }
    this.fillTip(box);
    this.tip.hidden = false;
    const outer = this.element.getBoundingClientRect();
    const left = Math.min(event.clientX - outer.left + 14, outer.width - this.tip.offsetWidth - 8);
    this.tip.style.left = `${Math.max(4, left)}px`;
    this.tip.style.top = `${event.clientY - outer.top + 18}px`;
  }

  private fillTip(box: number): void {
    const { profile, selection } = this.page;
    const tree = this.tree!;
    const frame = tree.frames[box];
    const parent = tree.parents[box];
    const lines = [
      `${plural(tree.values[box], 'sample')}, ${formatShare(tree.values[box], selection.count)} of what is selected`,
    ];
    if (parent > 0) {
      lines.push(
        `${formatShare(tree.values[box], tree.values[parent])} of ${shortened(this.titleOf(parent), 60)}`,
      );
    }
    if (frame === REST) {
      lines.push('Functions too narrow to be drawn; zoom into what they stand on to see them.');
    }
    if (frame >= 0) {
      const file = profile.frameFiles[frame];
      const library = profile.libraryNames[profile.frameLibraries[frame]];
      lines.push(
        shortened(library, 120) +
          (file === 0 ? '' : `, ${shortened(profile.fileNames[file - 1], 120)}`),
      );
    }
    if (profile.baseline !== null && frame !== REST) {
      lines.push(
        `before: ${formatShare(tree.baselines[box], selection.baselineCount)}, ${formatChange(this.changeOf(box))} points`,
      );
    }
    this.tip.replaceChildren(
      h('strong', {}, shortened(this.titleOf(box), 500)),
      ...lines.map((line) => h('div', {}, line)),
    );
  }

  private leave(): void {
    this.tip.hidden = true;
    if (this.current >= 0) {
      this.current = -1;
      this.paint();
    }
  }

  private click(event: MouseEvent): void {
    const box = this.boxAt(event);
    if (box < 0) {
      return;
    }
    const frame = this.tree!.frames[box];
    if (event.shiftKey && frame >= 0) {
      this.filterBy(frame);
    } else if (frame === REST) {
      this.zoomTo(this.tree!.parents[box]);
    } else {
      this.zoomTo(box);
    }
  }

  private zoomTo(box: number): void {
    this.page.show({ focus: this.pathTo(box) });
  }

  private walk(event: KeyboardEvent): void {
    const tree = this.tree!;
    const at = this.current < 0 ? (tree.focused ?? 0) : this.current;
    const inRow = (parent: number) =>
      tree.parents.flatMap((other, box) => (other === parent ? [box] : []));
    let next = at;
    if (event.key === 'ArrowDown') {
      next = inRow(at)[0] ?? at;
    } else if (event.key === 'ArrowUp') {
      next = Math.max(0, tree.parents[at]);
    } else if (event.key === 'ArrowLeft' || event.key === 'ArrowRight') {
      const row = inRow(tree.parents[at]);
      next = row[row.indexOf(at) + (event.key === 'ArrowRight' ? 1 : -1)] ?? at;
    } else if (event.key === 'Enter') {
      this.zoomTo(tree.frames[at] === REST ? tree.parents[at] : at);
      this.canvas.focus();
    } else if (event.key === 'f' && tree.frames[at] >= 0) {
      this.filterBy(tree.frames[at]);
    } else {
      return;
    }
    event.preventDefault();
    event.stopPropagation();
    if (next !== this.current && event.key.startsWith('Arrow')) {
      this.current = next;
      this.paint();
      this.scroll.scrollTop = Math.max(
        0,
        tree.depths[next] * BOX_HEIGHT - this.scroll.clientHeight / 2,
      );
      const share = formatShare(tree.values[next], this.page.selection.count);
      this.page.announce(
        `${this.titleOf(next)}, ${share}, ${formatCount(tree.values[next])} samples`,
      );
    }
  }

  private saveSvg(): void {
    const boxes = this.boxes.map((box) => ({
      ...box,
      title: this.titleOf(box.number),
      count: this.tree!.values[box.number],
      share: formatShare(this.tree!.values[box.number], this.page.selection.count),
      colour: this.colourOf(box.number),
      label: this.fitter!.fit(this.tree!.frames[box.number], this.titleOf(box.number), box.width),
    }));
    const style = getComputedStyle(this.element);
    const picture = flamePicture(boxes, {
      width: this.scroll.clientWidth,
      height: (this.tree!.maximumDepth + 1) * BOX_HEIGHT,
      title: this.page.profile.facts.name,
      text: style.getPropertyValue('--box-text').trim(),
      background: style.getPropertyValue('--surface').trim(),
    });
    saveFile('flamegraph.svg', picture, 'image/svg+xml');
  }

  private savePng(): void {
    const copy = document.createElement('canvas');
    copy.width = this.canvas.width;
    copy.height = this.canvas.height;
    const context = copy.getContext('2d')!;
    context.fillStyle = getComputedStyle(this.element).getPropertyValue('--surface').trim();
    context.fillRect(0, 0, copy.width, copy.height);
    context.drawImage(this.canvas, 0, 0);
    copy.toBlob((blob) => {
      if (blob !== null) {
        saveFile('flamegraph.png', blob);
      }
    });
  }

  private saveFolded(): void {
    const lines = foldedStacks(this.page.profile as Profile, this.page.selection);
    saveFile('stacks.folded', lines.map((line) => `${line}\n`).join(''));
  }
}
