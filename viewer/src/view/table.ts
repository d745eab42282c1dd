// A table of any number of rows, of which those in view are in the page: sorted by a click on a
// column, walked through by keys, saved as CSV.

import {
  elementScroll,
  observeElementOffset,
  observeElementRect,
  Virtualizer,
} from '@tanstack/virtual-core';
import { h } from './dom';
import { shortened } from './format';

export interface Column<Item> {
  key: string;
  title: string;
  /** How wide, as CSS grid says it. */
  width: string;
  text: (item: Item) => string;
  /** For numbers: what is sorted by, the largest first. Others are sorted by their text. */
  value?: (item: Item) => number;
  /** From 0 to 1: the length of a bar behind the text. */
  bar?: (item: Item) => number;
  /** A colour of a dot before the text. */
  dot?: (item: Item) => string;
  hint?: string;
}

export interface TableOptions<Item> {
  label: string;
  columns: Column<Item>[];
  items: Item[];
  /** A column's key, with '-' in front for descending. */
  sort: string;
  selected: (item: Item) => boolean;
  onSort: (sort: string) => void;
  /** A row was clicked, or enter was pressed on it. */
  onOpen: (item: Item) => void;
}

const ROW_HEIGHT = 24;
const LONGEST_CELL = 400;

export class Table<Item> {
  readonly element: HTMLElement;
  private readonly head = h('div', { class: 'row head', role: 'row' });
  private readonly body = h('div', { class: 'rows', role: 'rowgroup' });
  private readonly scroll: HTMLElement;
  private readonly virtualizer: Virtualizer<HTMLElement, HTMLElement>;
  private options: TableOptions<Item> | null = null;
  private items: Item[] = [];
  private active = 0;

  constructor() {
    this.scroll = h(
      'div',
      {
        class: 'table-scroll',
        tabindex: '0',
        onkeydown: (event) => this.key(event as KeyboardEvent),
      },
      this.body,
    );
    this.element = h(
      'div',
      { class: 'table', role: 'grid' },
      h('div', { role: 'rowgroup' }, this.head),
      this.scroll,
    );
    this.virtualizer = new Virtualizer<HTMLElement, HTMLElement>(this.virtualOptions());
    this.virtualizer._didMount();
    this.virtualizer._willUpdate();
  }

  show(options: TableOptions<Item>): void {
    this.options = options;
    this.items = this.sorted(options);
    this.active = Math.max(0, this.items.findIndex(options.selected));
    this.element.setAttribute('aria-label', options.label);
    this.element.setAttribute('aria-rowcount', String(this.items.length + 1));
    this.element.style.setProperty(
      '--columns',
      options.columns.map(({ width }) => width).join(' '),
    );
    this.drawHead(options);
    this.virtualizer.setOptions(this.virtualOptions());
    this.virtualizer._willUpdate();
    this.virtualizer.measure();
    this.drawRows();
  }

  /** All rows as CSV (RFC 4180); numbers as they are, without rounding. */
  csv(): string {
    const { columns } = this.options!;
    const field = (text: string) =>
      /[",\r\n]/.test(text) ? `"${text.replaceAll('"', '""')}"` : text;
    const lines = [columns.map(({ title }) => field(title)).join(',')];
    for (const item of this.items) {
      const cells = columns.map(({ value, text }) =>
        field(value ? String(value(item)) : text(item)),
      );
      lines.push(cells.join(','));
    }
    return lines.map((line) => `${line}\r\n`).join('');
  }

  private virtualOptions() {
    return {
      count: this.items.length,
      getScrollElement: () => this.scroll,
      estimateSize: () => ROW_HEIGHT,
      overscan: 6,
      scrollToFn: elementScroll,
      observeElementRect,
      observeElementOffset,
      onChange: () => this.drawRows(),
    };
  }

  private sorted({ items, columns, sort }: TableOptions<Item>): Item[] {
    const column = columns.find(({ key }) => key === sort.replace(/^-/, ''));
    if (column === undefined) {
      return items;
    }
    const direction = sort.startsWith('-') ? -1 : 1;
    const { value, text } = column;
    const keyed = items.map((item, place) => ({
      item,
      place,
      key: value ? value(item) : text(item),
    }));
    keyed.sort((left, right) => {
      const order = left.key < right.key ? -1 : left.key > right.key ? 1 : 0;
      return order * direction || left.place - right.place;
    });
    return keyed.map(({ item }) => item);
  }

  private drawHead({ columns, sort, onSort }: TableOptions<Item>): void {
    this.head.replaceChildren(
      ...columns.map((column) => {
        const descending = `-${column.key}`;
        const isNumber = column.value !== undefined;
        const first = isNumber ? descending : column.key;
        const second = isNumber ? column.key : descending;
        const state =
          sort === column.key ? 'ascending' : sort === descending ? 'descending' : 'none';
        return h(
          'div',
          {
            role: 'columnheader',
            class: isNumber ? 'number' : 'text',
            'aria-sort': state,
            title: column.hint ?? '',
          },
          h(
            'button',
            { type: 'button', onclick: () => onSort(sort === first ? second : first) },
            column.title,
            state === 'none' ? '' : state === 'ascending' ? ' ↑' : ' ↓',
          ),
        );
      }),
    );
  }

  private drawRows(): void {
    if (this.options === null) {
      return;
    }
    this.body.style.height = `${this.virtualizer.getTotalSize()}px`;
    this.body.replaceChildren(
      ...this.virtualizer.getVirtualItems().map(({ index, start }) => this.row(index, start)),
    );
  }

  private row(index: number, start: number): HTMLElement {
    const { columns, selected, onOpen } = this.options!;
    const item = this.items[index];
    const row = h(
      'div',
      {
        role: 'row',
        class: index === this.active ? 'row active' : 'row',
        'aria-rowindex': String(index + 2),
        'aria-selected': String(selected(item)),
        onclick: () => {
          this.active = index;
          onOpen(item);
        },
      },
      ...columns.map((column) => this.cell(column, item)),
    );
    row.style.transform = `translateY(${start}px)`;
    return row;
  }

  private cell(column: Column<Item>, item: Item): HTMLElement {
    const text = column.text(item);
    const cell = h(
      'div',
      {
        role: 'gridcell',
        class: column.value === undefined ? 'text' : 'number',
        title: column.value === undefined ? shortened(text, 2000) : '',
      },
      h('span', {}, shortened(text, LONGEST_CELL)),
    );
    if (column.bar !== undefined) {
      cell.style.setProperty('--bar', String(Math.min(1, Math.max(0, column.bar(item)))));
      cell.classList.add('bar');
    }
    if (column.dot !== undefined) {
      const dot = h('i', {});
      dot.style.background = column.dot(item);
      cell.prepend(dot);
    }
    return cell;
  }

  private key(event: KeyboardEvent): void {
    const page = Math.max(1, Math.floor(this.scroll.clientHeight / ROW_HEIGHT) - 1);
    const steps: Record<string, number> = {
      ArrowDown: 1,
      ArrowUp: -1,
      PageDown: page,
      PageUp: -page,
      Home: -this.items.length,
      End: this.items.length,
    };
    if (event.key === 'Enter' && this.items.length > 0) {
      this.options!.onOpen(this.items[this.active]);
    } else if (event.key in steps) {
      const next = this.active + steps[event.key];
      this.active = Math.max(0, Math.min(this.items.length - 1, next));
      this.virtualizer.scrollToIndex(this.active);
      this.drawRows();
    } else {
      return;
    }
    event.preventDefault();
    event.stopPropagation();
  }
}
