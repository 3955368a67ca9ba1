// Every picture has a record of its own: one that has found too many blobs processes no further picture.
#include "kohost/plain_redeye.h"

#include <filesystem>
#include <system_error>

#include "kohost/curves.h"
#include "kohost/frames.h"
#include "kohost/redeye_search.h"

namespace kohost {

namespace {

// The box of a blob in pixels of the picture.
Box in_picture(const BlobInfo &blob, float scale) {
    const auto scaled = [scale](uint32_t place) { return static_cast<uint32_t>(static_cast<float>(place) * scale); };
    return {scaled(blob.min_x), scaled(blob.min_y), scaled(blob.max_x + 1), scaled(blob.max_y + 1)};
}

std::vector<Place> places_of(const RedEyeCorrection &correction, const RedEyeImageParam &found) {
    std::vector<Place> places;
    for (int32_t i = 1; i <= found.blob_count; ++i) {
        Place place;
        place.box = in_picture(found.final_blobs[i], found.scale > 0.0f ? found.scale : 1.0f);
        place.judged = false;
        places.push_back(place);
    }
    for (uint32_t i = 0; i < patch_count(correction); ++i) {
        const RedEyePatch &patch = found.patches[i];
        Place &place = places[patch.blob - 1];
        place.judged = true;
        place.window = {patch.x0, patch.y0, patch.x1, patch.y1};
        place.fe_score = patch.fe_score;
        place.be_score = patch.be_score;
        place.label = patch.label;
    }
    return places;
}

// The binary file is written last: if it is complete, the disk had room for all of them.
bool dump_is_whole(const OrientationHistogram &histogram, const std::string &stem) {
    constexpr uint64_t header_words = 3;
    constexpr uint64_t place_words = 3;
    const uint64_t features = 3 * static_cast<uint64_t>(histogram.layout->feature_length);
    const uint64_t words = header_words + static_cast<uint64_t>(histogram.patch_count) * (features + place_words);
    std::error_code missing;
    return std::filesystem::file_size(stem + "_feats.par", missing) == words * sizeof(uint32_t) && !missing;
}

// The name is the file's own with its extension, followed by the same suffix for every picture: the next run over a picture
// replaces its files, whatever other pictures are processed with it, and no other picture's files do.
void dump_patches(const RedEyeCorrection &correction, const RedEyeImageParam &found, const std::string &folder,
                  const std::string &name) {
    const std::string start = folder + "/";
    const std::string suffix = "patches";
    if (KoOrientationHistogramDumpPatches(correction.orientation_histogram, found.patches, patch_count(correction),
                                          start.c_str(), name.c_str(), suffix.c_str()) != 0 ||
        !dump_is_whole(*correction.orientation_histogram, start + name + "_" + suffix)) {
        throw PatchFilesError("the patch files cannot be written to " + folder);
    }
}

} // namespace

RedEyes repair_plainly(const Pixels &picture, uint8_t *result, const std::string &model, const RedEyeChoices &choices,
                       const std::string &input, std::FILE *log) {
    RedEyes eyes;
    if (picture.channels == 1) {
        eyes.decision = RedEyeDecision::gray;
        return eyes;
    }
    KoStatusClear();
    const ko::RedEyeCorrectionPtr correction = make_correction(model, log);
    const ko::ColorImagePtr image = image_of(picture);
    const ko::RedEyeImageParamPtr found = locate(*correction, *image, search_fails);
    if (correction->too_many_blobs == 0) {
        ko::check(KoRedEyeCorrectionCategorizeBlobs(correction.get(), found.get()) == KO_OK, search_fails);
    }
    eyes.places = places_of(*correction, *found);
    eyes.found = eyes.places.size();
    eyes.limit = static_cast<uint64_t>(correction->blob_limits[2]);
    decide(eyes, correction->too_many_blobs != 0, eyes.judged() - (choices.full ? 0 : eyes.count(KO_PATCH_REJECTED)), choices);
    if (!choices.dump.empty() && eyes.judged() > 0) {
        dump_patches(*correction, *found, choices.dump, std::filesystem::path(input).filename().string());
    }
    if (eyes.judged() > 0) {
        ko::check(KoRedEyeCorrectionApply(correction.get(), found.get(), choices.full ? 1 : 0, image.get()) == KO_OK,
                  "the red eyes cannot be repaired");
    }
    if (eyes.changed) {
        ko::check(KoColorImageToByteArray(image.get(), result, 0, picture.size.height, KO_BYTE_LAYOUT_INTERLEAVED) == KO_OK,
                  "the repaired picture cannot be read back");
    }
    if (choices.frames) {
        draw_frames(result, picture.size, eyes.places);
    }
    return eyes;
}

} // namespace kohost
