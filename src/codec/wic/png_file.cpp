#include "codec/wic/png_file.h"

#include <algorithm>
#include <array>

namespace codec::wic {

namespace {

constexpr size_t most_kept = 8'000'000;

constexpr std::array<uint32_t, 256> crc_table() {
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < table.size(); ++i) {
        uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 1) != 0 ? value >> 1 ^ 0xedb88320u : value >> 1;
        }
        table[i] = value;
    }
    return table;
}

// The checksum of a chunk, over its name and its bytes in any number of parts.
class Crc {
  public:
    void add(std::span<const uint8_t> bytes) {
        static constexpr std::array<uint32_t, 256> table = crc_table();
        for (const uint8_t byte : bytes) {
            value_ = value_ >> 8 ^ table[(value_ ^ byte) & 0xff];
        }
    }
    uint32_t value() const { return ~value_; }

  private:
    uint32_t value_ = 0xffffffff;
};

std::span<const uint8_t> bytes_of(std::string_view text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

} // namespace

ChunkReader::ChunkReader(Input &input) : input_(input), position_(png_signature.size()) {}

void ChunkReader::read(std::span<uint8_t> room) {
    const std::optional<size_t> count = input_.read(position_, room);
    if (!count) {
        throw Error(input_.failure());
    }
    if (*count < room.size()) {
        throw Error("truncated PNG file");
    }
    position_ += room.size();
}

bool ChunkReader::next() {
    if (name_ == "IEND") {
        return false;
    }
    std::array<uint8_t, 8> header{};
    read(header);
    const uint32_t size = number_at(header, 0);
    name_.assign(header.begin() + 4, header.end());
    if (size > INT32_MAX) {
        throw Error("a chunk of the PNG file is too large");
    }
    Crc crc;
    crc.add(std::span(header).subspan(4));
    const bool is_kept = name_ != "IDAT" && size <= most_kept;
    bytes_.clear();
    std::array<uint8_t, 1 << 14> room{};
    for (size_t done = 0; done < size;) {
        const auto part = std::span(room).first(std::min(room.size(), size - done));
        read(part);
        crc.add(part);
        if (is_kept) {
            bytes_.insert(bytes_.end(), part.begin(), part.end());
        }
        done += part.size();
    }
    std::array<uint8_t, 4> sum{};
    read(sum);
    if (number_at(sum, 0) != crc.value()) {
        throw Error("the PNG chunk '" + name_ + "' is damaged");
    }
    return true;
}

uint32_t number_at(std::span<const uint8_t> bytes, size_t position) {
    uint32_t value = 0;
    for (size_t i = position; i < position + 4; ++i) {
        value = value << 8 | (i < bytes.size() ? bytes[i] : 0u);
    }
    return value;
}

void add_number(Bytes &bytes, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<uint8_t>(value >> shift));
    }
}

Bytes chunk_of(std::string_view name, std::span<const uint8_t> bytes) {
    Crc crc;
    crc.add(bytes_of(name));
    crc.add(bytes);
    Bytes chunk;
    chunk.reserve(bytes.size() + 12);
    add_number(chunk, static_cast<uint32_t>(bytes.size()));
    chunk.insert(chunk.end(), name.begin(), name.end());
    chunk.insert(chunk.end(), bytes.begin(), bytes.end());
    add_number(chunk, crc.value());
    return chunk;
}

// Blocks of the kind that holds bytes as they are, in the frame that every compressed part has.
Bytes stored(std::span<const uint8_t> bytes) {
    constexpr size_t most = 0xffff;
    constexpr uint32_t modulus = 65521;
    Bytes packed;
    packed.reserve(bytes.size() + 5 * (bytes.size() / most + 1) + 6);
    packed.push_back(0x78);
    packed.push_back(0x01);
    uint32_t low = 1;
    uint32_t high = 0;
    for (const uint8_t byte : bytes) {
        low = (low + byte) % modulus;
        high = (high + low) % modulus;
    }
    do {
        const auto part = bytes.first(std::min(bytes.size(), most));
        bytes = bytes.subspan(part.size());
        const auto size = static_cast<uint16_t>(part.size());
        packed.push_back(bytes.empty() ? 1 : 0);
        for (const int value : {size & 0xff, size >> 8, ~size & 0xff, ~size >> 8 & 0xff}) {
            packed.push_back(static_cast<uint8_t>(value));
        }
        packed.insert(packed.end(), part.begin(), part.end());
    } while (!bytes.empty());
    add_number(packed, high << 16 | low);
    return packed;
}

} // namespace codec::wic
