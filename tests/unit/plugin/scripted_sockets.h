// Replaces the socket calls of the launch-boost client.
//
// The test program defines connect, socket and the other calls. Each call is forwarded to the C
// library unless the test makes it fail. connect uses a socket of the test instead of the device's
// socket.
#pragma once

#include <sys/socket.h>

#include <deque>
#include <string>
#include <vector>

namespace quillon::test {

struct ScriptedSockets {
  bool active = false;   // if false, all calls are forwarded
  std::string daemon;    // path of the socket that connect uses
  std::string askedFor;  // path that the code under test passed
  socklen_t askedLength = 0;
  int askedFamily = -1;

  // The errno values of the next calls, one per call. 0 forwards the call.
  std::deque<int> connectErrors;
  int socketError = 0;
  int getFlagsError = 0;
  int setFlagsError = 0;
  bool delays = false;  // each connect succeeds but reports EINPROGRESS
  int sendError = 0;
  int pendingError = 0;  // value of SO_ERROR
  int getOptionError = 0;
  int selectResult = 1;  // 0: timeout

  // The recorded calls.
  std::vector<std::string> pauses;  // "connect" and "usleep(N)", in order
  timeval selectTimeout{};
  int selectCalls = 0;
  int selectCount = 0;       // its first argument
  std::vector<int> watched;  // the descriptors that select is to find writable
  int sendFlags = 0;
  int lastSocket = -1;
  std::vector<int> socketArguments;  // domain, type and protocol of the last call
  long setFlags = 0;                 // argument of F_SETFL

  void reset() { *this = ScriptedSockets(); }
};

ScriptedSockets& sockets();

}  // namespace quillon::test
