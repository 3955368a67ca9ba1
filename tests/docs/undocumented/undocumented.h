/*
 * A header with faults that the check of the reference must report: a field and a function without a comment, and an argument that
 * its function does not have.
 */
#ifndef KO_TESTS_DOCS_UNDOCUMENTED_H
#define KO_TESTS_DOCS_UNDOCUMENTED_H

/** A record. */
typedef struct KoRecord {
    int known; /* a field */
    int forgotten;
} KoRecord;

/**
 * Does nothing.
 *   missing   in   an argument that the function does not have
 */
void KoKnown(KoRecord *record);

void KoForgotten(KoRecord *record);

#endif
