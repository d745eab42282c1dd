// The heat map's picture and the names of its rows. Only what is in sight is drawn: a recording of a
// whole system has thousands of processes.

import type { HeatMap, HeatRow } from '../model/heat';
import type { State } from '../model/state';
import { heatPixels } from './colours';
import { h } from './dom';
import { plural, shortened } from './format';
import { type Page, toggled } from './page';

export const GUTTER = 190; // pixels for the rows' names
export const SECOND_ROWS = 50; // a row is 20 ms
const ROW_HEIGHT = 18;
const SECOND_ROW_HEIGHT = 4;
const AROUND = 20; // rows above and below those in sight that have names, for the tabulator key
const MOST_HEIGHT = 210; // pixels, as in the style sheet

export class HeatPicture {
  readonly canvas = h('canvas', {
    class: 'heat',
    tabindex: '0',
    role: 'application',
    'aria-label':
      'Heat map of samples over time. Left and right move a mark, with shift they select a time; enter keeps it; w and s zoom; a and d move.',
  });
  readonly element: HTMLElement;
  private readonly names = h('div', { class: 'heat-rows' });
  private readonly box: HTMLElement;
  private readonly buttons = new Map<number, HTMLElement>();
  private map: HeatMap | null = null;
  private isSeconds = false;
  private width = 0;

  /** `overlays` lie over the whole height of the picture. */
  constructor(
    private readonly page: Page,
    overlays: HTMLElement[],
  ) {
    this.box = h('div', { class: 'heat-box' }, this.names, this.canvas, ...overlays);
    this.element = h('div', { class: 'heat-scroll' }, this.box);
    this.element.addEventListener('scroll', () => {
      this.paint();
      this.drawNames();
    });
  }

  show(map: HeatMap, isSeconds: boolean, width: number): void {
    this.map = map;
    this.isSeconds = isSeconds;
    this.width = width;
    this.buttons.clear();
    this.names.replaceChildren();
    this.box.style.height = `${Math.max(1, this.rowCount) * this.rowHeight}px`;
    this.paint();
    this.drawNames();
  }

  /** Says which rows are filtered by, after a change of that alone. */
  drawPressed(): void {
    for (const [row, button] of this.buttons) {
      button.setAttribute('aria-pressed', String(this.isFiltered(this.map!.rows[row])));
    }
  }

  /** The row under the pointer; null beside them. */
  rowAt(event: MouseEvent): number | null {
    const y = event.clientY - this.box.getBoundingClientRect().top;
    const row = Math.floor(y / this.rowHeight);
    return row < 0 || row >= this.rowCount ? null : row;
  }

  private get rowHeight(): number {
    return this.isSeconds ? SECOND_ROW_HEIGHT : ROW_HEIGHT;
  }

  private get rowCount(): number {
    return this.isSeconds ? SECOND_ROWS : (this.map?.rows.length ?? 0);
  }

  /** Rows in sight: from the first up to the second, which is not part of them. */
  private seenRows(around = 0): [number, number] {
    const top = this.element.scrollTop;
    const first = Math.floor(top / this.rowHeight) - around;
    const last = Math.ceil((top + MOST_HEIGHT) / this.rowHeight) + around;
    return [Math.max(0, first), Math.min(this.rowCount, last)];
  }

  private paint(): void {
    const { canvas } = this;
    const map = this.map!;
    const ratio = devicePixelRatio;
    const height = Math.min(MOST_HEIGHT, Math.max(1, this.rowCount) * this.rowHeight);
    canvas.style.width = `${this.width}px`;
    canvas.style.height = `${height}px`;
    canvas.width = Math.round(this.width * ratio);
    canvas.height = Math.round(height * ratio);
    const [first, last] = this.seenRows();
    if (first >= last || map.columns === 0) {
      return;
    }
    const context = canvas.getContext('2d')!;
    context.scale(ratio, ratio);
    context.translate(0, first * this.rowHeight - this.element.scrollTop);
    const small = this.cellPicture(map, first, last);
    context.imageSmoothingEnabled = false;
    context.drawImage(small, 0, 0, this.width, (last - first) * this.rowHeight);
    if (!this.isSeconds) {
      context.fillStyle = getComputedStyle(this.element).getPropertyValue('--surface').trim();
      for (let row = 1; row <= last - first; ++row) {
        context.fillRect(0, row * ROW_HEIGHT - 1, this.width, 1);
      }
    }
  }

  /** A pixel for each cell of some rows. */
  private cellPicture(map: HeatMap, first: number, last: number): OffscreenCanvas {
    const image = new ImageData(map.columns, last - first);
    const target = new Uint32Array(image.data.buffer);
    const pixels = heatPixels(this.page.theme);
    // By the root, so that rare samples are seen beside frequent ones.
    const scale = 255 / Math.sqrt(Math.max(1, map.largest));
    const begin = first * map.columns;
    for (let place = 0; place < target.length; ++place) {
      const count = map.cells[begin + place];
      target[place] = count === 0 ? 0 : pixels[Math.min(255, (Math.sqrt(count) * scale) | 0)];
    }
    const picture = new OffscreenCanvas(map.columns, last - first);
    picture.getContext('2d')!.putImageData(image, 0, 0);
    return picture;
  }

  private drawNames(): void {
    if (this.isSeconds) {
      this.drawSeconds();
      return;
    }
    const [first, last] = this.seenRows(AROUND);
    for (const [row, button] of this.buttons) {
      if (row < first || row >= last) {
        button.remove();
        this.buttons.delete(row);
      }
    }
    let before: Element | null = null;
    for (let row = first; row < last; ++row) {
      let button = this.buttons.get(row);
      if (button === undefined) {
        button = this.nameOf(row);
        this.buttons.set(row, button);
        // In their order, for the tabulator key; what has the focus is not moved.
        this.names.insertBefore(
          button,
          before === null ? this.names.firstChild : before.nextSibling,
        );
      }
      before = button;
    }
  }

  private nameOf(number: number): HTMLElement {
    const row = this.map!.rows[number];
    const [[field, [value]]] = Object.entries(row.filter);
    const button = h(
      'button',
      {
        type: 'button',
        class: 'row-name',
        'aria-pressed': String(this.isFiltered(row)),
        title: `${shortened(row.title, 300)}: ${plural(row.count, 'sample')}. Click to show only these`,
        onclick: () => {
          const current = this.page.state[field as 'pids' | 'tids' | 'cpus'];
          this.page.show({ [field]: toggled(current, value) });
        },
      },
      shortened(row.title, 60),
    );
    button.style.top = `${number * ROW_HEIGHT}px`;
    return button;
  }

  private isFiltered(row: HeatRow): boolean {
    const [[field, [value]]] = Object.entries(row.filter);
    return this.page.state[field as keyof Pick<State, 'pids' | 'tids' | 'cpus'>].includes(value);
  }

  private drawSeconds(): void {
    const labels = ['1 s', '0.8', '0.6', '0.4', '0.2', '0'];
    this.names.replaceChildren(
      ...labels.map((label, i) => {
        const span = h('span', { class: 'second-label' }, label);
        const middle = i === 0 ? 0 : i === labels.length - 1 ? 13 : 7;
        span.style.top = `${(i * SECOND_ROWS * SECOND_ROW_HEIGHT) / 5 - middle}px`;
        return span;
      }),
    );
  }
}
