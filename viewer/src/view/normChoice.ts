// The switch between two ways to compare recordings; nothing where there is but one recording.

import { choice } from './dom';
import type { Page } from './page';

const NORMS = [
  ['samples', 'By samples', 'Compare shares of all samples'],
  [
    'time',
    'By time',
    'Compare samples a second: what takes longer is more, whatever else there is',
  ],
] as const;

export function normChoice(page: Page): HTMLElement[] {
  return page.profile.baseline === null
    ? []
    : [choice('Compared', NORMS, page.state.norm, (norm) => page.show({ norm }))];
}
