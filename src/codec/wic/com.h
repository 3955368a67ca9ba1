// Inside the codec on Windows: the Windows Imaging Component, and how its failures become exceptions.
#ifndef KO_CODEC_WIC_COM_H
#define KO_CODEC_WIC_COM_H

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <wincodec.h>

#include <utility>

#include "codec/codec.h"

namespace codec::wic {

// A reference to a COM object.
template <class Interface> class Com {
  public:
    Com() = default;
    Com(Com &&other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Com &operator=(Com &&other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~Com() {
        if (object_ != nullptr) {
            object_->Release();
        }
    }

    Interface *get() const { return object_; }
    Interface *operator->() const { return object_; }

    // Where a call puts the reference that it returns; there is none before.
    Interface **place() { return &object_; }
    void **untyped_place() { return reinterpret_cast<void **>(&object_); }

  private:
    Interface *object_ = nullptr;
};

// COM on the thread that makes and destroys this. A host may have begun it there already, in whichever way.
class Apartment {
  public:
    Apartment() : entered_(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
    ~Apartment() {
        if (entered_) {
            CoUninitialize();
        }
    }
    Apartment(const Apartment &) = delete;
    Apartment &operator=(const Apartment &) = delete;

  private:
    bool entered_;
};

// Throws for a failed call: std::bad_alloc for a lack of memory, Error for everything else, with this text where the system
// gives no reason.
void check(HRESULT result, const char *without_reason = "the picture is damaged");

Com<IWICImagingFactory> make_factory();

} // namespace codec::wic

#endif
