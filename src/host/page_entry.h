// What the page of a run shows about one picture. If a page is requested, a picture's entry collects it while the picture is
// processed.
#ifndef KO_HOST_PAGE_ENTRY_H
#define KO_HOST_PAGE_ENTRY_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "codec/codec.h"
#include "kohost/pixels.h"
#include "kohost/redeye.h"
#include "kohost/scores.h"
#include "kohost/tuning.h"
#include "kohost/working_copy.h"
#include "orientation.h"

namespace host {

// The outcome of a picture, such as "enhanced". A picture may have several: one for each thing that was tried.
struct PageOutcome {
    enum class Kind { changed, left, failed };
    std::string text;
    Kind kind = Kind::left;
};

// The scores of the judged blocks, row by row.
struct PageMeasure {
    kohost::Measure measure = kohost::Measure::detail;
    std::vector<float> scores;
    float threshold = 0.0f; // of a block
    std::string count;      // the number of blocks past it and the limit of that number, in words
};

// A copy of the curves: those of the tiles row by row, each of size entries.
struct PageCurves {
    kohost::Grid grid;
    uint64_t size = 0;
    std::vector<uint32_t> entries;
};

struct PageEntry {
    std::string name;
    uint64_t preview_area = 0; // most pixels of a preview
    kohost::Size size;
    std::string output;
    std::string reason; // why it was left alone or failed, or ""
    std::vector<PageOutcome> outcomes;
    std::vector<std::string> notices;
    double seconds = 0.0;
    std::vector<std::pair<std::string, double>> timings; // of the stages that took any

    bool changed = false; // the target has other pixels than the input
    std::optional<kohost::Image> before;
    std::optional<kohost::Image> after; // of a changed picture
    codec::Bytes icc_profile;           // of both
    Orientation orientation;            // all else is as stored

    std::optional<PageCurves> curves;
    std::vector<PageMeasure> measures;
    std::string verdict; // the result of the judgement beyond its counts, or ""
    std::optional<kohost::RedEyes> red_eyes;
};

// Adds an outcome unless the picture has it.
void add_outcome(PageEntry &page, PageOutcome outcome);

// The measures of a picture, with the limits of the policy by which it is judged.
void keep_scores(PageEntry &page, const kohost::Scores &scores, kohost::Policy policy);

void keep_curves(PageEntry &page, const TileTRC &curves);

// What else a preview needs from the file.
void keep_description(PageEntry &page, const codec::Description &picture);

// The picture before anything is done to it. The first call counts.
void keep_before(PageEntry &page, const kohost::Pixels &picture);

// Reduces the rows of a picture to its previews as they pass. Without a page it does nothing.
class Previews {
  public:
    Previews(PageEntry *page, const codec::Description &picture);

    void before(uint32_t rows, const uint8_t *pixels);
    void after(uint32_t rows, const uint8_t *pixels);

    // Called after the last row.
    void keep();

  private:
    PageEntry *page_;
    std::unique_ptr<kohost::AreaAverage> before_;
    std::unique_ptr<kohost::AreaAverage> after_;
};

} // namespace host

#endif
