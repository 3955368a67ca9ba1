/*
 * Status, messages and verbosity. Every failure leaves a status and a text on the thread that met it; texts of one failure
 * pile up in a chain while it climbs out of nested calls, newest first, joined by "\n-> ".
 *
 * The record of a thread holds the last report until the host clears it: success clears nothing. A host clears it before a
 * sequence of calls and looks at it after; the result of a function is the primary signal.
 * Verbosity and print function are process-wide and unlocked: set them while no other thread reports.
 */
#ifndef KO_ERROR_H
#define KO_ERROR_H

#include "ko/base.h"

KO_BEGIN_C

/** Status and message codes, the index of their text in the main catalog. */
enum {
    KO_OK = 0,                       /* no failure */
    KO_ERR_UNKNOWN_CODE = 1,         /* a report with a code that has no text */
    KO_MSG_DEBUG = 2,                /* a message of level debug, with its text */
    KO_MSG_INFO = 3,                 /* the same of level info */
    KO_MSG_WARNING = 4,              /* the same of level warning */
    KO_MSG_ERROR = 5,                /* the same of level error */
    KO_MSG_INTERNAL_ERROR = 6,       /* the same of level internal error */
    KO_MSG_UNKNOWN = 7,              /* the same of an unknown level */
    KO_ERR_INVALID_ARGUMENT = 10,    /* an argument that the function refuses */
    KO_ERR_INDEX_OUT_OF_BOUNDS = 11, /* an index, with its bounds */
    KO_ERR_INTERNAL_CALL = 12,       /* an internal call that failed, by its name */
    KO_ERR_FATAL = 13,               /* a failure that ends the work */
    KO_ERR_INVALID_VALUE = 14,       /* a word that is none of those possible */
    KO_ERR_NULL_POINTER = 15,        /* an object or array that does not exist */
    KO_ERR_ALLOC = 20,               /* an allocation that failed, with its bytes */
    KO_ERR_CREATE_OBJECT = 21,       /* an object that could not be made, by its type */
    KO_ERR_OPEN_READ = 30,           /* a file that cannot be opened for reading, by its path */
    KO_ERR_OPEN_WRITE = 31,          /* the same for writing */
    KO_ERR_OPEN_READ_WRITE = 32,     /* the same for both */
    KO_ERR_CLOSE = 33,               /* a file that cannot be closed */
    KO_ERR_READ_FILE = 34,           /* a file that ends early or holds what it must not */
    KO_ERR_WRITE_FILE = 35,          /* a write that failed */
    KO_ERR_READ_LINE = 36,           /* a line of a file that does not fit, with its number */
    KO_ERR_WRITE_LINE = 37,          /* a line that cannot be written */
    KO_ERR_FILE_EXISTS = 38,         /* a file that would be replaced */
    KO_ERR_FILE_MISSING = 39,        /* a file that does not exist */
    KO_ERR_END_OF_FILE = 40,         /* the end of a file */
    KO_MSG_LOADING = 41,             /* a file that is being loaded */
    KO_MSG_LOADED = 42,              /* a file that was loaded */
    KO_MSG_SAVING = 43,              /* a file that is being saved */
    KO_MSG_SAVED = 44,               /* a file that was saved */
    KO_ERR_NOT_SAVED = 45,           /* a file that was not saved */
    KO_ERR_FORMAT_UNSUPPORTED = 50,  /* a format without a function, by its name */
    KO_ERR_INVALID_IMAGE_FILE = 51,  /* a file that is no image of its format */
    KO_ERR_UNKNOWN_FORMAT = 52       /* a path that names no format */
};

/** Levels of a message; a message is printed if its level is at or above the verbosity. */
enum {
    KO_LEVEL_NONE = 0,           /* no decoration */
    KO_LEVEL_DEBUG = 1,          /* for developers */
    KO_LEVEL_INFO = 2,           /* progress */
    KO_LEVEL_WARNING = 3,        /* work that goes on */
    KO_LEVEL_ERROR = 4,          /* a call that failed */
    KO_LEVEL_INTERNAL_ERROR = 5, /* a broken contract; the verbosity at the start */
    KO_LEVEL_UNKNOWN = 6         /* anything above */
};

/** A constant table of printf formats, indexed by code; a null entry means that the code has no text. */
typedef struct MessageCatalog {
    int32_t count;            /* codes that the catalog has, from 0 on */
    const char *const *texts; /* not owned: count formats or null pointers */
} MessageCatalog;

/** Receives a printed message; runs on the reporting thread, possibly on several at once. */
typedef void (*KoPrintFunction)(void *user_data, const char *text);

/**
 * Sets the thread's status to code, formats its text from the main catalog with the further arguments, and puts the text at
 * the head of the chain (code 0 leaves the chain alone). The arguments must be those that the text's format asks for.
 * Returns code. A code without a text leaves status KO_ERR_UNKNOWN_CODE and that code's text, twice, at the chain's head.
 */
KO_API int32_t KoMessageSetStatus(int32_t code, ...);

/** Does what KoMessageSetStatus does, under the short name that reports use. */
KO_API int32_t KoMsg(int32_t code, ...);

/** Does what KoMessageSetStatus does with the texts of catalog; the status does not say which catalog was used. */
KO_API int32_t KoMessageCatalogSetStatus(const MessageCatalog *catalog, int32_t code, ...);

/** Does what KoMessageCatalogSetStatus does, under the short name that reports use. */
KO_API int32_t KoCatMsg(const MessageCatalog *catalog, int32_t code, ...);

/**
 * Decorates the thread's newest message with its level, prints it if the verbosity allows, and rewrites the chain's head: above
 * KO_LEVEL_INFO the decorated text takes its place, at or below it the head is removed.
 *   level        in   KO_LEVEL_NONE leaves the text bare; above KO_LEVEL_UNKNOWN counts as that
 *   status       in   handed through, so that the call can wrap KoMsg in one expression
 *   file, line   in   place of the report in the source; kept with the report, shown in no text
 * Returns status.
 */
KO_API int32_t KoMessageSetLevel(int32_t level, int32_t status, const char *file, int32_t line);

/** Returns the thread's status; KO_ERR_ALLOC if memory is too short even for the thread's record. */
KO_API int32_t KoErrorGetLastError(void);

/** Returns the thread's message chain, "" if it is empty; good until the chain next changes, not to be freed. */
KO_API const char *KoErrorGetLastErrorMessage(void);

/** Clears the thread's status, newest message and chain. Returns 0. */
KO_API int32_t KoStatusClear(void);

/** Clears the thread's newest message and chain, and keeps the status. Returns 0. */
KO_API int32_t KoStatusClearMessage(void);

/**
 * Formats the text of a code from the main catalog without touching status or chain (a code without a text is reported as
 * KoMessageSetStatus does). Returns the text, good until the next formatting on the thread, not to be freed.
 */
KO_API const char *KoErrorFormatMessage(int32_t code, ...);

/** Does what KoErrorFormatMessage does with the texts of catalog. */
KO_API const char *KoMessageCatalogFormatMessage(const MessageCatalog *catalog, int32_t code, ...);

/**
 * Decorates any text with a level and prints it if the verbosity allows; status, newest message and chain stay.
 * Returns text itself at KO_LEVEL_NONE, otherwise the decorated text, good until the next formatting on the thread.
 */
KO_API const char *KoErrorAddLevel(int32_t level, const char *text, const char *file, int32_t line);

/** Returns the verbosity: the lowest level that is printed, 5 at first. */
KO_API int32_t KoErrorGetVerboseLevel(void);

/**
 * Sets the verbosity by one of the words "debug", "info", "warning", "error", "internalerror", in any case.
 * Returns 0, also for null, which changes nothing; any other word leaves KO_ERR_INVALID_ARGUMENT and returns it.
 */
KO_API int32_t KoErrorSetVerboseLevel(const char *word);

/**
 * Installs the function that prints messages, for the whole process. The default writes the text and a newline to the
 * standard error stream.
 *   function    in   null installs the default
 *   user_data   in   handed to each call of function; the caller keeps it alive
 * Returns 0.
 */
KO_API int32_t KoErrorSetVerboseFunction(KoPrintFunction function, void *user_data);

/** Starts the status service for the calling thread; KoInit calls it, hosts do not. Returns 0. */
KO_API int32_t KoErrorClassInit(void);

/** Ends the status service and frees the calling thread's record; KoRelease calls it, hosts do not. Returns 0. */
KO_API int32_t KoErrorClassRelease(void);

KO_END_C

#endif
