/// @file HtmlReport_page.h
///
/// What is the same in every report: its looks, and the script that enlarges pictures. Both stand
/// in the page itself, named by their checksums in its content security policy; nothing else can
/// run.
#ifndef HTMLREPORT_PAGE_H
#define HTMLREPORT_PAGE_H

namespace host {

inline constexpr char reportStyle[] = R"css(
:root {
  color-scheme: light dark;
  --paper: #f6f7f8; --card: #ffffff; --ink: #1a2129; --soft: #56626e; --line: #dfe3e8;
  --tint: #eef3f8; --tint-line: #b4c4d4; --accent: #1c5d8f; --bar: #6f9dc3;
  --good: #1a6b45; --good-back: #e4f3ea; --warn: #8a5600; --warn-back: #fcf1db;
  --bad: #a8211b; --bad-back: #fbe7e5; --plain-back: #eaedf0;
}
@media (prefers-color-scheme: dark) {
  :root {
    --paper: #12161a; --card: #1a2026; --ink: #e3e8ec; --soft: #9aa7b3; --line: #2d363e;
    --tint: #222c36; --tint-line: #46586a; --accent: #84bbe6; --bar: #4d7ea8;
    --good: #7fd0a5; --good-back: #17332a; --warn: #e8b762; --warn-back: #3a2d13;
    --bad: #f29a93; --bad-back: #421f1d; --plain-back: #2a323a;
  }
}
* { box-sizing: border-box; }
html { -webkit-text-size-adjust: 100%; text-size-adjust: 100%; }
body { margin: 0; background: var(--paper); color: var(--ink);
  font: 16px/1.5 system-ui, sans-serif; overflow-wrap: anywhere; }
header, main, footer { max-width: 1100px; margin: 0 auto; padding: 0 24px; }
header { padding-top: 40px; }
h1 { font-size: 2rem; line-height: 1.2; margin: 0; font-weight: 650; letter-spacing: -0.01em; }
h2 { font-size: 1.25rem; line-height: 1.3; margin: 0 0 14px; font-weight: 650; }
h3 { font-size: 1rem; line-height: 1.4; margin: 0; font-weight: 650; }
p { margin: 0 0 12px; }
a { color: var(--accent); }
code, pre, .mono { font-family: ui-monospace, "DejaVu Sans Mono", monospace; font-size: 0.875em; }
.soft { color: var(--soft); }
.small { font-size: 0.875rem; }
.headline { display: flex; flex-wrap: wrap; gap: 10px 16px; align-items: center; }
.overline { color: var(--soft); font-size: 0.875rem; margin: 0 0 6px; }
.subline { color: var(--soft); margin: 8px 0 0; }
.badge { display: inline-block; padding: 2px 10px; border-radius: 99px; font-size: 0.8125rem;
  font-weight: 600; line-height: 1.5; white-space: nowrap; background: var(--plain-back);
  color: var(--soft); }
.badge.good { background: var(--good-back); color: var(--good); }
.badge.warning { background: var(--warn-back); color: var(--warn); }
.badge.error, .badge.fatal { background: var(--bad-back); color: var(--bad); }
.headline .badge { font-size: 0.9375rem; padding: 4px 14px; }
.figures { display: flex; flex-wrap: wrap; gap: 1px;
  margin: 24px 0 0; background: var(--line); border: 1px solid var(--line); border-radius: 10px;
  overflow: hidden; }
.figures div { flex: 1 1 130px; background: var(--card); padding: 12px 16px; }
.figures dt { color: var(--soft); font-size: 0.8125rem; }
.figures dd { margin: 0; font-size: 1.25rem; font-weight: 600; white-space: nowrap; font-variant-numeric: tabular-nums; }
nav { position: sticky; top: 0; z-index: 2; background: var(--paper);
  border-bottom: 1px solid var(--line); margin: 24px 0 0; }
nav ul { max-width: 1100px; margin: 0 auto; padding: 0 16px; list-style: none; display: flex;
  overflow-x: auto; scrollbar-width: none; }
nav a { display: block; padding: 10px 8px; font-size: 0.875rem; text-decoration: none;
  white-space: nowrap; color: var(--soft); }
nav a:hover { color: var(--accent); text-decoration: underline; }
section { margin: 28px 0; padding: 22px 24px 24px; background: var(--card);
  border: 1px solid var(--line); border-radius: 10px; scroll-margin-top: 56px; }
section > :last-child { margin-bottom: 0; }
.scroll { overflow-x: auto; margin: 0 0 12px; }
table { border-collapse: collapse; width: 100%; font-size: 0.9375rem;
  font-variant-numeric: tabular-nums; }
caption { text-align: left; padding: 0 0 6px; font-weight: 650; }
th, td { text-align: left; vertical-align: top; overflow-wrap: break-word; padding: 7px 14px 7px 0;
  border-bottom: 1px solid var(--line); }
th:last-child, td:last-child { padding-right: 0; }
thead th { color: var(--soft); font-size: 0.8125rem; font-weight: 600; white-space: nowrap;
  vertical-align: bottom; }
tbody th { font-weight: 600; }
tbody tr:last-child > * { border-bottom: 0; }
tfoot th, tfoot td { border-bottom: 0; border-top: 1px solid var(--line); color: var(--soft);
  font-weight: 400; padding-top: 5px; padding-bottom: 5px; }
tfoot tr ~ tr > * { border-top: 0; }
td.n, th.n { text-align: right; white-space: nowrap; }
td.text { min-width: 14em; }
td.lines { white-space: pre-wrap; overflow-wrap: anywhere; }
.when { white-space: nowrap; }
.path { min-width: 15em; overflow-wrap: anywhere; }
td.sum { min-width: 17em; font-size: 0.8125rem; overflow-wrap: anywhere; }
td .soft, th .soft { display: block; font-weight: 400; font-size: 0.8125rem; }
.bar { display: inline-block; vertical-align: baseline; width: 90px; height: 9px;
  margin-right: 8px; }
.percent { display: inline-block; min-width: 3.8em; }
.bar .full { fill: var(--plain-back); }
.bar .part { fill: var(--bar); }
details { border: 1px solid var(--line); border-radius: 8px; margin: 0 0 10px; }
summary { cursor: pointer; padding: 8px 14px; display: flex; flex-wrap: wrap; gap: 4px 10px;
  align-items: center; }
summary::before { content: ""; border: solid var(--soft); border-width: 0 2px 2px 0; width: 7px;
  height: 7px; transform: rotate(-45deg); flex: none; }
details[open] > summary::before { transform: translateY(-2px) rotate(45deg); }
summary::-webkit-details-marker { display: none; }
.messages { list-style: none; margin: 0; padding: 0 14px 8px; max-height: 32em; overflow-y: auto; }
.messages li { display: flex; gap: 14px; padding: 5px 0; border-top: 1px solid var(--line);
  font-size: 0.9375rem; }
.messages time { color: var(--soft); font-variant-numeric: tabular-nums; flex: none; }
.messages .text { white-space: pre-wrap; min-width: 0; }
.messages .more { color: var(--soft); font-style: italic; }
figure { margin: 0 0 28px; break-inside: avoid; scroll-margin-top: 56px; }
figcaption { display: flex; flex-wrap: wrap; justify-content: space-between; gap: 4px 16px;
  align-items: baseline; margin-bottom: 8px; }
figcaption p { margin: 0; }
figure img { display: block; width: 100%; height: auto; background: #fff; border-radius: 6px;
  border: 1px solid var(--line); }
.scripted figure img { cursor: zoom-in; }
button { font: inherit; font-size: 0.875rem; color: var(--accent); background: var(--card);
  border: 1px solid var(--line); border-radius: 6px; padding: 3px 12px; cursor: pointer; }
button:hover { border-color: var(--accent); }
:focus-visible { outline: 2px solid var(--accent); outline-offset: 2px; }
.flow svg { display: block; max-width: 100%; height: auto; margin: 0 auto; }
.flow .graph > polygon { fill: none; stroke: none; }
.flow .graph > text { display: none; }
.flow .node path, .flow .node polygon { fill: var(--tint); stroke: var(--tint-line); }
.flow text { fill: var(--ink); font-family: system-ui, sans-serif; }
.flow .edge path { stroke: var(--soft); }
.flow .edge polygon { fill: var(--soft); stroke: var(--soft); }
.flow ol { margin: 0; padding-left: 1.6em; }
pre { margin: 0; padding: 14px 16px; background: var(--paper); border: 1px solid var(--line);
  border-radius: 8px; white-space: pre-wrap; line-height: 1.5; }
.pairs { display: grid; grid-template-columns: minmax(9em, max-content) 1fr; gap: 6px 20px;
  margin: 0; font-size: 0.9375rem; }
.pairs dt { color: var(--soft); }
.pairs dd { margin: 0; }
footer { color: var(--soft); font-size: 0.875rem; padding-bottom: 40px; }
dialog { width: 100%; height: 100%; max-width: none; max-height: none; border: 0; padding: 0;
  background: var(--paper); color: var(--ink); overflow: hidden; }
dialog[open] { display: flex; flex-direction: column; }
dialog::backdrop { background: rgba(0, 0, 0, 0.5); }
.tools { display: flex; gap: 8px; align-items: center; padding: 10px 16px;
  border-bottom: 1px solid var(--line); }
.tools h2 { font-size: 1rem; margin: 0 auto 0 0; min-width: 0; overflow: hidden;
  text-overflow: ellipsis; white-space: nowrap; }
.tools output { font-size: 0.875rem; color: var(--soft); min-width: 4em; text-align: right;
  font-variant-numeric: tabular-nums; }
.stage { flex: 1; position: relative; overflow: hidden; touch-action: none; cursor: grab; }
.stage:focus-visible { outline-offset: -2px; }
.stage:active { cursor: grabbing; }
.stage img { position: absolute; left: 0; top: 0; transform-origin: 0 0; background: #fff;
  max-width: none; user-select: none; -webkit-user-drag: none; }
@media (max-width: 640px) {
  header, main, footer { padding-left: 14px; padding-right: 14px; }
  header { padding-top: 24px; }
  h1 { font-size: 1.5rem; }
  nav ul { padding: 0 6px; }
  section { padding: 16px 14px; margin: 16px 0; }
  .pairs { grid-template-columns: 1fr; gap: 0; }
  .pairs dd { margin-bottom: 8px; }
  .tools { flex-wrap: wrap; }
  .tools h2 { flex-basis: 100%; }
}
@media print {
  :root { color-scheme: light; --paper: #fff; --card: #fff; --ink: #000; --soft: #444;
    --line: #bbb; --tint: #f4f6f8; --tint-line: #999; --accent: #000; --bar: #777;
    --good: #1a6b45; --good-back: #fff; --warn: #8a5600; --warn-back: #fff; --bad: #a8211b;
    --bad-back: #fff; --plain-back: #e4e4e4; }
  body { font-size: 10.5pt; }
  header, main, footer { max-width: none; padding: 0; }
  nav, button { display: none; }
  section { border: 0; padding: 0; margin: 18pt 0; }
  h2, h3, figcaption, summary, thead { break-after: avoid; }
  tr, .messages li, .flow svg { break-inside: avoid; }
  .messages { max-height: none; overflow: visible; }
  .scroll { overflow: visible; }
  .badge { border: 1px solid currentColor; }
}
)css";

inline constexpr char reportScript[] = R"js(
'use strict';
(() => {
  const opened = [];
  addEventListener('beforeprint', () => {
    for (const one of document.querySelectorAll('details:not([open])')) {
      one.open = true;
      opened.push(one);
    }
  });
  addEventListener('afterprint', () => {
    for (const one of opened.splice(0)) one.open = false;
  });

  const viewer = document.getElementById('viewer');
  if (!viewer || !viewer.showModal) return;
  const stage = viewer.querySelector('.stage');
  const title = viewer.querySelector('h2');
  const percent = viewer.querySelector('output');
  const picture = document.createElement('img');
  picture.draggable = false;
  stage.append(picture);

  // The picture's size at scale 1, its scale, and where its corner lies on the stage.
  let width = 1, height = 1, scale = 1, x = 0, y = 0;

  const fitting = () => Math.min(stage.clientWidth / width, stage.clientHeight / height);
  const inside = (at, size, room) =>
    size <= room ? (room - size) / 2 : Math.min(0, Math.max(room - size, at));

  function place() {
    x = inside(x, width * scale, stage.clientWidth);
    y = inside(y, height * scale, stage.clientHeight);
    picture.style.transform = `translate(${x}px, ${y}px) scale(${scale})`;
    percent.textContent = Math.round(scale * 100) + ' %';
  }

  // The point of the picture at (px, py) of the stage stays where it is.
  function zoom(factor, px = stage.clientWidth / 2, py = stage.clientHeight / 2) {
    const least = Math.min(1, fitting());
    const next = Math.min(32, Math.max(least, scale * factor));
    x = px - (px - x) * next / scale;
    y = py - (py - y) * next / scale;
    scale = next;
    place();
  }

  function pan(dx, dy) {
    x += dx;
    y += dy;
    place();
  }

  function fit() {
    scale = fitting();
    place();
  }

  function open(image) {
    width = Number(image.getAttribute('width'));
    height = Number(image.getAttribute('height'));
    picture.src = image.src;
    picture.alt = image.alt;
    picture.width = width;
    picture.height = height;
    title.textContent = image.dataset.title;
    viewer.showModal();
    fit();
    stage.focus();
  }

  const actions = {
    in: () => zoom(1.5),
    out: () => zoom(1 / 1.5),
    fit: fit,
    close: () => viewer.close()
  };
  for (const button of viewer.querySelectorAll('button'))
    button.addEventListener('click', actions[button.dataset.action]);
  for (const figure of document.querySelectorAll('figure')) {
    const image = figure.querySelector('img');
    const button = figure.querySelector('button');
    if (!image || !button) continue;
    button.hidden = false;
    button.addEventListener('click', () => open(image));
    image.addEventListener('click', () => open(image));
  }
  document.documentElement.classList.add('scripted');

  const local = event => {
    const box = stage.getBoundingClientRect();
    return [event.clientX - box.left, event.clientY - box.top];
  };
  stage.addEventListener('wheel', event => {
    event.preventDefault();
    const lines = event.deltaMode === 1 ? 24 : 1;
    zoom(Math.exp(-event.deltaY * lines * 0.0016), ...local(event));
  }, { passive: false });
  stage.addEventListener('dblclick', event => zoom(2, ...local(event)));

  // One finger or the mouse moves the picture, two fingers also zoom.
  const fingers = new Map();
  const spread = () => {
    const [a, b] = [...fingers.values()];
    return b ? [Math.hypot(a[0] - b[0], a[1] - b[1]), (a[0] + b[0]) / 2, (a[1] + b[1]) / 2]
             : [0, a[0], a[1]];
  };
  stage.addEventListener('pointerdown', event => {
    stage.setPointerCapture(event.pointerId);
    fingers.set(event.pointerId, local(event));
  });
  stage.addEventListener('pointermove', event => {
    if (!fingers.has(event.pointerId)) return;
    const [size, px, py] = spread();
    fingers.set(event.pointerId, local(event));
    const [newSize, nx, ny] = spread();
    pan(nx - px, ny - py);
    if (size > 0 && newSize > 0) zoom(newSize / size, nx, ny);
  });
  for (const end of ['pointerup', 'pointercancel'])
    stage.addEventListener(end, event => fingers.delete(event.pointerId));

  const keys = {
    '+': () => zoom(1.25), '=': () => zoom(1.25), '-': () => zoom(0.8), '0': fit,
    ArrowLeft: () => pan(60, 0), ArrowRight: () => pan(-60, 0),
    ArrowUp: () => pan(0, 60), ArrowDown: () => pan(0, -60)
  };
  viewer.addEventListener('keydown', event => {
    if (!keys[event.key] || event.ctrlKey || event.metaKey) return;
    event.preventDefault();
    keys[event.key]();
  });
  addEventListener('resize', () => { if (viewer.open) fit(); });
})();
)js";

} // namespace host

#endif
