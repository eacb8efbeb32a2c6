// Includes no header of the plug-in, so that the compiler does not see how they are defined.
#include "tests/unit/plugin/declared_strings.h"

extern std::string g_appID;
extern std::string errorLogFile;

namespace quillon::test {

std::string& declaredAppId() { return g_appID; }
std::string& declaredErrorLogFile() { return errorLogFile; }

}  // namespace quillon::test
