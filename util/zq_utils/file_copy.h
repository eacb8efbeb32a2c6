// Copies a regular file, also between file systems.
#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/system/error_code.hpp>

struct FileCopyOptions {
  bool overwrite = false;    // replace the content of an existing target; otherwise fail
  bool followSource = true;  // if the source is a symbolic link, follow it; otherwise fail
  bool followTarget = true;  // the same for the target
};

// Copies the bytes and the permission bits of `from` to `to`. Fails if one of them is not a regular
// file, without waiting for another process and without writing. `error` is cleared on success.
void copyRegularFile(const boost::filesystem::path& from, const boost::filesystem::path& to,
                     const FileCopyOptions& options, boost::system::error_code& error);
