// Samples over time: a curve of all, and a heat map of them by process, thread or CPU, or second by
// second. Dragging selects a time, the wheel zooms.

import uPlot from 'uplot';
import { type HeatMap, heatMap, secondsMap } from '../model/heat';
import type { Range, State } from '../model/state';
import { choice, h, iconButton } from './dom';
import {
  digitsFor,
  digitsOf,
  formatCount,
  formatSeconds,
  formatTime,
  plural,
  shortened,
} from './format';
import { GUTTER, HeatPicture, SECOND_ROWS } from './heatPicture';
import type { Page, View } from './page';

const RIGHT = 22;
const CURVE_HEIGHT = 84;
const CELL = 2; // pixels of a column
const SMALLEST_ZOOM = 1e-6;

const ROWS = [
  ['processes', 'Processes'],
  ['threads', 'Threads'],
  ['cpus', 'CPUs'],
  [
    'seconds',
    'Seconds',
    'A column a second, upwards through the second: periodic work shows as lines',
  ],
] as const;

export class TimeView implements View {
  readonly element: HTMLElement;
  private readonly tools = h('div', { class: 'tools' });
  private readonly curve = h('div', { class: 'curve' });
  private readonly shade = h('div', { class: 'shade', hidden: true });
  private readonly mark = h('div', { class: 'mark', hidden: true });
  private readonly tip = h('div', { class: 'tip', hidden: true });
  private readonly picture: HeatPicture;
  private readonly canvas: HTMLCanvasElement;
  private plot: uPlot | null = null;
  private map: HeatMap | null = null;
  private drawn = '';
  private markTime: number | null = null;
  private markStart: number | null = null;

  constructor(private readonly page: Page) {
    this.picture = new HeatPicture(page, [this.shade, this.mark]);
    this.canvas = this.picture.canvas;
    this.element = h(
      'section',
      { class: 'time', 'aria-label': 'Time' },
      this.tools,
      this.curve,
      this.picture.element,
      this.tip,
    );
    this.canvas.addEventListener('pointerdown', (event) => this.startDrag(event));
    this.canvas.addEventListener('pointermove', (event) => this.showTip(event));
    this.canvas.addEventListener('pointerleave', () => {
      this.tip.hidden = true;
    });
    this.canvas.addEventListener('wheel', (event) => this.wheel(event), { passive: false });
    this.canvas.addEventListener('keydown', (event) => this.moveMark(event));
    this.canvas.addEventListener('dblclick', () => this.page.show({ time: null }));
    new ResizeObserver(() => this.draw()).observe(this.element);
  }

  /** Processes, unless there is but one. */
  private get rowKind(): Exclude<State['rows'], 'auto'> {
    const { rows } = this.page.state;
    const { processes } = this.page.profile;
    return rows !== 'auto' ? rows : processes.length > 1 ? 'processes' : 'threads';
  }

  /** What is seen of the time. */
  get range(): Range {
    const { zoom } = this.page.state;
    const whole: Range = [0, Math.max(this.page.profile.duration, 1e-6) * (1 + 1e-9)];
    const [from, to] = zoom ?? whole;
    return this.rowKind === 'seconds' ? [Math.floor(from), Math.ceil(to)] : [from, to];
  }

  draw(): void {
    const { state, profile, selection, theme } = this.page;
    const width = this.element.clientWidth - GUTTER - RIGHT;
    if (width < 50) {
      return;
    }
    this.drawTools();
    const { pids, tids, cpus, libraries, mode, functions, zoom, clock } = state;
    const rows = this.rowKind;
    const key = JSON.stringify([
      [pids, tids, cpus, libraries, mode, functions, zoom, rows, clock],
      width,
      theme,
      devicePixelRatio,
    ]);
    if (key !== this.drawn) {
      this.drawn = key;
      const columns = Math.max(1, Math.floor(width / CELL));
      this.map =
        rows === 'seconds'
          ? secondsMap(profile, selection.masks, this.range, SECOND_ROWS)
          : heatMap(profile, selection.masks, rows, this.range, columns);
      this.drawCurve(width);
      this.picture.show(this.map, rows === 'seconds', width);
    }
    this.picture.drawPressed();
    this.drawShade();
  }

  handleKey(event: KeyboardEvent): boolean {
    const actions: Record<string, () => void> = {
      w: () => this.zoomBy(0.5, null),
      s: () => this.zoomBy(2, null),
      a: () => this.pan(-0.25),
      d: () => this.pan(0.25),
      '0': () => this.page.show({ zoom: null }),
      z: () => this.zoomToSelection(),
      r: () => this.nextRows(),
    };
    const action = actions[event.key];
    action?.();
    return action !== undefined;
  }

  private drawTools(): void {
    const { state, clock, profile } = this.page;
    const clocks: [State['clock'], string, string][] = [
      ['start', 'From 0', 'Seconds since the first sample'],
      ['recorded', 'Clock', "Seconds on the recording's own clock"],
    ];
    if (clock.wall !== null) {
      clocks.push(['wall', 'Time of day', 'When it was, as told by the recorded machine']);
    }
    const [from, to] = this.range;
    this.tools.replaceChildren(
      h('h2', {}, 'Time'),
      choice('Rows', ROWS, this.rowKind, (rows) => this.page.show({ rows })),
      choice('Clock', clocks, state.clock, (value) => this.page.show({ clock: value })),
      h('span', { class: 'spring' }),
      h(
        'span',
        { class: 'note' },
        state.zoom === null
          ? `${formatSeconds(profile.duration)}, ${plural(profile.count, 'sample')}. Drag to select, wheel to zoom`
          : `showing ${formatSeconds(to - from)} of ${formatSeconds(profile.duration)}`,
      ),
      ...(state.time === null
        ? []
        : [iconButton('Zoom to selection', 'z', () => this.zoomToSelection())]),
      ...(state.zoom === null
        ? []
        : [iconButton('Whole time', '0', () => this.page.show({ zoom: null }))]),
    );
  }

  private drawCurve(width: number): void {
    const { map } = this;
    const [from, to] = this.range;
    if (map === null) {
      return;
    }
    const step = (to - from) / map.columns;
    // Where there are few samples, columns are drawn together: some in each, or the curve is all spikes.
    const count = map.sums.reduce((sum, samples) => sum + samples, 0);
    const few = Math.ceil((10 * map.columns) / Math.max(1, count));
    const together = this.rowKind === 'seconds' ? 1 : Math.max(2, Math.min(12, few));
    const x: number[] = [];
    const y: number[] = [];
    for (let column = 0; column < map.columns; column += together) {
      let sum = 0;
      for (let i = column; i < Math.min(map.columns, column + together); ++i) {
        sum += map.sums[i];
      }
      const share = Math.min(together, map.columns - column);
      x.push(from + (column + share / 2) * step);
      y.push(sum / (share * step));
    }
    const style = getComputedStyle(this.element);
    const colour = (name: string) => style.getPropertyValue(name).trim();
    const { clock, state } = this.page;
    const axis = {
      stroke: colour('--faint-text'),
      font: '11px system-ui, sans-serif',
      grid: { stroke: colour('--line'), width: 1 },
      ticks: { stroke: colour('--line'), width: 1, size: 4 },
    };
    this.plot?.destroy();
    this.plot = new uPlot(
      {
        width: width + GUTTER + RIGHT,
        height: CURVE_HEIGHT,
        padding: [8, RIGHT, 0, 0],
        legend: { show: false },
        scales: {
          x: { time: false, range: [from, to] },
          y: { range: (_, __, top) => [0, top * 1.08 || 1] },
        },
        series: [
          {},
          {
            stroke: colour('--accent'),
            fill: colour('--accent-faint'),
            width: 1.25,
            points: { show: false },
          },
        ],
        axes: [
          {
            ...axis,
            size: 22,
            gap: 2,
            space: 90,
            values: (_, ticks) => {
              const digits = digitsOf(ticks.length > 1 ? ticks[1] - ticks[0] : 1);
              const unit = state.clock === 'wall' ? '' : ' s';
              return ticks.map((tick) => formatTime(tick, state.clock, clock, digits) + unit);
            },
          },
          {
            ...axis,
            size: GUTTER,
            gap: 6,
            space: 22,
            values: (_, ticks) => ticks.map((tick) => `${formatCount(tick)}/s`),
          },
        ],
        cursor: { y: false, points: { show: false }, drag: { x: true, y: false, setScale: false } },
        hooks: {
          setSelect: [
            (plot) => {
              const left = plot.posToVal(plot.select.left, 'x');
              const right = plot.posToVal(plot.select.left + plot.select.width, 'x');
              if (plot.select.width > 2) {
                this.page.show({ time: this.rounded([left, right]) });
              }
              plot.setSelect({ left: 0, width: 0, top: 0, height: 0 }, false);
            },
          ],
        },
      },
      [x, y],
      this.curve,
    );
    this.plot.over.addEventListener('wheel', (event) => this.wheel(event), { passive: false });
    this.plot.over.addEventListener('dblclick', () => this.page.show({ time: null }));
  }

  private drawShade(): void {
    const { time } = this.page.state;
    const [from, to] = this.range;
    this.shade.hidden = time === null || this.rowKind === 'seconds';
    if (this.plot !== null && time !== null) {
      const left = this.xOf(Math.max(time[0], from));
      const right = this.xOf(Math.min(time[1], to));
      this.shade.style.left = `${GUTTER + left}px`;
      this.shade.style.width = `${Math.max(1, right - left)}px`;
      this.shade.hidden ||= time[1] <= from || time[0] >= to;
      const height = this.plot.over.clientHeight;
      const width = Math.max(1, right - left);
      this.plot.setSelect({ left, width, top: 0, height }, false);
    } else {
      this.plot?.setSelect({ left: 0, width: 0, top: 0, height: 0 }, false);
    }
    this.mark.hidden = this.markTime === null;
    if (this.markTime !== null) {
      this.mark.style.left = `${GUTTER + this.xOf(this.markTime)}px`;
    }
  }

  private get width(): number {
    return this.canvas.clientWidth;
  }

  private xOf(time: number): number {
    const [from, to] = this.range;
    return ((time - from) / (to - from)) * this.width;
  }

  private timeAt(event: { clientX: number; clientY: number }): number {
    const box = this.canvas.getBoundingClientRect();
    const [from, to] = this.range;
    const part = Math.min(1, Math.max(0, (event.clientX - box.left) / box.width));
    const time = from + part * (to - from);
    if (this.rowKind !== 'seconds') {
      return time;
    }
    const inSecond = 1 - Math.min(1, Math.max(0, (event.clientY - box.top) / box.height));
    return Math.floor(Math.min(time, to - 1e-9)) + inSecond;
  }

  /** Ends on steps of the recording's clock would hide that a pixel is wider; four digits of it do. */
  private rounded([from, to]: Range): Range {
    const digits = Math.min(9, digitsFor((to - from) / 1000));
    return [Number(from.toFixed(digits)), Number(to.toFixed(digits))];
  }

  private startDrag(event: PointerEvent): void {
    if (event.button !== 0) {
      return;
    }
    const start = this.timeAt(event);
    const startX = event.clientX;
    const startY = event.clientY;
    this.canvas.setPointerCapture(event.pointerId);
    const move = (next: PointerEvent) => {
      const time = this.timeAt(next);
      this.shade.hidden = false;
      const left = this.xOf(Math.min(start, time));
      this.shade.style.left = `${GUTTER + left}px`;
      this.shade.style.width = `${this.xOf(Math.max(start, time)) - left}px`;
    };
    const stop = (last: PointerEvent) => {
      this.canvas.removeEventListener('pointermove', move);
      this.canvas.removeEventListener('pointerup', stop);
      this.canvas.removeEventListener('pointercancel', stop);
      const end = this.timeAt(last);
      const moved = Math.hypot(last.clientX - startX, last.clientY - startY) > 3;
      if (moved && start !== end && last.type === 'pointerup') {
        this.page.show({ time: this.rounded([Math.min(start, end), Math.max(start, end)]) });
      } else {
        this.drawShade();
      }
    };
    this.canvas.addEventListener('pointermove', move);
    this.canvas.addEventListener('pointerup', stop);
    this.canvas.addEventListener('pointercancel', stop);
  }

  private showTip(event: PointerEvent): void {
    const map = this.map;
    if (map === null || map.columns === 0) {
      return;
    }
    const box = this.canvas.getBoundingClientRect();
    const row = this.picture.rowAt(event);
    const column = Math.min(
      map.columns - 1,
      Math.floor(((event.clientX - box.left) / box.width) * map.columns),
    );
    if (row === null || column < 0) {
      return;
    }
    const { state, clock } = this.page;
    const [from, to] = this.range;
    const step = (to - from) / map.columns;
    const when = formatTime(this.timeAt(event), state.clock, clock, digitsFor(step / 2));
    const title = this.rowKind === 'seconds' ? '' : shortened(map.rows[row].title, 100);
    const count = map.cells[row * map.columns + column];
    const width = this.rowKind === 'seconds' ? 1 / SECOND_ROWS : step;
    this.tip.textContent = `${title} at ${when}: ${plural(count, 'sample')} in ${formatSeconds(width)}`;
    this.tip.hidden = false;
    const outer = this.element.getBoundingClientRect();
    const left = Math.min(event.clientX - outer.left + 12, outer.width - this.tip.offsetWidth - 8);
    this.tip.style.left = `${left}px`;
    this.tip.style.top = `${event.clientY - outer.top + 16}px`;
  }

  private wheel(event: WheelEvent): void {
    event.preventDefault();
    if (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
      this.pan(Math.sign(event.deltaX || event.deltaY) * 0.1);
    } else {
      const box = this.canvas.getBoundingClientRect();
      const part = Math.min(1, Math.max(0, (event.clientX - box.left) / box.width));
      this.zoomBy(event.deltaY > 0 ? 1.25 : 0.8, part);
    }
  }

  /** Zooms around a part of the width; around the mark or the middle where it is null. */
  private zoomBy(factor: number, part: number | null): void {
    const [from, to] = this.range;
    const { duration } = this.page.profile;
    const middle = this.markTime !== null && this.markTime >= from && this.markTime <= to;
    const place = part ?? (middle ? (this.markTime! - from) / (to - from) : 0.5);
    const length = Math.max(SMALLEST_ZOOM, (to - from) * factor);
    const start = Math.max(0, from + place * (to - from - length));
    const isWhole = length >= duration;
    const zoom: Range = [start, Math.min(start + length, duration)];
    this.page.show({ zoom: isWhole || zoom[0] >= zoom[1] ? null : zoom }, true);
  }

  private pan(part: number): void {
    const { zoom } = this.page.state;
    if (zoom === null) {
      return;
    }
    const length = zoom[1] - zoom[0];
    const start = Math.min(
      Math.max(0, zoom[0] + part * length),
      Math.max(0, this.page.profile.duration - length),
    );
    this.page.show({ zoom: [start, start + length] }, true);
  }

  private zoomToSelection(): void {
    const { time } = this.page.state;
    if (time !== null) {
      this.page.show({ zoom: time });
    }
  }

  private nextRows(): void {
    const kinds = ROWS.map(([kind]) => kind);
    const next = kinds[(kinds.indexOf(this.rowKind) + 1) % kinds.length];
    this.page.show({ rows: next });
  }

  private moveMark(event: KeyboardEvent): void {
    const [from, to] = this.range;
    const step = ((to - from) / this.width) * 8;
    const direction = event.key === 'ArrowRight' ? 1 : event.key === 'ArrowLeft' ? -1 : 0;
    if (event.key === 'Enter' && this.markStart !== null && this.markTime !== null) {
      const ends = [this.markStart, this.markTime].sort((left, right) => left - right);
      this.markStart = null;
      this.page.show({ time: this.rounded([ends[0], ends[1]]) });
    } else if (direction !== 0) {
      const before = this.markTime ?? (from + to) / 2;
      this.markStart = event.shiftKey ? (this.markStart ?? before) : null;
      this.markTime = Math.min(to, Math.max(from, before + direction * step));
      this.drawShade();
      if (this.markStart !== null) {
        const left = this.xOf(Math.min(this.markStart, this.markTime));
        this.shade.hidden = false;
        this.shade.style.left = `${GUTTER + left}px`;
        this.shade.style.width = `${this.xOf(Math.max(this.markStart, this.markTime)) - left}px`;
      }
      const { state, clock } = this.page;
      this.page.announce(formatTime(this.markTime, state.clock, clock, digitsFor(step)));
    } else {
      return;
    }
    event.preventDefault();
    event.stopPropagation();
  }
}
