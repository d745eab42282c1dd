// The table of functions, with callers and callees of one.

import type { Kind } from '../data/profile';
import { functionRows, type Relative, type Row, relativesOf } from '../model/tables';
import { kindColour } from './colours';
import { h, iconButton } from './dom';
import { formatShare, plural, shortened } from './format';
import type { Page } from './page';
import { type Column, Table } from './table';
import { samplesColumn, shareColumns, TableView } from './tableView';

export class FunctionsView extends TableView<Row> {
  protected readonly firstSort = '-own';
  private readonly side = h('aside', {
    class: 'sandwich',
    'aria-label': 'Callers and callees',
    hidden: true,
  });
  private readonly callers = new Table<Relative>();
  private readonly callees = new Table<Relative>();
  private readonly about = h('div', { class: 'about-function' });
  private sortCallers = '-count';
  private sortCallees = '-count';

  constructor(page: Page) {
    super(page, 'Functions', 'functions.csv');
    this.side.append(
      this.about,
      h('h3', {}, 'Called by'),
      this.callers.element,
      h('h3', {}, 'Calls'),
      this.callees.element,
    );
    this.element.append(this.side);
  }

  override draw(): void {
    super.draw();
    this.drawSide();
  }

  override handleKey(event: KeyboardEvent): boolean {
    if (event.key === 'Escape' && this.page.state.selected !== '') {
      this.page.show({ selected: '' });
      return true;
    }
    return super.handleKey(event);
  }

  protected items(): Row[] {
    return functionRows(this.page.profile, this.page.selection);
  }

  protected columns(): Column<Row>[] {
    const { profile, theme } = this.page;
    const file = (row: Row) => {
      const number = profile.frameFiles[row.number];
      return number === 0 ? '' : profile.fileNames[number - 1];
    };
    return [
      ...shareColumns(this.page),
      samplesColumn,
      {
        key: 'function',
        title: 'Function',
        width: 'minmax(220px, 4fr)',
        text: (row) => profile.frameNames[row.number],
        dot: (row) => kindColour(theme, profile.frameKind(row.number) as Kind),
      },
      {
        key: 'library',
        title: 'Library',
        width: 'minmax(90px, 1fr)',
        text: (row) => profile.libraryFile(profile.frameLibraries[row.number]),
      },
      ...(profile.fileNames.length === 0
        ? []
        : [{ key: 'file', title: 'Source file', width: 'minmax(90px, 1.2fr)', text: file }]),
    ];
  }

  protected nameOf(row: Row): string {
    return this.page.profile.frameNames[row.number];
  }

  protected isSelected(row: Row): boolean {
    return this.page.profile.frameOfKey(this.page.state.selected) === row.number;
  }

  protected open(row: Row): void {
    const key = this.page.profile.frameKey(row.number);
    this.page.show({ selected: key === this.page.state.selected ? '' : key });
  }

  private drawSide(): void {
    const { profile, selection, state } = this.page;
    const frame = state.selected === '' ? null : profile.frameOfKey(state.selected);
    this.side.hidden = frame === null;
    if (frame === null) {
      return;
    }
    const row = this.items().find(({ number }) => number === frame);
    const total = row?.total ?? 0;
    const file = profile.frameFiles[frame];
    this.about.replaceChildren(
      h(
        'h3',
        { class: 'function-name', title: shortened(profile.frameNames[frame], 2000) },
        shortened(profile.frameNames[frame], 300),
      ),
      h(
        'p',
        { class: 'note' },
        `${profile.libraryNames[profile.frameLibraries[frame]]}${file === 0 ? '' : `, ${profile.fileNames[file - 1]}`}`,
      ),
      h(
        'p',
        {},
        `own ${formatShare(row?.own ?? 0, selection.count)}, total ${formatShare(total, selection.count)} (${plural(total, 'sample')})`,
      ),
      iconButton('Only chains with it', 'Filter by this function', () => {
        if (!state.functions.includes(state.selected)) {
          this.page.show({ functions: [...state.functions, state.selected] });
        }
      }),
      iconButton('In the flame graph', 'Search it there', () =>
        this.page.show({ tab: 'flame', search: profile.frameNames[frame].slice(0, 300) }),
      ),
      iconButton('Close', 'Escape', () => this.page.show({ selected: '' })),
    );
    const { callers, callees } = relativesOf(profile, selection, frame);
    this.showRelatives(
      this.callers,
      'Callers',
      callers,
      total,
      '(none: chains begin here)',
      this.sortCallers,
      (sort) => {
        this.sortCallers = sort;
      },
    );
    this.showRelatives(
      this.callees,
      'Callees',
      callees,
      total,
      '(itself)',
      this.sortCallees,
      (sort) => {
        this.sortCallees = sort;
      },
    );
  }

  private showRelatives(
    table: Table<Relative>,
    label: string,
    items: Relative[],
    total: number,
    none: string,
    sort: string,
    keepSort: (sort: string) => void,
  ): void {
    const { profile, theme } = this.page;
    table.show({
      label,
      items,
      sort,
      columns: [
        {
          key: 'count',
          title: 'Share',
          width: '84px',
          text: ({ count }) => formatShare(count, total),
          value: ({ count }) => count,
          bar: ({ count }) => count / Math.max(1, total),
        },
        {
          key: 'function',
          title: 'Function',
          width: 'minmax(160px, 1fr)',
          text: ({ frame }) => (frame < 0 ? none : profile.frameNames[frame]),
          dot: ({ frame }) =>
            frame < 0 ? 'transparent' : kindColour(theme, profile.frameKind(frame) as Kind),
        },
      ],
      selected: () => false,
      onSort: (next) => {
        keepSort(next);
        this.drawSide();
      },
      onOpen: ({ frame }) => {
        if (frame >= 0) {
          this.page.show({ selected: profile.frameKey(frame) });
        }
      },
    });
  }
}
