// Captures what the library prints: through its print function, and on the standard error stream.
#ifndef KO_TESTS_CAPTURE_H
#define KO_TESTS_CAPTURE_H

#include <string>
#include <vector>

namespace ko_test {

// Records printed messages while it lives; restores the default print function and verbosity "internalerror" at its end.
class PrintCapture {
  public:
    // word: the verbosity while the capture lives, as KoErrorSetVerboseLevel takes it
    explicit PrintCapture(const char *word = "internalerror");
    ~PrintCapture();
    PrintCapture(const PrintCapture &) = delete;
    PrintCapture &operator=(const PrintCapture &) = delete;

    const std::vector<std::string> &texts() const { return texts_; }

  private:
    static void record(void *user_data, const char *text);
    std::vector<std::string> texts_;
};

// Diverts the standard error stream into a file while it lives.
class StderrCapture {
  public:
    StderrCapture();
    ~StderrCapture();
    StderrCapture(const StderrCapture &) = delete;
    StderrCapture &operator=(const StderrCapture &) = delete;

    // Ends the capture and gives what was written, with line ends as "\n".
    std::string stop();

  private:
    void restore();
    int saved_ = -1;
    std::string path_;
};

} // namespace ko_test

#endif
