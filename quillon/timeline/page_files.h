// The fixed parts of the timeline's page and picture, which the build embeds from the files of this
// folder. The files have no comments, because they are part of every page.
#pragma once

namespace quillon::timeline {

// page.html: the page, with fields such as {{title}} for the other parts and the data.
extern const char kPageHtml[];

// palette.css: colours for light and dark themes. Texts have a contrast of at least 4.5 to the
// ground, bars of at least 3. The bars differ in lightness, so that they can be distinguished
// without colour vision.
extern const char kPaletteCss[];

// page.css: the rules of the page. In a narrow window, a row's name is above its bar. A checkbox
// hides the nested spans.
extern const char kPageCss[];

// picture.css: the rules of the picture.
extern const char kPictureCss[];

// page.js: a click on a span shows only the time of that span. A second click, or Escape, shows
// all.
extern const char kPageJs[];

}  // namespace quillon::timeline
