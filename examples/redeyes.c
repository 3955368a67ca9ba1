/*
 * Finds and repairs red eyes in a picture in memory: redeyes MODEL, where MODEL is the path of a model's configuration, such as
 * share/ko/redeye/redeye.cfg of an installation.
 *
 * The picture here is made up: a skin-coloured field with two red pupils. The program prints their places, and the red of the
 * picture's centre of each before and after.
 */
#include <ko.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

enum { WIDTH = 480, HEIGHT = 320, RADIUS = 9, EYES = 2 };

static const int eyes[EYES][2] = {{160, 150}, {300, 150}};

static int is_in_eye(int x, int y) {
    for (int i = 0; i < EYES; ++i) {
        const int dx = x - eyes[i][0];
        const int dy = y - eyes[i][1];
        if (dx * dx + dy * dy < RADIUS * RADIUS) {
            return 1;
        }
    }
    return 0;
}

static void paint(uint8_t *pixels) {
    for (int y = 0; y < HEIGHT; ++y) {
        for (int x = 0; x < WIDTH; ++x) {
            uint8_t *pixel = pixels + (y * WIDTH + x) * 3;
            const int texture = (x * 7 + y * 13) % 5;
            const int in_eye = is_in_eye(x, y);
            pixel[0] = (uint8_t)((in_eye ? 190 : 170) + texture);
            pixel[1] = (uint8_t)((in_eye ? 30 : 150) + texture);
            pixel[2] = (uint8_t)((in_eye ? 40 : 130) + texture);
        }
    }
}

static int red_of(const ColorImage *image, int i) { return (int)image->planes[0].rows[eyes[i][1]][eyes[i][0]]; }

/* Prints what was found. The box of a blob is in pixels of the working image, here the picture itself. */
static void report(const RedEyeCorrection *correction, const RedEyeImageParam *found) {
    for (int32_t i = 1; i <= found->blob_count; ++i) {
        const BlobInfo *blob = &found->final_blobs[i];
        printf("place %d: x %u to %u, y %u to %u\n", (int)i, (unsigned)blob->min_x, (unsigned)blob->max_x,
               (unsigned)blob->min_y, (unsigned)blob->max_y);
    }
    printf("%d of %d places repaired\n", (int)(found->accepted_count + found->undecided_count), (int)found->blob_count);
    if (correction->too_many_blobs != 0) {
        printf("too many places: nothing was repaired\n");
    }
}

/* Repairs the picture, and prints what was done; 0 if the library fails, whose messages then say why. */
static int repair(const char *model, ColorImage *image) {
    RedEyeCorrection *correction = KoRedEyeCorrectionNew();
    RedEyeImageParam *found = KoRedEyeImageParamNew(image);
    int done = 0;
    if (correction != NULL && found != NULL &&
        KoRedEyeCorrectionSetCategorizerConfig(correction, model, NULL, NULL) == KO_OK) {
        KoRedEyeCorrectionEnableHistogramChannel(correction, 1, 1, 1);
        if (KoRedEyeCorrectionProcessImage(correction, found, image) == KO_OK) {
            report(correction, found);
            done = 1;
        }
    }
    KoRedEyeImageParamDelete(found);
    KoRedEyeCorrectionDelete(correction);
    return done;
}

int main(int argc, char **argv) {
    static uint8_t pixels[WIDTH * HEIGHT * 3];
    if (argc != 2) {
        fprintf(stderr, "usage: redeyes MODEL\n");
        return EXIT_FAILURE;
    }
    paint(pixels);
    KoInit(NULL, NULL);
    KoStatusClear();
    ColorImage *image =
        KoColorImageNewFromByteArray(WIDTH, HEIGHT, KO_COLORSPACE_RGB, pixels, KO_BYTE_LAYOUT_INTERLEAVED);
    const int before = image != NULL ? red_of(image, 0) : 0;
    const int done = image != NULL && repair(argv[1], image);
    if (done) {
        printf("red of a pupil: %d before, %d after\n", before, red_of(image, 0));
    } else {
        fprintf(stderr, "%s\n", KoErrorGetLastErrorMessage());
    }
    KoColorImageDelete(image);
    KoRelease();
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
