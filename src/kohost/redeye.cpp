// Every picture has a record of its own: one that has found too many blobs processes no further picture.
#include "kohost/redeye.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>

#include "kohost/curves.h"

namespace kohost {

namespace {

RedEyeCorrectionPtr make_correction(const std::string &model, std::FILE *log) {
    RedEyeCorrectionPtr correction(KoRedEyeCorrectionNew());
    check(correction != nullptr, "the red-eye repair cannot be set up");
    KoRedEyeCorrectionEnableHistogramChannel(correction.get(), 1, 1, 1);
    check(KoRedEyeCorrectionSetCategorizerConfig(correction.get(), model.c_str(), nullptr, nullptr) == KO_OK,
          "the path of the model is too long");
    correction->log_stream = log;
    return correction;
}

// The library's stages but the repair, so that labels may be changed before it.
RedEyeImageParamPtr find(RedEyeCorrection &correction, ColorImage &image, const char *what) {
    RedEyeImageParamPtr found(KoRedEyeImageParamNew(&image));
    check(found != nullptr, "the red-eye repair cannot be set up");
    check(KoRedEyeCorrectionDownsample(&correction, found.get()) == KO_OK, what);
    check(KoRedEyeCorrectionReddishProbability(&correction, found.get(), 1) == KO_OK, what);
    check(KoRedEyeCorrectionRedLumProbability(&correction, found.get(), 1) == KO_OK, what);
    check(KoRedEyeCorrectionColProbability(&correction, found.get()) == KO_OK, what);
    check(KoRedEyeCorrectionCircularity(&correction, found.get()) == KO_OK, what);
    check(KoRedEyeCorrectionLocateBlobs(&correction, found.get()) == KO_OK, what);
    if (correction.too_many_blobs == 0) {
        check(KoRedEyeCorrectionCategorizeBlobs(&correction, found.get()) == KO_OK, what);
    }
    return found;
}

// ---- sensitivity

// What a sensitivity asks for: how far the bounds of the scores move, on the scale on which the classifiers add up, and the
// least contrast of a red eye.
struct Demand {
    float shift;
    float contrast;
};

Demand demand_of(Sensitivity sensitivity) {
    switch (sensitivity) {
    case Sensitivity::careful:
        return {1.0f, 0.3f};
    case Sensitivity::eager:
        return {-1.0f, 0.15f};
    default:
        return {0.0f, 0.2f};
    }
}

// The sum whose logistic function a score is; that of a score which was rounded to 0 or 1 exceeds all bounds.
float sum_of(float score) { return std::log(score) - std::log1p(-score); }

int32_t label_of(const RedEyePatch &patch, const RedEyeCorrection &correction, const Demand &demand, float contrast) {
    const auto above = [&](float score, float bound) { return sum_of(score) > sum_of(bound) + demand.shift; };
    const auto below = [&](float score, float bound) { return sum_of(score) < sum_of(bound) + demand.shift; };
    if (contrast < demand.contrast || below(patch.fe_score, correction.fe_reject) ||
        below(patch.be_score, correction.be_reject)) {
        return KO_PATCH_REJECTED;
    }
    const bool accepted = above(patch.fe_score, correction.fe_accept) && above(patch.be_score, correction.be_accept);
    return accepted ? KO_PATCH_ACCEPTED : KO_PATCH_UNDECIDED;
}

// ---- what was found

std::vector<Blob> blobs_of(const RedEyeImageParam &found) {
    std::vector<Blob> blobs;
    for (int32_t i = 1; i <= found.blob_count; ++i) {
        const BlobInfo &blob = found.final_blobs[i];
        blobs.push_back({{blob.min_x, blob.min_y, blob.max_x + 1, blob.max_y + 1}, blob.area, std::nullopt});
    }
    return blobs;
}

// Without this object no model was read, and nothing classified.
uint32_t patch_count(const RedEyeCorrection &correction) {
    const OrientationHistogram *histogram = correction.orientation_histogram;
    return histogram != nullptr ? static_cast<uint32_t>(histogram->patch_count) : 0;
}

void add_patches(const RedEyeCorrection &correction, const RedEyeImageParam &found, std::vector<Blob> &blobs) {
    for (uint32_t i = 0; i < patch_count(correction); ++i) {
        const RedEyePatch &patch = found.patches[i];
        blobs[patch.blob - 1].patch = {
            {patch.x0, patch.y0, patch.x1, patch.y1}, patch.fe_score, patch.be_score, patch.label, std::nullopt, {}};
    }
}

// The box of a blob in pixels of the picture.
Box in_picture(const Box &box, float scale) {
    const auto scaled = [scale](uint32_t place) { return static_cast<uint32_t>(static_cast<float>(place) * scale); };
    return {scaled(box.x0), scaled(box.y0), scaled(box.x1), scaled(box.y1)};
}

float contrast_of(const Blob &blob, float scale, const Pixels &picture) {
    return redness_contrast(picture, in_picture(blob.box, scale));
}

// Labels the patches anew, also in the library's record, from which the repair takes them.
void label_patches(const RedEyeCorrection &correction, RedEyeImageParam &found, Sensitivity sensitivity, const Pixels &picture,
                   RedEyes &eyes) {
    for (uint32_t i = 0; i < patch_count(correction); ++i) {
        RedEyePatch &patch = found.patches[i];
        Blob &blob = eyes.blobs[patch.blob - 1];
        blob.patch->contrast = contrast_of(blob, eyes.scale, picture);
        patch.label = label_of(patch, correction, demand_of(sensitivity), *blob.patch->contrast);
        blob.patch->label = patch.label;
    }
}

RedEyes places_of(const RedEyeCorrection &correction, const RedEyeImageParam &found) {
    RedEyes eyes;
    eyes.scale = found.scale > 0.0f ? found.scale : 1.0f;
    eyes.limit = correction.blob_limits[2];
    eyes.blobs = blobs_of(found);
    add_patches(correction, found, eyes.blobs);
    return eyes;
}

void decide(const RedEyeCorrection &correction, const RedEyeChoices &choices, RedEyes &eyes) {
    const uint64_t to_repair = eyes.patches() - (choices.full ? 0 : eyes.patches(KO_PATCH_REJECTED));
    if (correction.too_many_blobs != 0) {
        eyes.decision = RedEyeDecision::too_many;
    } else if (to_repair > 0) {
        eyes.decision = RedEyeDecision::repaired;
    }
    eyes.changed = to_repair > 0 || (choices.frames && eyes.patches() > 0);
}

// ---- what is done besides the repair

void draw_frames(RedEyeCorrection &correction, RedEyeImageParam &found, ColorImage &image) {
    constexpr uint64_t frames_in_a_side = 300;
    std::array<int32_t, labels.size()> colours{};
    colours[KO_PATCH_UNDECIDED] = 0xFFFF00;
    colours[KO_PATCH_ACCEPTED] = 0x00FF00;
    colours[KO_PATCH_REJECTED] = 0xFF0000;
    const uint64_t shorter = std::min(KoColorImageGetWidth(&image), KoColorImageGetHeight(&image));
    check(KoRedEyeCorrectionAddPatchBoundingBoxes(&correction, &found, &image,
                                                  std::max(shorter / frames_in_a_side, uint64_t{1}), colours.data(),
                                                  static_cast<uint32_t>(colours.size())) == KO_OK,
          "the frames cannot be drawn");
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

// ---- a picture to try a model on

constexpr uint32_t trial_side = 200;
constexpr double trial_radius = 6.0;

// A red disc in the middle of something like skin, of a size that is looked for.
Image trial_picture() {
    constexpr std::array<uint8_t, 3> skin = {200, 150, 130};
    constexpr std::array<uint8_t, 3> red = {190, 30, 40};
    Image picture{{trial_side, trial_side}, skin.size(), {}};
    for (uint32_t y = 0; y < trial_side; ++y) {
        for (uint32_t x = 0; x < trial_side; ++x) {
            const double distance = std::hypot(x - trial_side / 2.0, y - trial_side / 2.0);
            const auto &colour = distance < trial_radius ? red : skin;
            picture.bytes.insert(picture.bytes.end(), colour.begin(), colour.end());
        }
    }
    return picture;
}

} // namespace

uint64_t RedEyes::patches() const {
    return static_cast<uint64_t>(
        std::count_if(blobs.begin(), blobs.end(), [](const Blob &blob) { return blob.patch.has_value(); }));
}

uint64_t RedEyes::patches(int32_t label) const {
    return static_cast<uint64_t>(
        std::count_if(blobs.begin(), blobs.end(), [=](const Blob &blob) { return blob.patch && blob.patch->label == label; }));
}

const char *name_of_label(int32_t label) {
    switch (label) {
    case KO_PATCH_ACCEPTED:
        return "accepted";
    case KO_PATCH_REJECTED:
        return "rejected";
    default:
        return "undecided";
    }
}

std::vector<std::string> try_model(const std::string &model) {
    KoStatusClear();
    const RedEyeCorrectionPtr correction = make_correction(model, nullptr);
    const ColorImagePtr image = image_of(trial_picture().pixels());
    find(*correction, *image, ("the model " + model + " cannot be used").c_str());
    const std::string stem = correction->classifier_path;
    return {correction->config_path, correction->projection_path, stem + "_RE_FE", stem + "_RE_BE"};
}

RedEyes candidates_in(const Pixels &picture, const std::string &model) {
    KoStatusClear();
    const RedEyeCorrectionPtr correction = make_correction(model, nullptr);
    const ColorImagePtr image = image_of(picture);
    const RedEyeImageParamPtr found = find(*correction, *image, "the picture cannot be searched");
    RedEyes eyes = places_of(*correction, *found);
    for (uint32_t i = 0; i < patch_count(*correction); ++i) {
        const RedEyePatch &patch = found->patches[i];
        Blob &blob = eyes.blobs[patch.blob - 1];
        blob.patch->contrast = contrast_of(blob, eyes.scale, picture);
        blob.patch->features.assign(patch.features, patch.features + correction->projection_dimension);
    }
    return eyes;
}

const char *name(Sensitivity sensitivity) {
    switch (sensitivity) {
    case Sensitivity::careful:
        return "careful";
    case Sensitivity::eager:
        return "eager";
    default:
        return "default";
    }
}

RedEyes repair_red_eyes(const Pixels &picture, uint8_t *result, const RedEyeChoices &choices, const std::string &input,
                        std::FILE *log) {
    if (picture.channels == 1) {
        return {.decision = RedEyeDecision::gray, .blobs = {}};
    }
    KoStatusClear();
    const RedEyeCorrectionPtr correction = make_correction(choices.model, log);
    const ColorImagePtr image = image_of(picture);
    const RedEyeImageParamPtr found = find(*correction, *image, "the red eyes cannot be found");
    RedEyes eyes = places_of(*correction, *found);
    if (choices.sensitivity) {
        label_patches(*correction, *found, *choices.sensitivity, picture, eyes);
    }
    decide(*correction, choices, eyes);
    if (!choices.dump.empty() && eyes.patches() > 0) {
        dump_patches(*correction, *found, choices.dump, std::filesystem::path(input).filename().string());
    }
    if (eyes.patches() > 0) {
        check(KoRedEyeCorrectionApply(correction.get(), found.get(), choices.full ? 1 : 0, image.get()) == KO_OK,
              "the red eyes cannot be repaired");
    }
    if (choices.frames) {
        draw_frames(*correction, *found, *image);
    }
    if (eyes.changed) {
        check(KoColorImageToByteArray(image.get(), result, 0, picture.size.height, KO_BYTE_LAYOUT_INTERLEAVED) == KO_OK,
              "the repaired picture cannot be read back");
    }
    return eyes;
}

} // namespace kohost
