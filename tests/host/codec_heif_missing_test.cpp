// HEIC and AVIF files in a build without libheif.
#include <gtest/gtest.h>

#include "codec_files.h"
#include "heif_stored.h"

namespace {

using namespace ko_test;

TEST(HeifMissing, FilesAreRefusedWithAWord) {
    EXPECT_EQ(error_of(stored_heic()), "a HEIC file, which this build cannot read");
    EXPECT_EQ(error_of(stored_avif()), "an AVIF file, which this build cannot read");
}

} // namespace
