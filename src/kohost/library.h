// The library as a C++ host uses it: started once, its objects owned, its failures thrown.
#ifndef KO_KOHOST_LIBRARY_H
#define KO_KOHOST_LIBRARY_H

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "ko.h"

namespace kohost {

// The library's message chain in one line, newest first: each call that passed a failure on adds a line to it.
inline std::string message_chain() {
    constexpr std::string_view next_line = "\n-> ";
    std::string chain = KoErrorGetLastErrorMessage();
    for (size_t at = chain.find(next_line); at != std::string::npos; at = chain.find(next_line, at)) {
        chain.replace(at, next_line.size(), ": ");
    }
    return chain;
}

// A library call failed; the text holds the message chain, followed by the reason if that is known from elsewhere.
class LibraryError : public std::runtime_error {
  public:
    explicit LibraryError(const std::string &what, const std::string &why = "")
        : std::runtime_error(what + ": " + message_chain() + (why.empty() ? "" : ": " + why)) {}
};

// Throws unless a step worked and left no failure on the thread: most calls report through the thread's status, some through
// it alone. The caller clears it before a sequence of calls.
inline void check(bool worked, const char *what) {
    if (!worked || KoErrorGetLastError() != KO_OK) {
        throw LibraryError(what);
    }
}

class Library {
  public:
    Library() { KoInit(nullptr, nullptr); }
    ~Library() { KoRelease(); }
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
};

template <auto Delete> struct Deleter {
    template <class Object> void operator()(Object *object) const { Delete(object); }
};

using ColorImagePtr = std::unique_ptr<ColorImage, Deleter<KoColorImageDelete>>;
using RealImagePtr = std::unique_ptr<RealImage, Deleter<KoRealImageDelete>>;
using FeaturesPtr = std::unique_ptr<LocalContrastEnhancementImageFeatures, Deleter<KoLocalContrastEnhancementDelete>>;
using TileTrcPtr = std::unique_ptr<TileTRC, Deleter<KoTileTRCDelete>>;
using RedEyeCorrectionPtr = std::unique_ptr<RedEyeCorrection, Deleter<KoRedEyeCorrectionDelete>>;
using RedEyeImageParamPtr = std::unique_ptr<RedEyeImageParam, Deleter<KoRedEyeImageParamDelete>>;
using ApplyPtr = std::unique_ptr<TileTRCApply, Deleter<KoTileTRCApplyDelete>>;

} // namespace kohost

#endif
