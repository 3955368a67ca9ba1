// The Windows back end of system.h. Files are numbers of the C runtime, opened so that others may rename and remove them, as
// they may on POSIX systems.
#include "paths.h"
#include "system.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <shellapi.h>

namespace host::system {

namespace {

constexpr size_t most_at_once = size_t{1} << 30; // the runtime's counts are ints

// For calls of the system itself, whose numbers become those that failure() explains.
bool succeeded(bool success) {
    if (!success) {
        errno = std::error_code(static_cast<int>(GetLastError()), std::system_category()).default_error_condition().value();
    }
    return success;
}

HANDLE handle_of(int number) { return reinterpret_cast<HANDLE>(_get_osfhandle(number)); }

// Calls step(done, count) until all bytes are done, none are left, or it fails.
template <class Step> int64_t repeat(size_t count, const Step &step) {
    size_t done = 0;
    while (done < count) {
        const int more = step(done, static_cast<unsigned>(std::min(count - done, most_at_once)));
        if (more < 0) {
            return -1;
        }
        if (more == 0) {
            break;
        }
        done += static_cast<size_t>(more);
    }
    return static_cast<int64_t>(done);
}

int open_number(const std::filesystem::path &path, DWORD access, DWORD disposition, int flags) {
    constexpr DWORD sharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const HANDLE file = CreateFileW(path.c_str(), access, sharing, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (!succeeded(file != INVALID_HANDLE_VALUE)) {
        return -1;
    }
    const int number = _open_osfhandle(reinterpret_cast<intptr_t>(file), flags | _O_BINARY | _O_NOINHERIT);
    if (number < 0) {
        CloseHandle(file);
    }
    return number;
}

// The system counts steps of 100 nanoseconds from the year 1601 on, of which 64 bits do not hold the nanoseconds.
constexpr int64_t step = 100;
constexpr int64_t steps_to_1970 = 116'444'736'000'000'000;

int64_t nanoseconds(const FILETIME &time) {
    return (static_cast<int64_t>(uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime) - steps_to_1970) * step;
}

FILETIME time_of(int64_t nanoseconds) {
    const auto steps = static_cast<uint64_t>(nanoseconds / step + steps_to_1970);
    return {static_cast<DWORD>(steps), static_cast<DWORD>(steps >> 32)};
}

} // namespace

File File::standard_input() {
    File file;
    file.number_ = _fileno(stdin);
    file.owned_ = false;
    _setmode(file.number_, _O_BINARY);
    return file;
}

File File::standard_output() {
    File file;
    file.number_ = _fileno(stdout);
    file.owned_ = false;
    _setmode(file.number_, _O_BINARY);
    return file;
}

bool File::open(const std::filesystem::path &path) noexcept {
    number_ = open_number(path, GENERIC_READ, OPEN_EXISTING, _O_RDONLY);
    return number_ >= 0;
}

File::Made File::make(const std::filesystem::path &path) noexcept {
    number_ = open_number(path, GENERIC_READ | GENERIC_WRITE, CREATE_NEW, _O_RDWR);
    return number_ >= 0 ? Made::yes : GetLastError() == ERROR_FILE_EXISTS ? Made::exists : Made::no;
}

bool File::has_places() const noexcept { return GetFileType(handle_of(number_)) == FILE_TYPE_DISK; }

int64_t File::read_at(uint64_t offset, std::span<uint8_t> room) noexcept {
    return _lseeki64(number_, static_cast<int64_t>(offset), SEEK_SET) < 0 ? -1 : read(room);
}

// A pipe whose writer has ended is at its end.
int64_t File::read(std::span<uint8_t> room) noexcept {
    return repeat(room.size(), [&](size_t done, unsigned count) {
        const int more = _read(number_, room.data() + done, count);
        return more < 0 && errno == EPIPE ? 0 : more;
    });
}

bool File::write(std::span<const uint8_t> bytes) noexcept {
    return repeat(bytes.size(), [&](size_t done, unsigned count) { return _write(number_, bytes.data() + done, count); }) ==
           static_cast<int64_t>(bytes.size());
}

// Goes back to the end, where the next write belongs.
bool File::write_at(uint64_t offset, std::span<const uint8_t> bytes) noexcept {
    return _lseeki64(number_, static_cast<int64_t>(offset), SEEK_SET) >= 0 && write(bytes) &&
           _lseeki64(number_, 0, SEEK_END) >= 0;
}

std::optional<uint64_t> File::size() const noexcept {
    const int64_t bytes = _filelengthi64(number_);
    return bytes < 0 ? std::nullopt : std::optional(static_cast<uint64_t>(bytes));
}

// What is no file on a disk has nothing to flush.
bool File::sync() noexcept { return _commit(number_) == 0 || errno == EBADF; }

bool File::has_room() noexcept {
    const int64_t end = _filelengthi64(number_);
    const uint8_t byte = 0;
    return end >= 0 && write_at(static_cast<uint64_t>(end), {&byte, 1}) && _chsize_s(number_, end) == 0;
}

std::optional<Traits> File::traits() const noexcept {
    FILETIME accessed{};
    FILETIME modified{};
    if (!succeeded(GetFileTime(handle_of(number_), nullptr, &accessed, &modified) != 0)) {
        return std::nullopt;
    }
    return Traits{0, nanoseconds(accessed), nanoseconds(modified)};
}

// Who may use a file follows from its folder.
bool File::take(const Traits &traits) noexcept {
    const FILETIME accessed = time_of(traits.accessed);
    const FILETIME modified = time_of(traits.modified);
    return succeeded(SetFileTime(handle_of(number_), nullptr, &accessed, &modified) != 0);
}

bool File::close() noexcept {
    const int number = std::exchange(number_, -1);
    return number < 0 || !owned_ || _close(number) == 0;
}

std::filesystem::path program_folder() {
    std::wstring path(MAX_PATH, L'\0');
    while (true) {
        const DWORD count = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (count < path.size()) {
            path.resize(count);
            return std::filesystem::path(path).parent_path();
        }
        path.resize(path.size() * 2);
    }
}

std::string library_path(const std::filesystem::path &path) {
    const int size = WideCharToMultiByte(CP_ACP, 0, path.c_str(), -1, nullptr, 0, nullptr, nullptr);
    std::string bytes(static_cast<size_t>(std::max(size, 1)), '\0');
    WideCharToMultiByte(CP_ACP, 0, path.c_str(), -1, bytes.data(), size, nullptr, nullptr);
    bytes.pop_back(); // the zero
    return bytes;
}

// Who may write into a folder is found out by writing.
bool can_write_into(const std::filesystem::path &folder) noexcept {
    const HANDLE file = CreateFileW((folder / path_of(".ko-" + std::to_string(process()) + ".part")).c_str(), GENERIC_WRITE, 0,
                                    nullptr, CREATE_NEW, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    return succeeded(file != INVALID_HANDLE_VALUE) && CloseHandle(file) != 0;
}

// A file that is open cannot be replaced, but moved aside, and removed: it lasts as long as it is open.
bool rename(const std::filesystem::path &from, const std::filesystem::path &to) noexcept {
    if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) != 0) {
        return true;
    }
    std::filesystem::path aside = from;
    aside += ".old";
    if (!succeeded(MoveFileExW(to.c_str(), aside.c_str(), 0) != 0)) {
        return false;
    }
    if (!succeeded(MoveFileExW(from.c_str(), to.c_str(), 0) != 0)) {
        MoveFileExW(aside.c_str(), to.c_str(), 0);
        return false;
    }
    DeleteFileW(aside.c_str());
    return true;
}

ErrorStreamCapture::ErrorStreamCapture() noexcept {
    std::array<wchar_t, MAX_PATH + 1> folder{};
    std::array<wchar_t, MAX_PATH + 1> path{};
    if (GetTempPathW(MAX_PATH, folder.data()) != 0 && GetTempFileNameW(folder.data(), L"ko", 0, path.data()) != 0) {
        kept_ = _wfopen(path.data(), L"w+bTD"); // short-lived, and removed when it is closed
    }
    std::fflush(stderr);
    stream_ = kept_ != nullptr ? _dup(_fileno(stderr)) : -1;
    if (stream_ >= 0) {
        _dup2(_fileno(kept_), _fileno(stderr));
    }
}

std::string ErrorStreamCapture::take() {
    constexpr size_t most = 1 << 20;
    std::string text;
    if (stream_ >= 0) {
        std::fflush(stderr);
        text.resize(most);
        const int number = _fileno(kept_);
        _lseeki64(number, 0, SEEK_SET);
        const int64_t count = repeat(most, [&](size_t done, unsigned more) { return _read(number, text.data() + done, more); });
        text.resize(static_cast<size_t>(std::max(count, int64_t{0})));
    }
    end();
    return text;
}

void ErrorStreamCapture::end() noexcept {
    if (stream_ >= 0) {
        std::fflush(stderr);
        _dup2(stream_, _fileno(stderr));
        _close(std::exchange(stream_, -1));
    }
    if (kept_ != nullptr) {
        std::fclose(std::exchange(kept_, nullptr));
    }
}

unsigned process() { return GetCurrentProcessId(); }

// The system's heap decides by itself.
void keep_freed_memory() {}

// Asks the console to understand the sequences that redraw a line.
bool has_terminal() {
    const HANDLE console = handle_of(_fileno(stdout));
    DWORD mode = 0;
    return GetConsoleMode(console, &mode) != 0 && SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

unsigned terminal_width() {
    CONSOLE_SCREEN_BUFFER_INFO console{};
    const bool known = GetConsoleScreenBufferInfo(handle_of(_fileno(stdout)), &console) != 0;
    const int width = known ? console.srWindow.Right - console.srWindow.Left + 1 : 0;
    return width > 0 ? static_cast<unsigned>(width) : 80;
}

// The system calls this on a thread of its own, and ends the program after it.
void on_interruption(void (*clean_up)()) {
    static void (*interrupted)() = nullptr;
    interrupted = clean_up;
    SetConsoleOutputCP(CP_UTF8);
    SetConsoleCtrlHandler(
        [](DWORD) -> BOOL {
            interrupted();
            return FALSE;
        },
        TRUE);
}

std::vector<std::string> arguments(int, char **) {
    int count = 0;
    wchar_t **wide = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> texts;
    for (int i = 1; i < count; ++i) {
        texts.push_back(text_of(wide[i]));
    }
    LocalFree(wide);
    return texts;
}

} // namespace host::system
