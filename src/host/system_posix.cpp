#include "system.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host::system {

namespace {

// Calls step(done) until count bytes are done, none are left, or it fails.
template <class Step> int64_t repeat(size_t count, const Step &step) {
    size_t done = 0;
    while (done < count) {
        const ssize_t more = step(done);
        if (more < 0 && errno == EINTR) {
            continue;
        }
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

constexpr int64_t second = 1'000'000'000;

int64_t nanoseconds(const timespec &time) { return time.tv_sec * second + time.tv_nsec; }

timespec time_of(int64_t nanoseconds) {
    const int64_t rest = (nanoseconds % second + second) % second; // also for times before the epoch
    return {(nanoseconds - rest) / second, rest};
}

} // namespace

File File::standard_input() {
    File file;
    file.number_ = STDIN_FILENO;
    file.owned_ = false;
    return file;
}

File File::standard_output() {
    File file;
    file.number_ = STDOUT_FILENO;
    file.owned_ = false;
    return file;
}

bool File::open(const std::filesystem::path &path) noexcept {
    number_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    return number_ >= 0;
}

File::Made File::make(const std::filesystem::path &path) noexcept {
    number_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    return number_ >= 0 ? Made::yes : errno == EEXIST ? Made::exists : Made::no;
}

bool File::has_places() const noexcept {
    struct stat status {};
    return ::fstat(number_, &status) == 0 && S_ISREG(status.st_mode);
}

int64_t File::read_at(uint64_t offset, std::span<uint8_t> room) noexcept {
    return repeat(room.size(), [&](size_t done) {
        return ::pread(number_, room.data() + done, room.size() - done, static_cast<off_t>(offset + done));
    });
}

int64_t File::read(std::span<uint8_t> room) noexcept {
    return repeat(room.size(), [&](size_t done) { return ::read(number_, room.data() + done, room.size() - done); });
}

bool File::write(std::span<const uint8_t> bytes) noexcept {
    return repeat(bytes.size(), [&](size_t done) { return ::write(number_, bytes.data() + done, bytes.size() - done); }) ==
           static_cast<int64_t>(bytes.size());
}

bool File::write_at(uint64_t offset, std::span<const uint8_t> bytes) noexcept {
    return repeat(bytes.size(), [&](size_t done) {
               return ::pwrite(number_, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
           }) == static_cast<int64_t>(bytes.size());
}

std::optional<uint64_t> File::size() const noexcept {
    struct stat status {};
    return ::fstat(number_, &status) == 0 ? std::optional<uint64_t>(status.st_size) : std::nullopt;
}

bool File::sync() noexcept { return ::fsync(number_) == 0 || errno == EINVAL || errno == ENOSYS; }

bool File::has_room() noexcept {
    struct stat status {};
    return ::fstat(number_, &status) == 0 && ::pwrite(number_, "", 1, status.st_size) == 1 &&
           ::ftruncate(number_, status.st_size) == 0;
}

std::optional<Traits> File::traits() const noexcept {
    struct stat status {};
    if (::fstat(number_, &status) != 0) {
        return std::nullopt;
    }
    return Traits{status.st_mode & 0777, nanoseconds(status.st_atim), nanoseconds(status.st_mtim)};
}

bool File::take(const Traits &traits) noexcept {
    const timespec times[] = {time_of(traits.accessed), time_of(traits.modified)};
    return ::fchmod(number_, traits.permissions) == 0 && ::futimens(number_, times) == 0;
}

bool File::close() noexcept {
    const int number = std::exchange(number_, -1);
    return number < 0 || !owned_ || ::close(number) == 0;
}

std::filesystem::path program_folder() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
}

std::string library_path(const std::filesystem::path &path) { return path.native(); }

bool can_write_into(const std::filesystem::path &folder) noexcept { return ::access(folder.c_str(), W_OK | X_OK) == 0; }

bool rename(const std::filesystem::path &from, const std::filesystem::path &to) noexcept {
    return ::rename(from.c_str(), to.c_str()) == 0;
}

ErrorStreamCapture::ErrorStreamCapture() noexcept : kept_(std::tmpfile()) {
    std::fflush(stderr);
    stream_ = kept_ != nullptr ? ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0) : -1;
    if (stream_ >= 0) {
        ::dup2(::fileno(kept_), STDERR_FILENO);
    }
}

std::string ErrorStreamCapture::take() {
    constexpr size_t most = 1 << 20;
    std::string text;
    if (stream_ >= 0) {
        std::fflush(stderr);
        text.resize(most);
        const int number = ::fileno(kept_);
        text.resize(static_cast<size_t>(std::max(
            repeat(most,
                   [&](size_t done) { return ::pread(number, text.data() + done, most - done, static_cast<off_t>(done)); }),
            int64_t{0})));
    }
    end();
    return text;
}

void ErrorStreamCapture::end() noexcept {
    if (stream_ >= 0) {
        std::fflush(stderr);
        ::dup2(stream_, STDERR_FILENO);
        ::close(std::exchange(stream_, -1));
    }
    if (kept_ != nullptr) {
        std::fclose(std::exchange(kept_, nullptr));
    }
}

std::vector<std::string> arguments(int argc, char **argv) { return {argv + std::min(argc, 1), argv + argc}; }

unsigned process() { return static_cast<unsigned>(::getpid()); }

void keep_freed_memory() {
#ifdef __GLIBC__
    constexpr int largest_block = 8'000'000;
    constexpr int most_kept = 64'000'000;
    mallopt(M_MMAP_THRESHOLD, largest_block);
    mallopt(M_TRIM_THRESHOLD, most_kept);
#endif
}

bool has_terminal() {
    const char *kind = std::getenv("TERM");
    return ::isatty(STDOUT_FILENO) != 0 && (kind == nullptr || std::string_view(kind) != "dumb");
}

unsigned terminal_width() {
    winsize size{};
    return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

// A thread of its own waits for the signals, so that clean_up may take locks and call any function.
void on_interruption(void (*clean_up)()) {
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction present {};
        if (::sigaction(number, nullptr, &present) == 0 && present.sa_handler != SIG_IGN) { // as under nohup
            sigaddset(&signals, number);
        }
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals, clean_up] {
        int number = 0;
        while (sigwait(&signals, &number) != 0) {
        }
        clean_up();
        std::signal(number, SIG_DFL);
        pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
        ::raise(number);
    }).detach();
}

} // namespace host::system
