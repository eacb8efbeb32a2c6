// Launches of the built plug-in, up to the list of assemblies, in processes of their own.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

namespace quillon::torture {

// Memory that a process shares with the children it forks, so that a child hands over its list
// without a system call. The mapping ends with the object.
class SharedText {
 public:
  SharedText();
  ~SharedText();
  SharedText(const SharedText&) = delete;
  SharedText& operator=(const SharedText&) = delete;

  // Cuts a text that is longer than the memory.
  void set(const char* text);
  // Empty until a text is set.
  [[nodiscard]] std::optional<std::string> get() const;
  // The memory itself, for whatever else a process shares with its children.
  [[nodiscard]] void* bytes();

 private:
  struct Memory;
  Memory* memory;
};

// Loads the plug-in into the calling process; its children inherit it. Throws std::runtime_error.
void loadPlugin();

// Inside a launch process: the strategy of an "inhouse" application, then its list of assemblies.
// The result is the plug-in's; null for an empty list.
void initializePlugin();
const char* assemblyList();

// What came of a launch: the list, or how its process ended instead.
struct Launched {
  std::optional<std::string> list;
  std::string ending;  // "signal 11", "status 3"; empty when all went well
};

// One launch in a child process; `prepare` runs in it first. Ended after a minute.
Launched launch(const std::function<void()>& prepare = {});

// Whether sync(2) and fsync(2) of the calling process and of children forked from now on wait for
// the disk. They do at first. Not waiting makes more happen at once and changes nothing that
// another process can see.
void waitForDisk(bool wait);

}  // namespace quillon::torture
