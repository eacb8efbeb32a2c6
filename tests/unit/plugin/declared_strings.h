// The plug-in's process-wide strings, as a source file sees them that declares them itself.
#pragma once

#include <string>

namespace quillon::test {

std::string& declaredAppId();
std::string& declaredErrorLogFile();

}  // namespace quillon::test
