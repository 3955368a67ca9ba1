/*
 * Histogram: counts the pixels of an image, or of a rectangle of one, into bins over a range of values. A curve can be pushed
 * through it, which gives the histogram that the picture would have after the curve. One thread a histogram.
 *
 * A histogram whose counters could not be allocated answers KO_ERR_NULL_POINTER to every operation on them.
 */
#ifndef KO_HISTOGRAM_H
#define KO_HISTOGRAM_H

#include "ko/base.h"
#include "ko/realimage.h"
#include "ko/trc.h"

KO_BEGIN_C

/** Counters of pixels by value. */
typedef struct Histogram {
    uint32_t size;      /* bins */
    float minValue;     /* value of bin 0 */
    float maxValue;     /* value of the last bin */
    float scale;        /* bins per unit of value: (size - 1) / (maxValue - minValue) */
    uint32_t numPixels; /* pixels of the last area counted, which need not be the sum of the counters */
    uint32_t *values;   /* owned: size counters; null after a failed allocation */
} Histogram;

/** Makes an empty histogram in a record that the caller owns. Returns KO_OK, also when memory is short: values is null. */
KO_API int32_t KoHistogramInit(Histogram *histogram, uint32_t size, float minimum, float maximum);

/** Makes a new histogram, owned by the caller, as KoHistogramInit does. Returns null with KO_ERR_CREATE_OBJECT "Histogram". */
KO_API Histogram *KoHistogramNew(uint32_t size, float minimum, float maximum);

/** Makes a new histogram and counts an area into it. Returns null with KO_ERR_CREATE_OBJECT "Histogram" if either fails. */
KO_API Histogram *KoHistogramNewFromSubImage(uint32_t size, float minimum, float maximum, RealImageLineIterator *iterator);

/** Frees the counters and leaves the pointer; the record must not be used further. Null is accepted. Returns KO_OK. */
KO_API int32_t KoHistogramFree(Histogram *histogram);

/** Frees the histogram and its record; null is accepted. Returns KO_OK. */
KO_API int32_t KoHistogramDelete(Histogram *histogram);

/** Return the number of bins, and the number of pixels of the last area counted. */
KO_API uint32_t KoHistogramGetSize(const Histogram *histogram);
KO_API uint32_t KoHistogramGetNumPixels(const Histogram *histogram);

/** Returns a counter; 0 for a bin not below size. */
KO_API uint32_t KoHistogramGetValue(const Histogram *histogram, uint32_t bin);

/** Adds to a counter; a bin not below size is ignored. numPixels stays. Returns KO_OK or KO_ERR_NULL_POINTER. */
KO_API int32_t KoHistogramAddValue(Histogram *histogram, uint32_t bin, uint32_t amount);

/**
 * Copies all counters; numPixels stays.
 *   count   in   must be size
 * Returns KO_OK, KO_ERR_INVALID_ARGUMENT for another count or a null source, or KO_ERR_NULL_POINTER.
 */
KO_API int32_t KoHistogramSetValues(Histogram *histogram, const uint32_t *source, uint32_t count);

/** Counts a whole image, as KoHistogramFromSubImage does. */
KO_API int32_t KoHistogramCompute(Histogram *histogram, RealImage *image);

/**
 * Counts the lines that an iterator has left. Counters are not cleared before: repeated runs add up. A value goes to the bin
 * at (value - minValue) * scale, rounded half up; what lies outside goes to the first or last bin. A NaN, and a value so far
 * out that its bin does not fit 32 bits, goes to bin 0.
 *   iterator   in   before the first line of an area; consumed. Its width times its height becomes numPixels, also if no
 *                   line was left
 * Returns KO_OK or KO_ERR_NULL_POINTER.
 */
KO_API int32_t KoHistogramFromSubImage(Histogram *histogram, RealImageLineIterator *iterator);

/**
 * Returns the value of the first bin at which the counters, added up from bin 0, reach a share of numPixels.
 *   fraction   in   a share, not a percentage: 0.5 is the median; above 1 counts as 1
 * A fraction of 0 gives the value of bin 0 even if that is empty. Nothing is interpolated within a bin.
 */
KO_API float KoHistogramGetValueAtPercentile(const Histogram *histogram, float fraction);

/**
 * Push a curve through the histogram: the counter of bin i is added to that of bin entries[i]. numPixels stays.
 *   entry_count   in   must be size, as the curve's size must; an entry below 0 or not below size counts into the last bin
 * Return KO_OK, also when memory is short (the histogram then stays as it was); KO_ERR_INVALID_ARGUMENT for a null histogram
 * or another number of entries; KO_ERR_NULL_POINTER for a histogram or a curve without entries.
 */
KO_API int32_t KoHistogramApplyTRC(Histogram *histogram, const TRC *trc);
KO_API int32_t KoHistogramApplyRawTRC(Histogram *histogram, const int32_t *entries, uint32_t entry_count);

/**
 * Reads a text file of counters. Another number of bins than the record's makes new counters over 0 to that number; with the
 * same number, range and numPixels stay. numPixels is never set by loading: see "The range of a loaded histogram" in
 * docs/compatibility.md. A failure keeps what was read so far.
 * Returns KO_OK, KO_ERR_OPEN_READ, KO_ERR_READ_LINE, or KO_ERR_ALLOC with the histogram as it was.
 */
KO_API int32_t KoHistogramLoad(Histogram *histogram, const char *path);

/**
 * Writes a text file: the base-2 logarithm of the number of bins, truncated, then one counter a line as a signed number.
 *   overwrite   in   0 refuses to replace a file
 * Returns KO_OK, KO_ERR_FILE_EXISTS, KO_ERR_OPEN_WRITE, or KO_ERR_NULL_POINTER.
 */
KO_API int32_t KoHistogramSave(const Histogram *histogram, const char *path, int32_t overwrite);

KO_END_C

#endif
