/*
 * Opens the shadows of a picture in memory: from interleaved RGB bytes to the same bytes enhanced.
 *
 * The picture here is made up: a bright field with a dark, faintly textured corner. The program prints the mean of the dark
 * corner before and after.
 */
#include <ko.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

enum { WIDTH = 640, HEIGHT = 480, GRID = 8, LEVELS = 256 };

static void paint(uint8_t *pixels) {
    for (int y = 0; y < HEIGHT; ++y) {
        for (int x = 0; x < WIDTH; ++x) {
            const int dark = x < WIDTH / 2 && y < HEIGHT / 2;
            const int texture = (x * 7 + y * 13) % 11;
            for (int c = 0; c < 3; ++c) {
                pixels[(y * WIDTH + x) * 3 + c] = (uint8_t)((dark ? 12 : 180) + texture + 2 * c);
            }
        }
    }
}

static double mean_of_corner(const uint8_t *pixels) {
    double sum = 0.0;
    for (int y = 0; y < HEIGHT / 2; ++y) {
        for (int x = 0; x < WIDTH / 2 * 3; ++x) {
            sum += pixels[y * WIDTH * 3 + x];
        }
    }
    return sum / (HEIGHT / 2 * (WIDTH / 2) * 3);
}

/* Computes the curves of a picture; null, with the thread's messages set, if that fails. */
static TileTRC *make_curves(const uint8_t *pixels) {
    TileTRC *curves = NULL;
    ColorImage *image =
        KoColorImageNewFromByteArray(WIDTH, HEIGHT, KO_COLORSPACE_RGB, pixels, KO_BYTE_LAYOUT_INTERLEAVED);
    LocalContrastEnhancementImageFeatures *features = KoLocalContrastEnhancementNew(LEVELS, GRID, GRID);
    if (image != NULL && features != NULL) {
        KoLocalContrastEnhancementGetNewTRCsTune(features, image, 3.0f, 40.0f, 0.6275f, 5, -1.0f, 4, &curves);
    }
    KoLocalContrastEnhancementDelete(features);
    KoColorImageDelete(image);
    return curves;
}

static int apply_curves(const TileTRC *curves, uint8_t *pixels) {
    TileTRCApply *apply =
        KoTileTRCApplyNew(curves, 0.5f, NULL, WIDTH, HEIGHT, KO_BYTE_LAYOUT_INTERLEAVED, KO_COLORSPACE_RGB);
    if (apply == NULL) {
        return 0;
    }
    KoTileTRCApplyToByteChunk(apply, HEIGHT, pixels, pixels);
    KoTileTRCApplyDelete(apply);
    return 1;
}

int main(void) {
    uint8_t *pixels = malloc((size_t)WIDTH * HEIGHT * 3);
    int done = 0;
    if (pixels == NULL) {
        return EXIT_FAILURE;
    }
    KoInit(NULL, NULL);
    paint(pixels);
    const double before = mean_of_corner(pixels);
    TileTRC *curves = make_curves(pixels);
    if (curves != NULL && apply_curves(curves, pixels)) {
        printf("dark corner: mean %.1f before, %.1f after\n", before, mean_of_corner(pixels));
        done = 1;
    } else {
        fprintf(stderr, "%s\n", KoErrorGetLastErrorMessage());
    }
    KoTileTRCDelete(curves);
    KoRelease();
    free(pixels);
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
