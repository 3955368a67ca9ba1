/*
 * Tints a picture in memory by blocks: warm at its top, cold at its bottom, and every shade between. A grid holds a curve for
 * each channel at each tile; here it has one tile a row and two rows.
 *
 * The picture here is made up: one gray. The program prints its red, green and blue in the first and in the last row.
 */
#include <ko.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

enum { WIDTH = 320, HEIGHT = 240, LEVELS = 256, GRAY = 100, CHUNK_ROWS = 32 };

/* A curve that scales levels by percent / 100. A blend above 255 would wrap to dark, so its entries stop there. */
static void fill_curve(uint32_t *curve, uint32_t percent) {
    for (uint32_t level = 0; level < LEVELS; ++level) {
        const uint32_t scaled = level * percent / 100;
        curve[level] = scaled < LEVELS ? scaled : LEVELS - 1;
    }
}

/* The grid of both tints; null, with the thread's messages set, if it cannot be had. */
static TileColorTRC *make_tints(void) {
    TileColorTRC *tints = KoTileColorTRCNew(LEVELS, 1, 2);
    uint32_t more[LEVELS];
    uint32_t same[LEVELS];
    uint32_t less[LEVELS];
    fill_curve(more, 120);
    fill_curve(same, 100);
    fill_curve(less, 80);
    if (tints == NULL || KoTileColorTRCSetTileFromArray(tints, 0, 0, more, same, less) != KO_OK ||
        KoTileColorTRCSetTileFromArray(tints, 0, 1, less, same, more) != KO_OK) {
        KoTileColorTRCDelete(tints);
        return NULL;
    }
    return tints;
}

/*
 * Hands the rows over as a host would that has a few of them at a time. The last chunk may promise more rows than there are:
 * what lies behind the picture is not touched. The tile is as wide as the picture and even, so that it covers every column.
 */
static int apply_tints(const TileColorTRC *tints, uint8_t *pixels) {
    TileColorTRCApply *apply = KoTileColorTRCApplyNew(tints, WIDTH, HEIGHT, KO_BYTE_LAYOUT_INTERLEAVED);
    int32_t status = apply != NULL ? KO_OK : KoErrorGetLastError();
    for (int y = 0; y < HEIGHT && status == KO_OK; y += CHUNK_ROWS) {
        uint8_t *rows = pixels + (size_t)y * WIDTH * 3;
        status = KoTileColorTRCApplyToByteChunk(apply, CHUNK_ROWS, rows, rows);
    }
    KoTileColorTRCApplyDelete(apply);
    return status == KO_OK;
}

static void print_row(const char *name, const uint8_t *row) { printf("%s row: %d %d %d\n", name, row[0], row[1], row[2]); }

int main(void) {
    static uint8_t pixels[WIDTH * HEIGHT * 3];
    for (size_t i = 0; i < sizeof(pixels); ++i) {
        pixels[i] = GRAY;
    }
    KoInit(NULL, NULL);
    TileColorTRC *tints = make_tints();
    const int done = tints != NULL && apply_tints(tints, pixels);
    if (done) {
        print_row("first", pixels);
        print_row("last", pixels + (size_t)(HEIGHT - 1) * WIDTH * 3);
    } else {
        fprintf(stderr, "%s\n", KoErrorGetLastErrorMessage());
    }
    KoTileColorTRCDelete(tints);
    KoRelease();
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
