const timeline = document.getElementById('timeline');
const rows = [...timeline.querySelectorAll('.row')];
const scale = document.getElementById('scale');
const wholeScale = scale.innerHTML, wholeStep = timeline.style.getPropertyValue('--step');
let zoomed = null;

function place(row, from, to) {
  const percent = time => (time - from) / (to - from) * 100;
  const start = percent(+row.dataset.start), end = percent(+row.dataset.end);
  const shape = row.querySelector('.shape');
  shape.hidden = end < 0 || start > 100;
  shape.style.left = Math.max(start, -1) + '%';
  if (!shape.classList.contains('mark')) {
    shape.style.width = Math.min(end, 101) - Math.max(start, -1) + '%';
  }
}

function showSpan(from, to) {
  rows.forEach(row => place(row, from, to));
  scale.innerHTML = [0, 25, 50, 75, 100].map(percent => {
    const time = (from + (to - from) * percent / 100) / 1000;
    return `<i style="left:${percent}%">${time.toFixed(3)}</i>`;
  }).join('');
  timeline.style.setProperty('--step', '25%');
}

function zoom(row) {
  if (zoomed) zoomed.setAttribute('aria-pressed', 'false');
  zoomed = row === zoomed || +row?.dataset.end <= +row?.dataset.start ? null : row;
  timeline.classList.toggle('zoomed', zoomed !== null);
  if (zoomed) {
    zoomed.setAttribute('aria-pressed', 'true');
    showSpan(+zoomed.dataset.start, +zoomed.dataset.end);
  } else {
    rows.forEach(each => place(each, 0, +timeline.dataset.end));
    scale.innerHTML = wholeScale;
    timeline.style.setProperty('--step', wholeStep);
  }
}

for (const row of rows.filter(each => each.hasAttribute('role'))) {
  row.addEventListener('click', () => {
    if (getSelection().isCollapsed) zoom(row);
  });
  row.addEventListener('keydown', event => {
    if (event.key !== 'Enter' && event.key !== ' ') return;
    event.preventDefault();
    zoom(row);
  });
}
document.addEventListener('keydown', event => {
  if (event.key === 'Escape' && zoomed) zoom(null);
});
rows.forEach(row => place(row, 0, +timeline.dataset.end));
