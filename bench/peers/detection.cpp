// The labelling of components, and the search for red eyes up to the blobs that may be some, beside cascades of Haar features
// that find faces or eyes.
#include <memory>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>

#include "mats.h"
#include "redeye_jobs.h"
#include "rows.h"

namespace ko_peers {

namespace {

using namespace ko_bench;

constexpr int painted_faces = 4;

// The peer lights the pixels into a mask first.
Race labelling() {
    const auto job = std::make_shared<Labelling>();
    const auto components = std::make_shared<uint32_t>(0);
    const auto peer_components = std::make_shared<int>(0);
    const cv::Mat input = view_of(job->map()).clone();
    const auto label = [=, mask = cv::Mat(), labels = cv::Mat(), statistics = cv::Mat(), centres = cv::Mat()]() mutable {
        cv::compare(input, Labelling::threshold, mask, cv::CMP_GT);
        *peer_components = cv::connectedComponentsWithStats(mask, labels, statistics, centres, 8, CV_32S);
    };
    return {{"ko", [=] { *components = job->run(); }},
            {{"OpenCV connectedComponents", label}},
            [=] { require(static_cast<int>(*components) + 1 == *peer_components, "other components"); },
            5};
}

// A photograph of a person, enlarged, with red pupils, 40 pixels wide, in four pairs. A cascade takes longer on a photograph
// than on a synthetic picture, most of which it rejects in its first stages.
std::vector<uint8_t> photograph_with_eyes(Size size) {
    const cv::Mat portrait = cv::imread(KO_SAMPLES "/astronaut.png");
    require(!portrait.empty(), "no portrait");
    std::vector<uint8_t> bytes(size.pixels() * 3);
    cv::Mat picture = view_of(size, bytes);
    cv::resize(portrait, picture, picture.size(), 0.0, 0.0, cv::INTER_CUBIC);
    cv::cvtColor(picture, picture, cv::COLOR_BGR2RGB);
    for (int face = 0; face < painted_faces; ++face) {
        for (int eye = 0; eye < 2; ++eye) {
            const cv::Point centre(static_cast<int>(size.width) / 4 + face * 300 + eye * 130,
                                   static_cast<int>(size.height) / 8);
            cv::circle(picture, centre, 20, {190, 40, 50}, cv::FILLED);
        }
    }
    return bytes;
}

// From the bytes of the picture to a gray one of 1 megapixel, and to what the cascade finds there.
Contender cascade(const std::string &name, std::shared_ptr<std::vector<uint8_t>> bytes, Size size) {
    const auto classifier = std::make_shared<cv::CascadeClassifier>(KO_CASCADE_FOLDER "/haarcascade_" + name + ".xml");
    require(!classifier->empty(), "no cascade " + name);
    const cv::Size working_size(static_cast<int>(size_1_megapixel.width), static_cast<int>(size_1_megapixel.height));
    return {"OpenCV cascade, " + name, [=, gray = cv::Mat(), working = cv::Mat()]() mutable {
                cv::cvtColor(view_of(size, *bytes), gray, cv::COLOR_RGB2GRAY);
                cv::resize(gray, working, working_size, 0.0, 0.0, cv::INTER_AREA);
                std::vector<cv::Rect> found;
                classifier->detectMultiScale(working, found);
            }};
}

Race search() {
    constexpr Size size = size_4_megapixels;
    const auto bytes = std::make_shared<std::vector<uint8_t>>(photograph_with_eyes(size));
    const std::shared_ptr<ColorImage> image = color_planes(size, *bytes);
    const auto blobs = std::make_shared<int32_t>(0);
    const auto find = [=] {
        const RedEyeImageParamPtr param = locate(image.get());
        require_done(param != nullptr);
        *blobs = param->blob_count;
    };
    return {{"ko", find}, {cascade("frontalface_default", bytes, size), cascade("eye", bytes, size)}, [=] {
                require(*blobs >= 2 * painted_faces, std::to_string(*blobs) + " eyes found");
            }};
}

} // namespace

std::vector<Row> detection_rows() {
    return {{"labelling with its summary 1 MP", {0.3, {}}, 11, labelling}, {"red-eye search 4 MP", {0.035, {}}, 5, search}};
}

} // namespace ko_peers
