#include "harness.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>

#include "files.h"

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

// The linker gives the calls of fopen and fclose to these (--wrap).
extern "C" {
std::FILE *__real_fopen(const char *path, const char *mode);
int __real_fclose(std::FILE *stream);
std::FILE *__wrap_fopen(const char *path, const char *mode);
int __wrap_fclose(std::FILE *stream);
}

namespace ko_fuzz {

namespace {

// A fuzzer may close the standard error stream for the loaders' lines: this one stays.
const int kept_stderr = dup(2);

std::set<std::FILE *> streams;

class Folder {
  public:
    Folder() : path_(ko_test::temporary_path("fuzz")) { std::filesystem::create_directory(path_); }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;
    const std::string &path() const { return path_; }

  private:
    std::string path_;
};

} // namespace

void start() {
    static const bool started = [] {
        KoInit(nullptr, nullptr);
        std::atexit([] { KoRelease(); });
        return true;
    }();
    expect(started, "the library is started");
    KoStatusClear();
}

std::string private_path(const std::string &name) {
    static const Folder folder;
    return folder.path() + "/" + name;
}

std::string private_file(const std::string &name, const std::string &bytes) {
    const std::string path = private_path(name);
    std::FILE *stream = __real_fopen(path.c_str(), "wb");
    expect(stream != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), stream) == bytes.size(), "the input can be written");
    expect(__real_fclose(stream) == 0, "the input can be written");
    return path;
}

void expect(bool holds, const char *what) {
    if (holds) {
        return;
    }
    const std::string line = std::string("NOT SO: ").append(what).append("\n");
    [[maybe_unused]] const auto written = write(kept_stderr, line.data(), static_cast<unsigned>(line.size()));
    std::abort();
}

size_t open_streams() { return streams.size(); }

void close_open_streams() {
    for (std::FILE *stream : streams) {
        __real_fclose(stream);
    }
    streams.clear();
}

void expect_load_status(int32_t status, int32_t further_status) {
    expect(status == KO_OK || status == KO_ERR_ALLOC || status == further_status, "a load gives one of its statuses");
    const bool told_by_a_constructor = status == KO_ERR_ALLOC && KoErrorGetLastError() == KO_ERR_CREATE_OBJECT;
    expect(KoErrorGetLastError() == status || told_by_a_constructor, "a load leaves its status on the thread");
}

void walk(const uint32_t *array, uint64_t count) {
    uint32_t sum = 0;
    const uint64_t step = std::max<uint64_t>(1, count / 10000);
    for (uint64_t i = 0; i < count; i += step) {
        sum += array[i];
    }
    if (count > 0) {
        sum += array[count - 1];
    }
    volatile uint32_t seen = sum;
    static_cast<void>(seen);
}

} // namespace ko_fuzz

std::FILE *__wrap_fopen(const char *path, const char *mode) {
    std::FILE *stream = __real_fopen(path, mode);
    if (stream != nullptr) {
        ko_fuzz::streams.insert(stream);
    }
    return stream;
}

int __wrap_fclose(std::FILE *stream) {
    ko_fuzz::streams.erase(stream);
    return __real_fclose(stream);
}
