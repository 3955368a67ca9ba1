// The POSIX back end of file.h.
#include "file.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "file_errors.h"

namespace koio {

namespace fs = std::filesystem;

namespace {

// The place of a target: a link stays a link.
fs::path place_of(const char *path) {
    std::error_code missing;
    const fs::path real = fs::canonical(path, missing);
    return missing ? fs::path(path) : real;
}

} // namespace

// ---- reading

// A pipe that nobody writes to must not hold the caller up: it is opened without waiting, and cannot be read in any order.
FileInput::FileInput(const char *path) : number_(open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK)) {
    if (number_ < 0) {
        fail(KO_ERR_OPEN_READ);
    }
}

FileInput::~FileInput() { close(number_); }

std::optional<size_t> FileInput::read(uint64_t offset, std::span<uint8_t> room) noexcept {
    size_t done = 0;
    while (done < room.size()) {
        const ssize_t count = pread(number_, room.data() + done, room.size() - done, static_cast<off_t>(offset + done));
        if (count == 0) {
            break;
        }
        if (count > 0) {
            done += static_cast<size_t>(count);
        } else if (errno != EINTR) {
            explain();
            return std::nullopt;
        }
    }
    return done;
}

std::optional<uint64_t> FileInput::size() noexcept {
    struct stat status {};
    if (fstat(number_, &status) != 0) {
        explain();
        return std::nullopt;
    }
    return static_cast<uint64_t>(status.st_size);
}

void FileInput::explain() noexcept {
    has_failed_ = true;
    keep_reason(failure_);
}

// ---- writing

// A file that its owner has protected is not replaced, though the folder would permit it.
FileOutput::FileOutput(const char *path) : target_(place_of(path)) {
    struct stat status {};
    const bool exists = stat(target_.c_str(), &status) == 0;
    if (exists && !S_ISREG(status.st_mode)) {
        number_ = S_ISCHR(status.st_mode) ? open(target_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY) : -1;
        if (number_ < 0) {
            throw FileError(KO_ERR_OPEN_WRITE, S_ISCHR(status.st_mode) ? reason_of(errno) : "not a file");
        }
        return;
    }
    if (exists && faccessat(AT_FDCWD, target_.c_str(), W_OK, AT_EACCESS) != 0) {
        fail(KO_ERR_OPEN_WRITE);
    }
    make_draft();
    if (exists) {
        static_cast<void>(fchmod(number_, status.st_mode & 07777)); // as far as the system permits
    }
}

FileOutput::~FileOutput() {
    if (number_ >= 0) {
        close(number_);
    }
    if (!draft_.empty()) {
        unlink(draft_.c_str());
    }
}

void FileOutput::make_draft() {
    static std::atomic<unsigned> drafts = 0;
    fs::path path;
    do {
        const std::string name = ".koio-" + std::to_string(getpid()) + "-" + std::to_string(drafts++) + ".part";
        path = target_.parent_path() / name;
        number_ = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    } while (number_ < 0 && errno == EEXIST);
    if (number_ < 0) {
        fail(KO_ERR_OPEN_WRITE);
    }
    draft_.swap(path);
}

bool FileOutput::write(std::span<const uint8_t> bytes) noexcept {
    while (!bytes.empty()) {
        const ssize_t count = ::write(number_, bytes.data(), bytes.size());
        if (count >= 0) {
            bytes = bytes.subspan(static_cast<size_t>(count));
        } else if (errno != EINTR) {
            keep_reason(failure_);
            return false;
        }
    }
    return true;
}

void FileOutput::take_place() {
    const int number = number_;
    number_ = -1;
    if (close(number) != 0) {
        fail(KO_ERR_WRITE_FILE); // some file systems report a full disk only here
    }
    if (draft_.empty()) {
        return;
    }
    if (rename(draft_.c_str(), target_.c_str()) != 0) {
        fail(KO_ERR_WRITE_FILE);
    }
    draft_.clear();
}

} // namespace koio
