#include "codec/wic/stream.h"

namespace codec::wic {

HRESULT STDMETHODCALLTYPE Stream::QueryInterface(REFIID id, void **object) {
    const bool known = IsEqualIID(id, IID_IUnknown) || IsEqualIID(id, IID_ISequentialStream) || IsEqualIID(id, IID_IStream);
    *object = known ? static_cast<IStream *>(this) : nullptr;
    return known ? S_OK : E_NOINTERFACE;
}

HRESULT STDMETHODCALLTYPE Stream::Read(void *room, ULONG count, ULONG *done) {
    const std::optional<size_t> read = read_at(position_, {static_cast<uint8_t *>(room), count});
    if (done != nullptr) {
        *done = static_cast<ULONG>(read.value_or(0));
    }
    if (!read) {
        return STG_E_READFAULT;
    }
    position_ += *read;
    return *read == count ? S_OK : S_FALSE;
}

HRESULT STDMETHODCALLTYPE Stream::Write(const void *bytes, ULONG count, ULONG *done) {
    const bool written = write_at(position_, {static_cast<const uint8_t *>(bytes), count});
    if (done != nullptr) {
        *done = written ? count : 0;
    }
    if (!written) {
        return E_OUTOFMEMORY;
    }
    position_ += count;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE Stream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER *position) {
    const std::optional<uint64_t> end = origin == STREAM_SEEK_END ? size() : 0;
    if (!end) {
        return STG_E_READFAULT;
    }
    const uint64_t from = origin == STREAM_SEEK_END ? *end : origin == STREAM_SEEK_CUR ? position_ : 0;
    const uint64_t to = from + static_cast<uint64_t>(move.QuadPart);
    if (to > INT64_MAX) { // also before the beginning
        return STG_E_INVALIDFUNCTION;
    }
    position_ = to;
    if (position != nullptr) {
        position->QuadPart = position_;
    }
    return S_OK;
}

HRESULT STDMETHODCALLTYPE Stream::Stat(STATSTG *status, DWORD) {
    const std::optional<uint64_t> bytes = size();
    if (!bytes) {
        return STG_E_READFAULT;
    }
    *status = {};
    status->type = STGTY_STREAM;
    status->cbSize.QuadPart = *bytes;
    return S_OK;
}

void InputStream::check_input() const {
    if (failed_) {
        throw Error(input_.failure());
    }
}

std::optional<size_t> InputStream::read_at(uint64_t offset, std::span<uint8_t> room) noexcept {
    const std::optional<size_t> count = input_.read(offset, room);
    failed_ |= !count;
    return count;
}

std::optional<uint64_t> InputStream::size() noexcept {
    const std::optional<uint64_t> bytes = input_.size();
    failed_ |= !bytes;
    return bytes;
}

std::optional<size_t> MemoryStream::read_at(uint64_t offset, std::span<uint8_t> room) noexcept {
    return MemoryInput(bytes_).read(offset, room);
}

bool MemoryStream::write_at(uint64_t offset, std::span<const uint8_t> bytes) noexcept {
    try {
        if (offset + bytes.size() > bytes_.size()) {
            bytes_.resize(offset + bytes.size());
        }
    } catch (...) {
        return false;
    }
    std::copy(bytes.begin(), bytes.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(offset));
    return true;
}

} // namespace codec::wic
