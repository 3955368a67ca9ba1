// What the tests of the program share: a folder of its own for each test, pictures, and what the library makes of them.
#ifndef KO_TESTS_HOST_HOST_H
#define KO_TESTS_HOST_HOST_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "files.h"
#include "image_files.h"
#include "pictures.h"
#include "run_program.h"

namespace ko_test {

using Words = std::vector<std::string>;

// True if an extended regular expression is found in a text.
bool matches(const std::string &text, const std::string &pattern);

// The end of a picture's line.
inline const std::string time_shown = "[0-9]+\\.[0-9][0-9] s";

class Host : public testing::Test {
  protected:
    Host();

    std::string path(const std::string &name) const { return folder_.path() + "/" + name; }

    std::string put(const std::string &name, const std::string &bytes) const;

    // Names of all files and folders below the test's folder.
    std::set<std::string> left() const;

  private:
    TemporaryFile folder_;
};

// Runs a command with options, an output and inputs. No output is no option for one.
Outcome run_command(const std::string &command, const Words &inputs, const std::string &output, const Words &options = {},
                    const Surroundings &surroundings = {});

// The lines that stay on a screen, where each line but the last is ended by a line feed.
Words shown_on_screen(const std::string &sent);

void expect_success(const Outcome &outcome);

// One clear line that names the file, and exit status 1.
void expect_one_error(const Outcome &outcome, const std::string &line);

// The same with exit status 2: nothing was done.
inline const std::string no_extension = ": its extension is not one of .jpg, .jpeg, .jpe, .png, .tif, .tiff, .webp";
void expect_wrong_usage(const Outcome &outcome, const std::string &line);

// A picture with shadows to open.
uint32_t dark(uint32_t x, uint32_t y, uint32_t c);
std::string dark_png(int colour = png_rgb, std::vector<Chunk> chunks = {});
std::string dark_jpeg(JpegRecipe recipe = {});

struct Tuning {
    uint64_t columns = 8;
    uint64_t rows = 8;
    uint64_t curve_size = 256;
    float max_gain = 3.0f;
    float strength = 40.0f;
    float limit = 0.6275f;
    uint64_t levels = 5;
    float ratio = 0.5f;
    std::optional<uint32_t> max_slope = {}; // 0 leaves curves as they were fitted

    // Without a choice, the gain rounded up, and at least 3.
    uint32_t slope_limit() const;
};

// The library started afresh, as each run of the program has it: what it fits depends on the largest curve so far.
struct FreshLibrary {
    FreshLibrary() { KoInit(nullptr, nullptr); }
    ~FreshLibrary() { KoRelease(); }
};

// The pixels of a file as the library takes them, without alpha.
ColorImagePtr image_of(const Pixels &given);

// Their luminance.
RealImagePtr luminance_of(const Pixels &given);

// What the program makes of the pixels of a file that is no larger than its working copy: the curves, within the limit of their
// slope, and the pixels after them, in one chunk and into a buffer of its own; alpha stays. Curves are of the library that is
// started.
TileTRCPtr curves_of(const Pixels &given, const Tuning &tuning = {});
Pixels applied(const Pixels &given, const TileTRC *curves, float ratio);
Pixels expected(const Pixels &given, const Tuning &tuning = {});

} // namespace ko_test

#endif
