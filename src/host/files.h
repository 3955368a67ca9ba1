// Files in and out.
#ifndef KO_HOST_FILES_H
#define KO_HOST_FILES_H

#include <array>
#include <filesystem>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>

#include "codec/stream.h"

namespace host {

// A file cannot be read or written; the text says why.
class FileError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A file to read, several times if need be. What can be read only once, such as a pipe, is kept in memory.
class FileInput : public codec::Input {
  public:
    explicit FileInput(const std::filesystem::path &path);
    ~FileInput() override;
    FileInput(const FileInput &) = delete;
    FileInput &operator=(const FileInput &) = delete;

    std::optional<size_t> read(uint64_t offset, std::span<uint8_t> room) noexcept override;
    std::optional<uint64_t> size() noexcept override;
    const char *failure() const noexcept override { return failure_.data(); }

  private:
    void keep_all();

    int descriptor_ = -1;
    codec::Bytes kept_;
    std::array<char, 200> failure_{};
};

// A file that is written beside its target and takes the target's name when it is whole; until then it is gone with its scope,
// and the target stays as it was. The permissions of an existing target are kept.
class Draft : public codec::Output {
  public:
    explicit Draft(const std::filesystem::path &target);
    ~Draft() override;
    Draft(const Draft &) = delete;
    Draft &operator=(const Draft &) = delete;

    bool write(std::span<const uint8_t> bytes) noexcept override;
    bool rewrite(uint64_t offset, std::span<const uint8_t> bytes) noexcept override;
    const char *failure() const noexcept override { return failure_.data(); }

    const std::filesystem::path &path() const { return path_; }

    // Throws for want of room after somebody else wrote the file: where a write was cut, one more byte finds no room either.
    void check_room();

    // The bytes reach the disk before the name does: after a crash the target is the old file or the new one.
    void take_place();

  private:
    [[noreturn]] void fail(int error) const;

    // Writes by step(bytes), which takes as many as it can, until none are left.
    template <class Step> bool write_by(std::span<const uint8_t> bytes, const Step &step) noexcept;

    std::filesystem::path target_;
    std::filesystem::path path_;
    int descriptor_ = -1;
    bool placed_ = false;
    std::array<char, 512> failure_{}; // of the latest write
};

// Writes the bytes of an input as they are.
void copy_file(codec::Input &input, const std::filesystem::path &target);

// Writes a file by a step that is handed the path of the draft, which exists and is empty. look may refuse the whole file
// before it takes its place. Both refuse by an exception.
using DraftStep = std::function<void(const std::filesystem::path &draft)>;
void write_file_by(const std::filesystem::path &target, const DraftStep &write, const DraftStep &look = nullptr);

} // namespace host

#endif
