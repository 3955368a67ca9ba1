// The whole enhancement, from bytes to bytes: beside the shadows of a photo editor's graph, beside a smooth background and a
// gain made from what OpenCV offers, and a large picture beside a small one.
#include <memory>

#include <malloc.h>

#include <opencv2/imgproc.hpp>
#include <opencv2/ximgproc/edge_filter.hpp>

#include "enhancement_job.h"
#include "gegl_graph.h"
#include "mats.h"
#include "rows.h"

namespace ko_peers {

namespace {

using namespace ko_bench;

constexpr Size size = size_24_megapixels;
constexpr double shadows = 50.0;            // percent
const double radius = size.height / 50.0;   // of the background, as the enhancement has it
constexpr double tolerance_of_edges = 25.0; // of 255, above which the guided filter keeps an edge
constexpr double strength = 40.0;           // the gain is strength / background + 1 - strength / limit, from 1 to 3
constexpr double limit = 160.0;
constexpr double max_gain = 3.0;

struct Pictures {
    std::vector<uint8_t> input = photograph(size, 3);
    std::vector<uint8_t> output = std::vector<uint8_t>(input.size());
    cv::Mat peer_output = cv::Mat::zeros(static_cast<int>(size.height), static_cast<int>(size.width), CV_8UC3);

    // Both results are to be lighter than the input.
    void check() const {
        const double before = cv::mean(view_of(size, input))[1];
        const double ours = cv::mean(view_of(size, output))[1];
        const double theirs = cv::mean(peer_output)[1];
        require(ours > before + 1.0 && theirs > before + 1.0, "no shadows are opened");
    }
};

Race enhancement_beside(std::shared_ptr<Pictures> pictures, const Contender &peer) {
    return {
        {"ko", [=] { require_done(enhance(size, pictures->input, pictures->output)); }}, {peer}, [=] { pictures->check(); }};
}

Race beside_graph() {
    const auto pictures = std::make_shared<Pictures>();
    const auto input = std::make_shared<GeglPicture>(view_of(size, pictures->input), "R'G'B' u8");
    return enhancement_beside(
        pictures, {"GEGL shadows-highlights", [=] {
                       input->run("gegl:shadows-highlights", {{"shadows", shadows}, {"radius", radius}}, pictures->peer_output);
                   }});
}

// What the guided filter leaves of the luminance drives the gain, as the bilateral filter's result does in ko.
void open_shadows(const cv::Mat &input, cv::Mat &output) {
    cv::Mat gain;
    {
        cv::Mat luminance;
        cv::cvtColor(input, luminance, cv::COLOR_RGB2GRAY);
        luminance.convertTo(luminance, CV_32F);
        cv::ximgproc::guidedFilter(luminance, luminance, gain, static_cast<int>(radius),
                                   tolerance_of_edges * tolerance_of_edges);
    }
    cv::max(gain, 1.0, gain);
    cv::divide(strength, gain, gain);
    cv::add(gain, 1.0 - strength / limit, gain);
    cv::max(gain, 1.0, gain);
    cv::min(gain, max_gain, gain);
    cv::Mat gains;
    cv::merge(std::vector<cv::Mat>{gain, gain, gain}, gains);
    cv::multiply(input, gains, output, 1.0, CV_8U);
}

Race beside_guided_filter() {
    const auto pictures = std::make_shared<Pictures>();
    return enhancement_beside(
        pictures, {"OpenCV guided filter, gain", [=] { open_shadows(view_of(size, pictures->input), pictures->peer_output); }});
}

// An enhancement whose memory, also that of its result, is new to the process each time; timed by the megapixel.
Contender fresh_enhancement(const char *name, Size picture_size) {
    const auto input = std::make_shared<std::vector<uint8_t>>(photograph(picture_size, 3));
    return {name,
            [=] {
                std::vector<uint8_t> output(input->size());
                require_done(enhance(picture_size, *input, output));
            },
            [] {}, static_cast<double>(picture_size.pixels()) / 1e6};
}

// The C library would keep the small picture's memory for the next round, and take that of the large one from the system
// each time.
Race growth() {
    constexpr int least_mapping = 128 << 10;
    require(mallopt(M_MMAP_THRESHOLD, least_mapping) == 1, "no choice of memory");
    return {
        fresh_enhancement("24 MP", size_24_megapixels), {fresh_enhancement("itself at 1 MP, per MP", size_1_megapixel)}, [] {}};
}

} // namespace

std::vector<Row> enhancement_rows() {
    return {{"whole enhancement 24 MP", {0.55, {}}, 3, beside_graph},
            {"whole enhancement 24 MP, guided", {2.7, {}}, 5, beside_guided_filter},
            {"whole enhancement, growth to 24 MP", {1.1, {}}, 5, growth}};
}

} // namespace ko_peers
