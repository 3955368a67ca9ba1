// Failures as JavaScript learns of them.
#include "kohost/gate.h"
#include "module.h"

namespace web {

namespace {

Status describe(Status status, const char *text, int32_t ko_status) {
    Answer &failure = answer();
    failure.text = text;
    failure.chain = ko::message_chain();
    failure.ko_status = ko_status;
    return status;
}

// The library gives up an object for lack of memory alone: the arguments of every creation are checked before.
bool short_of_memory(int32_t status) { return status == KO_ERR_ALLOC || status == KO_ERR_CREATE_OBJECT; }

Status described_failure() {
    try {
        throw;
    } catch (const ko::Error &error) {
        return describe(short_of_memory(error.status()) ? out_of_memory : failed, error.what(), error.status());
    } catch (const kohost::GateError &error) {
        return describe(failed, error.what(), KO_ERR_READ_FILE);
    } catch (const Refused &error) {
        return describe(refused, error.what(), KO_ERR_INVALID_ARGUMENT);
    } catch (const std::bad_alloc &) {
        return describe(out_of_memory, "not enough memory", KO_ERR_ALLOC);
    } catch (const std::length_error &) { // a vector of more elements than an address counts
        return describe(out_of_memory, "not enough memory", KO_ERR_ALLOC);
    } catch (const std::exception &error) {
        return describe(failed, error.what(), KO_ERR_FATAL);
    }
}

} // namespace

// The description needs memory too.
Status failure() {
    try {
        return described_failure();
    } catch (const std::bad_alloc &) {
        answer().text.clear();
        answer().chain.clear();
        answer().ko_status = KO_ERR_ALLOC;
        return out_of_memory;
    }
}

} // namespace web
