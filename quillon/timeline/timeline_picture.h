// A still picture of a timeline, for documentation.
#pragma once

#include <string>

#include "quillon/timeline/timeline.h"

namespace quillon::timeline {

// Returns an SVG file that needs no other files, with the rows and colours of the page. Names that
// are longer than their column are cut.
std::string timelinePicture(const Timeline& timeline);

}  // namespace quillon::timeline
