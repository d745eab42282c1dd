// The tables of libraries, source files, processes and threads; clicks in them filter.

import type { Kind, Profile } from '../data/profile';
import type { State } from '../model/state';
import {
  fileRows,
  functionRows,
  libraryRows,
  type Row,
  type ThreadRow,
  threadRows,
} from '../model/tables';
import { kindColour } from './colours';
import { formatCount, formatShare } from './format';
import { type Page, toggled } from './page';
import type { Column } from './table';
import { samplesColumn, shareColumns, TableView } from './tableView';

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
