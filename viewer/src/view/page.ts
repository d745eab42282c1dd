// What the views share: the profile, what is selected, and how to change what is shown.

import type { Profile } from '../data/profile';
import type { Selection } from '../model/selection';
import type { State } from '../model/state';
import type { Theme } from './colours';
import type { ClockFacts } from './format';

export interface Page {
  readonly profile: Profile;
  readonly clock: ClockFacts;
  readonly theme: Theme;
  readonly state: State;
  readonly selection: Selection;
  /** Shows another state. It becomes a place that the back button returns to, unless `inPlace`. */
  show(change: Partial<State>, inPlace?: boolean): void;
  /** Says something to those who listen instead of looking. */
  announce(text: string): void;
}

export interface View {
  readonly element: HTMLElement;
  /** Draws the page's state. Called when it is on the screen. */
  draw(): void;
  /** Whether the key was one of the view's. */
  handleKey(event: KeyboardEvent): boolean;
}

/** `values` with `value`, or without it where it was. */
export function toggled(values: string[], value: string): string[] {
  return values.includes(value) ? values.filter((other) => other !== value) : [...values, value];
}
