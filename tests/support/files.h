// Small files for tests.
#ifndef KO_TESTS_FILES_H
#define KO_TESTS_FILES_H

#include <string>
#include <vector>

namespace ko_test {

// A path in the system's folder for temporary files that is unique to this process and call and ends in name.
std::string temporary_path(const std::string &name);

// The file's bytes, "" if it cannot be read.
std::string read_bytes(const std::string &path);

// The file's text with line ends as "\n", whatever the platform.
std::string read_text(const std::string &path);

// Writes bytes as they are.
void write_bytes(const std::string &path, const std::string &bytes);

bool exists(const std::string &path);

// The names of what lies in a folder, sorted.
std::vector<std::string> names_in(const std::string &folder);

// A temporary path that is removed at the end of its life.
class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string &name) : path_(temporary_path(name)) {}
    TemporaryFile(const std::string &name, const std::string &bytes) : TemporaryFile(name) { write_bytes(path_, bytes); }
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;

    const char *c_str() const { return path_.c_str(); }
    const std::string &path() const { return path_; }

  private:
    std::string path_;
};

} // namespace ko_test

#endif
