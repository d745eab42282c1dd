// The keys, in a dialog.

import { h } from './dom';

const KEYS: [string, [string, string][]][] = [
  [
    'Everywhere',
    [
      ['1 … 6', 'flame graph, functions, libraries, processes, files, about'],
      ['/', 'search, or filter the table'],
      ['x', 'clear all filters'],
      ['u, k', 'only user code, only kernel code; again for both'],
      ['Backspace', 'back to what was shown before'],
      ['t', 'light or dark'],
      ['?', 'this list'],
    ],
  ],
  [
    'Time',
    [
      ['w, s', 'zoom in and out'],
      ['a, d', 'move left and right'],
      ['z, 0', 'zoom to the selected time; show all'],
      ['r', 'processes, threads, CPUs, seconds'],
      ['← →', 'on the heat map: move a mark; with Shift select, Enter keeps it'],
    ],
  ],
  [
    'Flame graph',
    [
      ['↑ ↓ ← →', 'on the graph: walk through the boxes'],
      ['Enter, Esc', 'zoom to the box; zoom out'],
      ['f, Shift+click', 'only chains with this function'],
      ['i', 'from the root, from the leaves'],
      ['g', 'all, by process, by thread'],
    ],
  ],
  [
    'Tables',
    [
      ['↑ ↓ Page Home End', 'walk through the rows'],
      ['Enter', 'open the row, or filter by it'],
    ],
  ],
];

export function helpDialog(): HTMLDialogElement {
  const dialog = h('dialog', { class: 'help', 'aria-label': 'Keys' });
  dialog.append(
    h('h2', {}, 'Keys'),
    h(
      'div',
      { class: 'key-groups' },
      ...KEYS.map(([title, keys]) =>
        h(
          'section',
          {},
          h('h3', {}, title),
          h(
            'dl',
            {},
            ...keys.flatMap(([key, what]) => [h('dt', {}, h('kbd', {}, key)), h('dd', {}, what)]),
          ),
        ),
      ),
    ),
    h('button', { type: 'button', onclick: () => dialog.close() }, 'Close'),
  );
  dialog.addEventListener('click', (event) => {
    if (event.target === dialog) {
      dialog.close();
    }
  });
  return dialog;
}
