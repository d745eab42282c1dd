// Reads the columns that tracemill-report wrote into the page; docs/formats.md describes them.

export type Numbers = Uint8Array | Uint16Array | Uint32Array;

interface Decoder {
  fromBase64?: (text: string) => Uint8Array<ArrayBuffer>;
}

/** The bytes of `text`; by the browser itself where it can (Chromium 140, Firefox 133). */
export function bytesOfBase64(text: string): Uint8Array<ArrayBuffer> {
  const native = (Uint8Array as unknown as Decoder).fromBase64;
  if (native !== undefined) {
    return native.call(Uint8Array, text);
  }
  const binary = atob(text);
  const bytes = new Uint8Array(binary.length);
  for (let i = 0; i < binary.length; ++i) {
    bytes[i] = binary.charCodeAt(i);
  }
  return bytes;
}

async function gunzip(bytes: Uint8Array<ArrayBuffer>, size: number | null): Promise<Uint8Array> {
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('gzip'));
  if (size === null) {
    return new Uint8Array(await new Response(stream).arrayBuffer());
  }
  // Into place as it comes, so that there is no second copy of a large column.
  const result = new Uint8Array(size);
  const reader = stream.getReader();
  let at = 0;
  for (;;) {
    const { done, value } = await reader.read();
    if (done) {
      break;
    }
    result.set(value, at);
    at += value.length;
  }
  if (at !== size) {
    throw new Error('a column of the page is cut short');
  }
  return result;
}

const WIDTHS: Record<string, number> = { u8: 1, u16: 2, u32: 4, u64: 8 };

/** Numbers from byte planes, the lowest first. */
export function fromPlanes(bytes: Uint8Array, width: number): Numbers {
  const count = bytes.length / width;
  if (width === 1) {
    return bytes;
  }
  if (width === 2) {
    const values = new Uint16Array(count);
    for (let i = 0; i < count; ++i) {
      values[i] = bytes[i] | (bytes[i + count] << 8);
    }
    return values;
  }
  const values = new Uint32Array(count);
  for (let i = 0, second = count, third = 2 * count, fourth = 3 * count; i < count; ++i) {
    values[i] =
      bytes[i] | (bytes[second++] << 8) | (bytes[third++] << 16) | (bytes[fourth++] << 24);
  }
  return values;
}

/** Times in seconds since the first, from differences in units of `unit` seconds. */
export function timesFromPlanes(bytes: Uint8Array, width: number, unit: number): Float64Array {
  const count = bytes.length / width;
  const times = new Float64Array(count);
  let ticks = 0;
  for (let i = 0; i < count; ++i) {
    let delta = bytes[i];
    let scale = 256;
    for (let plane = i + count; plane < bytes.length; plane += count) {
      delta += bytes[plane] * scale;
      scale *= 256;
    }
    ticks += delta;
    times[i] = ticks * unit;
  }
  return times;
}

/** The columns of a page by name. Each can be taken once: the text goes when it has been read. */
export class ColumnSource {
  private readonly elements = new Map<string, HTMLElement>();

  constructor(document: Document) {
    for (const element of document.querySelectorAll<HTMLElement>('script.column')) {
      this.elements.set(element.dataset.name ?? '', element);
    }
  }

  has(name: string): boolean {
    return this.elements.has(name);
  }

  async numbers(name: string): Promise<Numbers> {
    const { bytes, width } = await this.take(name);
    return fromPlanes(bytes, width);
  }

  async times(name: string, unit: number): Promise<Float64Array> {
    const { bytes, width } = await this.take(name);
    return timesFromPlanes(bytes, width, unit);
  }

  async texts(name: string): Promise<string[]> {
    const { bytes } = await this.take(name);
    const texts = new TextDecoder().decode(bytes).split('\0');
    texts.pop();
    return texts;
  }

  async json(name: string): Promise<unknown> {
    const { bytes } = await this.take(name);
    return JSON.parse(new TextDecoder().decode(bytes));
  }

  private async take(name: string): Promise<{ bytes: Uint8Array; width: number }> {
    const element = this.elements.get(name);
    if (element === undefined) {
      throw new Error(`the page has no column ${name}`);
    }
    this.elements.delete(name);
    const text = element.textContent ?? '';
    element.remove();
    const width = WIDTHS[element.dataset.type ?? ''] ?? 0;
    const size = width === 0 ? null : width * Number(element.dataset.count);
    return { bytes: await gunzip(bytesOfBase64(text), size), width };
  }
}
