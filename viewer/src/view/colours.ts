// Colours that people who see few of them can tell apart (after Okabe and Ito), light and dark.

import { Kind } from '../data/profile';

export type Theme = 'light' | 'dark';
type Rgb = [number, number, number];

const KINDS: Record<Theme, Record<Kind, Rgb>> = {
  light: {
    [Kind.Kernel]: [240, 176, 74],
    [Kind.Program]: [122, 184, 232],
    [Kind.Library]: [121, 201, 170],
    [Kind.Jit]: [217, 158, 194],
    [Kind.Unknown]: [196, 200, 206],
  },
  dark: {
    [Kind.Kernel]: [176, 118, 26],
    [Kind.Program]: [47, 112, 166],
    [Kind.Library]: [32, 122, 92],
    [Kind.Jit]: [148, 82, 122],
    [Kind.Unknown]: [88, 94, 104],
  },
};

export const MATCH: Record<Theme, string> = { light: '#e3007b', dark: '#ff5fb0' };

const text = ([red, green, blue]: Rgb) => `rgb(${red | 0},${green | 0},${blue | 0})`;

function mix(from: Rgb, to: Rgb, part: number): Rgb {
  return [0, 1, 2].map((i) => from[i] + (to[i] - from[i]) * part) as Rgb;
}

/** From -1 to 1, always the same for a name. */
function variationOf(name: string): number {
  let hash = 2166136261;
  for (let i = 0; i < Math.min(name.length, 64); ++i) {
    hash = Math.imul(hash ^ name.charCodeAt(i), 16777619);
  }
  return ((hash >>> 8) & 255) / 127.5 - 1;
}

/** The colour of a box: its kind's, a little lighter or darker by its name. */
export function boxColour(theme: Theme, kind: Kind, name: string): string {
  const variation = variationOf(name);
  const to: Rgb = variation > 0 ? [255, 255, 255] : [0, 0, 0];
  return text(mix(KINDS[theme][kind], to, Math.abs(variation) * (theme === 'light' ? 0.16 : 0.13)));
}

export function kindColour(theme: Theme, kind: Kind): string {
  return text(KINDS[theme][kind]);
}

/** Grey where nothing changed, blue where it is less, orange where it is more; `change` from -1 to 1. */
export function changeColour(theme: Theme, change: number): string {
  const grey: Rgb = theme === 'light' ? [228, 230, 234] : [66, 71, 80];
  const more: Rgb = theme === 'light' ? [224, 108, 20] : [226, 116, 30];
  const less: Rgb = theme === 'light' ? [32, 112, 190] : [58, 142, 224];
  return text(mix(grey, change > 0 ? more : less, Math.min(1, Math.abs(change))));
}

const HEAT: Record<Theme, Rgb[]> = {
  light: [
    [214, 229, 245],
    [140, 184, 226],
    [58, 123, 192],
    [20, 66, 138],
    [10, 26, 74],
  ],
  dark: [
    [24, 46, 76],
    [28, 88, 146],
    [40, 146, 196],
    [132, 212, 214],
    [248, 250, 214],
  ],
};

/** 256 colours as 32-bit pixels of an ImageData, from few to many samples. */
export function heatPixels(theme: Theme): Uint32Array {
  const stops = HEAT[theme];
  const bytes = new Uint8ClampedArray(256 * 4);
  for (let i = 0; i < 256; ++i) {
    const place = (i / 255) * (stops.length - 1);
    const stop = Math.min(stops.length - 2, place | 0);
    const colour = mix(stops[stop], stops[stop + 1], place - stop);
    bytes.set([...colour, 255], i * 4);
  }
  return new Uint32Array(bytes.buffer);
}
