// Everything that the program needs from the system beyond the standard library: files, the terminal, signals. Each system has
// a back end of its own.
#ifndef KO_HOST_SYSTEM_H
#define KO_HOST_SYSTEM_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace host::system {

// What went wrong with the latest call on this thread, such as "Permission denied".
std::string failure();

// What a file has besides its bytes; times in nanoseconds of the system's clock.
struct Traits {
    unsigned permissions = 0;
    int64_t accessed = 0;
    int64_t modified = 0;
};

// A file by the system's number. All calls throw nothing and report a failure by their result; what failed is in failure().
class File {
  public:
    File() = default;
    File(File &&other) noexcept;
    File &operator=(File &&other) noexcept;
    ~File() { close(); }

    static File standard_input();
    static File standard_output();
    bool open(const std::filesystem::path &path) noexcept;

    // Makes a file that does not exist yet.
    enum class Made { yes, exists, no };
    Made make(const std::filesystem::path &path) noexcept;

    bool is_open() const { return number_ >= 0; }

    // True for a file whose bytes can be read in any order.
    bool has_places() const noexcept;

    // Read as many bytes as fit into room, fewer only at the end, at an offset or where the last reading stopped; -1 on
    // failure.
    int64_t read_at(uint64_t offset, std::span<uint8_t> room) noexcept;
    int64_t read(std::span<uint8_t> room) noexcept;

    std::optional<uint64_t> size() const noexcept;

    // Write all bytes, after those before or at an offset.
    bool write(std::span<const uint8_t> bytes) noexcept;
    bool write_at(uint64_t offset, std::span<const uint8_t> bytes) noexcept;

    // Flushes the bytes to the disk, if the file system can.
    bool sync() noexcept;

    // True if the file system has room for one more byte at the end.
    bool has_room() noexcept;

    std::optional<Traits> traits() const noexcept;
    bool take(const Traits &traits) noexcept;

    bool close() noexcept;

  private:
    int number_ = -1;
    bool owned_ = true;
};

// Where the program's own file lies; empty if the system does not say.
std::filesystem::path program_folder();

// A path as the library takes it, in the encoding of the C runtime.
std::string library_path(const std::filesystem::path &path);

bool can_write_into(const std::filesystem::path &folder) noexcept;
bool rename(const std::filesystem::path &from, const std::filesystem::path &to) noexcept;

// Captures what is written to the standard error stream while it exists, on any thread. If the system provides no temporary
// file, the stream stays as it is.
class ErrorStreamCapture {
  public:
    ErrorStreamCapture() noexcept;
    ~ErrorStreamCapture() { end(); }
    ErrorStreamCapture(const ErrorStreamCapture &) = delete;
    ErrorStreamCapture &operator=(const ErrorStreamCapture &) = delete;

    // What was written, up to a megabyte; the stream is then as it was.
    std::string take();

  private:
    void end() noexcept;

    std::FILE *kept_ = nullptr;
    int stream_ = -1; // as it was
};

// The words of the command line behind the program's name, in UTF-8 where the system says in which encoding they are.
std::vector<std::string> arguments(int argc, char **argv);

// A number that no other running process has.
unsigned process();

unsigned processors();

// Keeps blocks that were freed for the next picture, up to some tens of megabytes: giving them back to the system, which clears
// each page anew, costs more than the search for red eyes.
void keep_freed_memory();

// True if the standard output is a terminal that can redraw a line.
bool has_terminal();
unsigned terminal_width();

// Lets clean_up run when the program is interrupted or asked to end, before it ends by that signal. Made before all threads,
// once. Writing to a closed pipe fails from here on and ends nothing.
void on_interruption(void (*clean_up)());

} // namespace host::system

#endif
