// A flame graph as SVG, for documents and mails.

import { BOX_HEIGHT, type Box, FONT } from './flameLayout';

export interface PictureBox extends Box {
  title: string;
  label: string;
  share: string;
  count: number;
  colour: string;
}

export interface PictureOptions {
  width: number;
  height: number;
  title: string;
  text: string;
  background: string;
}

/** The text so that it can stand in XML: control characters have no place there, not even escaped. */
export function xmlText(text: string): string {
  const names: Record<string, string> = { '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;' };
  return (
    text
      // biome-ignore lint/suspicious/noControlCharactersInRegex: they are what is taken out
      .replace(/[\u0000-\u0008\u000b\u000c\u000e-\u001f\ufffe\uffff]/g, '\ufffd')
      .replace(/[&<>"]/g, (letter) => names[letter])
  );
}

export function flamePicture(boxes: PictureBox[], options: PictureOptions): string {
  const { width, height, title, text, background } = options;
  const number = (value: number) => Number(value.toFixed(2));
  const shapes = boxes
    .filter((box) => box.x + box.width > 0 && box.x < width)
    .map((box) => {
      const shape = `<rect x="${number(box.x)}" y="${box.y}" width="${number(Math.max(0.3, box.width - 0.5))}" height="${BOX_HEIGHT - 1}" fill="${box.colour}"/>`;
      const label =
        box.label === ''
          ? ''
          : `<text x="${number(Math.max(0, box.x) + 4)}" y="${box.y + 12.5}">${xmlText(box.label)}</text>`;
      const about = `<title>${xmlText(box.title.slice(0, 1000))}: ${box.count} samples, ${box.share}</title>`;
      return `<g>${about}${shape}${label}</g>`;
    });
  return `<?xml version="1.0" encoding="UTF-8"?>
<svg xmlns="http://www.w3.org/2000/svg" width="${width}" height="${height}" viewBox="0 0 ${width} ${height}">
<title>${xmlText(title)}</title>
<style>text { font: ${xmlText(FONT).replaceAll('&quot;', "'")}; fill: ${text}; }</style>
<rect width="100%" height="100%" fill="${background}"/>
${shapes.join('\n')}
</svg>
`;
}
