// Status, messages and verbosity. Rests on the allocators alone.
//
// Each thread has one record, made at its first report or query and reached through one thread slot. The rule to know before
// changing anything here: a report must never start another one, so all memory of this file comes from allocate_for_report.
#include "ko/error.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "heap_report.h"
#include "ko/memory.h"
#include "platform.h"
#include "report.h"
#include "word.h"

namespace ko {

namespace {

struct ErrorData {
    char *buffer;             // owned: the reusable formatting buffer
    uint64_t buffer_size;     // its capacity, 0 until the first formatting
    int32_t status;           // the last status, 0 means none
    const char *last_message; // newest text: in buffer, or a constant
    char *chain;              // owned: the message chain, null while empty
    uint64_t chain_length;    // without the NUL
    uint64_t head_length;     // length of the newest entry when it was added
};

constexpr char empty_text[] = "";
constexpr char fatal_text[] = "[FATAL ERROR] Cannot allocate memory for message";
constexpr char joint[] = "\n-> ";
constexpr uint64_t least_buffer_size = 50;

constexpr int32_t catalog_size = 60;

// The texts by code; numbers that are not listed have none.
struct MainTexts {
    const char *text[catalog_size] = {};
    constexpr MainTexts() {
        text[KO_OK] = "No error";
        text[KO_ERR_UNKNOWN_CODE] = "Unknown error code %d";
        text[KO_MSG_DEBUG] = "[DEBUG] %s";
        text[KO_MSG_INFO] = "[INFO] %s";
        text[KO_MSG_WARNING] = "[WARNING] %s";
        text[KO_MSG_ERROR] = "[ERROR] %s";
        text[KO_MSG_INTERNAL_ERROR] = "[INTERNAL ERROR] %s";
        text[KO_MSG_UNKNOWN] = "[UNKNOWN] %s";
        text[KO_ERR_INVALID_ARGUMENT] = "Invalid argument";
        text[KO_ERR_INDEX_OUT_OF_BOUNDS] = "Index out of bounds: %d (%d-%d)";
        text[KO_ERR_INTERNAL_CALL] = "Internal error in call to \"%s\"";
        text[KO_ERR_FATAL] = "Fatal Error. Cannot continue";
        text[KO_ERR_INVALID_VALUE] = "\"%s\" is not a valid value. Possible values are: \"%s\"";
        text[KO_ERR_NULL_POINTER] = "Null pointer error";
        text[KO_ERR_ALLOC] = "Cannot allocate %d bytes";
        text[KO_ERR_CREATE_OBJECT] = "Cannot create object \"%s\"";
        text[KO_ERR_OPEN_READ] = "Cannot open file \"%s\" for reading";
        text[KO_ERR_OPEN_WRITE] = "Cannot open file \"%s\" for writing";
        text[KO_ERR_OPEN_READ_WRITE] = "Cannot open file \"%s\" for reading/writing";
        text[KO_ERR_CLOSE] = "Cannot close file \"%s\"";
        text[KO_ERR_READ_FILE] = "Cannot read file \"%s\"";
        text[KO_ERR_WRITE_FILE] = "Cannot write file \"%s\"";
        text[KO_ERR_READ_LINE] = "Read error in file \"%s\", line %d";
        text[KO_ERR_WRITE_LINE] = "Write error in file \"%s\", line %d";
        text[KO_ERR_FILE_EXISTS] = "File \"%s\" already exists";
        text[KO_ERR_FILE_MISSING] = "File \"%s\" does not exist";
        text[KO_ERR_END_OF_FILE] = "End of file reached";
        text[KO_MSG_LOADING] = "Loading file \"%s\"";
        text[KO_MSG_LOADED] = "File \"%s\" loaded";
        text[KO_MSG_SAVING] = "Saving file \"%s\"";
        text[KO_MSG_SAVED] = "File \"%s\" saved";
        text[KO_ERR_NOT_SAVED] = "File \"%s\" has not beed saved";
        text[KO_ERR_FORMAT_UNSUPPORTED] = "File format \"%s\" is not supported";
        text[KO_ERR_INVALID_IMAGE_FILE] = "File \"%s\" does not contain a valid %s image";
        text[KO_ERR_UNKNOWN_FORMAT] = "Cannot determine the format of \"%s\"";
    }
};

constexpr MainTexts main_texts;
constexpr MessageCatalog main_catalog = {catalog_size, main_texts.text};

// The words of the verbosity, by level.
constexpr const char *level_words[] = {nullptr, "debug", "info", "warning", "error", "internalerror"};

void print_to_stderr(void *, const char *text) { std::fprintf(stderr, "%s\n", text); }

bool slot_allocated = false;
ThreadSlot slot;
int32_t verbosity = KO_LEVEL_INTERNAL_ERROR;
KoPrintFunction print_function = print_to_stderr;
void *print_user_data = nullptr;

} // namespace

// Not static: tools that look for leaks know the record, which belongs to nobody once its thread has ended, by this name.
[[gnu::noinline]] void *make_record() {
    void *record = allocate_for_report(static_cast<int32_t>(sizeof(ErrorData)));
    if (record != nullptr) {
        std::memset(record, 0, sizeof(ErrorData));
        thread_slot_set(slot, record);
    }
    return record;
}

namespace {

// The calling thread's record; null if there is no slot or no memory for it.
ErrorData *get_record() {
    if (!slot_allocated) {
        return nullptr;
    }
    void *record = thread_slot_get(slot);
    return static_cast<ErrorData *>(record != nullptr ? record : make_record());
}

const char *text_of_chain(const ErrorData *data) { return data->chain != nullptr ? data->chain : empty_text; }

// Replaces the formatting buffer, losing its text; the newest message never points into a buffer that is gone.
void grow_buffer(ErrorData *data, uint64_t size) {
    const bool shown = data->last_message == data->buffer;
    KoFree(data->buffer);
    const bool fits = size <= INT32_MAX;
    data->buffer = static_cast<char *>(allocate_for_report(fits ? static_cast<int32_t>(size) : -1));
    data->buffer_size = data->buffer != nullptr ? size : 0;
    if (data->buffer == nullptr) {
        data->status = KO_ERR_ALLOC;
    } else {
        data->buffer[0] = '\0';
    }
    if (shown) {
        data->last_message = data->buffer != nullptr ? data->buffer : fatal_text;
    }
}

// The text in the thread's buffer, or the fatal text. The buffer only grows.
const char *format_text(ErrorData *data, const char *format, va_list arguments) {
    if (data->buffer_size < least_buffer_size) {
        grow_buffer(data, least_buffer_size);
    }
    while (data->buffer != nullptr) {
        va_list again;
        va_copy(again, arguments);
        const int result = std::vsnprintf(data->buffer, data->buffer_size, format, again);
        va_end(again);
        if (result >= 0 && static_cast<uint64_t>(result) < data->buffer_size) {
            return data->buffer;
        }
        grow_buffer(data, result >= 0 ? static_cast<uint64_t>(result) + 1 : data->buffer_size * 2);
    }
    return fatal_text;
}

const char *format_values(ErrorData *data, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const char *text = format_text(data, format, arguments);
    va_end(arguments);
    return text;
}

bool has_text(const MessageCatalog *catalog, int32_t code) {
    return code >= 0 && code < catalog->count && catalog->texts[code] != nullptr;
}

// Replaces the chain by text, between and the part of the old chain from keep_from on. False if the new chain cannot be
// allocated; the old one then stays.
bool rebuild_chain(ErrorData *data, const char *text, const char *between, uint64_t keep_from) {
    const uint64_t text_length = std::strlen(text);
    const uint64_t between_length = std::strlen(between);
    const uint64_t kept = data->chain_length - keep_from;
    const uint64_t length = text_length + between_length + kept;
    char *chain = static_cast<char *>(allocate_for_report(length < INT32_MAX ? static_cast<int32_t>(length + 1) : -1));
    if (chain == nullptr) {
        return false;
    }
    std::memcpy(chain, text, text_length);
    std::memcpy(chain + text_length, between, between_length);
    if (kept != 0) {
        std::memcpy(chain + text_length + between_length, data->chain + keep_from, kept);
    }
    chain[length] = '\0';
    KoFree(data->chain);
    data->chain = chain;
    data->chain_length = length;
    return true;
}

void add_to_chain(ErrorData *data, const char *text) {
    const uint64_t length = std::strlen(text);
    if (rebuild_chain(data, text, data->chain_length != 0 ? joint : empty_text, 0)) {
        data->head_length = length;
    }
}

// A code that the catalog does not know: the report of that stands in the chain, and the chain is the text.
const char *format_unknown(ErrorData *data, int32_t code) {
    KoMessageSetStatus(KO_ERR_UNKNOWN_CODE, code);
    return text_of_chain(data);
}

void set_status(const MessageCatalog *catalog, int32_t code, va_list arguments) {
    ErrorData *data = get_record();
    if (data == nullptr) {
        return;
    }
    data->status = code;
    if (has_text(catalog, code)) {
        data->last_message = format_text(data, catalog->texts[code], arguments);
    }
    // Without a text the newest message becomes the unknown code's, in the buffer; the chain that stands for the text here is
    // about to be replaced.
    const char *text = has_text(catalog, code) ? data->last_message : format_unknown(data, code);
    if (code != KO_OK) {
        add_to_chain(data, text);
    }
}

const char *format_message(const MessageCatalog *catalog, int32_t code, va_list arguments) {
    ErrorData *data = get_record();
    if (data == nullptr) {
        return fatal_text;
    }
    return has_text(catalog, code) ? format_text(data, catalog->texts[code], arguments) : format_unknown(data, code);
}

int32_t cut_level(int32_t level) {
    return level < KO_LEVEL_NONE ? KO_LEVEL_NONE : level > KO_LEVEL_UNKNOWN ? KO_LEVEL_UNKNOWN : level;
}

// The text behind the word of its level; level is not KO_LEVEL_NONE. A copy that cannot be allocated leaves the text bare.
const char *decorate(ErrorData *data, int32_t level, const char *text) {
    const uint64_t size = std::strlen(text) + 1;
    char *copy = static_cast<char *>(allocate_for_report(size <= INT32_MAX ? static_cast<int32_t>(size) : -1));
    if (copy == nullptr) {
        return text;
    }
    std::memcpy(copy, text, size);
    const char *decorated = format_values(data, main_catalog.texts[level + 1], copy);
    KoFree(copy);
    return decorated;
}

void print_at(int32_t level, const char *text) {
    if (verbosity <= level) {
        print_function(print_user_data, text);
    }
}

void clear_message(ErrorData *data) {
    data->last_message = empty_text;
    KoFree(data->chain);
    data->chain = nullptr;
    data->chain_length = 0;
    data->head_length = 0;
}

} // namespace

} // namespace ko

using namespace ko;

int32_t KoMessageSetStatus(int32_t code, ...) {
    va_list arguments;
    va_start(arguments, code);
    set_status(&main_catalog, code, arguments);
    va_end(arguments);
    return code;
}

int32_t KoMsg(int32_t code, ...) {
    va_list arguments;
    va_start(arguments, code);
    set_status(&main_catalog, code, arguments);
    va_end(arguments);
    return code;
}

int32_t KoMessageCatalogSetStatus(const MessageCatalog *catalog, int32_t code, ...) {
    va_list arguments;
    va_start(arguments, code);
    set_status(catalog, code, arguments);
    va_end(arguments);
    return code;
}

int32_t KoCatMsg(const MessageCatalog *catalog, int32_t code, ...) {
    va_list arguments;
    va_start(arguments, code);
    set_status(catalog, code, arguments);
    va_end(arguments);
    return code;
}

int32_t KoMessageSetLevel(int32_t level, int32_t status, const char *, int32_t) {
    ErrorData *data = get_record();
    if (data == nullptr) {
        return status;
    }
    const int32_t cut = cut_level(level);
    const char *text = data->last_message != nullptr ? data->last_message : empty_text;
    if (cut != KO_LEVEL_NONE) {
        text = decorate(data, cut, text);
    }
    print_at(cut, text);
    data->last_message = text;
    if (data->status == KO_OK) {
        return status;
    }
    const uint64_t head = data->head_length < data->chain_length ? data->head_length : data->chain_length;
    rebuild_chain(data, cut > KO_LEVEL_INFO ? text : empty_text, empty_text, head);
    return status;
}

int32_t KoErrorGetLastError(void) {
    const ErrorData *data = get_record();
    return data != nullptr ? data->status : static_cast<int32_t>(KO_ERR_ALLOC);
}

const char *KoErrorGetLastErrorMessage(void) {
    const ErrorData *data = get_record();
    return data != nullptr ? text_of_chain(data) : empty_text;
}

int32_t KoStatusClear(void) {
    ErrorData *data = get_record();
    if (data != nullptr) {
        data->status = KO_OK;
        clear_message(data);
    }
    return KO_OK;
}

int32_t KoStatusClearMessage(void) {
    ErrorData *data = get_record();
    if (data != nullptr) {
        clear_message(data);
    }
    return KO_OK;
}

const char *KoErrorFormatMessage(int32_t code, ...) {
    va_list arguments;
    va_start(arguments, code);
    const char *text = format_message(&main_catalog, code, arguments);
    va_end(arguments);
    return text;
}

const char *KoMessageCatalogFormatMessage(const MessageCatalog *catalog, int32_t code, ...) {
    va_list arguments;
    va_start(arguments, code);
    const char *text = format_message(catalog, code, arguments);
    va_end(arguments);
    return text;
}

const char *KoErrorAddLevel(int32_t level, const char *text, const char *, int32_t) {
    ErrorData *data = get_record();
    const int32_t cut = cut_level(level);
    if (data != nullptr && cut != KO_LEVEL_NONE) {
        text = decorate(data, cut, text);
    }
    print_at(cut, text);
    return text;
}

int32_t KoErrorGetVerboseLevel(void) { return verbosity; }

int32_t KoErrorSetVerboseLevel(const char *word) {
    if (word == nullptr) {
        return KO_OK;
    }
    for (int32_t level = KO_LEVEL_DEBUG; level <= KO_LEVEL_INTERNAL_ERROR; ++level) {
        if (same_word(word, level_words[level])) {
            verbosity = level;
            return KO_OK;
        }
    }
    return KO_REPORT(KO_LEVEL_INTERNAL_ERROR, KO_ERR_INVALID_ARGUMENT);
}

int32_t KoErrorSetVerboseFunction(KoPrintFunction function, void *user_data) {
    print_function = function != nullptr ? function : print_to_stderr;
    print_user_data = user_data;
    return KO_OK;
}

int32_t KoErrorClassInit(void) {
    if (!slot_allocated) {
        const int failure = thread_slot_allocate(&slot);
        slot_allocated = failure == 0;
        if (failure != 0) {
            std::fprintf(stderr, "INTERNAL ERROR in TlsAlloc: %d\n", failure);
        }
    }
    get_record();
    return KO_OK;
}

int32_t KoErrorClassRelease(void) {
    ErrorData *data = get_record();
    if (data != nullptr) {
        KoFree(data->buffer);
        KoFree(data->chain);
        KoFree(data);
        thread_slot_set(slot, nullptr);
    }
    if (slot_allocated) {
        slot_allocated = false;
        thread_slot_free(slot);
    }
    return KO_OK;
}
