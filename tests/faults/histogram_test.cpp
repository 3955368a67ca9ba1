// Histograms when memory runs short.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko/histogram.h"

#include "allocation_sweep.h"
#include "curve_texts.h"
#include "faults.h"
#include "files.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

using Counters = std::vector<uint32_t>;

class HistogramFaultTest : public LibraryTest {};

bool struck() { return KoTestFaultStruck() != 0; }

Counters counters(const Histogram *histogram) { return {histogram->values, histogram->values + histogram->size}; }

TEST_F(HistogramFaultTest, InitSucceedsWithoutCounters) {
    const int faults = sweep_faults([] {
        Histogram histogram;
        EXPECT_EQ(KoHistogramInit(&histogram, 16, 0.0f, 15.0f), KO_OK);
        EXPECT_EQ(histogram.values == nullptr, struck());
        EXPECT_EQ(histogram.scale, 1.0f);
        EXPECT_EQ(KoErrorGetLastError(), struck() ? KO_ERR_ALLOC : KO_OK);
        KoHistogramFree(&histogram);
    });
    EXPECT_EQ(faults, 1);
}

// Only the record is needed; without counters the operations say so.
TEST_F(HistogramFaultTest, NewNamesTheObjectOrGivesAHistogramWithoutCounters) {
    const RealImagePtr image = make_image(9, 5, [](uint64_t x, uint64_t) { return static_cast<float>(x); });
    int without_record = 0;
    const int faults = sweep_faults([&] {
        const HistogramPtr histogram(KoHistogramNew(16, 2.0f, 17.0f));
        if (histogram == nullptr) {
            ++without_record;
            expect_status(KO_ERR_CREATE_OBJECT,
                          cannot_create("Histogram") + "Cannot allocate " + std::to_string(sizeof(Histogram)) + " bytes");
        } else if (struck()) {
            expect_status(KO_ERR_ALLOC, "Cannot allocate 64 bytes");
            EXPECT_EQ(histogram->values, nullptr);
            EXPECT_EQ(KoHistogramAddValue(histogram.get(), 0, 1), KO_ERR_NULL_POINTER);
            EXPECT_EQ(KoHistogramCompute(histogram.get(), image.get()), KO_ERR_NULL_POINTER);
            EXPECT_EQ(KoHistogramGetValue(histogram.get(), 3), 0u);
            EXPECT_EQ(KoHistogramGetValueAtPercentile(histogram.get(), 0.5f), 2.0f);
        }
    });
    EXPECT_EQ(faults, 2);
    EXPECT_EQ(without_record, 1);
}

TEST_F(HistogramFaultTest, NewFromSubImageGivesNullAndNamesTheObject) {
    const RealImagePtr image = make_image(9, 5, [](uint64_t x, uint64_t) { return static_cast<float>(x); });
    const std::string report = cannot_create("Histogram").substr(0, 32);
    const int faults = sweep_faults([&] {
        RealImageLineIterator iterator;
        KoRealImageLineIteratorInit(&iterator, image.get());
        const HistogramPtr histogram(KoHistogramNewFromSubImage(16, 0.0f, 15.0f, &iterator));
        EXPECT_EQ(histogram == nullptr, struck());
        EXPECT_EQ(KoErrorGetLastError(), struck() ? KO_ERR_CREATE_OBJECT : KO_OK);
        if (struck()) {
            EXPECT_EQ(std::string(KoErrorGetLastErrorMessage()).substr(0, report.size()), report);
        }
    });
    EXPECT_EQ(faults, 2);
}

// Counting allocates nothing.
TEST_F(HistogramFaultTest, CountingNeedsNoMemory) {
    const RealImagePtr image = make_image(9, 5, [](uint64_t x, uint64_t) { return static_cast<float>(x); });
    const HistogramPtr histogram(KoHistogramNew(16, 0.0f, 15.0f));
    EXPECT_EQ(sweep_faults([&] { EXPECT_EQ(KoHistogramCompute(histogram.get(), image.get()), KO_OK); }), 0);
}

TEST_F(HistogramFaultTest, APushedCurveSucceedsAndLeavesTheHistogram) {
    const HistogramPtr histogram(KoHistogramNew(4, 0.0f, 3.0f));
    const Counters before{1, 2, 3, 4};
    const TRCPtr trc = make_trc({3, 2, 1, 0});
    const std::vector<int32_t> raw{3, 2, 1, 0};
    for (const bool from_trc : {true, false}) {
        KoHistogramSetValues(histogram.get(), before.data(), 4);
        const int faults = sweep_faults([&] {
            EXPECT_EQ(from_trc ? KoHistogramApplyTRC(histogram.get(), trc.get())
                               : KoHistogramApplyRawTRC(histogram.get(), raw.data(), 4),
                      KO_OK);
            EXPECT_EQ(counters(histogram.get()), struck() ? before : (Counters{4, 3, 2, 1}));
            EXPECT_EQ(KoErrorGetLastError(), struck() ? KO_ERR_ALLOC : KO_OK);
        });
        EXPECT_EQ(faults, 1);
    }
}

TEST_F(HistogramFaultTest, LoadLeavesTheHistogramAsItWas) {
    const TemporaryFile file("histogram.txt", "bits 1\n8\n9\n");
    const HistogramPtr histogram(KoHistogramNew(4, 1.0f, 4.0f));
    const Counters before{1, 2, 3, 4};
    KoHistogramSetValues(histogram.get(), before.data(), 4);
    histogram->numPixels = 10;
    const int faults = sweep_faults([&] {
        const int32_t status = KoHistogramLoad(histogram.get(), file.c_str());
        EXPECT_EQ(status, struck() ? KO_ERR_ALLOC : KO_OK);
        EXPECT_EQ(counters(histogram.get()), struck() ? before : (Counters{8, 9}));
        EXPECT_EQ(histogram->numPixels, struck() ? 10u : 0u);
        EXPECT_EQ(histogram->minValue, struck() ? 1.0f : 0.0f);
        EXPECT_EQ(histogram->maxValue, struck() ? 4.0f : 2.0f);
        EXPECT_EQ(histogram->scale, struck() ? 1.0f : 0.5f);
    });
    EXPECT_GE(faults, 1);
}

// A report needs memory too: without it the call still says what it has to.
TEST_F(HistogramFaultTest, ReportsSurviveShortMemory) {
    const HistogramPtr histogram(KoHistogramNew(2, 0.0f, 1.0f));
    const TemporaryFile file("histogram.txt", "bits 1\nnothing\n");
    sweep_faults([&] { EXPECT_EQ(KoHistogramSetValues(histogram.get(), nullptr, 2), KO_ERR_INVALID_ARGUMENT); });
    sweep_faults([&] { EXPECT_EQ(KoHistogramSave(histogram.get(), file.c_str(), 0), KO_ERR_FILE_EXISTS); });
    sweep_faults([&] { EXPECT_EQ(KoHistogramLoad(histogram.get(), "no such file"), KO_ERR_OPEN_READ); });
    sweep_faults([&] {
        const int32_t status = KoHistogramLoad(histogram.get(), file.c_str());
        EXPECT_TRUE(status == KO_ERR_READ_LINE || (struck() && status == KO_ERR_ALLOC)) << status;
    });
}

} // namespace
