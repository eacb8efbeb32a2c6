const picture = document.getElementById('picture');
const left = +picture.dataset.left, width = +picture.dataset.width, all = +picture.dataset.end;
const scale = document.getElementById('scale').innerHTML;
let zoomed = null;
function show(from, to) {
  const x = time => left + Math.min(Math.max((time - from) / (to - from), 0), 1) * width;
  for (const row of document.querySelectorAll('.row')) {
    const start = +row.dataset.start, end = +row.dataset.end, shape = row.querySelector('.shape');
    shape.style.visibility = end < from || start > to ? 'hidden' : 'visible';
    if (shape.tagName === 'circle') shape.setAttribute('cx', x(start));
    else {
      shape.setAttribute('x', x(start));
      shape.setAttribute('width', Math.max(x(end) - x(start), 1.5));
    }
  }
}
function label(from, to) {
  const ends = [[from, 'start'], [to, 'end']];
  document.getElementById('scale').innerHTML = ends.map(([time, anchor]) =>
    `<text class="tick" style="text-anchor:${anchor}" x="${anchor === 'start' ? left : left + width}"
      y="17">${(time / 1000).toFixed(3)} ms</text>`).join('');
}
for (const row of document.querySelectorAll('.row')) row.addEventListener('click', () => {
  const start = +row.dataset.start, end = +row.dataset.end;
  if (zoomed === row || end <= start) {
    zoomed = null;
    show(0, all);
    document.getElementById('scale').innerHTML = scale;
  } else {
    zoomed = row;
    show(start, end);
    label(start, end);
  }
});
