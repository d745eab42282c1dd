// What the views of tables share.

import { changeOf } from '../model/compare';
import { matcherOf } from '../model/search';
import type { Row } from '../model/tables';
import { h, iconButton, saveFile } from './dom';
import { formatChange, formatCount, formatShare, plural } from './format';
import { normChoice } from './normChoice';
import type { Page, View } from './page';
import { type Column, Table } from './table';

/** What the tables have in common: a field that filters names, the number of rows, CSV. */
export abstract class TableView<Item> implements View {
  readonly element: HTMLElement;
  protected readonly table = new Table<Item>();
  protected readonly tools = h('div', { class: 'tools' });
  private readonly field: HTMLInputElement;
  private readonly note = h('span', { class: 'note', role: 'status' });
  private readonly norm = h('span', {});

  constructor(
    protected readonly page: Page,
    protected readonly title: string,
    private readonly fileName: string,
  ) {
    this.field = h('input', {
      type: 'search',
      placeholder: 'Filter rows: text or /expression/',
      'aria-label': `Filter ${title} by name`,
      oninput: () => this.page.show({ filter: this.field.value }, true),
    });
    this.tools.append(
      this.field,
      this.note,
      this.norm,
      h('span', { class: 'spring' }),
      iconButton('CSV', 'Save this table', () =>
        saveFile(this.fileName, this.table.csv(), 'text/csv'),
      ),
    );
    this.element = h(
      'section',
      { class: 'table-view', 'aria-label': title },
      h('div', { class: 'table-main' }, this.tools, this.table.element),
    );
  }

  protected abstract items(): Item[];
  protected abstract columns(): Column<Item>[];
  protected abstract nameOf(item: Item): string;
  protected abstract isSelected(item: Item): boolean;
  protected abstract open(item: Item): void;
  protected abstract readonly firstSort: string;

  draw(): void {
    const { state } = this.page;
    if (this.field.value !== state.filter) {
      this.field.value = state.filter;
    }
    this.norm.replaceChildren(...normChoice(this.page));
    const all = this.items();
    const matcher = matcherOf(state.filter);
    const items = matcher === null ? all : all.filter((item) => matcher(this.nameOf(item)));
    this.note.textContent =
      items.length === all.length
        ? plural(all.length, 'row')
        : `${formatCount(items.length)} of ${plural(all.length, 'row')}`;
    const columns = this.columns();
    const isKnown = columns.some(({ key }) => key === state.sort.replace(/^-/, ''));
    this.table.show({
      label: this.title,
      columns,
      items,
      sort: isKnown ? state.sort : this.firstSort,
      selected: (item) => this.isSelected(item),
      onSort: (sort) => this.page.show({ sort }, true),
      onOpen: (item) => this.open(item),
    });
  }

  handleKey(event: KeyboardEvent): boolean {
    if (event.key !== '/') {
      return false;
    }
    this.field.focus();
    this.field.select();
    return true;
  }
}

/** Own and total samples, and their change where there is something to compare with. */
export function shareColumns(page: Page): Column<Row>[] {
  const { selection, profile } = page;
  const { count } = selection;
  const largest = Math.max(1, count);
  const columns: Column<Row>[] = [
    {
      key: 'own',
      title: 'Own',
      width: '88px',
      hint: 'Share of the selected samples that fell into it',
      text: (row) => formatShare(row.own, count),
      value: (row) => row.own,
      bar: (row) => row.own / largest,
    },
    {
      key: 'total',
      title: 'Total',
      width: '88px',
      hint: 'Share of the selected samples with it anywhere in their chain',
      text: (row) => formatShare(row.total, count),
      value: (row) => row.total,
      bar: (row) => row.total / largest,
    },
  ];
  if (profile.baseline === null) {
    return columns;
  }
  const seconds =
    page.state.time === null ? profile.duration : page.state.time[1] - page.state.time[0];
  const change = (now: number, before: number) =>
    changeOf(profile, selection, page.state, now, before);
  const rate = (row: Row) => row.own / Math.max(1e-9, seconds);
  const rateBefore = (row: Row) => row.baselineOwn / Math.max(1e-9, profile.baseline!.seconds);
  return [
    ...columns,
    {
      key: 'change',
      title: 'Own, change',
      width: '112px',
      hint: 'Percentage points of own samples that it has more or less than before; by time: of the samples a second before',
      text: (row) => formatChange(change(row.own, row.baselineOwn)),
      value: (row) => change(row.own, row.baselineOwn),
    },
    {
      key: 'totalChange',
      title: 'Total, change',
      width: '118px',
      hint: 'The same for its total',
      text: (row) => formatChange(change(row.total, row.baselineTotal)),
      value: (row) => change(row.total, row.baselineTotal),
    },
    {
      key: 'rate',
      title: 'Samples/s',
      width: '132px',
      hint: 'Own samples a second, now and before',
      text: (row) => `${rate(row).toFixed(1)} (${rateBefore(row).toFixed(1)})`,
      value: (row) => rate(row) - rateBefore(row),
    },
  ];
}

export const samplesColumn: Column<Row> = {
  key: 'samples',
  title: 'Samples',
  width: '84px',
  hint: 'Own samples',
  text: (row) => formatCount(row.own),
  value: (row) => row.own,
};
