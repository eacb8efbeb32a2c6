// Copying one file, also between file systems.
#pragma once

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

// What boost::filesystem::copy_file does, and what it fails to do on kernels that refuse to copy
// between file systems on their own (copy_file_range(2), EXDEV): there the bytes are read and
// written. `error` is cleared on success.
void copyFileAnywhere(const boost::filesystem::path& from, const boost::filesystem::path& to,
                      boost::filesystem::copy_options options, boost::system::error_code& error);
