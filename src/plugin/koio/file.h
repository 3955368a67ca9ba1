// The plug-in's files: one that is read in any order, and one that appears under its name when it is complete. One back end per
// system (file_posix.cpp, file_windows.cpp).
#ifndef KO_PLUGIN_KOIO_FILE_H
#define KO_PLUGIN_KOIO_FILE_H

#include <filesystem>
#include <optional>
#include <span>
#include <string>

#include "codec/stream.h"

namespace koio {

class FileInput : public codec::Input {
  public:
    // Throws FileError.
    explicit FileInput(const char *path);
    ~FileInput() override;
    FileInput(const FileInput &) = delete;
    FileInput &operator=(const FileInput &) = delete;

    std::optional<size_t> read(uint64_t offset, std::span<uint8_t> room) noexcept override;
    std::optional<uint64_t> size() noexcept override;
    const char *failure() const noexcept override { return failure_.c_str(); }

    // True after a read that failed: the bytes are not to blame then.
    bool has_failed() const { return has_failed_; }

  private:
    void explain() noexcept;

    int number_ = -1;
    bool has_failed_ = false;
    std::string failure_;
};

// A draft beside the target, which takes the target's name in the end. If its scope ends before that, the draft is removed and
// the target stays as it was. An existing target keeps its permissions; one that is a link stays a link. A device is written to
// as it is.
class FileOutput : public codec::Output {
  public:
    // Throws FileError.
    explicit FileOutput(const char *path);
    ~FileOutput() override;
    FileOutput(const FileOutput &) = delete;
    FileOutput &operator=(const FileOutput &) = delete;

    bool write(std::span<const uint8_t> bytes) noexcept override;

    // PNG and JPEG files are written from the first byte to the last.
    bool rewrite(uint64_t, std::span<const uint8_t>) noexcept override { return false; }

    const char *failure() const noexcept override { return failure_.c_str(); }

    // Called when everything is written. Throws FileError.
    void take_place();

  private:
    void make_draft();

    std::filesystem::path target_;
    std::filesystem::path draft_; // empty for a device, and when the draft has taken its place
    int number_ = -1;
    std::string failure_;
};

} // namespace koio

#endif
