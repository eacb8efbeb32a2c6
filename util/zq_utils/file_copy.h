// Copies a file, also between file systems.
#pragma once

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

// Copies a file like boost::filesystem::copy_file. Some kernels refuse to copy between file systems
// (copy_file_range(2), EXDEV); this function then reads and writes the bytes. `error` is cleared on
// success.
void copyFileAnywhere(const boost::filesystem::path& from, const boost::filesystem::path& to,
                      boost::filesystem::copy_options options, boost::system::error_code& error);
