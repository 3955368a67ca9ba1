#include "heif_files.h"

#include <cstring>
#include <memory>
#include <stdexcept>

#include <libheif/heif.h>

namespace ko_test {

namespace {

template <auto Free> using Freeing = decltype([](auto *object) { Free(object); });

void check(const heif_error &error) {
    if (error.code != heif_error_Ok) {
        throw std::runtime_error(error.message);
    }
}

heif_compression_format format_of(HeifKind kind) {
    return kind == HeifKind::heic ? heif_compression_HEVC : heif_compression_AV1;
}

heif_chroma layout_of(const HeifRecipe &recipe) {
    if (recipe.bits > 8) {
        return recipe.alpha ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RRGGBB_LE;
    }
    return recipe.alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB;
}

using ImagePtr = std::unique_ptr<heif_image, Freeing<heif_image_release>>;

ImagePtr image_of(const HeifRecipe &recipe, const Sample &sample) {
    heif_image *made = nullptr;
    check(heif_image_create(static_cast<int>(recipe.width), static_cast<int>(recipe.height), heif_colorspace_RGB,
                            layout_of(recipe), &made));
    ImagePtr image(made);
    check(heif_image_add_plane(made, heif_channel_interleaved, static_cast<int>(recipe.width), static_cast<int>(recipe.height),
                               recipe.bits));
    int stride = 0;
    uint8_t *plane = heif_image_get_plane(made, heif_channel_interleaved, &stride);
    const uint32_t channels = recipe.alpha ? 4 : 3;
    for (uint32_t y = 0; y < recipe.height; ++y) {
        for (uint32_t i = 0; i < recipe.width * channels; ++i) {
            const uint32_t level = sample(i / channels, y, i % channels);
            const size_t size = recipe.bits > 8 ? 2 : 1;
            std::memcpy(plane + y * static_cast<size_t>(stride) + i * size, &level, size); // the low byte comes first
        }
    }
    return image;
}

void describe(heif_image *image, const HeifRecipe &recipe) {
    if (recipe.multiplied) {
        heif_image_set_premultiplied_alpha(image, 1);
    }
    if (!recipe.profile.empty()) {
        check(heif_image_set_raw_color_profile(image, "prof", recipe.profile.data(), recipe.profile.size()));
    }
    if (recipe.primaries != 0) {
        const std::unique_ptr<heif_color_profile_nclx, Freeing<heif_nclx_color_profile_free>> nclx(
            heif_nclx_color_profile_alloc());
        check(heif_nclx_color_profile_set_color_primaries(nclx.get(), static_cast<uint16_t>(recipe.primaries)));
        check(heif_nclx_color_profile_set_transfer_characteristics(nclx.get(), static_cast<uint16_t>(recipe.curve)));
        nclx->matrix_coefficients = heif_matrix_coefficients_ITU_R_BT_601_6;
        nclx->full_range_flag = 1;
        check(heif_image_set_nclx_color_profile(image, nclx.get()));
    }
}

using EncoderPtr = std::unique_ptr<heif_encoder, Freeing<heif_encoder_release>>;

EncoderPtr encoder_for(HeifKind kind) {
    heif_encoder *encoder = nullptr;
    check(heif_context_get_encoder_for_format(nullptr, format_of(kind), &encoder));
    EncoderPtr owner(encoder);
    check(heif_encoder_set_lossy_quality(encoder, 100));
    return owner;
}

heif_error append(heif_context *, const void *data, size_t size, void *file) {
    static_cast<std::string *>(file)->append(static_cast<const char *>(data), size);
    return {heif_error_Ok, heif_suberror_Unspecified, ""};
}

} // namespace

bool can_encode(HeifKind kind) { return heif_have_encoder_for_format(format_of(kind)) != 0; }

std::string heif_file(const HeifRecipe &recipe, const Sample &sample) {
    const ImagePtr image = image_of(recipe, sample);
    describe(image.get(), recipe);
    const EncoderPtr encoder = encoder_for(recipe.kind);
    const std::unique_ptr<heif_encoding_options, Freeing<heif_encoding_options_free>> options(heif_encoding_options_alloc());
    options->macOS_compatibility_workaround_no_nclx_profile = 0; // or colours are not named in HEIC files
    options->image_orientation = static_cast<heif_orientation>(recipe.orientation);
    const std::unique_ptr<heif_context, Freeing<heif_context_free>> context(heif_context_alloc());
    for (int i = 0; i < recipe.pictures; ++i) {
        heif_image_handle *made = nullptr;
        check(heif_context_encode_image(context.get(), image.get(), encoder.get(), options.get(), &made));
        const std::unique_ptr<heif_image_handle, Freeing<heif_image_handle_release>> handle(made);
        if (!recipe.exif.empty()) {
            check(
                heif_context_add_exif_metadata(context.get(), made, recipe.exif.data(), static_cast<int>(recipe.exif.size())));
        }
        if (!recipe.xmp.empty()) {
            check(heif_context_add_generic_metadata(context.get(), made, recipe.xmp.data(), static_cast<int>(recipe.xmp.size()),
                                                    "mime", recipe.xmp_type.c_str()));
        }
    }
    std::string file;
    heif_writer writer{1, append};
    check(heif_context_write(context.get(), &writer, &file));
    return file;
}

} // namespace ko_test
