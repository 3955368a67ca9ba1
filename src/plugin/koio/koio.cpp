// The entries of the plug-in. KoInit calls the first, which fills the slots of PNG and JPEG files; the last KoRelease calls the
// second, after the status service has ended, and unloads the module: no slot may point into it by then.
#include <cstdint>

#include "codec/picture.h"
#include "ko/error.h"
#include "ko/imageformat.h"
#include "load.h"
#include "save.h"

#ifdef _WIN32
#define KOIO_ENTRY // koio.exports alone says what is exported
#else
#define KOIO_ENTRY __attribute__((visibility("default")))
#endif

extern "C" {
KOIO_ENTRY int32_t KoIOInit(void *first, void *second);
KOIO_ENTRY int32_t KoIORelease(void);
}

namespace {

using codec::Format;

// The functions of a format's slots.
template <Format format> class Slots {
  public:
    static constexpr int32_t type = format == Format::png ? KO_IMAGE_FORMAT_PNG : KO_IMAGE_FORMAT_JPEG;

    static int32_t load_real(RealImage *image, const char *path) { return koio::load(image, path, format); }
    static int32_t save_real(const RealImage *image, const char *path, float scale, float save_option) {
        return koio::save(image, path, format, scale, save_option);
    }
    static int32_t load_color(ColorImage *image, const char *path, double gamma_a, double gamma_b) {
        return koio::load(image, path, format, gamma_a, gamma_b);
    }
    static int32_t save_color(const ColorImage *image, const char *path, float scale, float save_option) {
        return koio::save(image, path, format, scale, save_option);
    }

    // What the host has put into a slot stays there, at the start and at the end.
    static void replace(bool with_own) {
        replace_in<KoRealImageGetLoadFunction, KoRealImageSetLoadFunction>(load_real, with_own);
        replace_in<KoRealImageGetSaveFunction, KoRealImageSetSaveFunction>(save_real, with_own);
        replace_in<KoColorImageGetLoadFunction, KoColorImageSetLoadFunction>(load_color, with_own);
        replace_in<KoColorImageGetSaveFunction, KoColorImageSetSaveFunction>(save_color, with_own);
    }

  private:
    template <auto Get, auto Set, class Function> static void replace_in(Function own, bool with_own) {
        if (Get(type) == (with_own ? nullptr : own)) {
            Set(type, with_own ? own : nullptr);
        }
    }
};

} // namespace

// The two words of KoInit have no meaning here.
int32_t KoIOInit(void *, void *) {
    Slots<Format::png>::replace(true);
    Slots<Format::jpeg>::replace(true);
    return KO_OK;
}

int32_t KoIORelease(void) {
    Slots<Format::png>::replace(false);
    Slots<Format::jpeg>::replace(false);
    return KO_OK;
}
