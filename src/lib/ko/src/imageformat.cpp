// Image files: the formats' names, the slots of their functions, and the calls that choose a slot. The text format's own
// functions are in imagetext.cpp.
#include "ko/imageformat.h"

#include <cstring>

#include "report.h"

namespace {

constexpr int32_t type_count = 4;
constexpr const char *type_names[type_count] = {"Unknown", "Text", "PNG", "JPEG"};

struct Keyword {
    const char *word; // in small letters
    int32_t type;
};
constexpr Keyword keywords[] = {
    {"txt", KO_IMAGE_FORMAT_TEXT}, {"png", KO_IMAGE_FORMAT_PNG}, {"jpg", KO_IMAGE_FORMAT_JPEG}, {"jpeg", KO_IMAGE_FORMAT_JPEG}};

// The tables of the process, all empty at first.
KoRealImageLoadFunction real_image_load[type_count];
KoRealImageSaveFunction real_image_save[type_count];
KoColorImageLoadFunction color_image_load[type_count];
KoColorImageSaveFunction color_image_save[type_count];

char small_letter(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool is_keyword(const char *text, const char *word) {
    while (*word != '\0' && small_letter(*text) == *word) {
        ++text;
        ++word;
    }
    return *text == *word;
}

// False, with the report, for a type past the tables. The bounds told begin with 1: slot 0 is never used.
bool has_slot(int32_t type) {
    if (type < type_count) {
        return true;
    }
    KO_REPORT(KO_LEVEL_INTERNAL_ERROR, KO_ERR_INDEX_OUT_OF_BOUNDS, type, 1, type_count - 1);
    return false;
}

template <class Function> int32_t set_slot(Function *table, int32_t type, Function function) {
    if (has_slot(type)) {
        table[type] = function;
    }
    return KO_OK;
}

template <class Function> Function get_slot(Function *table, int32_t type) { return has_slot(type) ? table[type] : nullptr; }

// Calls the slot of the format, or of the path's extension if that is null.
template <class Function, class Image, class... Argument>
int32_t call_slot(Function *table, Image *image, const char *path, const char *format, Argument... arguments) {
    const int32_t type = format != nullptr ? KoImageFormatNameToType(format) : KoImageFormatFromFilename(path);
    if (type == KO_IMAGE_FORMAT_UNKNOWN) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_UNKNOWN_FORMAT, path != nullptr ? path : "");
    }
    if (table[type] == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_FORMAT_UNSUPPORTED, KoImageFormatTypeToName(type));
    }
    return table[type](image, path, arguments...);
}

} // namespace

int32_t KoImageFormatNameToType(const char *name) {
    if (name == nullptr) {
        return KO_IMAGE_FORMAT_UNKNOWN;
    }
    for (const Keyword &keyword : keywords) {
        if (is_keyword(name, keyword.word)) {
            return keyword.type;
        }
    }
    KO_REPORT(KO_LEVEL_ERROR, KO_ERR_FORMAT_UNSUPPORTED, name);
    return KO_IMAGE_FORMAT_UNKNOWN;
}

int32_t KoImageFormatFromFilename(const char *path) {
    const char *dot = path != nullptr ? std::strrchr(path, '.') : nullptr;
    return dot != nullptr ? KoImageFormatNameToType(dot + 1) : static_cast<int32_t>(KO_IMAGE_FORMAT_UNKNOWN);
}

const char *KoImageFormatTypeToName(int32_t type) {
    return type_names[type < type_count ? type : static_cast<int32_t>(KO_IMAGE_FORMAT_UNKNOWN)];
}

int32_t KoRealImageSetLoadFunction(int32_t type, KoRealImageLoadFunction function) {
    return set_slot(real_image_load, type, function);
}

KoRealImageLoadFunction KoRealImageGetLoadFunction(int32_t type) { return get_slot(real_image_load, type); }

int32_t KoRealImageSetSaveFunction(int32_t type, KoRealImageSaveFunction function) {
    return set_slot(real_image_save, type, function);
}

KoRealImageSaveFunction KoRealImageGetSaveFunction(int32_t type) { return get_slot(real_image_save, type); }

int32_t KoColorImageSetLoadFunction(int32_t type, KoColorImageLoadFunction function) {
    return set_slot(color_image_load, type, function);
}

KoColorImageLoadFunction KoColorImageGetLoadFunction(int32_t type) { return get_slot(color_image_load, type); }

int32_t KoColorImageSetSaveFunction(int32_t type, KoColorImageSaveFunction function) {
    return set_slot(color_image_save, type, function);
}

KoColorImageSaveFunction KoColorImageGetSaveFunction(int32_t type) { return get_slot(color_image_save, type); }

int32_t KoRealImageLoad(RealImage *image, const char *path, const char *format) {
    return call_slot(real_image_load, image, path, format);
}

int32_t KoRealImageSave(const RealImage *image, const char *path, const char *format, float scale, float save_option) {
    return call_slot(real_image_save, image, path, format, scale, save_option);
}

int32_t KoColorImageLoad(ColorImage *image, const char *path, const char *format) {
    return KoColorImageLoadSetGamma(image, path, format, 0.0, 0.0);
}

int32_t KoColorImageLoadSetGamma(ColorImage *image, const char *path, const char *format, double gamma_a, double gamma_b) {
    return call_slot(color_image_load, image, path, format, gamma_a, gamma_b);
}

int32_t KoColorImageSave(const ColorImage *image, const char *path, const char *format, float scale, float save_option) {
    if (KoColorImageGetColorSpace(image) != KO_COLORSPACE_GRAY) {
        return call_slot(color_image_save, image, path, format, scale, save_option);
    }
    const RealImage *plane = KoColorImageGetImage(image, 0);
    return plane != nullptr ? KoRealImageSave(plane, path, format, scale, save_option)
                            : KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
}
