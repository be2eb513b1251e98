'use strict';
(() => {
  const table = document.querySelector('#files table');
  if (!table) return;
  const body = table.tBodies[0];
  const rows = [...body.rows];
  const heads = [...table.tHead.rows[0].cells];
  const names = new Intl.Collator(undefined, { numeric: true });

  // Cells have what they are sorted by in data-sort: numbers where the column is one of numbers.
  function sortBy(column, descending) {
    const isNumber = heads[column].classList.contains('n');
    const keys = new Map(rows.map(row => [row, row.cells[column].dataset.sort]));
    const compare = isNumber ? (a, b) => Number(a) - Number(b) : (a, b) => names.compare(a, b);
    rows.sort((a, b) => (descending ? -1 : 1) * compare(keys.get(a), keys.get(b)));
    body.append(...rows);
    for (const head of heads) head.removeAttribute('aria-sort');
    heads[column].setAttribute('aria-sort', descending ? 'descending' : 'ascending');
  }
  heads.forEach((head, column) => {
    if (!head.dataset.sorted) return;
    const button = document.createElement('button');
    button.type = 'button';
    button.textContent = head.textContent;
    head.replaceChildren(button);
    button.addEventListener('click', () => {
      const now = head.getAttribute('aria-sort');
      // The first click on numbers shows the largest.
      const descending = now ? now === 'ascending' : head.classList.contains('n');
      sortBy(column, descending);
    });
  });

  const choices = document.getElementById('choices');
  const text = choices.querySelector('input');
  const count = choices.querySelector('output');
  const buttons = [...choices.querySelectorAll('button')];
  let wanted = 'all';
  function show() {
    const part = text.value.toLowerCase();
    let shown = 0;
    for (const row of rows) {
      const fits = (wanted === 'all' || row.classList.contains(wanted)) &&
                   row.cells[0].textContent.toLowerCase().includes(part);
      row.hidden = !fits;
      shown += fits ? 1 : 0;
    }
    count.textContent = shown === rows.length ? '' : shown + ' of ' + rows.length + ' files';
  }
  for (const button of buttons) {
    button.addEventListener('click', () => {
      wanted = button.dataset.show;
      for (const one of buttons) one.setAttribute('aria-pressed', String(one === button));
      show();
    });
  }
  text.addEventListener('input', show);
  choices.hidden = false;
})();
