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

  // Tables of modules: a click on a heading sorts by its column, another one the other way round.
  // Numbers sort as numbers; empty cells stay at the end.
  const textOf = cell => cell.textContent.trim();

  function sortBy(table, column, direction) {
    const isNumeric = table.tHead.rows[0].cells[column].classList.contains('n');
    const compare = (a, b) => isNumeric ? Number(a) - Number(b) : a.localeCompare(b);
    const rows = [...table.tBodies[0].rows].map(row => [textOf(row.cells[column]), row]);
    rows.sort(([a], [b]) => a === '' || b === '' ? (a === '') - (b === '')
                                                 : direction * compare(a, b));
    table.tBodies[0].append(...rows.map(([, row]) => row));
  }

  function csvOf(table) {
    const quoted = text => /[",\r\n]/.test(text) ? '"' + text.replaceAll('"', '""') + '"' : text;
    return [...table.rows].map(row => [...row.cells].map(textOf).map(quoted).join(',') + '\n')
      .join('');
  }

  // The clipboard of pages that browsers do not trust is reached by a selection alone.
  async function copy(text) {
    try {
      await navigator.clipboard.writeText(text);
      return true;
    } catch {
      const area = document.createElement('textarea');
      area.value = text;
      document.body.append(area);
      area.select();
      const done = document.execCommand('copy');
      area.remove();
      return done;
    }
  }

  for (const noted of document.querySelectorAll('.noted')) {
    const table = noted.querySelector('table');
    [...table.tHead.rows[0].cells].forEach((heading, column) => {
      const button = document.createElement('button');
      button.type = 'button';
      button.append(...heading.childNodes);
      heading.append(button);
      button.addEventListener('click', () => {
        const direction = heading.getAttribute('aria-sort') === 'ascending' ? -1 : 1;
        for (const other of table.tHead.rows[0].cells) other.removeAttribute('aria-sort');
        heading.setAttribute('aria-sort', direction > 0 ? 'ascending' : 'descending');
        sortBy(table, column, direction);
      });
    });
    const button = noted.querySelector('.caption button');
    const label = button.textContent;
    button.hidden = false;
    button.addEventListener('click', async () => {
      button.textContent = await copy(csvOf(table)) ? 'Copied' : 'The browser does not allow it';
      setTimeout(() => { button.textContent = label; }, 2000);
    });
  }

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
