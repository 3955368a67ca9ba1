// Whole files in and out.
#ifndef KO_HOST_FILES_H
#define KO_HOST_FILES_H

#include <filesystem>
#include <span>
#include <stdexcept>

#include "codec/picture.h"

namespace host {

// A file cannot be read or written; the text says why.
class FileError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

codec::Bytes read_file(const std::filesystem::path &path);

// Writes a file beside the target and gives it the target's name when it is whole; on failure nothing is left of it and the
// target stays as it was. The permissions of a target that is there are kept.
void write_file(const std::filesystem::path &target, std::span<const uint8_t> bytes);

} // namespace host

#endif
