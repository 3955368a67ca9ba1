// What the files of local contrast enhancement share: the gain curve (lce_gain.cpp), the list of configurations that a picture
// can still pass (lce_decision.cpp), the measures that shorten it (lce_measures.cpp), and the curves (lce_tiles.cpp).
#ifndef KO_SRC_LCE_H
#define KO_SRC_LCE_H

#include "ko/localcontrastenhancement.h"

namespace ko {

using Features = LocalContrastEnhancementImageFeatures;

// The background of the judgement for the whole process, set by each Init that finds KOLCEFLAGS: whether it is the bilateral
// filter's, and otherwise the mode of the Gaussian.
extern int32_t koLceBackgroundIsBLF;
extern int32_t koLceGaussianMode;

// ---- the gain curve

void set_gain_curve(Features *features, float max_gain, float strength, float limit_fraction);

// Sets enhanced, a new image if that is null, to image times the gain of background pixel by pixel.
[[nodiscard]] int32_t make_enhanced(const Features *features, const RealImage *image, const RealImage *background,
                                    RealImage **enhanced);

// ---- the decision

// The configurations by number.
constexpr int32_t disabled_configuration = 0;
constexpr int32_t first_with_limits = 1;
constexpr int32_t last_with_limits = 3;
constexpr int32_t always_configuration = 4;

constexpr uint64_t not_measured = UINT64_MAX;

void set_stock_limits(Features *features);

// A list in fixed storage, on the stack of the call that decides.
struct DecisionConfiguration {
    DecisionConfiguration *next;
    const DecisionMechanismThreshold *limits;
};
struct DecisionConfigurationList {
    DecisionConfiguration nodes[5];
    DecisionConfiguration *head;
};

// Fills the list with the configurations from 1 up to one with limits.
void list_configurations(const Features *features, int32_t configuration, DecisionConfigurationList *configurations);

// Takes every configuration out of the list that a value measured so far exceeds; proceed says whether any is left.
void KoLceFilterConfigurations(Features *features, DecisionConfigurationList *configurations);

// ---- the measures

// Takes the measures one after the other while a configuration is left. images_kept tells whether background and enhanced of
// the record hold what the measures were taken from. A status other than KO_OK leaves proceed at 0.
[[nodiscard]] int32_t KoLceComputeFeatures(Features *features, uint64_t blf_levels, DecisionConfigurationList *configurations,
                                           bool *images_kept);

// ---- the curves

// Fits a curve a tile, into the grid at tile_trc or into a new one if that is null. images_kept tells that the judgement has
// left background and enhanced in the record; otherwise they are made here.
[[nodiscard]] int32_t KoLceBuildTileTRC(Features *features, uint64_t blf_levels, bool images_kept, TileTRC **tile_trc);

} // namespace ko

#endif
