// Launches of the built plug-in in child processes, up to the list of assemblies.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace quillon::torture {

// Memory that a process shares with its forked children, so that a child can return its list
// without a system call. The destructor unmaps it.
class SharedText {
 public:
  SharedText();
  ~SharedText();
  SharedText(const SharedText&) = delete;
  SharedText& operator=(const SharedText&) = delete;

  // Truncates a text that is longer than the memory.
  void set(const char* text);
  // Returns nullopt until a text is set.
  [[nodiscard]] std::optional<std::string> get() const;
  // The memory itself, for other shared data.
  [[nodiscard]] void* bytes();

 private:
  struct Memory;
  Memory* memory;
};

// Loads the plug-in into the calling process; its children inherit it. Throws std::runtime_error on
// failure.
void loadPlugin();

// Called in a launch process: create the strategy of an "inhouse" application, and return its list
// of assemblies and its folders of libraries. The plug-in owns the results; null for an empty list.
void initializePlugin();
const char* assemblyList();
const char* libraryFolders();

// The result of a launch: the list, or how its process ended.
struct Launched {
  std::optional<std::string> list;
  std::string ending;  // "signal 11" or "status 3"; empty on success
};

// Performs a launch in a child process, which first calls `prepare` and then reads the lists by
// `readLists`; by default the list of assemblies. The child is killed after a minute.
Launched launch(const std::function<void()>& prepare = {},
                const std::function<std::string()>& readLists = {});

// Sets whether sync(2) and fsync(2) wait for the disk, in the calling process and in children
// forked later. They wait by default. Without waiting more launches overlap, and other processes
// see no difference.
void waitForDisk(bool wait);

}  // namespace quillon::torture
