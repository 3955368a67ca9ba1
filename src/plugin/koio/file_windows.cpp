// The Windows back end of file.h. Paths are in the code page of the process, as they are for the library.
#include "file.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>
#include <system_error>

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include "file_errors.h"

namespace koio {

namespace fs = std::filesystem;

namespace {

constexpr size_t most_at_once = size_t{1} << 30; // the system's counts are ints

// A path from the code page of the process.
fs::path path_of(const char *path) {
    std::wstring wide(static_cast<size_t>(MultiByteToWideChar(CP_ACP, 0, path, -1, nullptr, 0)), L'\0');
    if (wide.empty()) {
        throw FileError(KO_ERR_OPEN_WRITE, reason_of(EINVAL));
    }
    MultiByteToWideChar(CP_ACP, 0, path, -1, wide.data(), static_cast<int>(wide.size()));
    wide.pop_back();
    return wide;
}

// The place of a target: a link stays a link.
fs::path place_of(const char *path) {
    const fs::path given = path_of(path);
    std::error_code missing;
    const fs::path real = fs::canonical(given, missing);
    return missing ? given : real;
}

} // namespace

// ---- reading

// A folder exists, but has no bytes.
FileInput::FileInput(const char *path) : number_(_sopen(path, _O_RDONLY | _O_BINARY | _O_NOINHERIT, _SH_DENYNO, 0)) {
    if (number_ < 0) {
        const int error = errno;
        struct _stat64 status {};
        if (_stat64(path, &status) == 0 && (status.st_mode & _S_IFMT) == _S_IFDIR) {
            throw FileError(KO_ERR_READ_FILE, reason_of(EISDIR));
        }
        throw FileError(KO_ERR_OPEN_READ, reason_of(error));
    }
}

FileInput::~FileInput() { _close(number_); }

std::optional<size_t> FileInput::read(uint64_t offset, std::span<uint8_t> room) noexcept {
    size_t done = 0;
    if (_lseeki64(number_, static_cast<int64_t>(offset), SEEK_SET) < 0) {
        explain();
        return std::nullopt;
    }
    while (done < room.size()) {
        const int count = _read(number_, room.data() + done, static_cast<unsigned>(std::min(room.size() - done, most_at_once)));
        if (count < 0) {
            explain();
            return std::nullopt;
        }
        if (count == 0) {
            break;
        }
        done += static_cast<size_t>(count);
    }
    return done;
}

std::optional<uint64_t> FileInput::size() noexcept {
    const int64_t bytes = _filelengthi64(number_);
    if (bytes < 0) {
        explain();
        return std::nullopt;
    }
    return static_cast<uint64_t>(bytes);
}

void FileInput::explain() noexcept {
    has_failed_ = true;
    keep_reason(failure_);
}

// ---- writing

// A file that its owner has protected is not replaced.
FileOutput::FileOutput(const char *path) : target_(place_of(path)) {
    struct _stat64 status {};
    const bool exists = _wstat64(target_.c_str(), &status) == 0;
    if (exists && (status.st_mode & _S_IFMT) != _S_IFREG) {
        const bool is_device = (status.st_mode & _S_IFMT) == _S_IFCHR;
        number_ = is_device ? _wopen(target_.c_str(), _O_WRONLY | _O_BINARY | _O_NOINHERIT) : -1;
        if (number_ < 0) {
            throw FileError(KO_ERR_OPEN_WRITE, is_device ? reason_of(errno) : "not a file");
        }
        return;
    }
    if (exists && (status.st_mode & _S_IWRITE) == 0) {
        throw FileError(KO_ERR_OPEN_WRITE, reason_of(EACCES));
    }
    make_draft();
}

FileOutput::~FileOutput() {
    if (number_ >= 0) {
        _close(number_);
    }
    if (!draft_.empty()) {
        _wunlink(draft_.c_str());
    }
}

void FileOutput::make_draft() {
    static std::atomic<unsigned> drafts = 0;
    fs::path path;
    do {
        const std::string name = ".koio-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(drafts++) + ".part";
        path = target_.parent_path() / name;
        number_ = _wopen(path.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY | _O_NOINHERIT, _S_IREAD | _S_IWRITE);
    } while (number_ < 0 && errno == EEXIST);
    if (number_ < 0) {
        fail(KO_ERR_OPEN_WRITE);
    }
    draft_.swap(path);
}

bool FileOutput::write(std::span<const uint8_t> bytes) noexcept {
    while (!bytes.empty()) {
        const int count = _write(number_, bytes.data(), static_cast<unsigned>(std::min(bytes.size(), most_at_once)));
        if (count <= 0) {
            keep_reason(failure_);
            return false;
        }
        bytes = bytes.subspan(static_cast<size_t>(count));
    }
    return true;
}

void FileOutput::take_place() {
    const int number = number_;
    number_ = -1;
    if (_close(number) != 0) {
        fail(KO_ERR_WRITE_FILE); // some file systems report a full disk only here
    }
    if (draft_.empty()) {
        return;
    }
    if (MoveFileExW(draft_.c_str(), target_.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) == 0) {
        throw FileError(KO_ERR_WRITE_FILE, std::system_category().message(static_cast<int>(GetLastError())));
    }
    draft_.clear();
}

} // namespace koio
