// A launch-pad message that an input describes line by line, so that inputs can be written by hand
// and a mutation of one line leaves the other fields as they are.
//
//   k 5    the kind of the message
//   d 2    the number of descriptors that it carries
//   n 7    a number
//   t abc  a text
//   r abc  bytes without a length
//   ( )    a text that consists of the fields between the two lines
//   [ ]    a list of the fields between the two lines, with their number before them
//   l 16   resource limits, as many
//   m      the following fields are in a sealed memory file, the first descriptor
//
// Other lines have no effect.
#pragma once

#include "quillon/launchpad/protocol/message.h"
#include "tests/fuzz/target.h"

namespace quillon::fuzz {

launchpad::Message scriptedMessage(std::string_view script);

}  // namespace quillon::fuzz
