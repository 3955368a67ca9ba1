// The identifiers of the component are compiled into this file: the import library has none of them.
#include <initguid.h>

#include "codec/wic/com.h"

#include <array>
#include <cstdio>
#include <new>

namespace codec::wic {

namespace {

const char *reason_of(HRESULT result) {
    switch (result) {
    case WINCODEC_ERR_BADHEADER:
    case WINCODEC_ERR_BADMETADATAHEADER:
    case WINCODEC_ERR_UNKNOWNIMAGEFORMAT:
        return "the header is damaged";
    case WINCODEC_ERR_BADIMAGE:
    case WINCODEC_ERR_BADSTREAMDATA:
    case WINCODEC_ERR_STREAMREAD:
        return "the picture is damaged";
    case WINCODEC_ERR_UNSUPPORTEDPIXELFORMAT:
        return "the system cannot convert the colours";
    case WINCODEC_ERR_COMPONENTNOTFOUND:
    case REGDB_E_CLASSNOTREG:
        return "the system has no codec for this format";
    default:
        return nullptr;
    }
}

} // namespace

void check(HRESULT result, const char *without_reason) {
    if (SUCCEEDED(result)) {
        return;
    }
    if (result == E_OUTOFMEMORY) {
        throw std::bad_alloc();
    }
    if (const char *reason = result == E_FAIL ? without_reason : reason_of(result)) {
        throw Error(reason);
    }
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "the system's codec fails with 0x%08lx", static_cast<unsigned long>(result));
    throw Error(text.data());
}

Com<IWICImagingFactory> make_factory() {
    Com<IWICImagingFactory> factory;
    check(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                           factory.untyped_place()));
    return factory;
}

} // namespace codec::wic
