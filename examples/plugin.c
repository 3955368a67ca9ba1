/*
 * A plug-in for image files: a shared library named koio.so (koio.dll on Windows) that KoInit loads if the system's loader finds
 * it. It fills slots of the library, so that KoColorImageLoad and KoColorImageSave of every host handle more formats.
 *
 * This one puts portable pixmaps (binary PPM of 8 bits) into the slots of PNG files, to need no codec.
 */
#include <ko.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#ifdef _WIN32
#define ENTRY __declspec(dllexport)
#else
#define ENTRY __attribute__((visibility("default")))
#endif

ENTRY int32_t KoIOInit(void *first, void *second);
ENTRY int32_t KoIORelease(void);

enum { MOST_PIXELS_A_SIDE = 10000 };

/* Reports through the library, as its own functions do: the text of the code, with the path in it, and the place in the source. */
static int32_t refuse(int32_t code, const char *path) {
    return KoMessageSetLevel(KO_LEVEL_ERROR, KoMsg(code, path), __FILE__, __LINE__);
}

/* A failure leaves the image as it was: it is replaced when the whole file has been read. */
static int32_t load_pixels(ColorImage *image, const char *path, FILE *file, uint32_t width, uint32_t height) {
    const size_t count = (size_t)width * height * 3;
    uint8_t *bytes = malloc(count);
    ColorImage *fresh = NULL;
    int32_t status = KO_OK;
    if (bytes == NULL) {
        return refuse(KO_ERR_READ_FILE, path);
    }
    if (fread(bytes, 1, count, file) != count) {
        status = refuse(KO_ERR_READ_FILE, path);
    } else if ((fresh = KoColorImageNewFromByteArray(width, height, KO_COLORSPACE_RGB, bytes,
                                                     KO_BYTE_LAYOUT_INTERLEAVED)) == NULL) {
        status = KoErrorGetLastError();
    } else {
        const ColorImage old = *image;
        *image = *fresh;
        *fresh = old;
    }
    KoColorImageDelete(fresh);
    free(bytes);
    return status;
}

/* The values are those of the bytes, whatever the gamma values. */
static int32_t load(ColorImage *image, const char *path, double gamma_a, double gamma_b) {
    unsigned width = 0;
    unsigned height = 0;
    unsigned largest = 0;
    int32_t status;
    FILE *file = fopen(path, "rb");
    (void)gamma_a, (void)gamma_b;
    if (file == NULL) {
        return refuse(KO_ERR_OPEN_READ, path);
    }
    if (fscanf(file, "P6 %5u %5u %3u", &width, &height, &largest) != 3 || fgetc(file) != '\n' || largest != 255 || width == 0 ||
        height == 0 || width > MOST_PIXELS_A_SIDE || height > MOST_PIXELS_A_SIDE) {
        status = refuse(KO_ERR_READ_FILE, path);
    } else {
        status = load_pixels(image, path, file, width, height);
    }
    fclose(file);
    return status;
}

static uint8_t to_byte(float value) { return (uint8_t)(value >= 255.0f ? 255.0f : value > 0.0f ? value : 0.0f); }

static int32_t save(const ColorImage *image, const char *path, float scale, float save_option) {
    const uint32_t width = (uint32_t)KoColorImageGetWidth(image);
    const uint32_t height = (uint32_t)KoColorImageGetHeight(image);
    FILE *file = fopen(path, "wb");
    int failed;
    (void)save_option;
    if (file == NULL) {
        return refuse(KO_ERR_OPEN_WRITE, path);
    }
    fprintf(file, "P6 %u %u 255\n", (unsigned)width, (unsigned)height);
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            for (int c = 0; c < 3; ++c) {
                fputc(to_byte(image->planes[c].rows[y][x] * scale + 0.5f), file);
            }
        }
    }
    failed = ferror(file);
    failed = fclose(file) != 0 || failed;
    return failed ? refuse(KO_ERR_WRITE_FILE, path) : KO_OK;
}

/* The two words are those that the host gave to KoInit; the result becomes KoInit's. */
int32_t KoIOInit(void *first, void *second) {
    (void)first, (void)second;
    KoColorImageSetLoadFunction(KO_IMAGE_FORMAT_PNG, load);
    KoColorImageSetSaveFunction(KO_IMAGE_FORMAT_PNG, save);
    return 0;
}

/* The library does not empty these slots, and the functions are about to be unloaded. */
int32_t KoIORelease(void) {
    KoColorImageSetLoadFunction(KO_IMAGE_FORMAT_PNG, NULL);
    KoColorImageSetSaveFunction(KO_IMAGE_FORMAT_PNG, NULL);
    return 0;
}
