#include "repaired.h"

#include <memory>

namespace ko_test {

namespace {

// A picture through the pipeline.
class Run {
  public:
    Run(const Pixels &given, const std::string &model, std::FILE *log = nullptr)
        : image_(image_of(given)), correction_(KoRedEyeCorrectionNew()) {
        KoStatusClear();
        KoRedEyeCorrectionEnableHistogramChannel(correction_.get(), 1, 1, 1);
        KoRedEyeCorrectionSetCategorizerConfig(correction_.get(), model.c_str(), nullptr, nullptr);
        correction_->log_stream = log;
        EXPECT_EQ(KoRedEyeCorrectionProcessImage(correction_.get(), &found_, image_.get()), KO_OK);
        EXPECT_NE(correction_->orientation_histogram, nullptr);
    }
    ~Run() { KoRedEyeImageParamFree(&found_); }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;

    uint32_t patches() const { return static_cast<uint32_t>(correction_->orientation_histogram->patch_count); }

    const FreshLibrary library_{};
    ColorImagePtr image_;
    RedEyeCorrectionPtr correction_;
    RedEyeImageParam found_;
};

Pixels with_colours(const Pixels &given, const ColorImage &image) {
    std::vector<uint8_t> bytes(size_t{given.width} * given.height * 3);
    KoColorImageToByteArray(&image, bytes.data(), 0, given.height, KO_BYTE_LAYOUT_INTERLEAVED);
    Pixels result = given;
    for (size_t i = 0; i < bytes.size(); ++i) {
        result.bytes[i / 3 * given.channels + i % 3] = bytes[i];
    }
    return result;
}

} // namespace

Pixels repaired(const Pixels &given, const std::string &model, const Repair &repair) {
    Run run(given, model);
    const ColorImagePtr fresh = image_of(given);
    ColorImage *image = repair.full && !repair.on_top ? fresh.get() : run.image_.get();
    if (repair.full) {
        KoRedEyeCorrectionApply(run.correction_.get(), &run.found_, 1, image);
    }
    if (repair.thickness > 0) {
        const int32_t colours[] = {0xFFFF00, 0x00FF00, 0xFF0000};
        KoRedEyeCorrectionAddPatchBoundingBoxes(run.correction_.get(), &run.found_, image, repair.thickness, colours, 3);
    }
    return with_colours(given, *image);
}

nlohmann::json places_found(const Pixels &given, const std::string &model) {
    using Json = nlohmann::json;
    using FloatJson = nlohmann::basic_json<std::map, std::vector, std::string, bool, int64_t, uint64_t, float>;
    const std::string names[] = {"undecided", "accepted", "rejected"};
    const Run run(given, model);
    const float scale = run.found_.scale > 0.0f ? run.found_.scale : 1.0f;
    const auto in_picture = [=](uint32_t place) { return static_cast<uint32_t>(static_cast<float>(place) * scale); };
    Json places = Json::array();
    for (int32_t i = 1; i <= run.found_.blob_count; ++i) {
        const BlobInfo &blob = run.found_.final_blobs[i];
        const Json box = {in_picture(blob.min_x), in_picture(blob.min_y), in_picture(blob.max_x + 1),
                          in_picture(blob.max_y + 1)};
        places.push_back({{"box", box}, {"label", nullptr}});
    }
    for (uint32_t i = 0; i < run.patches(); ++i) {
        const RedEyePatch &patch = run.found_.patches[i];
        Json &place = places[patch.blob - 1];
        place["window"] = {patch.x0, patch.y0, patch.x1, patch.y1};
        place["label"] = names[patch.label];
        place["fe_score"] = Json::parse(FloatJson(patch.fe_score).dump());
        place["be_score"] = place["fe_score"];
        EXPECT_EQ(patch.fe_score, patch.be_score) << "the two classifiers are the same";
    }
    return places;
}

std::string logged(const Pixels &given, const std::string &model) {
    const TemporaryFile file("log");
    std::FILE *stream = std::fopen(file.c_str(), "wb");
    { const Run run(given, model, stream); }
    std::fclose(stream);
    return read_bytes(file.path());
}

void dump(const Pixels &given, const std::string &model, const std::string &folder) {
    const Run run(given, model);
    EXPECT_EQ(KoOrientationHistogramDumpPatches(run.correction_->orientation_histogram, run.found_.patches, run.patches(),
                                                folder.c_str(), "expected", "x"),
              0);
}

} // namespace ko_test
