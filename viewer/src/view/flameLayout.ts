// Boxes of a flame graph as rectangles, for the canvas and for pictures.

import type { Profile } from '../data/profile';
import type { FlameTree } from '../model/flame';
import { shorterNames } from './format';

export const BOX_HEIGHT = 18;
export const FONT =
  '11.5px system-ui, -apple-system, "Segoe UI", Roboto, "DejaVu Sans", sans-serif';
const PADDING = 4;

export interface Box {
  /** Its number in the tree. */
  number: number;
  x: number;
  y: number;
  width: number;
}

/** Rectangles in pixels: the focused box and its ancestors take the whole width. */
export function layOut(tree: FlameTree, width: number): Box[] {
  const focused = tree.focused ?? 0;
  const ancestors = new Set<number>();
  for (let box = focused; box >= 0; box = tree.parents[box]) {
    ancestors.add(box);
  }
  const start = tree.starts[focused];
  const scale = width / Math.max(1, tree.values[focused]);
  return tree.frames.map((_, number) => {
    const y = tree.depths[number] * BOX_HEIGHT;
    return ancestors.has(number)
      ? { number, x: 0, y, width }
      : {
          number,
          x: (tree.starts[number] - start) * scale,
          y,
          width: tree.values[number] * scale,
        };
  });
}

export class NameFitter {
  private readonly widths = new Map<string, number>();
  private readonly forms = new Map<number, string[]>();

  constructor(
    private readonly profile: Profile,
    private readonly context: CanvasRenderingContext2D,
  ) {}

  /** The longest form of a frame's name that fits; empty where not even three letters do. */
  fit(frame: number, title: string, width: number): string {
    const space = width - 2 * PADDING;
    if (space < 14) {
      return '';
    }
    const forms = frame < 0 ? [title] : this.formsOf(frame);
    for (const form of forms) {
      if (form.length * 3 <= space && this.measure(form) <= space) {
        return form;
      }
    }
    return this.cut(forms[forms.length - 1], space);
  }

  private formsOf(frame: number): string[] {
    let forms = this.forms.get(frame);
    if (forms === undefined) {
      forms = shorterNames(this.profile.frameNames[frame]);
      this.forms.set(frame, forms);
    }
    return forms;
  }

  private cut(text: string, space: number): string {
    let used = this.measureLetter('…');
    let length = 0;
    while (length < text.length) {
      used += this.measureLetter(text[length]);
      if (used > space) {
        break;
      }
      ++length;
    }
    return length < 2 ? '' : `${text.slice(0, length)}…`;
  }

  private measure(text: string): number {
    let width = 0;
    for (const letter of text) {
      width += this.measureLetter(letter);
    }
    return width;
  }

  private measureLetter(letter: string): number {
    let width = this.widths.get(letter);
    if (width === undefined) {
      width = this.context.measureText(letter).width;
      this.widths.set(letter, width);
    }
    return width;
  }
}
