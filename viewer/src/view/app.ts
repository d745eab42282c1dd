// The page: header, filters, time, and one of the views under tabs. Its state is in the fragment of
// the address, so that the back button undoes and an address shows the same to others.

import type { Profile } from '../data/profile';
import { type Selection, select } from '../model/selection';
import {
  filtersOf,
  formatState,
  parseState,
  type State,
  TABS,
  type Tab,
  withoutFilters,
} from '../model/state';
import { AboutView, firstSampleOf, wallClockOf, warningOf } from './aboutView';
import type { Theme } from './colours';
import { h, iconButton } from './dom';
import { FilterBar } from './filterBar';
import { FlameView } from './flameView';
import { type ClockFacts, formatSeconds, plural, shortened } from './format';
import { FunctionsView } from './functionsView';
import { helpDialog } from './help';
import type { Page, View } from './page';
import { FilesView, LibrariesView, ProcessesView } from './tableViews';
import { TimeView } from './timeView';

const TITLES: Record<Tab, string> = {
  flame: 'Flame graph',
  functions: 'Functions',
  libraries: 'Libraries',
  processes: 'Processes',
  files: 'Files',
  about: 'About',
};

export class App implements Page {
  readonly clock: ClockFacts;
  theme: Theme;
  state: State;
  selection: Selection;
  private readonly filterBar: FilterBar;
  private readonly time: TimeView;
  private readonly views: Record<Tab, View>;
  private readonly tabs: HTMLElement;
  private readonly panel: HTMLElement;
  private readonly status = h('p', { class: 'unseen', role: 'status', 'aria-live': 'polite' });
  private readonly help = helpDialog();
  private filters: string;

  constructor(
    readonly profile: Profile,
    private readonly root: HTMLElement,
  ) {
    this.clock = {
      recorded: firstSampleOf(profile.quality) ?? profile.facts.firstTime * 1e-9,
      wall: wallClockOf(profile.quality),
    };
    this.theme = this.preferredTheme();
    document.documentElement.dataset.theme = this.theme;
    this.state = parseState(location.hash);
    this.filters = filtersOf(this.state);
    this.selection = select(profile, this.state);
    this.filterBar = new FilterBar(this);
    this.time = new TimeView(this);
    this.views = {
      flame: new FlameView(this),
      functions: new FunctionsView(this),
      libraries: new LibrariesView(this),
      processes: new ProcessesView(this),
      files: new FilesView(this),
      about: new AboutView(this),
    };
    this.tabs = h('div', { class: 'tabs', role: 'tablist', 'aria-label': 'Views' });
    this.panel = h('div', { class: 'panel', role: 'tabpanel' });
    this.build();
    addEventListener('hashchange', () => this.follow());
    addEventListener('keydown', (event) => this.key(event));
    this.draw();
  }

  show(change: Partial<State>, inPlace = false): void {
    const next = { ...this.state, ...change };
    if (change.tab !== undefined && change.tab !== this.state.tab) {
      next.sort = change.sort ?? '';
      next.filter = change.filter ?? '';
    }
    const fragment = formatState(next);
    if (fragment === formatState(this.state)) {
      return;
    }
    const address = `#${fragment}`;
    if (inPlace) {
      history.replaceState(null, '', address);
    } else {
      history.pushState(null, '', address);
    }
    this.apply(next);
  }

  announce(text: string): void {
    this.status.textContent = text;
  }

  /** The address was changed by the back button, or by hand. */
  private follow(): void {
    this.apply(parseState(location.hash));
  }

  private apply(state: State): void {
    this.state = state;
    const filters = filtersOf(state);
    if (filters !== this.filters) {
      this.filters = filters;
      this.selection = select(this.profile, state);
      this.announce(`${plural(this.selection.count, 'sample')} selected`);
    }
    this.draw();
  }

  private build(): void {
    const { facts, baseline } = this.profile;
    const warning = warningOf(this.profile.quality);
    const title = baseline === null ? facts.name : `${facts.name} compared with ${baseline.name}`;
    document.title = `${shortened(title, 100)} – tracemill`;
    this.root.replaceChildren(
      h(
        'header',
        {},
        h('h1', {}, shortened(title, 120)),
        h(
          'span',
          { class: 'note' },
          `${plural(this.profile.count, 'sample')}, ${formatSeconds(this.profile.duration)}`,
        ),
        h('span', { class: 'spring' }),
        iconButton('Light / dark', 't', () => this.switchTheme()),
        iconButton('Keys', '?', () => this.help.showModal()),
      ),
      ...(warning === null ? [] : [h('p', { class: 'banner', role: 'alert' }, warning)]),
      this.filterBar.element,
      this.time.element,
      this.tabs,
      this.panel,
      this.status,
      this.help,
    );
  }

  private draw(): void {
    this.filterBar.draw();
    this.drawTabs();
    const view = this.views[this.state.tab];
    if (this.panel.firstChild !== view.element) {
      this.panel.replaceChildren(view.element);
    }
    this.time.draw();
    view.draw();
  }

  private drawTabs(): void {
    const hadFocus = this.tabs.contains(document.activeElement);
    this.tabs.replaceChildren(
      ...TABS.map((tab, number) =>
        h(
          'button',
          {
            type: 'button',
            role: 'tab',
            id: `tab-${tab}`,
            'aria-selected': String(tab === this.state.tab),
            tabindex: tab === this.state.tab ? '0' : '-1',
            title: String(number + 1),
            onclick: () => this.show({ tab }),
            onkeydown: (event) => this.tabKey(event as KeyboardEvent, number),
          },
          TITLES[tab],
        ),
      ),
    );
    this.panel.setAttribute('aria-labelledby', `tab-${this.state.tab}`);
    if (hadFocus) {
      this.tabs.querySelector<HTMLElement>('[aria-selected=true]')?.focus();
    }
  }

  private tabKey(event: KeyboardEvent, number: number): void {
    const step = event.key === 'ArrowRight' ? 1 : event.key === 'ArrowLeft' ? -1 : 0;
    if (step !== 0) {
      this.show({ tab: TABS[(number + step + TABS.length) % TABS.length] });
      event.preventDefault();
    }
  }

  private key(event: KeyboardEvent): void {
    if (event.ctrlKey || event.metaKey || event.altKey || this.help.open) {
      return;
    }
    if (event.target instanceof HTMLInputElement) {
      if (event.key === 'Escape' || event.key === 'Enter') {
        event.target.blur();
      }
      return;
    }
    if (
      this.pageKey(event) ||
      this.views[this.state.tab].handleKey(event) ||
      this.time.handleKey(event)
    ) {
      event.preventDefault();
    }
  }

  private pageKey(event: KeyboardEvent): boolean {
    const toggleMode = (mode: 'user' | 'kernel') =>
      this.show({ mode: this.state.mode === mode ? '' : mode, focus: [] });
    const actions: Record<string, () => void> = {
      '?': () => this.help.showModal(),
      t: () => this.switchTheme(),
      x: () => this.show(withoutFilters(this.state)),
      u: () => toggleMode('user'),
      k: () => toggleMode('kernel'),
      Backspace: () => history.back(),
    };
    const tab = TABS[Number(event.key) - 1];
    const action = tab === undefined ? actions[event.key] : () => this.show({ tab });
    action?.();
    return action !== undefined;
  }

  private preferredTheme(): Theme {
    const isDark = matchMedia('(prefers-color-scheme: dark)').matches;
    return isDark ? 'dark' : 'light';
  }

  private switchTheme(): void {
    this.theme = this.theme === 'light' ? 'dark' : 'light';
    document.documentElement.dataset.theme = this.theme;
    this.draw();
  }
}
