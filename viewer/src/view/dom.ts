// Elements from code. Text is always set as text: names in a recording may be anything.

type Child = Node | string | null;
type Properties = Record<string, string | boolean | ((event: Event) => void)>;

/** An element with attributes, listeners (`onclick` and others) and children. */
export function h<Name extends keyof HTMLElementTagNameMap>(
  name: Name,
  properties: Properties = {},
  ...children: Child[]
): HTMLElementTagNameMap[Name] {
  const element = document.createElement(name);
  for (const [key, value] of Object.entries(properties)) {
    if (typeof value === 'function') {
      element.addEventListener(key.slice(2), value);
    } else if (value !== false) {
      element.setAttribute(key, value === true ? '' : value);
    }
  }
  element.append(...children.filter((child) => child !== null));
  return element;
}

/** Lets the browser save `content` under `name`. */
export function saveFile(name: string, content: Blob | string, type = 'text/plain'): void {
  const blob = typeof content === 'string' ? new Blob([content], { type }) : content;
  const link = h('a', { href: URL.createObjectURL(blob), download: name });
  document.body.append(link);
  link.click();
  link.remove();
  setTimeout(() => URL.revokeObjectURL(link.href), 10_000);
}

/** A group of buttons of which one is pressed. */
export function choice<Value extends string>(
  label: string,
  options: readonly (readonly [Value, string, string?])[],
  current: Value,
  choose: (value: Value) => void,
): HTMLElement {
  return h(
    'div',
    { class: 'choice', role: 'group', 'aria-label': label },
    ...options.map(([value, text, title]) =>
      h(
        'button',
        {
          type: 'button',
          'data-value': value,
          'aria-pressed': String(value === current),
          ...(title === undefined ? {} : { title }),
          onclick: () => choose(value),
        },
        text,
      ),
    ),
  );
}

export function iconButton(text: string, title: string, action: () => void): HTMLButtonElement {
  return h('button', { type: 'button', class: 'plain', title, onclick: action }, text);
}
