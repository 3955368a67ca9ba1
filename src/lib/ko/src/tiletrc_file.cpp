// The file of a TileTRC: two header lines and the curves one behind the other, y outer and x inner, in one of three forms. The
// file is binary both ways, so that line ends are never translated.
#include <cstdio>

#include "alloc.h"
#include "ko/tiletrc.h"
#include "report.h"
#include "textfile.h"
#include "tilegrid.h"
#include "trccompress.h"

namespace {

using namespace ko;

// The words of the first line. A reader looks for the longest first: only beginnings are compared.
struct Form {
    int32_t number;
    const char *word;
};
constexpr Form forms[] = {
    {KO_TILETRC_ENCODED, "GrayLinearEncoded"}, {KO_TILETRC_BINARY, "GrayLinearBinary"}, {KO_TILETRC_TEXT, "GrayLinear"}};

const char *word_of(int32_t number) {
    for (const Form &form : forms) {
        if (form.number == number) {
            return form.word;
        }
    }
    return word_of(KO_TILETRC_TEXT);
}

// Calls each(curve, room) for the curves in file order, room being the entries from the curve to the end of the grid, until one
// gives false. A grid of no tiles has no curves, whatever its other strip count.
template <class Each> void for_each_curve(const TileTRC *tile_trc, Each each) {
    const uint64_t entries = entries_of(shape_of(tile_trc));
    for (uint64_t at = 0; at < entries; at += tile_trc->size) {
        if (!each(tile_trc->array + at, entries - at)) {
            return;
        }
    }
}

// ---- writing

// One byte an entry: the difference of its low byte to the one before.
void write_binary(const uint32_t *curve, uint64_t size, FILE *stream, const char *path) {
    uint8_t previous = 0;
    for (uint64_t i = 0; i < size; ++i) {
        const auto low = static_cast<uint8_t>(curve[i]);
        const auto difference = static_cast<uint8_t>(low - previous);
        previous = low;
        if (std::fwrite(&difference, 1, 1, stream) != 1) {
            KO_REPORT(KO_LEVEL_ERROR, KO_ERR_WRITE_FILE, path); // the next curve is written all the same
            return;
        }
    }
}

void write_curves(const TileTRC *tile_trc, int32_t form, TRCCompress *compress, FILE *stream, const char *path) {
    for_each_curve(tile_trc, [=](uint32_t *curve, uint64_t) {
        if (form == KO_TILETRC_BINARY) {
            write_binary(curve, tile_trc->size, stream, path);
        } else if (form == KO_TILETRC_ENCODED) {
            KoTRCCompressSetTRC(compress, curve);
            KoTRCCompressSave(compress, stream, path); // a failure has its report; the result speaks for the opening alone
        } else {
            write_numbers(stream, curve, tile_trc->size);
        }
        return true;
    });
}

// ---- reading

int32_t read_form(TextReader *reader, int32_t *number) {
    const int32_t status = reader->next();
    if (status != KO_OK) {
        return status;
    }
    for (const Form &form : forms) {
        if (reader->begins_with(form.word)) {
            *number = form.number;
            return KO_OK;
        }
    }
    return reader->reject("Invalid value, must be GrayLinear or GrayLinearEncoded");
}

// A byte is a signed step from the entry before, so steps of -128 to 127 come back.
int32_t read_binary(uint32_t *curve, uint64_t size, FILE *stream, const char *path) {
    uint32_t value = 0;
    for (uint64_t i = 0; i < size; ++i) {
        const int byte = std::fgetc(stream);
        if (byte == EOF) {
            return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_READ_FILE, path);
        }
        value += static_cast<uint32_t>(static_cast<int8_t>(byte));
        curve[i] = value;
    }
    return KO_OK;
}

int32_t read_curves(TextReader *reader, int32_t form, const TileTRC *tile_trc, const char *path) {
    int32_t status = KO_OK;
    for_each_curve(tile_trc, [&](uint32_t *curve, uint64_t room) {
        if (form == KO_TILETRC_BINARY) {
            status = read_binary(curve, tile_trc->size, reader->stream(), path);
        } else if (form == KO_TILETRC_ENCODED) {
            status = read_tokens(curve, tile_trc->size, room, reader->stream(), path);
        } else {
            status = read_numbers(reader, "Invalid value, <GRAY>", curve, tile_trc->size);
        }
        return status == KO_OK;
    });
    return status;
}

} // namespace

int32_t KoTileTRCSave(const TileTRC *tile_trc, const char *path, int32_t form, int32_t overwrite) {
    if (!has_curves(shape_of(tile_trc), tile_trc->array)) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    Owned<TRCCompress, KoTRCCompressDelete> compress; // before the file is touched: a lack of memory must not cost a file
    if (form == KO_TILETRC_ENCODED) {
        compress.reset(KoTRCCompressNew(tile_trc->size));
        if (!compress) {
            return KoErrorGetLastError();
        }
    }
    File file;
    const int32_t status = open_for_writing(path, "wb", overwrite, &file);
    if (status != KO_OK) {
        return status;
    }
    std::fprintf(file.get(), "%s\nbits %d %d %d\n", word_of(form), static_cast<int>(KoTileTRCGetBits(tile_trc)),
                 message_int(tile_trc->numStripsX), message_int(tile_trc->numStripsY));
    write_curves(tile_trc, form, compress.get(), file.get(), path);
    return KO_OK;
}

int32_t KoTileTRCLoad(TileTRC *tile_trc, const char *path) {
    TextReader reader(path);
    int32_t status = reader.open("rb");
    int32_t form = 0;
    if (status == KO_OK) {
        status = read_form(&reader, &form);
    }
    GridShape shape = {};
    if (status == KO_OK) {
        status = read_shape(&reader, &shape);
    }
    if (status == KO_OK) {
        status = fit_to_shape(tile_trc, shape, &TileTRC::array, KoTileTRCInit, KoTileTRCFree);
    }
    return status == KO_OK ? read_curves(&reader, form, tile_trc, path) : status;
}
