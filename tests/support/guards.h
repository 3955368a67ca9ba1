// Memory that shows when something reads or writes beside it: blocks of bytes of an exact size, and what surrounds a plane.
#ifndef KO_TESTS_GUARDS_H
#define KO_TESTS_GUARDS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "ko/matrix_float.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

namespace ko_test {

// A block of bytes between two guards: a plain build sees what was written over them, the address sanitizer every access.
class GuardedBytes {
  public:
    // shift: the block starts so many bytes behind a multiple of 8
    GuardedBytes(const std::vector<uint8_t> &bytes, size_t shift) : size_(bytes.size()), front_(guard + shift % 8) {
        block_.assign(front_ + size_ + guard, mark);
        std::copy(bytes.begin(), bytes.end(), data());
        close();
    }
    GuardedBytes(size_t size, uint8_t fill, size_t shift) : GuardedBytes(std::vector<uint8_t>(size, fill), shift) {}
    ~GuardedBytes() { open(); }
    GuardedBytes(const GuardedBytes &) = delete;
    GuardedBytes &operator=(const GuardedBytes &) = delete;

    uint8_t *data() { return block_.data() + front_; }

    std::vector<uint8_t> bytes() { return {data(), data() + size_}; }

    bool guards_hold() {
        open();
        const auto is_mark = [](uint8_t byte) { return byte == mark; };
        const auto end = block_.begin() + static_cast<std::ptrdiff_t>(front_);
        const bool hold = std::all_of(block_.begin(), end, is_mark) && std::all_of(block_.end() - guard, block_.end(), is_mark);
        close();
        return hold;
    }

  private:
    static constexpr std::ptrdiff_t guard = 64;
    static constexpr uint8_t mark = 0xA7;

#if defined(__SANITIZE_ADDRESS__)
    void close() {
        ASAN_POISON_MEMORY_REGION(block_.data(), front_);
        ASAN_POISON_MEMORY_REGION(data() + size_, guard);
    }
    void open() { ASAN_UNPOISON_MEMORY_REGION(block_.data(), block_.size()); }
#else
    void close() {}
    void open() {}
#endif

    size_t size_;
    size_t front_;
    std::vector<uint8_t> block_;
};

// The parts of a plane's block that are no pixels. Marks those before the first line and behind the last line's padding.
class PlaneGuard {
  public:
    explicit PlaneGuard(const MatrixFloat *plane) : plane_(plane) {
        if (plane->height != 0) {
            std::memset(bytes(plane->buffer), mark, lines() - bytes(plane->buffer));
            std::memset(behind(), mark, end() - behind());
        }
    }

    // True while the marks stand and all padding is 0.
    bool holds() const {
        if (plane_->height == 0) {
            return true;
        }
        for (uint64_t y = 0; y < plane_->height; ++y) {
            for (uint64_t i = 0; i < plane_->padding; ++i) {
                if (plane_->rows[y][plane_->width + i] != 0.0f) {
                    return false;
                }
            }
        }
        const auto is_mark = [](uint8_t byte) { return byte == mark; };
        return std::all_of(bytes(plane_->buffer), lines(), is_mark) && std::all_of(behind(), end(), is_mark);
    }

  private:
    static constexpr uint8_t mark = 0x5B;

    static uint8_t *bytes(float *floats) { return reinterpret_cast<uint8_t *>(floats); }
    uint64_t elements() const { return (plane_->width + plane_->padding) * plane_->height; }
    uint8_t *lines() const { return bytes(plane_->rows[0]); }
    uint8_t *behind() const { return lines() + elements() * sizeof(float); }
    uint8_t *end() const { return bytes(plane_->buffer) + elements() * 8 + 128; }

    const MatrixFloat *plane_;
};

} // namespace ko_test

#endif
