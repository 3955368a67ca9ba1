// Where the codec reads encoded bytes and where it writes them. Both are called from within C libraries, so they report a
// failure by their result and throw nothing.
#ifndef KO_CODEC_STREAM_H
#define KO_CODEC_STREAM_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "codec/picture.h"

namespace codec {

// An encoded file, which may be read several times and in any order.
class Input {
  public:
    virtual ~Input() = default;

    // Reads bytes from an offset on: as many as fit into room, fewer only at the end of the file. None if they cannot be read,
    // which failure() then explains.
    virtual std::optional<size_t> read(uint64_t offset, std::span<uint8_t> room) noexcept = 0;

    // The number of bytes; none if it cannot be found out, which failure() then explains.
    virtual std::optional<uint64_t> size() noexcept = 0;

    virtual const char *failure() const noexcept = 0;
};

class Output {
  public:
    virtual ~Output() = default;

    // Appends all bytes to those before. False if it cannot, which failure() then explains.
    virtual bool write(std::span<const uint8_t> bytes) noexcept = 0;

    // Overwrites bytes from an offset on, all of which were written before: for formats whose header gives the positions of
    // later parts.
    virtual bool rewrite(uint64_t offset, std::span<const uint8_t> bytes) noexcept = 0;

    virtual const char *failure() const noexcept = 0;
};

// Bytes in memory, which stay the caller's.
class MemoryInput : public Input {
  public:
    explicit MemoryInput(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    std::optional<size_t> read(uint64_t offset, std::span<uint8_t> room) noexcept override {
        const std::span<const uint8_t> rest = bytes_.subspan(std::min<uint64_t>(offset, bytes_.size()));
        const size_t count = std::min(rest.size(), room.size());
        std::copy_n(rest.begin(), count, room.begin());
        return count;
    }

    std::optional<uint64_t> size() noexcept override { return bytes_.size(); }

    const char *failure() const noexcept override { return ""; }

  private:
    std::span<const uint8_t> bytes_;
};

class MemoryOutput : public Output {
  public:
    bool write(std::span<const uint8_t> bytes) noexcept override {
        try {
            bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
            return true;
        } catch (...) {
            return false;
        }
    }

    bool rewrite(uint64_t offset, std::span<const uint8_t> bytes) noexcept override {
        std::copy(bytes.begin(), bytes.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(offset));
        return true;
    }

    const char *failure() const noexcept override { return "not enough memory"; }

    Bytes &bytes() { return bytes_; }

  private:
    Bytes bytes_;
};

} // namespace codec

#endif
