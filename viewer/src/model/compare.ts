// Changes against the recording that is compared with.

import type { Profile } from '../data/profile';
import type { Selection } from './selection';
import type { State } from './state';

/**
 * How much more than before, in percentage points of all samples: shares against shares, or, by time,
 * samples a second against those before, where all of those before are 100.
 */
export function changeOf(
  profile: Profile,
  selection: Selection,
  state: Pick<State, 'norm' | 'time'>,
  now: number,
  before: number,
): number {
  const { count, baselineCount } = selection;
  if (state.norm === 'samples') {
    return 100 * (now / Math.max(1, count) - before / Math.max(1, baselineCount));
  }
  const { time } = state;
  const seconds = time === null ? profile.duration : time[1] - time[0];
  const secondsBefore = profile.baseline?.seconds ?? 0;
  const nowInTimeBefore = (now / Math.max(1e-9, seconds)) * secondsBefore;
  return (100 * (nowInTimeBefore - before)) / Math.max(1, baselineCount);
}
