import { readProfile } from './data/profile';
import { App } from './view/app';
import { h } from './view/dom';

async function open(root: HTMLElement): Promise<void> {
  performance.mark('begun');
  const profile = await readProfile(document);
  performance.mark('read');
  new App(profile, root);
  // For those who measure (bench/viewer): 'opened' is the time to the first picture.
  requestAnimationFrame(() => setTimeout(() => performance.mark('opened')));
}

const root = document.getElementById('app');
if (root !== null) {
  open(root).catch((problem: unknown) => {
    const text = problem instanceof Error ? problem.message : String(problem);
    root.replaceChildren(
      h(
        'p',
        { class: 'opening', role: 'alert' },
        `This page cannot be shown: ${text}. Browsers from 2023 on can show it; make it again with tracemill-report if it was cut short.`,
      ),
    );
  });
}
