// The filters that are set, each with a button that takes it away.

import type { State } from '../model/state';
import { withoutFilters } from '../model/state';
import { choice, h, iconButton } from './dom';
import { digitsFor, formatShare, formatTime, plural, shortened } from './format';
import type { Page } from './page';

interface Chip {
  kind: string;
  text: string;
  without: Partial<State>;
}

const MODES = [
  ['', 'All'],
  ['user', 'User'],
  ['kernel', 'Kernel'],
] as const;

export class FilterBar {
  readonly element = h('nav', { class: 'filters', 'aria-label': 'Filters' });

  constructor(private readonly page: Page) {}

  draw(): void {
    const { state, selection, profile } = this.page;
    const chips = this.chips();
    this.element.replaceChildren(
      choice('User or kernel', MODES, state.mode, (mode) => this.page.show({ mode, focus: [] })),
      ...chips.map((chip) => this.chip(chip)),
      ...(chips.length === 0
        ? []
        : [iconButton('Clear all', 'x', () => this.page.show(withoutFilters(state)))]),
      h('span', { class: 'spring' }),
      h(
        'strong',
        { class: 'selected-count' },
        selection.count === profile.count
          ? plural(profile.count, 'sample')
          : `${plural(selection.count, 'sample')}, ${formatShare(selection.count, profile.count)}`,
      ),
    );
  }

  private chip({ kind, text, without }: Chip): HTMLElement {
    return h(
      'span',
      { class: 'chip' },
      h('span', { class: 'chip-kind' }, kind),
      h('span', { class: 'chip-text', title: shortened(text, 1000) }, shortened(text, 60)),
      h(
        'button',
        {
          type: 'button',
          'aria-label': `Remove filter ${kind} ${shortened(text, 100)}`,
          onclick: () => this.page.show(without),
        },
        '×',
      ),
    );
  }

  private chips(): Chip[] {
    const { state, clock, profile } = this.page;
    const chips: Chip[] = [];
    if (state.time !== null) {
      const digits = digitsFor((state.time[1] - state.time[0]) / 100);
      const [from, to] = state.time.map((time) => formatTime(time, state.clock, clock, digits));
      const unit = state.clock === 'wall' ? '' : ' s';
      chips.push({ kind: 'time', text: `${from} – ${to}${unit}`, without: { time: null } });
    }
    const lists = [
      ['process', 'pids', (pid: string) => this.processName(pid)],
      ['thread', 'tids', (tid: string) => this.threadName(tid)],
      ['CPU', 'cpus', (cpu: string) => cpu],
      ['library', 'libraries', (name: string) => name],
      [
        'function',
        'functions',
        (key: string) => profile.frameNames[profile.frameOfKey(key) ?? -1] ?? `${key} (not here)`,
      ],
    ] as const;
    for (const [kind, field, title] of lists) {
      for (const value of state[field]) {
        const without = state[field].filter((other) => other !== value);
        chips.push({ kind, text: title(value), without: { [field]: without } });
      }
    }
    return chips;
  }

  private processName(pid: string): string {
    const process = this.page.profile.processes.find(
      (other) => String(other.pid ?? 'unknown') === pid,
    );
    return process?.name ? `${process.name} ${pid}` : pid;
  }

  private threadName(tid: string): string {
    const { threadTids, threadNames } = this.page.profile;
    const thread = threadTids.findIndex((other) => String(other - 1) === tid);
    return thread >= 0 && threadNames[thread] ? `${threadNames[thread]} ${tid}` : tid;
  }
}
