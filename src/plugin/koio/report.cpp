// Exceptions turned into statuses, and notices into messages.
#include "report.h"

#include <array>
#include <new>
#include <string>

namespace koio {

namespace {

// Texts beside those of the library's own catalog. The number of a lack of memory is the library's; its text there names a
// size, which is not known here.
enum { reason = 1 };

struct Texts {
    std::array<const char *, KO_ERR_ALLOC + 1> text{};
    constexpr Texts() {
        text[reason] = "%s";
        text[KO_ERR_ALLOC] = "Not enough memory for file \"%s\"";
    }
};

constexpr Texts texts;
constexpr MessageCatalog catalog = {static_cast<int32_t>(texts.text.size()), texts.text.data()};

void add_reason(const std::exception &error) { KoCatMsg(&catalog, reason, error.what()); }

// Reports the exception that is being handled; one of the codec by a function that gets it.
template <class Report> int32_t report_failure(const char *path, Report report_refusal) {
    try {
        throw;
    } catch (const Reported &failure) {
        return failure.status;
    } catch (const std::bad_alloc &) {
        return KoMessageSetLevel(KO_LEVEL_ERROR, KoCatMsg(&catalog, KO_ERR_ALLOC, path), __FILE__, __LINE__);
    } catch (const FileError &error) {
        add_reason(error);
        return KOIO_REPORT(KO_LEVEL_ERROR, error.status(), path);
    } catch (const std::exception &error) {
        add_reason(error);
        return report_refusal();
    }
}

} // namespace

int32_t report_failed_load(const char *path, codec::Format format) {
    return report_failure(path, [=] {
        return KOIO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_IMAGE_FILE, path, format == codec::Format::png ? "PNG" : "JPEG");
    });
}

int32_t report_failed_save(const char *path) {
    return report_failure(path, [=] { return KOIO_REPORT(KO_LEVEL_ERROR, KO_ERR_WRITE_FILE, path); });
}

void inform(const char *path, const codec::Notices &notices) {
    for (const std::string &notice : notices) {
        const std::string text = std::string("\"").append(path).append("\": ").append(notice);
        KoErrorAddLevel(KO_LEVEL_INFO, text.c_str(), __FILE__, __LINE__);
    }
}

} // namespace koio
