#include "quillon/timeline/page_parts.h"

namespace quillon::timeline {
namespace {

// Colours for light and dark, told apart also without colour vision by lightness.
constexpr char kStyle[] = R"(
:root { color-scheme: light dark; --ground: #ffffff; --text: #1c2430; --dim: #6b7687;
  --grid: #e4e8ee; --hover: #f0f4fa; --launcher: #7c8db5; --plugin: #e07a1f; --inner: #f2b880;
  --runtime: #2f6fde; --mark: #b3324b; }
@media (prefers-color-scheme: dark) {
  :root { --ground: #12161c; --text: #e3e8ef; --dim: #8d99ab; --grid: #262d38; --hover: #1b222c;
    --launcher: #8fa0c8; --plugin: #f0923e; --inner: #a8622a; --runtime: #5b93f5; --mark: #ef6d86; }
}
body { margin: 0 auto; max-width: 1480px; padding: 24px; background: var(--ground);
  color: var(--text); font: 14px/1.5 system-ui, sans-serif; }
h1 { font-size: 20px; font-weight: 600; margin: 0; overflow-wrap: anywhere; }
.sum, .legend, .note { color: var(--dim); margin: 4px 0 12px; }
.legend span { margin-right: 18px; white-space: nowrap; }
.legend i { display: inline-block; width: 12px; height: 12px; border-radius: 2px;
  margin-right: 6px; vertical-align: -1px; }
svg#picture { display: block; width: 100%; height: auto; }
svg text { font: 12px system-ui, sans-serif; fill: var(--text); }
svg text.thread { font-weight: 600; }
svg text.dim, svg text.time, svg text.tick, svg text.unit { fill: var(--dim); }
svg text.time, svg text.unit { text-anchor: end; }
svg text.tick { text-anchor: middle; }
svg text.time, svg text.tick { font-variant-numeric: tabular-nums; }
.grid { stroke: var(--grid); pointer-events: none; }
#scale { pointer-events: none; }
.stripe { fill: transparent; }
.row:hover .stripe { fill: var(--hover); }
.row { cursor: zoom-in; }
.launcher { fill: var(--launcher); background: var(--launcher); }
.plugin { fill: var(--plugin); background: var(--plugin); }
.inner { fill: var(--inner); background: var(--inner); }
.runtime { fill: var(--runtime); background: var(--runtime); }
.mark { fill: var(--mark); background: var(--mark); }
.open { stroke: var(--mark); stroke-dasharray: 4 3; stroke-width: 1.5; }
)";

// A click on a row shows its time alone; a second one shows all again.
constexpr char kScript[] = R"(
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
)";

constexpr char kNote[] =
    "Main runs inside coreclr_execute_assembly: the runtime first loads the assembly, and tells no "
    "native code of the moment between. What the command did before its first step, some "
    "milliseconds of loading itself, is not in the picture. Click a row to see its time alone.";

}  // namespace

std::string escaped(std::string_view text) {
  std::string safe;
  for (const char letter : text) {
    switch (letter) {
      case '&':
        safe += "&amp;";
        break;
      case '<':
        safe += "&lt;";
        break;
      case '>':
        safe += "&gt;";
        break;
      case '"':
        safe += "&quot;";
        break;
      case '\'':
        safe += "&#39;";
        break;
      default:
        safe += static_cast<unsigned char>(letter) < 0x20 || letter == 0x7f ? ' ' : letter;
    }
  }
  return safe;
}

std::string withoutZeros(std::string number) {
  if (number.find('.') == std::string::npos) return number;
  while (number.back() == '0') number.pop_back();
  if (number.back() == '.') number.pop_back();
  return number;
}

std::string pageStart(const std::string& title) {
  return "<!DOCTYPE html>\n<html lang='en'>\n<head>\n<meta charset='utf-8'>\n"
         "<meta name='viewport' content='width=device-width'>\n<title>" +
         escaped(title) + "</title>\n<style>" + kStyle + "</style>\n</head>\n<body>\n<h1>" +
         escaped(title) + "</h1>\n";
}

std::string legend() {
  return "<p class='legend'><span><i class='launcher'></i>launcher</span>"
         "<span><i class='plugin'></i>call of the plug-in</span>"
         "<span><i class='inner'></i>inside the plug-in</span>"
         "<span><i class='runtime'></i>runtime and application</span>"
         "<span><i class='mark' style='border-radius:50%'></i>milestone</span></p>\n";
}

std::string pageEnd() {
  return std::string("<p class='note'>") + kNote + "</p>\n<script>" + kScript +
         "</script>\n</body>\n</html>\n";
}

}  // namespace quillon::timeline
