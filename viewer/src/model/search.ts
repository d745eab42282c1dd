// Searching names: plain text without regard to case, or /a regular expression/.

import type { Profile } from '../data/profile';

export interface Search {
  /** By frame: 1 where the name matches. */
  matches: Uint8Array;
  frames: number;
}

/** The test that a search text stands for; null where it is empty, or no regular expression. */
export function matcherOf(text: string): ((name: string) => boolean) | null {
  if (text === '') {
    return null;
  }
  const expression = /^\/(.+)\/(i?)$/.exec(text);
  if (expression !== null) {
    try {
      const regular = new RegExp(expression[1], expression[2]);
      return (name) => regular.test(name);
    } catch {
      return null;
    }
  }
  const wanted = text.toLowerCase();
  return (name) => name.toLowerCase().includes(wanted);
}

export function searchFrames(profile: Profile, text: string): Search | null {
  const matcher = matcherOf(text);
  if (matcher === null) {
    return null;
  }
  const matches = new Uint8Array(profile.frameNames.length);
  let frames = 0;
  profile.frameNames.forEach((name, frame) => {
    // Nobody looks for what stands behind the first thousands of characters, and expressions may be slow.
    if (matcher(name.length > 4096 ? name.slice(0, 4096) : name)) {
      matches[frame] = 1;
      ++frames;
    }
  });
  return { matches, frames };
}

/** Samples that have a matching function anywhere in their chain. */
export function countMatches(profile: Profile, total: Uint32Array, matches: Uint8Array): number {
  const { stackFrames, stackEnds } = profile;
  let count = 0;
  for (let node = 1; node < total.length; ) {
    if (matches[stackFrames[node]] === 1) {
      count += total[node];
      node = stackEnds[node];
    } else {
      ++node;
    }
  }
  return count;
}
