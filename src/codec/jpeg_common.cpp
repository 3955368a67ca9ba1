// libjpeg's reports turned into errors and notices.
#include "codec/jpeg_common.h"

#include <algorithm>
#include <array>

#include <jerror.h>

namespace codec {

namespace {

JpegErrors &errors_of(j_common_ptr info) { return *reinterpret_cast<JpegErrors *>(info->err); }

void on_error(j_common_ptr info) {
    if (info->err->msg_code == JERR_OUT_OF_MEMORY) {
        errors_of(info).trouble.note_exhausted_memory();
    }
    char text[JMSG_LENGTH_MAX];
    info->err->format_message(info, text);
    errors_of(info).trouble.fail(text);
}

// Warnings that leave every pixel as it was written; all others mean that the picture is incomplete.
constexpr std::array<int, 4> harmless_warnings = {JWRN_EXTRANEOUS_DATA, JWRN_JFIF_MAJOR, JWRN_ADOBE_XFORM, JWRN_BOGUS_ICC};

bool is_harmless(int code) {
    return std::find(harmless_warnings.begin(), harmless_warnings.end(), code) != harmless_warnings.end();
}

void on_message(j_common_ptr info, int level) {
    if (level >= 0) {
        return; // a trace
    }
    if (!is_harmless(info->err->msg_code)) {
        on_error(info);
    }
    char text[JMSG_LENGTH_MAX];
    info->err->format_message(info, text);
    errors_of(info).trouble.warn(text);
}

} // namespace

jpeg_error_mgr *prepare(JpegErrors &errors) {
    jpeg_error_mgr *manager = jpeg_std_error(&errors.manager);
    manager->error_exit = on_error;
    manager->emit_message = on_message;
    return manager;
}

} // namespace codec
