// KoTRCCompressLoad on any bytes: the first two choose the size of the curve, the rest are its tokens.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include "harness.h"
#include "pictures.h"
#include "reference_tokens.h"

namespace {

using namespace ko_fuzz;
using Stream = std::unique_ptr<std::FILE, decltype([](std::FILE *stream) { std::fclose(stream); })>;

constexpr uint32_t untouched = 777777;

struct Reading {
    int32_t status;
    long place;
    std::vector<uint32_t> room; // the curve and what a token may store past it
};

Reading load(const std::string &path, uint64_t size) {
    const ko::TRCCompressPtr compress(KoTRCCompressNew(size));
    const Stream stream(std::fopen(path.c_str(), "rb"));
    Reading reading{KO_OK, 0, std::vector<uint32_t>(size + ko_test::token_room, untouched)};
    KoTRCCompressSetTRC(compress.get(), reading.room.data());
    KoStatusClear();
    reading.status = KoTRCCompressLoad(compress.get(), stream.get(), path.c_str());
    expect_load_status(reading.status, KO_ERR_READ_FILE);
    reading.place = std::ftell(stream.get());
    return reading;
}

// Status, place in the stream and all entries are those of a plain reading.
void expect_plain(const std::string &path, uint64_t size, const Reading &reading) {
    const Stream stream(std::fopen(path.c_str(), "rb"));
    std::vector<uint32_t> entries;
    const bool full = ko_test::read_tokens(stream.get(), size, &entries);
    expect(reading.status == (full ? KO_OK : KO_ERR_READ_FILE), "a stream that ends early is told");
    expect(!full || reading.place == std::ftell(stream.get()), "a load ends behind the last token");
    entries.resize(size + ko_test::token_room, untouched);
    expect(entries == reading.room, "a load stores what the tokens say");
}

// A curve that the tokens can hold comes back from them; any other is only written.
void save_and_load(const std::vector<uint32_t> &room, uint64_t size) {
    const std::string path = private_path("saved");
    std::vector<uint32_t> curve(room.begin(), room.begin() + static_cast<std::ptrdiff_t>(size));
    const ko::TRCCompressPtr compress(KoTRCCompressNew(size));
    KoTRCCompressSetTRC(compress.get(), curve.data());
    Stream stream(std::fopen(path.c_str(), "wb"));
    expect(KoTRCCompressSave(compress.get(), stream.get(), path.c_str()) == KO_OK, "a curve can be saved");
    stream.reset();
    if (ko_test::survives_tokens(curve.data(), size)) {
        const Reading again = load(path, size);
        expect(again.status == KO_OK && std::equal(curve.begin(), curve.end(), again.room.begin()), "a curve comes back");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) {
        return 0;
    }
    start();
    const uint64_t entries = (data[0] + 256u * data[1]) % 1025;
    const std::string path = private_file("input", text_of(data + 2, size - 2));
    const Reading reading = load(path, entries);
    expect_plain(path, entries, reading);
    if (reading.status == KO_OK && entries > 0) {
        save_and_load(reading.room, entries);
    }
    expect(open_streams() == 0, "no stream stays open");
    return 0;
}
