// What the colours of the flame graph mean, and how much of each there is.

import { KIND_NAMES, type Kind } from '../data/profile';
import { countsByKind } from '../model/tables';
import { changeColour, kindColour } from './colours';
import { h } from './dom';
import { plural } from './format';
import type { Page } from './page';

function entry(colour: string, text: string, title = ''): HTMLElement {
  const dot = h('i', {});
  dot.style.background = colour;
  return h('span', { title }, dot, text);
}

export function legendOf({ profile, selection, theme }: Page): HTMLElement[] {
  if (profile.baseline !== null) {
    return [
      entry(changeColour(theme, -1), 'less'),
      entry(changeColour(theme, 0), 'same'),
      entry(changeColour(theme, 1), 'more'),
    ];
  }
  return countsByKind(profile, selection).flatMap((count, kind) => {
    if (count === 0) {
      return [];
    }
    const share = `${((100 * count) / selection.count).toFixed(1)} %`;
    const title = `${plural(count, 'sample')} in code of this kind`;
    return [entry(kindColour(theme, kind as Kind), `${KIND_NAMES[kind]} ${share}`, title)];
  });
}
