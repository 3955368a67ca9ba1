// The application of a grid of curves to bytes, beside adaptive histogram equalisation on a grid of the same size: both blend
// the four nearest of 8 by 8 curves at each pixel. The peer also counts the histograms that its curves come from.
#include <array>
#include <memory>

#include <opencv2/imgproc.hpp>

#include "mats.h"
#include "rows.h"
#include "tile_jobs.h"

namespace ko_peers {

namespace {

using namespace ko_bench;

constexpr Size size = size_24_megapixels;
constexpr double clip_limit = 2.0;
const cv::Size tiles(8, 8);

// The bytes of a picture and of both results.
struct Pictures {
    explicit Pictures(uint64_t channels) : input(photograph(size, channels)), output(input.size()), peer_output(input.size()) {}

    std::vector<uint8_t> input;
    std::vector<uint8_t> output;
    std::vector<uint8_t> peer_output;
};

std::function<void()> check_of(std::shared_ptr<Pictures> pictures) {
    return [pictures] {
        const cv::Mat input = view_of(size, pictures->input);
        require_changed(input, view_of(size, pictures->output));
        require_changed(input, view_of(size, pictures->peer_output));
    };
}

Contender ko_application(std::shared_ptr<Pictures> pictures, int32_t color_space) {
    const std::shared_ptr<TileTRC> curves = make_tile_curves();
    return {"ko", [=] {
                require_done(apply_tile_curves(curves.get(), color_space, size.height, pictures->input, pictures->output));
            }};
}

Race color_application() {
    const auto pictures = std::make_shared<Pictures>(3);
    const auto equalize = [=, clahe = cv::createCLAHE(clip_limit, tiles), ycrcb = cv::Mat(), planes = std::vector<cv::Mat>(),
                           equalized = cv::Mat()]() mutable {
        cv::Mat output = view_of(size, pictures->peer_output);
        cv::cvtColor(view_of(size, pictures->input), ycrcb, cv::COLOR_RGB2YCrCb);
        cv::split(ycrcb, planes);
        clahe->apply(planes[0], equalized);
        cv::merge(std::array{equalized, planes[1], planes[2]}, ycrcb);
        cv::cvtColor(ycrcb, output, cv::COLOR_YCrCb2RGB);
    };
    return {ko_application(pictures, KO_COLORSPACE_RGB), {{"OpenCV CLAHE, YCrCb", equalize}}, check_of(pictures)};
}

Race gray_application() {
    const auto pictures = std::make_shared<Pictures>(1);
    const auto equalize = [=, clahe = cv::createCLAHE(clip_limit, tiles)] {
        cv::Mat output = view_of(size, pictures->peer_output);
        clahe->apply(view_of(size, pictures->input), output);
    };
    return {ko_application(pictures, KO_COLORSPACE_GRAY), {{"OpenCV CLAHE", equalize}}, check_of(pictures)};
}

Race channel_application() {
    const auto pictures = std::make_shared<Pictures>(3);
    const std::shared_ptr<TileColorTRC> curves = make_tile_color_curves();
    const auto apply = [=] {
        require_done(apply_tile_color_curves(curves.get(), size.height, pictures->input, pictures->output));
    };
    const auto equalize = [=, clahe = cv::createCLAHE(clip_limit, tiles), planes = std::vector<cv::Mat>(),
                           equalized = std::array<cv::Mat, 3>()]() mutable {
        cv::Mat output = view_of(size, pictures->peer_output);
        cv::split(view_of(size, pictures->input), planes);
        for (std::size_t i = 0; i < planes.size(); ++i) {
            clahe->apply(planes[i], equalized[i]);
        }
        cv::merge(equalized, output);
    };
    return {{"ko", apply}, {{"OpenCV CLAHE, thrice", equalize}}, check_of(pictures)};
}

} // namespace

std::vector<Row> tile_rows() {
    return {{"tile application colour 24 MP", {0.45, 0.6}, 7, color_application},
            {"tile application gray 24 MP", {0.45, 0.55}, 7, gray_application},
            {"tile application by channel 24 MP", {0.3, 0.35}, 7, channel_application}};
}

} // namespace ko_peers
