# SPDX-License-Identifier: ISC
"""What is asked of a page in the browser: scripts that run in it and return what they saw."""

# The attempts: the cause of each band, the marks of each lane, the points of the estimate.
SUMMARY = """
return [...document.querySelectorAll('section.attempt[id*=attempt]')].map(section => ({
  causes: [...section.querySelectorAll('.bands > li')].flatMap(one => {
    const band = one.querySelector('.band');
    return (band ? band.textContent.split(' and ') : ['']).map(
      name => (name + ' ' + one.dataset.cause).trim());
  }),
  sentences: [...section.querySelectorAll('.bands .sentence bdi')].map(one => one.textContent),
  lanes: [...section.querySelectorAll('svg.wide g[data-lane]')].map(
    lane => lane.dataset.lane + ' ' + [...lane.querySelectorAll('a.mark')].map(
      mark => mark.querySelector('.count')).reduce(
      (sum, count) => sum + (count ? Number(count.textContent) : 1), 0)),
  points: section.querySelectorAll('svg.wide a.curve-point').length,
}));
"""

# What reaches out of the window, or out of the picture that it is in.
OUTSIDE = """
const wide = document.documentElement.clientWidth, found = [];
if (document.documentElement.scrollWidth > wide) found.push('the page');
for (const one of document.body.querySelectorAll('*')) {
  const box = one.getBoundingClientRect();
  if (!box.width || one.closest('.unseen, .skip, thead')) continue;
  if (box.right > wide + 0.5 || box.left < -0.5)
    found.push(one.tagName + ' ' + one.textContent.slice(0, 40));
}
return found;
"""

# Words and marks of the picture that is seen which cover each other.
COVERED = """
const found = [];
for (const svg of document.querySelectorAll('figure > svg')) {
  if (!svg.getClientRects().length) continue;
  const parts = [...svg.querySelectorAll(
    'a.mark .shape, .words, .lane-title, .tick-text, .quiet-text')].map(
    one => [one, one.getBoundingClientRect()]).filter(([, box]) => box.width);
  parts.sort((a, b) => a[1].top - b[1].top);
  const height = Math.max(...parts.map(([, box]) => box.height));
  for (let i = 0; i < parts.length; ++i) {
    const [one, a] = parts[i];
    if (one.closest('.curve-point')) continue;
    for (let k = i + 1; k < parts.length && parts[k][1].top < a.top + height; ++k) {
      const [other, b] = parts[k];
      if (other.closest('.curve-point')) continue;
      const across = Math.min(a.right, b.right) - Math.max(a.left, b.left);
      const down = Math.min(a.bottom, b.bottom) - Math.max(a.top, b.top);
      // Half of a letter's own room lies above and below it.
      if (across > 1 && down > 4) found.push((one.textContent || 'mark') + ' / ' +
        (other.textContent || 'mark') + ' ' + Math.round(across) + ' ' + Math.round(down));
    }
  }
}
return found;
"""

# Every text that is seen, its colour, and what lies behind it: [text, colour, ...behind].
COLOURS = """
const canvas = document.createElement('canvas').getContext('2d');
const rgb = colour => { canvas.clearRect(0, 0, 1, 1); canvas.fillStyle = colour;
  canvas.fillRect(0, 0, 1, 1); return [...canvas.getImageData(0, 0, 1, 1).data]; };
const behind = one => {
  for (let at = one; at; at = at.parentElement) {
    const colour = rgb(getComputedStyle(at).backgroundColor);
    if (colour[3] === 255) return colour;
  }
  return rgb(getComputedStyle(document.body).backgroundColor);
};
const sheets = ['.lane-back', '.lane-back.odd', '.quiet'].map(
  name => document.querySelector('svg ' + name)).filter(Boolean).map(
  one => rgb(getComputedStyle(one).fill));
const seen = new Map();
const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
while (walker.nextNode()) {
  const one = walker.currentNode.parentElement, text = walker.currentNode.textContent.trim();
  const seen_not = one.closest('script, style, title, desc') || !one.getClientRects().length;
  if (!text || seen_not) continue;
  const style = getComputedStyle(one), svg = one.closest('svg.picture');
  const row = [rgb(svg ? style.fill : style.color), ...(svg ? sheets : [behind(one)])];
  seen.set(JSON.stringify(row), [text.slice(0, 40), ...row]);
}
return [...seen.values()];
"""

# What a screen reader would stumble over.
STUMBLES = """
const found = [], ids = new Set();
for (const one of document.querySelectorAll('[id]')) {
  if (ids.has(one.id)) found.push('twice: ' + one.id);
  ids.add(one.id);
}
for (const name of ['aria-labelledby', 'href'])
  for (const one of document.querySelectorAll('[' + name + ']'))
    for (const id of one.getAttribute(name).split(' '))
      if (!ids.has(id.replace('#', ''))) found.push(name + ' leads nowhere: ' + id);
if (!document.documentElement.lang) found.push('no language');
for (const name of ['main', 'h1', 'header', 'footer'])
  if (document.querySelectorAll('body > ' + name + ', body > * > ' + name).length !== 1)
    found.push('not one ' + name);
let level = 0;
for (const one of document.querySelectorAll('h1, h2, h3, h4')) {
  const next = Number(one.tagName[1]);
  if (next > level + 1) found.push('a heading skips a level: ' + one.textContent);
  if (!one.textContent.trim()) found.push('an empty heading');
  level = next;
}
for (const one of document.querySelectorAll('table'))
  if (!one.caption || !one.querySelector('th[scope=col]'))
    found.push('a table without head or caption');
for (const one of document.querySelectorAll('figure > svg'))
  if (!one.getAttribute('role') || !one.querySelector('title').textContent
      || !one.querySelector('desc').textContent)
    found.push('a picture without words');
for (const one of document.querySelectorAll('a, button, input, summary'))
  if (!(one.getAttribute('aria-label') || one.textContent
        || (one.labels && one.labels[0].textContent) || '').trim())
    found.push('nameless: ' + one.outerHTML.slice(0, 80));
for (const one of document.querySelectorAll('svg.icon, svg svg'))
  if (one.getAttribute('aria-hidden') !== 'true') found.push('an icon that is read');
return found;
"""
