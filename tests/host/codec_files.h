// What the tests of the codec share: files decoded and encoded in one call each, and files that are hostile.
#ifndef KO_TESTS_HOST_CODEC_FILES_H
#define KO_TESTS_HOST_CODEC_FILES_H

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "codec/codec.h"
#include "image_files.h"

namespace ko_test {

std::span<const uint8_t> bytes_of(const std::string &text);
std::string text_of(const codec::Bytes &bytes);

codec::Picture decoded(const std::string &file);
codec::Notices notices_of(const std::string &file);

// The decoder's error about a file, "no error" if it has none.
std::string error_of(const std::string &file);

std::string encoded(const codec::Picture &picture, codec::Format format, std::optional<int> quality = std::nullopt);
codec::Notices encoding_notices(const codec::Picture &picture, codec::Format format);

// A file decoded and encoded again.
std::string through(const std::string &file, codec::Format format);

std::vector<uint8_t> pixels_of(const codec::Picture &picture);
std::vector<uint8_t> alpha_of(const codec::Picture &picture);

// Samples first to last of all pixels.
std::vector<uint8_t> samples(uint32_t width, uint32_t height, uint32_t first, uint32_t last, const Sample &sample);

// A picture in memory; the sample after the colours is alpha.
codec::Picture picture_of(uint32_t width, uint32_t height, uint32_t channels, bool alpha, const Sample &sample);

// The greatest difference between two sets of bytes, 256 between sets of unequal size.
int farthest(const std::vector<uint8_t> &one, const std::vector<uint8_t> &other);

uint32_t mixed(uint32_t x, uint32_t y, uint32_t c);
uint32_t mixed_16(uint32_t x, uint32_t y, uint32_t c);
uint32_t soft(uint32_t x, uint32_t y, uint32_t c);

// The nearest of 256 levels to one of 65536.
uint32_t reduced(uint32_t level);

// An input that gives bytes up to a call that fails, as do all later ones.
class FailingInput : public codec::MemoryInput {
  public:
    FailingInput(const std::string &file, int calls) : MemoryInput(bytes_of(file)), left_(calls) {}

    std::optional<size_t> read(uint64_t offset, std::span<uint8_t> room) noexcept override {
        return left_-- > 0 ? MemoryInput::read(offset, room) : std::nullopt;
    }
    std::optional<uint64_t> size() noexcept override { return left_-- > 0 ? MemoryInput::size() : std::nullopt; }
    const char *failure() const noexcept override { return "the disk is gone"; }

  private:
    int left_;
};

// An output that takes bytes up to a call that fails, as do all later ones.
class FailingOutput : public codec::MemoryOutput {
  public:
    explicit FailingOutput(int calls) : left_(calls) {}

    bool write(std::span<const uint8_t> bytes) noexcept override { return left_-- > 0 && MemoryOutput::write(bytes); }
    bool rewrite(uint64_t offset, std::span<const uint8_t> bytes) noexcept override {
        return left_-- > 0 && MemoryOutput::rewrite(offset, bytes);
    }
    const char *failure() const noexcept override { return "the disk is full"; }

  private:
    int left_;
};

// Each call of an input and of an output fails once, and the failure is the error that is reported.
void expect_input_failures(const std::string &file);
void expect_output_failures(const codec::Picture &picture, codec::Format format);

// Every incomplete beginning of a file is an error.
void expect_every_truncation_fails(const std::string &file);

// Files with a few bytes changed are read or refused, nothing worse, and nothing is written to the standard error stream if the
// decoder lets itself be kept from it. Gives the number that were refused.
int refused_of_damaged(const std::vector<std::string> &files, int rounds, bool quiet = true);

} // namespace ko_test

#endif
