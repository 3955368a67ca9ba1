/*
 * Saves the tone curves of a picture and applies them from their file: curves FILE. A host may keep such files beside its
 * pictures, and develop them anew at any time; the curves of a small picture suit the same picture at any size.
 *
 * The picture here is made up: dark, with a faint texture. The program prints the mean of the picture at two sizes.
 */
#include <ko.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

enum { WIDTH = 320, HEIGHT = 240, GRID = 4, LEVELS = 256, ALWAYS = 4 };

/* The picture, times as large in each direction. */
static void paint(uint8_t *pixels, int times) {
    for (int y = 0; y < HEIGHT * times; ++y) {
        for (int x = 0; x < WIDTH * times; ++x) {
            const int level = 10 + (x / times * 7 + y / times * 13) % 23;
            for (int c = 0; c < 3; ++c) {
                pixels[((size_t)y * WIDTH * (size_t)times + (size_t)x) * 3 + (size_t)c] = (uint8_t)(level + c);
            }
        }
    }
}

static double mean_of(const uint8_t *pixels, size_t count) {
    double sum = 0.0;
    for (size_t i = 0; i < count; ++i) {
        sum += pixels[i];
    }
    return sum / (double)count;
}

/* Both give 0 if the library fails, whose messages then say why. */
static int save_curves(const uint8_t *pixels, const char *path) {
    TileTRC *curves = NULL;
    ColorImage *image =
        KoColorImageNewFromByteArray(WIDTH, HEIGHT, KO_COLORSPACE_RGB, pixels, KO_BYTE_LAYOUT_INTERLEAVED);
    LocalContrastEnhancementImageFeatures *features = KoLocalContrastEnhancementNew(LEVELS, GRID, GRID);
    int done = 0;
    if (image != NULL && features != NULL) {
        KoLocalContrastEnhancementGetNewTRCsTune(features, image, 3.0f, 40.0f, 0.6275f, 5, -1.0f, ALWAYS, &curves);
        done = curves != NULL && KoTileTRCSave(curves, path, KO_TILETRC_TEXT, 1) == KO_OK;
    }
    KoTileTRCDelete(curves);
    KoLocalContrastEnhancementDelete(features);
    KoColorImageDelete(image);
    return done;
}

static int apply_curves(const char *path, uint8_t *pixels, uint32_t width, uint32_t height) {
    TileTRC *curves = KoTileTRCNew(LEVELS, 1, 1); /* the file says how many there are */
    TileTRCApply *apply = NULL;
    int done = 0;
    if (curves != NULL && KoTileTRCLoad(curves, path) == KO_OK) {
        apply = KoTileTRCApplyNew(curves, 0.5f, NULL, width, height, KO_BYTE_LAYOUT_INTERLEAVED, KO_COLORSPACE_RGB);
        done = apply != NULL && KoTileTRCApplyToByteChunk(apply, height, pixels, pixels) == KO_OK;
    }
    KoTileTRCApplyDelete(apply);
    KoTileTRCDelete(curves);
    return done;
}

int main(int argc, char **argv) {
    static uint8_t pixels[WIDTH * 2 * HEIGHT * 2 * 3];
    int done = 1;
    if (argc != 2) {
        fprintf(stderr, "usage: curves FILE\n");
        return EXIT_FAILURE;
    }
    KoInit(NULL, NULL);
    KoStatusClear();
    paint(pixels, 1);
    done = save_curves(pixels, argv[1]);
    for (int times = 1; times <= 2 && done; ++times) {
        const size_t count = (size_t)WIDTH * HEIGHT * 3 * (size_t)(times * times);
        paint(pixels, times);
        const double before = mean_of(pixels, count);
        done = apply_curves(argv[1], pixels, (uint32_t)(WIDTH * times), (uint32_t)(HEIGHT * times));
        if (done) {
            printf("%d x %d: mean %.1f before, %.1f after\n", WIDTH * times, HEIGHT * times, before, mean_of(pixels, count));
        }
    }
    if (!done) {
        fprintf(stderr, "%s\n", KoErrorGetLastErrorMessage());
    }
    KoRelease();
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
