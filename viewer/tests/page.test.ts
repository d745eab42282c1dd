import assert from 'node:assert/strict';
import { test } from 'node:test';
import { bytesOfBase64, fromPlanes, timesFromPlanes } from '../src/data/columns';
import { fileNameOf, visibleText } from '../src/data/profile';
import { formatState, INITIAL, parseState, type State } from '../src/model/state';
import { titleOfKey, wallClockOf, warningOf } from '../src/view/aboutView';
import { xmlText } from '../src/view/flamePicture';
import {
  digitsFor,
  digitsOf,
  formatChange,
  formatSeconds,
  formatTime,
  shorterNames,
} from '../src/view/format';

test('columns: planes are put together, the lowest byte first', () => {
  assert.deepEqual([...fromPlanes(Uint8Array.of(7, 255), 1)], [7, 255]);
  assert.deepEqual([...fromPlanes(Uint8Array.of(1, 2, 3, 4), 2)], [0x301, 0x402]);
  const bytes = Uint8Array.of(1, 255, 2, 255, 3, 255, 4, 255);
  assert.deepEqual([...fromPlanes(bytes, 4)], [0x04030201, 0xffffffff]);
});

test('columns: times are sums of differences', () => {
  const times = timesFromPlanes(Uint8Array.of(0, 1, 2, 0, 1, 0), 2, 0.5);
  assert.deepEqual([...times], [0, 128.5, 129.5]);
  // Beyond 32 bits: 2^32 in planes of eight bytes.
  const wide = timesFromPlanes(Uint8Array.of(0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0), 8, 1);
  assert.deepEqual([...wide], [0, 4294967296]);
});

test('columns: base64', () => {
  assert.deepEqual([...bytesOfBase64('AP+A')], [0, 255, 128]);
  assert.deepEqual([...bytesOfBase64('/w==')], [255]);
});

test('the state survives the address', () => {
  const state: State = {
    tab: 'functions',
    time: [0.25, 1.5],
    pids: ['1', '2'],
    tids: ['unknown'],
    cpus: ['0'],
    libraries: ['/usr/lib/a b&c=d#.so'],
    mode: 'kernel',
    functions: ['lib!operator<<(a, b)', 'app!"quoted"'],
    zoom: [0, 2],
    rows: 'seconds',
    clock: 'wall',
    order: 'leaf',
    by: 'thread',
    focus: [-3, 17, 4],
    norm: 'time',
    search: '/a+b/i',
    selected: 'lib!f',
    sort: '-own',
    filter: 'ü',
  };
  assert.deepEqual(parseState(`#${formatState(state)}`), state);
  assert.equal(formatState(INITIAL), '');
  assert.deepEqual(parseState(''), INITIAL);
});

test('addresses that say nonsense show what there is at the beginning', () => {
  for (const fragment of [
    'tab=nothing',
    't=1',
    't=a,b',
    't=2,1',
    't=NaN,1',
    'focus=x.y',
    'rows=%',
  ]) {
    assert.deepEqual(parseState(fragment), INITIAL, fragment);
  }
});

test('names: what would not be seen is named', () => {
  assert.equal(visibleText('a\u202eb\u200f'), 'a<U+202E>b<U+200F>');
  assert.equal(visibleText('größer ∑ 名'), 'größer ∑ 名');
  assert.equal(fileNameOf('/usr/lib/libc.so.6'), 'libc.so.6');
  assert.equal(fileNameOf('/'), '/');
});

test('names: shorter forms leave out parameters, templates, scopes', () => {
  assert.deepEqual(shorterNames('a::B<int, C<d>>::run(int (*)(x)) const'), [
    'a::B<int, C<d>>::run(int (*)(x)) const',
    'a::B<int, C<d>>::run',
    'a::B::run',
    'run',
  ]);
  assert.deepEqual(shorterNames('a::(anonymous namespace)::run(int)').slice(1), [
    'a::(anonymous namespace)::run',
    'a::run',
    'run',
  ]);
  for (const [name, bare] of [
    ['A::operator()(int) const', 'A::operator()'],
    ['std::operator<< <char>(std::ostream&)', 'std::operator<< <char>'],
    ['A::operator<(A const&)', 'A::operator<'],
    ['main::{lambda()#1}::operator()() const', 'main::{lambda()#1}::operator()'],
    ['f<void (*)(int)>::run(int)', 'f<void (*)(int)>::run'],
  ]) {
    assert.equal(shorterNames(name)[1], bare);
  }
  assert.deepEqual(new Set(shorterNames('main')), new Set(['main']));
  assert.ok(shorterNames('<<<').every((form) => form !== ''));
  assert.ok(shorterNames('(anonymous)').every((form) => form !== ''));
  assert.ok(shorterNames('x'.repeat(1 << 20))[0].length <= 400);
});

test('numbers: times, changes, digits', () => {
  assert.equal(formatSeconds(0), '0 s');
  assert.equal(formatSeconds(0.0000021), '2.1 µs');
  assert.equal(formatSeconds(0.25), '250.00 ms');
  assert.equal(formatSeconds(12.3456), '12.346 s');
  assert.equal(formatChange(-0.001), '0.00');
  assert.equal(formatChange(-1.5), '−1.50');
  assert.equal(formatChange(1.5), '+1.50');
  assert.equal(digitsFor(1), 0);
  assert.equal(digitsFor(0.1), 1);
  assert.equal(digitsFor(0.02), 2);
  assert.equal(digitsOf(0.25), 2);
  assert.equal(digitsOf(5), 0);
  const clock = { recorded: 100.5, wall: Date.UTC(2026, 0, 2, 3, 4, 5, 250) };
  assert.equal(formatTime(1.25, 'start', clock, 2), '1.25');
  assert.equal(formatTime(1.25, 'recorded', clock, 2), '101.75');
  assert.equal(formatTime(1.25, 'wall', clock, 1), '03:04:06.5');
});

test('about: wall clock, warning, titles', () => {
  const recording = { wallClockNanoseconds: '1767323045250000000' };
  assert.equal(wallClockOf({ recording }), Date.UTC(2026, 0, 2, 3, 4, 5, 250));
  assert.equal(wallClockOf({ recording: { wallClockNanoseconds: null } }), null);
  assert.equal(wallClockOf(null), null);
  assert.equal(titleOfKey('wallClockOfFirstSample'), 'Wall clock of first sample');
  assert.equal(warningOf({ judgement: 'Fit for totals by function and for call chains.' }), null);
  assert.equal(warningOf(null), null);
  for (const judgement of [
    'Fit for totals by function; call chains cannot be trusted, too many end in code without frame pointers.',
    'Fit for totals by library only: too many samples have no function.',
  ]) {
    assert.equal(warningOf({ judgement }), judgement);
  }
});

test('pictures: text that XML cannot hold', () => {
  assert.equal(xmlText('<a> & "b" \u0001'), '&lt;a&gt; &amp; &quot;b&quot; \ufffd');
});
