// Inside the codec on Windows: the system's codecs read from an input and write into memory.
#ifndef KO_CODEC_WIC_STREAM_H
#define KO_CODEC_WIC_STREAM_H

#include "codec/stream.h"
#include "codec/wic/com.h"

namespace codec::wic {

// A stream for one thread. It belongs to its maker: references to it are counted by nobody, and must have ended before it does.
class Stream : public IStream {
  public:
    virtual ~Stream() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void **object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    HRESULT STDMETHODCALLTYPE Read(void *room, ULONG count, ULONG *done) override;
    HRESULT STDMETHODCALLTYPE Write(const void *bytes, ULONG count, ULONG *done) override;
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER *position) override;
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CopyTo(IStream *, ULARGE_INTEGER, ULARGE_INTEGER *, ULARGE_INTEGER *) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Revert() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG *status, DWORD) override;
    HRESULT STDMETHODCALLTYPE Clone(IStream **) override { return E_NOTIMPL; }

  protected:
    virtual std::optional<size_t> read_at(uint64_t offset, std::span<uint8_t> room) noexcept = 0;
    virtual bool write_at(uint64_t, std::span<const uint8_t>) noexcept { return false; }
    virtual std::optional<uint64_t> size() noexcept = 0;

  private:
    uint64_t position_ = 0;
};

class InputStream : public Stream {
  public:
    explicit InputStream(Input &input) : input_(input) {}

    // Throws the input's reason if it could not be read.
    void check_input() const;

  protected:
    std::optional<size_t> read_at(uint64_t offset, std::span<uint8_t> room) noexcept override;
    std::optional<uint64_t> size() noexcept override;

  private:
    Input &input_;
    bool failed_ = false;
};

// What is written stays in memory.
class MemoryStream : public Stream {
  public:
    const Bytes &bytes() const { return bytes_; }

  protected:
    std::optional<size_t> read_at(uint64_t offset, std::span<uint8_t> room) noexcept override;
    bool write_at(uint64_t offset, std::span<const uint8_t> bytes) noexcept override;
    std::optional<uint64_t> size() noexcept override { return bytes_.size(); }

  private:
    Bytes bytes_;
};

} // namespace codec::wic

#endif
