#include "capture.h"

#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <sstream>

#include "files.h"
#include "ko/error.h"

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace ko_test {

PrintCapture::PrintCapture(const char *word) {
    KoErrorSetVerboseLevel(word);
    KoErrorSetVerboseFunction(&PrintCapture::record, this);
}

PrintCapture::~PrintCapture() {
    KoErrorSetVerboseFunction(nullptr, nullptr);
    KoErrorSetVerboseLevel("internalerror");
}

void PrintCapture::record(void *user_data, const char *text) { static_cast<PrintCapture *>(user_data)->texts_.push_back(text); }

StderrCapture::StderrCapture() : path_(temporary_path("stderr.txt")) {
    std::fflush(stderr);
    saved_ = dup(2);
    const int file = open(path_.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
    dup2(file, 2);
    close(file);
}

StderrCapture::~StderrCapture() {
    restore();
    std::remove(path_.c_str());
}

std::string StderrCapture::stop() {
    restore();
    return read_text(path_);
}

void StderrCapture::restore() {
    if (saved_ < 0) {
        return;
    }
    std::fflush(stderr);
    dup2(saved_, 2);
    close(saved_);
    saved_ = -1;
}

} // namespace ko_test
