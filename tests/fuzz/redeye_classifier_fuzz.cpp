// The red-eye correction with any bytes as the model's classifier.
#include "redeye_case.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    ko_fuzz::start();
    ko_fuzz::ModelFiles model;
    model.classifier = ko_fuzz::text_of(data, size);
    ko_fuzz::correct_eye(model);
    return 0;
}
