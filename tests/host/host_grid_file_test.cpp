// The program's files of curves: what is saved is what comes back, or nothing is saved.
#include <functional>

#include "host.h"
#include "host/files.h"
#include "host/grid_file.h"

namespace {

using namespace ko_test;

class GridFiles : public Host {
  protected:
    GridFiles() { write_bytes(target_, "old"); }

    // Why a grid is not saved, "" if it is; the old file is then replaced, and otherwise unchanged.
    std::string saved(const TileTRC &grid, host::GridForm form) const {
        try {
            host::save_grid(grid, form, target_);
        } catch (const host::FileError &error) {
            EXPECT_EQ(read_bytes(target_), "old");
            EXPECT_EQ(left(), (std::set<std::string>{"grid"}));
            const std::string text = error.what();
            EXPECT_TRUE(text.starts_with("cannot write " + target_ + ": ")) << text;
            return text.substr(text.find(": ") + 2);
        }
        EXPECT_NE(read_bytes(target_), "old");
        const ko::TileTRCPtr again = host::load_grid(target_);
        EXPECT_EQ(KoTileTRCCompare(&grid, again.get()), 1);
        EXPECT_EQ(KoErrorGetLastError(), KO_OK);
        write_bytes(target_, "old");
        return "";
    }

    const ko::Library library_;
    const std::string target_ = path("grid");
};

ko::TileTRCPtr grid_of(uint64_t size, const std::function<uint32_t(uint64_t)> &entry) {
    ko::TileTRCPtr grid(KoTileTRCNew(size, 2, 3));
    for (uint64_t i = 0; i < size * 6; ++i) {
        grid->array[i] = entry(i % size);
    }
    return grid;
}

uint32_t identity(uint64_t i) { return static_cast<uint32_t>(i); }

const std::string not_held_by_binary = "the binary form does not hold these curves; --form text does";
const std::string not_held_by_encoded = "the encoded form does not hold these curves; --form text does";

struct Curve {
    std::string name;
    std::function<uint32_t(uint64_t)> entry;
    bool binary; // true if the form holds it
    bool encoded;
};

class Curves : public GridFiles, public testing::WithParamInterface<Curve> {};

TEST_P(Curves, AreSavedByTheFormsThatHoldThem) {
    const Curve &curve = GetParam();
    const ko::TileTRCPtr grid = grid_of(256, curve.entry);
    EXPECT_EQ(saved(*grid, host::GridForm::text), "");
    EXPECT_EQ(saved(*grid, host::GridForm::binary), curve.binary ? "" : not_held_by_binary);
    EXPECT_EQ(saved(*grid, host::GridForm::encoded), curve.encoded ? "" : not_held_by_encoded);
}

INSTANTIATE_TEST_SUITE_P(
    Host, Curves,
    testing::Values(Curve{"Identity", identity, true, true},
                    Curve{"Falling", [](uint64_t i) { return static_cast<uint32_t>(255 - i); }, false, false},
                    Curve{"FallingOnce", [](uint64_t i) { return static_cast<uint32_t>(i == 100 ? 90 : i); }, true, false},
                    Curve{"StepOf127", [](uint64_t i) { return i < 50 ? 0u : 127u; }, true, true},
                    Curve{"StepOf128", [](uint64_t i) { return i < 50 ? 0u : 128u; }, false, true},
                    Curve{"StepOf4095", [](uint64_t i) { return i < 50 ? 0u : 4095u; }, false, true},
                    Curve{"StepOf4096", [](uint64_t i) { return i < 50 ? 0u : 4096u; }, false, false},
                    Curve{"HighLastButOne", [](uint64_t i) { return i < 254    ? 0u
                                                                    : i == 254 ? 5u
                                                                               : 6u; }, true, false},
                    Curve{"HighLastTwo", [](uint64_t i) { return i < 254    ? 0u
                                                                 : i == 254 ? 5u
                                                                            : 10u; }, true, true}),
    [](const auto &curve) { return curve.param.name; });

TEST_F(GridFiles, HoldCurvesOfAPowerOfTwoEntries) {
    for (const uint64_t size : {256, 512, 4096}) {
        EXPECT_EQ(saved(*grid_of(size, identity), host::GridForm::text), "") << size;
    }
    EXPECT_EQ(saved(*grid_of(768, identity), host::GridForm::text), "the text form does not hold these curves");
}

TEST_F(GridFiles, AGridMustFitThePicture) {
    const ko::TileTRCPtr grid(KoTileTRCNew(256, 2, 3));
    host::check_fit(*grid, 4, 6);
    EXPECT_THROW(host::check_fit(*grid, 3, 6), host::FileError);
    EXPECT_THROW(host::check_fit(*grid, 4, 5), host::FileError);
    const ko::TileTRCPtr single(KoTileTRCNew(256, 1, 1));
    host::check_fit(*single, 1, 1);
}

} // namespace
