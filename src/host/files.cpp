// Reading takes the whole file before anything is written, so that a picture can be written over itself.
#include "files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr size_t largest_file = size_t{1} << 30;

[[noreturn]] void fail(const std::string &what, int error) {
    throw FileError(what + ": " + std::generic_category().message(error));
}

// The file beside the target; removed unless it took the target's place.
class Draft {
  public:
    explicit Draft(const fs::path &target) : target_(target) {
        for (int number = 0; descriptor_ < 0; ++number) {
            path_ = target.parent_path() / (".ko-" + std::to_string(::getpid()) + "-" + std::to_string(number) + ".part");
            descriptor_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (descriptor_ < 0 && errno != EEXIST) {
                const int error = errno;
                fail(failure(), error);
            }
        }
    }

    ~Draft() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
        if (!placed_) {
            ::unlink(path_.c_str());
        }
    }

    Draft(const Draft &) = delete;
    Draft &operator=(const Draft &) = delete;

    void write(std::span<const uint8_t> bytes) {
        while (!bytes.empty()) {
            const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
            if (written < 0 && errno == EINTR) {
                continue;
            }
            if (written <= 0) {
                fail(failure(), errno);
            }
            bytes = bytes.subspan(static_cast<size_t>(written));
        }
    }

    const fs::path &path() const { return path_; }

    // Fails for want of room: where a write of somebody else was cut, one more byte finds no room either.
    void check_room() {
        struct stat present {};
        if (::fstat(descriptor_, &present) != 0 || ::pwrite(descriptor_, "", 1, present.st_size) != 1 ||
            ::ftruncate(descriptor_, present.st_size) != 0) {
            fail(failure(), errno);
        }
    }

    // The bytes reach the disk before the name does: after a crash the target is the old file or the new one.
    void take_place() {
        std::error_code error;
        const fs::file_status present = fs::status(target_, error);
        if (fs::is_regular_file(present)) {
            fs::permissions(path_, present.permissions(), error); // as far as the system lets us
        }
        if (::fsync(descriptor_) != 0 && errno != EINVAL && errno != ENOSYS) { // not every file system can do it
            fail(failure(), errno);
        }
        const int descriptor = descriptor_;
        descriptor_ = -1;
        if (::close(descriptor) != 0 || ::rename(path_.c_str(), target_.c_str()) != 0) {
            fail(failure(), errno);
        }
        placed_ = true;
    }

  private:
    std::string failure() const { return "cannot write " + target_.string(); }

    fs::path target_;
    fs::path path_;
    int descriptor_ = -1;
    bool placed_ = false;
};

// Where a target is in truth: a link stays a link.
fs::path place_of(const fs::path &target) {
    std::error_code missing;
    const fs::path real = fs::canonical(target, missing);
    return missing ? target : real;
}

} // namespace

codec::Bytes read_file(const fs::path &path) {
    const std::unique_ptr<std::FILE, decltype([](std::FILE *file) { std::fclose(file); })> file(std::fopen(path.c_str(), "rb"));
    if (file == nullptr) {
        fail("cannot be read", errno);
    }
    codec::Bytes bytes;
    std::error_code no_size; // of a pipe, for instance
    const uintmax_t size = fs::file_size(path, no_size);
    bytes.reserve(no_size ? 0 : std::min<uintmax_t>(size, largest_file));
    std::array<uint8_t, 1 << 16> room;
    while (const size_t count = std::fread(room.data(), 1, room.size(), file.get())) {
        if (count > largest_file - bytes.size()) {
            throw FileError("larger than 1 GiB");
        }
        bytes.insert(bytes.end(), room.data(), room.data() + count);
    }
    if (std::ferror(file.get()) != 0) {
        fail("cannot be read", errno);
    }
    return bytes;
}

void write_file(const fs::path &target, std::span<const uint8_t> bytes) {
    Draft draft(place_of(target));
    draft.write(bytes);
    draft.take_place();
}

void write_file_by(const fs::path &target, const DraftStep &write, const DraftStep &look) {
    Draft draft(place_of(target));
    try {
        write(draft.path());
    } catch (const std::exception &) {
        draft.check_room(); // the better reason, if it is one
        throw;
    }
    draft.check_room();
    if (look) {
        look(draft.path());
    }
    draft.take_place();
}

} // namespace host
