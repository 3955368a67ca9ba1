// ko for C++: owners of the library's objects, failures as exceptions, pictures from spans. Everything is inline and rests on
// the functions of ko.h, whose rules hold here too. Needs C++20.
//
// One thread at a time uses an object. The library's status, which an exception is made of, is the calling thread's.
#ifndef KO_HPP
#define KO_HPP

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "ko.h"

namespace ko {

// The library's message chain in one line, newest first: each call that passed a failure on added a line to it.
inline std::string message_chain() {
    constexpr std::string_view next_line = "\n-> ";
    std::string chain = KoErrorGetLastErrorMessage();
    for (std::size_t at = chain.find(next_line); at != std::string::npos; at = chain.find(next_line, at)) {
        chain.replace(at, next_line.size(), ": ");
    }
    return chain;
}

// A call of the library failed on this thread. what() is what the caller was about, then the message chain, then the reason
// if that is known from elsewhere.
class Error : public std::runtime_error {
  public:
    explicit Error(const std::string &what, const std::string &why = "")
        : std::runtime_error(what + ": " + message_chain() + (why.empty() ? "" : ": " + why)), status_(KoErrorGetLastError()) {}

    // The thread's status when the exception was made: KO_ERR_ALLOC and so on, of ko/error.h.
    std::int32_t status() const noexcept { return status_; }

  private:
    std::int32_t status_;
};

// Throws unless a step worked and left no failure on the thread: most calls report through the thread's status, some through
// it alone, and no success clears it. The caller clears it with KoStatusClear before a sequence of calls.
inline void check(bool worked, const char *what) {
    if (!worked || KoErrorGetLastError() != KO_OK) {
        throw Error(what);
    }
}

// The library, started and ended. KoInit counts its calls, so that several may live at a time.
class Library {
  public:
    Library() { KoInit(nullptr, nullptr); }
    ~Library() { KoRelease(); }
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
};

// ---- owners

template <auto Delete> struct Deleter {
    template <class Object> void operator()(Object *object) const { Delete(object); }
};

using VectorPtr = std::unique_ptr<Vector, Deleter<KoVectorDelete>>;
using MatrixFloatPtr = std::unique_ptr<MatrixFloat, Deleter<KoMatrixFloatDelete>>;
using MatrixFloatRowIteratorPtr = std::unique_ptr<MatrixFloatRowIterator, Deleter<KoMatrixFloatRowIteratorDelete>>;
using MatrixIntegerPtr = std::unique_ptr<MatrixInteger, Deleter<KoMatrixIntegerDelete>>;
using RealImagePtr = std::unique_ptr<RealImage, Deleter<KoRealImageDelete>>;
using RealImageLineIteratorPtr = std::unique_ptr<RealImageLineIterator, Deleter<KoRealImageLineIteratorDelete>>;
using ColorImagePtr = std::unique_ptr<ColorImage, Deleter<KoColorImageDelete>>;
using ColorImageLineIteratorPtr = std::unique_ptr<ColorImageLineIterator, Deleter<KoColorImageLineIteratorDelete>>;
using TRCPtr = std::unique_ptr<TRC, Deleter<KoTRCDelete>>;
using ColorTRCPtr = std::unique_ptr<ColorTRC, Deleter<KoColorTRCDelete>>;
using TileTRCPtr = std::unique_ptr<TileTRC, Deleter<KoTileTRCDelete>>;
using TileColorTRCPtr = std::unique_ptr<TileColorTRC, Deleter<KoTileColorTRCDelete>>;
using TileTRCApplyPtr = std::unique_ptr<TileTRCApply, Deleter<KoTileTRCApplyDelete>>;
using TileColorTRCApplyPtr = std::unique_ptr<TileColorTRCApply, Deleter<KoTileColorTRCApplyDelete>>;
using TRCCompressPtr = std::unique_ptr<TRCCompress, Deleter<KoTRCCompressDelete>>;
using HistogramPtr = std::unique_ptr<Histogram, Deleter<KoHistogramDelete>>;
using KernelGaussianPtr = std::unique_ptr<KernelGaussian, Deleter<KoKernelGaussianDelete>>;
using FeaturesPtr = std::unique_ptr<LocalContrastEnhancementImageFeatures, Deleter<KoLocalContrastEnhancementDelete>>;
using OrientationHistogramPtr = std::unique_ptr<OrientationHistogram, Deleter<KoOrientationHistogramDelete>>;
using RedEyeCorrectionPtr = std::unique_ptr<RedEyeCorrection, Deleter<KoRedEyeCorrectionDelete>>;
using RedEyeImageParamPtr = std::unique_ptr<RedEyeImageParam, Deleter<KoRedEyeImageParamDelete>>;

// ---- pictures

// Throws std::invalid_argument unless a span has as many elements as a picture.
inline void check_size(std::size_t elements, std::uint32_t width, std::uint32_t height, std::uint32_t channels) {
    const std::uint64_t pixels = std::uint64_t{width} * height;
    if (pixels == 0 || elements % channels != 0 || elements / channels != pixels) {
        throw std::invalid_argument("the number of values does not fit the size of the picture");
    }
}

// A copy of an RGB picture: height rows of width pixels of three bytes. Throws std::invalid_argument and Error.
inline ColorImagePtr color_image(std::span<const std::uint8_t> bytes, std::uint32_t width, std::uint32_t height) {
    check_size(bytes.size(), width, height, 3);
    KoStatusClear();
    ColorImagePtr image(
        KoColorImageNewFromByteArray(width, height, KO_COLORSPACE_RGB, bytes.data(), KO_BYTE_LAYOUT_INTERLEAVED));
    check(image != nullptr, "the picture does not fit the memory");
    return image;
}

// A copy of a gray picture: height rows of width bytes. Throws std::invalid_argument and Error.
inline RealImagePtr real_image(std::span<const std::uint8_t> bytes, std::uint32_t width, std::uint32_t height) {
    check_size(bytes.size(), width, height, 1);
    KoStatusClear();
    RealImagePtr image(KoRealImageNewFromByteArray(width, height, bytes.data(), 0));
    check(image != nullptr, "the picture does not fit the memory");
    return image;
}

// The same from height rows of width floats.
inline RealImagePtr real_image(std::span<const float> levels, std::uint32_t width, std::uint32_t height) {
    check_size(levels.size(), width, height, 1);
    KoStatusClear();
    RealImagePtr image(KoRealImageNewFromFloatArray(width, height, levels.data()));
    check(image != nullptr, "the picture does not fit the memory");
    return image;
}

// Writes the pixels of an RGB picture as interleaved bytes, as KoColorImageToByteArray does: levels from 0 to below 256 are
// truncated. Throws std::invalid_argument and Error.
inline void to_bytes(const ColorImage &image, std::span<std::uint8_t> bytes) {
    const auto width = static_cast<std::uint32_t>(KoColorImageGetWidth(&image));
    const auto height = static_cast<std::uint32_t>(KoColorImageGetHeight(&image));
    check_size(bytes.size(), width, height, 3);
    KoStatusClear();
    check(KoColorImageToByteArray(&image, bytes.data(), 0, height, KO_BYTE_LAYOUT_INTERLEAVED) == KO_OK,
          "the picture cannot be converted to bytes");
}

} // namespace ko

#endif
