#include "kohost/correction.h"

#include "kohost/plain_redeye.h"
#include "kohost/redeye_search.h"
#include "kohost/working_copy.h"

namespace kohost {

RedEyes correct_red_eyes(uint8_t *bytes, Size size, uint32_t channels, const RedEyeModel &model, const RedEyeChoices &choices,
                         std::FILE *log) {
    const Pixels picture{bytes, size, channels};
    if (choices.plain) {
        return repair_plainly(picture, bytes, model.configuration(), choices, "picture", log);
    }
    RedEyes eyes = find_red_eyes(reduced_in_steps(picture, search_area).pixels(), size, model, choices, log);
    if (eyes.changed) {
        repair_red_eyes(bytes, size, eyes, choices);
    }
    return eyes;
}

} // namespace kohost
