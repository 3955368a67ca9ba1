// The token stream of curves when memory runs short.
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko/memory.h"
#include "ko/trccompress.h"

#include "allocation_sweep.h"
#include "faults.h"
#include "files.h"
#include "library_test.h"

namespace {

using namespace ko_test;

class TrcCompressFaultTest : public LibraryTest {
  protected:
    TrcCompressFaultTest() : file_("stream.bin", ""), stream_(std::fopen(file_.c_str(), "r+b")) {}
    ~TrcCompressFaultTest() override { std::fclose(stream_); }

    std::string written() const {
        std::fflush(stream_);
        return read_bytes(file_.path());
    }

    TemporaryFile file_;
    std::FILE *stream_;
    std::vector<uint32_t> entries_ = {1, 2, 2, 3, 9, 9, 10, 10};
};

bool struck() { return KoTestFaultStruck() != 0; }

TEST_F(TrcCompressFaultTest, NewGivesNullAndNamesTheObject) {
    expect_allocations({sizeof(TRCCompress)}, KO_ERR_CREATE_OBJECT, cannot_create("KoTRCCompressFast"), [] {
        TRCCompress *compress = KoTRCCompressNew(256);
        const bool made = compress != nullptr;
        KoTRCCompressDelete(compress);
        return made;
    });
}

// The one block of the first save: five tables of size + 1 elements of 16 bytes.
TEST_F(TrcCompressFaultTest, SaveGivesItsStatusAndWritesNothing) {
    expect_allocations({5 * (8 + 1) * 16}, KO_ERR_ALLOC, "", [&] {
        TRCCompress compress;
        KoTRCCompressInit(&compress, entries_.size());
        KoTRCCompressSetTRC(&compress, entries_.data());
        const std::string before = written();
        const int32_t status = KoTRCCompressSave(&compress, stream_, file_.c_str());
        EXPECT_EQ(status, struck() ? KO_ERR_ALLOC : KO_OK);
        EXPECT_EQ(compress.workspace == nullptr, struck());
        EXPECT_EQ(written() == before, struck());
        KoFree(compress.workspace);
        return status == KO_OK;
    });
}

// The object is still good, and its next save tries again.
TEST_F(TrcCompressFaultTest, ALaterSaveSucceeds) {
    TRCCompress *compress = KoTRCCompressNew(entries_.size());
    KoTRCCompressSetTRC(compress, entries_.data());
    {
        const StderrCapture swallowed;
        KoTestFailAllocation(1);
        EXPECT_EQ(KoTRCCompressSave(compress, stream_, file_.c_str()), KO_ERR_ALLOC);
        KoTestFailAllocation(0);
    }
    EXPECT_EQ(written(), "");
    EXPECT_EQ(KoTRCCompressSave(compress, stream_, file_.c_str()), KO_OK);
    EXPECT_EQ(written(), "\x0E\x0B\x68\x0A\x02");
    // from now on nothing is allocated
    EXPECT_EQ(sweep_faults([&] { EXPECT_EQ(KoTRCCompressSave(compress, stream_, file_.c_str()), KO_OK); }), 0);
    const int64_t before = KoTestLiveBlocks();
    KoTRCCompressDelete(compress);
    EXPECT_EQ(KoTestLiveBlocks(), before - 2); // record and workspace
}

TEST_F(TrcCompressFaultTest, LoadNeedsNoMemory) {
    write_bytes(file_.path(), "\x18\x18\x18");
    std::vector<uint32_t> read(3 + 63);
    TRCCompress compress;
    KoTRCCompressInit(&compress, 3);
    KoTRCCompressSetTRC(&compress, read.data());
    EXPECT_EQ(sweep_faults([&] {
                  std::rewind(stream_);
                  EXPECT_EQ(KoTRCCompressLoad(&compress, stream_, file_.c_str()), KO_OK);
              }),
              0);
    EXPECT_EQ(read[2], 3u);
}

// A report needs memory too: without it the call still says what it has to.
TEST_F(TrcCompressFaultTest, ReportsSurviveShortMemory) {
    TRCCompress compress;
    KoTRCCompressInit(&compress, 3);
    sweep_faults([&] { EXPECT_EQ(KoTRCCompressLoad(&compress, stream_, file_.c_str()), KO_ERR_NULL_POINTER); });
    std::vector<uint32_t> read(3 + 63);
    KoTRCCompressSetTRC(&compress, read.data());
    sweep_faults([&] { EXPECT_EQ(KoTRCCompressLoad(&compress, stream_, file_.c_str()), KO_ERR_READ_FILE); });
}

} // namespace
