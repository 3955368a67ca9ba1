// What the program says: one line per picture on the standard output, notices and errors on the standard error stream, and a
// bar over pictures and stages when the output is a terminal.
#ifndef KO_HOST_REPORT_H
#define KO_HOST_REPORT_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace host {

enum class Stage { reading, curves, applying, writing };

class Report {
  public:
    Report(bool quiet, size_t pictures);
    ~Report() { clear_bar(); }
    Report(const Report &) = delete;
    Report &operator=(const Report &) = delete;

    // A picture begins; its clock starts.
    void begin(const std::string &name);

    // The picture has come so far: into a stage, and through a share of it.
    void at(Stage stage, double share = 0.0);

    // The ends of a picture.
    void done(uint32_t width, uint32_t height, const char *decision);
    void failed(const std::string &why);

    // About the picture at work.
    void notice(const std::string &text);

    // An error that concerns no single picture.
    void error(const std::string &text);

    // Something the library prints of its own accord.
    void message(const char *text);

    bool any_failed() const { return any_failed_; }

  private:
    void end_picture();
    void draw_bar();
    void clear_bar();

    bool quiet_;
    bool bar_;
    size_t pictures_;
    size_t finished_ = 0;
    std::string name_;
    Stage stage_ = Stage::reading;
    double progress_ = 0.0; // of the picture at work, 0 to 1
    std::string drawn_;
    std::chrono::steady_clock::time_point start_;
    bool any_failed_ = false;
};

} // namespace host

#endif
