/*
 * Asks of two pictures in memory whether their shadows should be opened, and by which measures that was decided.
 *
 * The pictures here are made up: a field with detail in its dark half, and a bright field without shadows.
 */
#include <ko.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

enum { WIDTH = 640, HEIGHT = 480, GRID = 8, LEVELS = 256, DEFAULT_POLICY = 2 };

static void paint(uint8_t *pixels, int darkest) {
    for (int y = 0; y < HEIGHT; ++y) {
        for (int x = 0; x < WIDTH; ++x) {
            const int level = y < HEIGHT / 2 ? darkest : 190;
            const int texture = (x / 4 * 7 + y / 4 * 13) % 17;
            for (int c = 0; c < 3; ++c) {
                pixels[(y * WIDTH + x) * 3 + c] = (uint8_t)(level + texture + c);
            }
        }
    }
}

/* Prints the answer about a picture; 0 if the library fails, whose messages then say why. */
static int judge(const char *name, const uint8_t *pixels) {
    TileTRC *curves = NULL;
    ColorImage *image =
        KoColorImageNewFromByteArray(WIDTH, HEIGHT, KO_COLORSPACE_RGB, pixels, KO_BYTE_LAYOUT_INTERLEAVED);
    LocalContrastEnhancementImageFeatures *features = KoLocalContrastEnhancementNew(LEVELS, GRID, GRID);
    int done = 0;
    if (image != NULL && features != NULL &&
        KoLocalContrastEnhancementGetNewTRCsTune(features, image, 3.0f, 40.0f, 0.6275f, 5, -1.0f, DEFAULT_POLICY, &curves) ==
            KO_OK) {
        const DecisionMechanismThreshold *measured = KoLocalContrastEnhancementGetDMValues(features);
        printf("%s: %s; %d of 64 blocks are low in detail, %d noisy\n", name, curves != NULL ? "to be enhanced" : "left as it is",
               (int)measured->lowDetailBlocks, (int)measured->noisyBlocks);
        done = 1;
    }
    KoTileTRCDelete(curves);
    KoLocalContrastEnhancementDelete(features);
    KoColorImageDelete(image);
    return done;
}

int main(void) {
    static uint8_t pixels[WIDTH * HEIGHT * 3];
    int done = 0;
    KoInit(NULL, NULL);
    KoStatusClear();
    paint(pixels, 10);
    done = judge("dark half", pixels);
    paint(pixels, 150);
    done = judge("bright", pixels) && done;
    if (!done) {
        fprintf(stderr, "%s\n", KoErrorGetLastErrorMessage());
    }
    KoRelease();
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
