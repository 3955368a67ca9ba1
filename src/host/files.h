// Whole files in and out.
#ifndef KO_HOST_FILES_H
#define KO_HOST_FILES_H

#include <filesystem>
#include <functional>
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

// The same for bytes that somebody else writes: write is handed the path of the file beside the target, which is there and
// empty. A write for which there was no room is found out whatever became of its report. look may refuse the whole file before
// it takes its place. Both refuse by an exception.
using DraftStep = std::function<void(const std::filesystem::path &draft)>;
void write_file_by(const std::filesystem::path &target, const DraftStep &write, const DraftStep &look = nullptr);

} // namespace host

#endif
