#include "util/log/stream_capture.h"

#include <unistd.h>

#include <cstring>

#include "util/log/log.h"

int pStdOut[2] = {-1, -1};
int pStdErr[2] = {-1, -1};
FILE* stderrFP = nullptr;

ssize_t sendMessageToDlogError(const char* text) { return write(pStdErr[1], text, strlen(text)); }
