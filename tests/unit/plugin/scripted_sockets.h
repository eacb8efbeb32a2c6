// The socket calls of the launch-boost client, between the code under test and the C library.
//
// The test program defines connect, socket and so on itself. Each call goes to the C library unless
// the test told it to fail; connect is pointed at a socket of the test's own in place of the
// device's.
#pragma once

#include <sys/socket.h>

#include <deque>
#include <string>
#include <vector>

namespace quillon::test {

struct ScriptedSockets {
  bool active = false;   // whether anything below counts
  std::string daemon;    // path that connect goes to
  std::string askedFor;  // path that the code under test gave
  socklen_t askedLength = 0;
  int askedFamily = -1;

  // What calls return instead: errno values, taken one a call; 0 lets the call through.
  std::deque<int> connectErrors;
  int socketError = 0;
  int getFlagsError = 0;
  int setFlagsError = 0;
  bool delays = false;  // each connect does its work and then reads as still under way
  int sendError = 0;
  int pendingError = 0;  // what SO_ERROR reads as
  int selectResult = 1;  // 0 times out

  // What happened.
  std::vector<std::string> pauses;  // "connect" and "usleep(N)" in order
  timeval selectTimeout{};
  int selectCalls = 0;
  int sendFlags = 0;
  int lastSocket = -1;
  std::vector<int> socketArguments;  // domain, type and protocol of the last one
  long setFlags = 0;                 // given to F_SETFL

  void reset() { *this = ScriptedSockets(); }
};

ScriptedSockets& sockets();

}  // namespace quillon::test
