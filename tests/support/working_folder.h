// A fresh working directory for the length of a test.
#ifndef KO_TESTS_WORKING_FOLDER_H
#define KO_TESTS_WORKING_FOLDER_H

#include <filesystem>

#include "files.h"

namespace ko_test {

class WorkingFolder {
  public:
    WorkingFolder() : before_(std::filesystem::current_path()), folder_("folder") {
        std::filesystem::create_directory(folder_.path());
        std::filesystem::current_path(folder_.path());
    }
    ~WorkingFolder() { std::filesystem::current_path(before_); }
    WorkingFolder(const WorkingFolder &) = delete;
    WorkingFolder &operator=(const WorkingFolder &) = delete;

  private:
    std::filesystem::path before_;
    TemporaryFile folder_;
};

} // namespace ko_test

#endif
