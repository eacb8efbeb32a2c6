// The fixed parts of the timeline's page, which the build embeds from the files of this folder. The
// files have no comments, because they are part of every page.
#pragma once

namespace quillon::timeline {

// page.html: the page, with fields such as {{title}} for the other parts and the data.
extern const char kPageHtml[];

// page.css: colours for light and dark themes. They differ in lightness, so that they can be
// distinguished without colour vision.
extern const char kPageCss[];

// page.js: a click on a row shows only the time span of that row, and a second click shows all.
extern const char kPageJs[];

}  // namespace quillon::timeline
