// Files in and out.
#ifndef KO_HOST_FILES_H
#define KO_HOST_FILES_H

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>

#include "codec/stream.h"
#include "system.h"

namespace host {

// The name that stands for the standard input or output.
inline constexpr const char *standard_stream = "-";

// A file cannot be read or written; the text gives the reason.
class FileError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A file to read, several times if need be. What can be read only once, such as a pipe, is kept in memory.
class FileInput : public codec::Input {
  public:
    explicit FileInput(const std::filesystem::path &path);

    std::optional<size_t> read(uint64_t offset, std::span<uint8_t> room) noexcept override;
    std::optional<uint64_t> size() noexcept override;
    const char *failure() const noexcept override { return failure_.c_str(); }

    // As they were when the file was opened; none if it is not a regular file.
    const std::optional<system::Traits> &traits() const { return traits_; }

  private:
    void keep_all();

    system::File file_;
    std::optional<system::Traits> traits_;
    codec::Bytes kept_;
    bool is_kept_ = false;
    std::string failure_;
};

// Where a picture is written.
class Target : public codec::Output {
  public:
    ~Target() override = default;

    bool write(std::span<const uint8_t> bytes) noexcept override;
    bool rewrite(uint64_t offset, std::span<const uint8_t> bytes) noexcept override;
    const char *failure() const noexcept override { return failure_.c_str(); }

    // Called when everything is written. Throws FileError.
    virtual void take_place() = 0;

  protected:
    explicit Target(const std::string &name) : name_(name) {}

    [[noreturn]] void fail() const;

    const std::string name_;
    system::File file_;

  private:
    std::string failure_; // of the latest write
};

// A file that is written beside its target and takes the target's name when it is complete. If its scope ends or the program is
// interrupted before that, the draft is removed, and the target stays as it was. The permissions of an existing target are kept
// unless the file is given traits.
class Draft : public Target {
  public:
    explicit Draft(const std::filesystem::path &target, const std::optional<system::Traits> &traits = std::nullopt);
    ~Draft() override;
    Draft(const Draft &) = delete;
    Draft &operator=(const Draft &) = delete;

    const std::filesystem::path &path() const { return path_; }

    // Throws if the disk is full after other code wrote the file: where a write was cut short, one more byte does not fit.
    void check_room();

    // The bytes reach the disk before the name does: after a crash the target is the old file or the new one.
    void take_place() override;

    // Removes all drafts that exist. Afterwards none is made and none takes its place: the program is about to end.
    static void abandon_all();

  private:
    void take_permissions();

    std::filesystem::path target_;
    std::optional<system::Traits> traits_;
    std::filesystem::path path_;
    bool placed_ = false;
};

// A draft, or the standard output for its name. Makes the folders above a draft that are missing.
std::unique_ptr<Target> open_target(const std::filesystem::path &target,
                                    const std::optional<system::Traits> &traits = std::nullopt);

// Writes the bytes of an input as they are.
void copy_file(codec::Input &input, const std::filesystem::path &target,
               const std::optional<system::Traits> &traits = std::nullopt);

// Writes a file by a step that gets the path of the draft, which exists and is empty. look may refuse the finished file before
// it takes its place. Both refuse by an exception.
using DraftStep = std::function<void(const std::filesystem::path &draft)>;
void write_file_by(const std::filesystem::path &target, const DraftStep &write, const DraftStep &look = nullptr);

} // namespace host

#endif
