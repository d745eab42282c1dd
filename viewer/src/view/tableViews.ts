// The tables: functions with callers and callees, libraries, processes, source files.

import type { Kind, Profile } from '../data/profile';
import { matcherOf } from '../model/search';
import type { State } from '../model/state';
import {
  fileRows,
  functionRows,
  libraryRows,
  type Relative,
  type Row,
  relativesOf,
  type ThreadRow,
  threadRows,
} from '../model/tables';
import { kindColour } from './colours';
import { h, iconButton, saveFile } from './dom';
import { formatChange, formatCount, formatShare, plural, shortened } from './format';
import { type Page, toggled, type View } from './page';
import { type Column, Table } from './table';

/** What the tables have in common: a field that filters names, the number of rows, CSV. */
abstract class TableView<Item> implements View {
  readonly element: HTMLElement;
  protected readonly table = new Table<Item>();
  protected readonly tools = h('div', { class: 'tools' });
  private readonly field: HTMLInputElement;
  private readonly note = h('span', { class: 'note', role: 'status' });

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
function shareColumns(page: Page): Column<Row>[] {
  const { selection, profile } = page;
  const { count, baselineCount } = selection;
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
    100 * (now / largest - before / Math.max(1, baselineCount));
  const rate = (row: Row) => row.own / Math.max(1e-9, seconds);
  const rateBefore = (row: Row) => row.baselineOwn / Math.max(1e-9, profile.baseline!.seconds);
  return [
    ...columns,
    {
      key: 'change',
      title: 'Own, change',
      width: '100px',
      hint: 'Percentage points of own samples that it has more or less than before',
      text: (row) => formatChange(change(row.own, row.baselineOwn)),
      value: (row) => change(row.own, row.baselineOwn),
    },
    {
      key: 'totalChange',
      title: 'Total, change',
      width: '108px',
      hint: 'The same for its total',
      text: (row) => formatChange(change(row.total, row.baselineTotal)),
      value: (row) => change(row.total, row.baselineTotal),
    },
    {
      key: 'rate',
      title: 'Samples/s',
      width: '112px',
      hint: 'Own samples a second, now and before',
      text: (row) => `${rate(row).toFixed(1)} (${rateBefore(row).toFixed(1)})`,
      value: (row) => rate(row) - rateBefore(row),
    },
  ];
}

const samplesColumn: Column<Row> = {
  key: 'samples',
  title: 'Samples',
  width: '84px',
  hint: 'Own samples',
  text: (row) => formatCount(row.own),
  value: (row) => row.own,
};

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

export class LibrariesView extends TableView<Row> {
  protected readonly firstSort = '-own';

  constructor(page: Page) {
    super(page, 'Libraries', 'libraries.csv');
  }

  protected items(): Row[] {
    return libraryRows(this.page.profile, this.page.selection);
  }

  protected columns(): Column<Row>[] {
    const { profile, theme } = this.page;
    return [
      ...shareColumns(this.page),
      samplesColumn,
      {
        key: 'library',
        title: 'Library',
        width: 'minmax(240px, 1fr)',
        text: (row) => profile.libraryNames[row.number],
        dot: (row) => kindColour(theme, profile.libraryKinds[row.number] as Kind),
      },
    ];
  }

  protected nameOf(row: Row): string {
    return this.page.profile.libraryNames[row.number];
  }

  protected isSelected(row: Row): boolean {
    return this.page.state.libraries.includes(this.nameOf(row));
  }

  protected open(row: Row): void {
    this.page.show({ libraries: toggled(this.page.state.libraries, this.nameOf(row)) });
  }
}

export class FilesView extends TableView<Row> {
  protected readonly firstSort = '-own';

  constructor(page: Page) {
    super(page, 'Source files', 'files.csv');
  }

  protected items(): Row[] {
    return fileRows(this.page.profile, this.page.selection);
  }

  protected columns(): Column<Row>[] {
    return [
      ...shareColumns(this.page),
      samplesColumn,
      {
        key: 'file',
        title: 'Source file',
        width: 'minmax(240px, 1fr)',
        text: (row) => this.nameOf(row),
      },
    ];
  }

  protected nameOf(row: Row): string {
    return row.number === 0 ? '(not known)' : this.page.profile.fileNames[row.number - 1];
  }

  protected isSelected(): boolean {
    return false;
  }

  /** The functions of the file, as the functions' table shows them. */
  protected open(row: Row): void {
    if (row.number > 0) {
      const sort = 'file';
      this.page.show({
        tab: 'functions',
        filter: '',
        sort,
        selected: this.firstFunction(row.number),
      });
    }
  }

  private firstFunction(file: number): string {
    const { profile } = this.page as { profile: Profile };
    const rows = functionRows(profile, this.page.selection);
    const ofFile = rows.filter((row) => profile.frameFiles[row.number] === file);
    ofFile.sort((left, right) => right.own - left.own);
    return ofFile.length === 0 ? '' : profile.frameKey(ofFile[0].number);
  }
}

export class ProcessesView extends TableView<ThreadRow> {
  protected readonly firstSort = '-process';

  constructor(page: Page) {
    super(page, 'Processes and threads', 'threads.csv');
  }

  protected items(): ThreadRow[] {
    return threadRows(this.page.profile, this.page.selection);
  }

  protected columns(): Column<ThreadRow>[] {
    const { profile, selection } = this.page;
    const whole = Math.max(1, selection.count);
    const process = (row: ThreadRow) => profile.processes[row.process];
    return [
      {
        key: 'thread',
        title: 'Thread',
        width: '88px',
        hint: 'Share of the selected samples',
        text: (row) => formatShare(row.count, selection.count),
        value: (row) => row.count,
        bar: (row) => row.count / whole,
      },
      {
        key: 'process',
        title: 'Process',
        width: '88px',
        hint: "Share of the thread's process",
        text: (row) => formatShare(row.processCount, selection.count),
        // Threads of a process stay together.
        value: (row) => row.processCount + row.count / (whole + 1),
        bar: (row) => row.processCount / whole,
      },
      {
        key: 'samples',
        title: 'Samples',
        width: '92px',
        text: (row) => formatCount(row.count),
        value: (row) => row.count,
      },
      {
        key: 'name',
        title: 'Thread name',
        width: 'minmax(140px, 1fr)',
        text: (row) => profile.threadNames[row.thread] || '(no name)',
      },
      {
        key: 'tid',
        title: 'Tid',
        width: '90px',
        text: (row) => this.tidOf(row),
        value: (row) => profile.threadTids[row.thread] - 1,
      },
      {
        key: 'processName',
        title: 'Process name',
        width: 'minmax(140px, 1fr)',
        text: (row) => process(row).name || '(no name)',
      },
      {
        key: 'pid',
        title: 'Pid',
        width: '90px',
        text: (row) => String(process(row).pid ?? 'unknown'),
        value: (row) => process(row).pid ?? -1,
      },
    ];
  }

  private tidOf(row: ThreadRow): string {
    const tid = this.page.profile.threadTids[row.thread];
    return tid === 0 ? 'unknown' : String(tid - 1);
  }

  protected nameOf(row: ThreadRow): string {
    const { profile } = this.page;
    return `${profile.threadTitle(row.thread)} ${profile.processTitle(row.process)}`;
  }

  protected isSelected(row: ThreadRow): boolean {
    return this.page.state.tids.includes(this.tidOf(row));
  }

  protected open(row: ThreadRow): void {
    const change: Partial<State> = { tids: toggled(this.page.state.tids, this.tidOf(row)) };
    this.page.show(change);
  }
}
