// What the program says: one line per picture on the standard output, as text or as a JSON object, notices and errors on the
// standard error stream, and a bar over pictures and stages when the output is a terminal.
#ifndef KO_HOST_REPORT_H
#define KO_HOST_REPORT_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "json.h"

namespace host {

enum class Stage { reading, red_eyes, judging, curves, applying, writing };

enum class Style { lines, json, quiet };

// How a picture ended.
struct Result {
    uint32_t width = 0;
    uint32_t height = 0;
    std::string output;            // path of what was written
    std::string decision;          // such as "enhanced"
    std::string reason;            // why the decision is no, otherwise ""
    std::string said = "";         // what a line says in place of the two, or ""
    Json members = Json::object(); // further members of an object
};

class Report {
  public:
    Report(Style style, size_t pictures);
    ~Report() { clear_bar(); }
    Report(const Report &) = delete;
    Report &operator=(const Report &) = delete;

    // A picture begins; its clock starts.
    void begin(const std::string &name);

    // The picture has come so far: into a stage, and through a share of it.
    void at(Stage stage, double share = 0.0);

    // The ends of a picture. The last is for a command whose answer is the picture's only trace: print writes to the stream
    // that it is handed, whatever the style.
    void done(const Result &result);
    void failed(const std::string &why);
    template <class Print> void answered(const Print &print) {
        clear_bar();
        print(stdout);
        std::fflush(stdout);
        end_picture();
    }

    // About the picture at work.
    void notice(const std::string &text);

    // A notice that concerns no single picture.
    void remark(const std::string &text);

    // Where the library may write of its progress with the picture at work, which is named there. The bar is away until the
    // next stage.
    std::FILE *log();

    // An error that concerns no single picture.
    void error(const std::string &text);

    // Something the library prints of its own accord.
    void message(const char *text);

    // True if all went well, and the standard output took what was written to it.
    bool good();

  private:
    void print_line(const Result &result) const;
    void print_object(const Result &result) const;
    double seconds() const;
    void end_picture();
    void draw_bar();
    void clear_bar();

    Style style_;
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
