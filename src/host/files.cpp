// An input stays open while its target is replaced, so that a picture can be written over itself.
#include "files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr size_t largest_kept = size_t{1} << 30;

std::string reason_of(int error) { return std::generic_category().message(error); }

// Where a target is in truth: a link stays a link.
fs::path place_of(const fs::path &target) {
    std::error_code missing;
    const fs::path real = fs::canonical(target, missing);
    return missing ? target : real;
}

} // namespace

FileInput::FileInput(const fs::path &path) {
    descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor_ < 0) {
        throw FileError("cannot be read: " + reason_of(errno));
    }
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) {
        try {
            keep_all();
        } catch (...) {
            ::close(descriptor_);
            throw;
        }
    }
}

FileInput::~FileInput() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
}

std::optional<size_t> FileInput::read(uint64_t offset, std::span<uint8_t> room) noexcept {
    if (descriptor_ < 0) {
        return codec::MemoryInput(kept_).read(offset, room);
    }
    size_t count = 0;
    while (count < room.size()) {
        const ssize_t more = ::pread(descriptor_, room.data() + count, room.size() - count, static_cast<off_t>(offset + count));
        if (more < 0 && errno == EINTR) {
            continue;
        }
        if (more < 0) {
            std::snprintf(failure_.data(), failure_.size(), "cannot be read: %s", std::strerror(errno));
            return std::nullopt;
        }
        if (more == 0) {
            break;
        }
        count += static_cast<size_t>(more);
    }
    return count;
}

std::optional<uint64_t> FileInput::size() noexcept {
    if (descriptor_ < 0) {
        return kept_.size();
    }
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0) {
        std::snprintf(failure_.data(), failure_.size(), "cannot be read: %s", std::strerror(errno));
        return std::nullopt;
    }
    return static_cast<uint64_t>(status.st_size);
}

void FileInput::keep_all() {
    std::array<uint8_t, 1 << 16> room;
    while (true) {
        const ssize_t count = ::read(descriptor_, room.data(), room.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw FileError("cannot be read: " + reason_of(errno));
        }
        if (count == 0) {
            break;
        }
        if (static_cast<size_t>(count) > largest_kept - kept_.size()) {
            throw FileError("larger than 1 GiB");
        }
        kept_.insert(kept_.end(), room.data(), room.data() + count);
    }
    ::close(descriptor_);
    descriptor_ = -1;
}

Draft::Draft(const fs::path &target) : target_(place_of(target)) {
    for (int number = 0; descriptor_ < 0; ++number) {
        path_ = target_.parent_path() / (".ko-" + std::to_string(::getpid()) + "-" + std::to_string(number) + ".part");
        descriptor_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor_ < 0 && errno != EEXIST) {
            fail(errno);
        }
    }
}

Draft::~Draft() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
    if (!placed_) {
        ::unlink(path_.c_str());
    }
}

template <class Step> bool Draft::write_by(std::span<const uint8_t> bytes, const Step &step) noexcept {
    while (!bytes.empty()) {
        const ssize_t written = step(bytes);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            std::snprintf(failure_.data(), failure_.size(), "cannot write %s: %s", target_.c_str(), std::strerror(errno));
            return false;
        }
        bytes = bytes.subspan(static_cast<size_t>(written));
    }
    return true;
}

bool Draft::write(std::span<const uint8_t> bytes) noexcept {
    return write_by(bytes, [this](auto rest) { return ::write(descriptor_, rest.data(), rest.size()); });
}

bool Draft::rewrite(uint64_t offset, std::span<const uint8_t> bytes) noexcept {
    return write_by(bytes, [&](auto rest) {
        const size_t done = bytes.size() - rest.size();
        return ::pwrite(descriptor_, rest.data(), rest.size(), static_cast<off_t>(offset + done));
    });
}

void Draft::check_room() {
    struct stat present {};
    if (::fstat(descriptor_, &present) != 0 || ::pwrite(descriptor_, "", 1, present.st_size) != 1 ||
        ::ftruncate(descriptor_, present.st_size) != 0) {
        fail(errno);
    }
}

void Draft::take_place() {
    std::error_code error;
    const fs::file_status present = fs::status(target_, error);
    if (fs::is_regular_file(present)) {
        fs::permissions(path_, present.permissions(), error); // as far as the system lets us
    }
    if (::fsync(descriptor_) != 0 && errno != EINVAL && errno != ENOSYS) { // not every file system can do it
        fail(errno);
    }
    const int descriptor = descriptor_;
    descriptor_ = -1;
    if (::close(descriptor) != 0 || ::rename(path_.c_str(), target_.c_str()) != 0) {
        fail(errno);
    }
    placed_ = true;
}

void Draft::fail(int error) const { throw FileError("cannot write " + target_.string() + ": " + reason_of(error)); }

void copy_file(codec::Input &input, const fs::path &target) {
    Draft draft(target);
    std::array<uint8_t, 1 << 16> room;
    uint64_t offset = 0;
    while (const std::optional<size_t> count = input.read(offset, room)) {
        if (*count == 0) {
            return draft.take_place();
        }
        if (!draft.write({room.data(), *count})) {
            throw FileError(draft.failure());
        }
        offset += *count;
    }
    throw FileError(input.failure());
}

void write_file_by(const fs::path &target, const DraftStep &write, const DraftStep &look) {
    Draft draft(target);
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
