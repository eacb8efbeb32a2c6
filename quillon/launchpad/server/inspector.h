// Compares the observed state of clients with the server's, in a process of its own.
//
// The server of a user other than root is in a user namespace after it has entered the device root.
// From there it may not inspect a process outside. So a child that the server forks before that
// reads the clients' entries in /proc. The child ends with the server.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"
#include "quillon/launchpad/state/limits.h"
#include "quillon/launchpad/state/process_state.h"

namespace quillon::launchpad {

// The result of an inspection.
struct Finding {
  uint64_t client = 0;
  bool wasRead = false;    // false: the client has ended, or /proc does not show its state
  std::string difference;  // see firstDifference(); empty if the states are equal
  Limits limits;           // of the client
};

class Inspector {
 public:
  // Forks. Call before the process enters a device root and opens a socket, with a process that has
  // one thread.
  //
  // own  the observed state of the calling process
  static Expected<Inspector> start(const ProcessState& own);

  // Begins the inspection of the process that connected `socket`. Returns false if it is
  // impossible.
  //
  // client  the client's number, without another inspection in progress
  [[nodiscard]] bool inspect(uint64_t client, int socket);

  // Releases what is kept for a client that has gone. A finding about it may still follow.
  void forget(uint64_t client);

  // Returns the next finding, or nullopt if none is there yet. Does not block.
  std::optional<Finding> next();

  // Readable when next() has something to do. -1 if the child has ended.
  [[nodiscard]] int descriptor() const { return channel_.get(); }

  // The child.
  [[nodiscard]] pid_t process() const { return process_; }

  // For a child of the server, which must not keep the descriptors.
  void close();

 private:
  std::optional<Finding> receive();
  std::optional<Finding> unfinished();

  pid_t process_ = -1;
  Descriptor channel_;
  Descriptor proof_;                      // see inspection_proof.h
  std::map<uint64_t, Descriptor> peers_;  // the pidfds of the clients that are inspected
};

}  // namespace quillon::launchpad
