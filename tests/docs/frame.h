/*
 * What stands around a sample that is no whole program: a picture of interleaved RGB bytes, its left half in deep shadow, the path
 * of a red-eye model, and the library started. The sample is a function that gives 0 unless something failed.
 */
#ifndef KO_TESTS_DOCS_FRAME_H
#define KO_TESTS_DOCS_FRAME_H

#include <ko.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int sample(uint8_t *pixels, uint32_t width, uint32_t height, const char *model);

/* Squares of several dark levels on the left, which gain detail; a light pattern on the right. */
static inline uint8_t picture_byte(uint32_t x, uint32_t y, uint32_t channel, uint32_t width) {
    const uint32_t dark = 8 + (x / 6 * 7 + y / 6 * 13) % 40;
    const uint32_t light = 170 + (x * 7 + y * 13) % 11;
    return (uint8_t)((x < width / 2 ? dark : light) + 2 * channel);
}

int main(void) {
    enum { SAMPLE_WIDTH = 640, SAMPLE_HEIGHT = 480 };
    static uint8_t pixels[SAMPLE_WIDTH * SAMPLE_HEIGHT * 3];
    uint8_t *next = pixels;
    for (uint32_t y = 0; y < SAMPLE_HEIGHT; ++y) {
        for (uint32_t x = 0; x < SAMPLE_WIDTH; ++x) {
            for (uint32_t channel = 0; channel < 3; ++channel) {
                *next++ = picture_byte(x, y, channel, SAMPLE_WIDTH);
            }
        }
    }
    KoInit(NULL, NULL);
    const char *model = getenv("KO_SAMPLE_MODEL");
    const int result = model != NULL ? sample(pixels, SAMPLE_WIDTH, SAMPLE_HEIGHT, model) : EXIT_FAILURE;
    KoRelease();
    return result;
}

#endif
