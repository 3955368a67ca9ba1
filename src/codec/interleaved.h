// Inside the codec: rows of a picture that a decoder delivers as a whole, as RGB with interleaved alpha.
#ifndef KO_CODEC_INTERLEAVED_H
#define KO_CODEC_INTERLEAVED_H

#include <algorithm>

#include "codec/alpha.h"
#include "codec/codec.h"

namespace codec {

class InterleavedReader : public Reader {
  public:
    void read(uint32_t rows, uint8_t *pixels, uint8_t *alpha) override {
        if (next_ == nullptr) {
            next_ = decode();
        }
        for (uint32_t row = 0; row < rows; ++row, next_ += stride_) {
            if (description_.has_alpha) {
                separate(next_, pixels, alpha);
                alpha += alpha != nullptr ? width_ : 0;
            } else {
                std::copy_n(next_, description_.row_bytes(), pixels);
            }
            pixels += description_.row_bytes();
        }
    }

  protected:
    // Decodes the picture and returns its first row; the next one begins stride_ bytes later.
    virtual const uint8_t *decode() = 0;

    size_t stride_ = 0;
    bool multiplied_ = false; // the colours by their alpha

  private:
    // alpha is null if the caller does not need it.
    void separate(const uint8_t *from, uint8_t *pixels, uint8_t *alpha) const {
        for (uint32_t x = 0; x < width_; ++x, from += 4, pixels += 3) {
            std::copy_n(from, 3, pixels);
            if (multiplied_) {
                divide_by_alpha(pixels, 3, from[3]);
            }
            if (alpha != nullptr) {
                alpha[x] = from[3];
            }
        }
    }

    const uint8_t *next_ = nullptr; // the row that is read next
};

} // namespace codec

#endif
