/*
 * KernelGaussian: a Gaussian blur of a RealImage, either by a finite separable kernel or by a recursive filter of third order
 * whose cost does not grow with sigma. A kernel is read-only once made; any number of threads may use one.
 */
#ifndef KO_KERNELGAUSSIAN_H
#define KO_KERNELGAUSSIAN_H

#include "ko/base.h"
#include "ko/realimage.h"

KO_BEGIN_C

/** A Gaussian blur, ready to be applied. */
typedef struct KernelGaussian {
    float sigma;                   /* standard deviation, pixels */
    uint64_t width;                /* number of finite coefficients, odd; 0 for the recursive form */
    void *storage;                 /* owned: block of width + 8 floats and room for alignment; null for the recursive form */
    float *coefficients;           /* into storage, 16-byte aligned; the 8 floats behind the last coefficient are 0 */
    int32_t mode;                  /* under 1: finite; 1 and above: recursive */
    double a3, a2, a1;             /* feedback weights of the forward pass */
    double scale;                  /* 1 - a1 - a2 - a3 */
    double backA1, backA2, backA3; /* feedback weights of the backward pass */
    double boundary[9];            /* the 3 by 3 matrix of the end of the signal, row by row */
} KernelGaussian;

/** Makes a new finite kernel, truncated at truncation times sigma. Returns null with KO_ERR_CREATE_OBJECT "KernelGaussian". */
KO_API KernelGaussian *KoKernelGaussianNew(float sigma, float truncation);

/** Makes a new kernel of the form that mode says; the recursive one ignores truncation. Returns null as KoKernelGaussianNew. */
KO_API KernelGaussian *KoKernelGaussianNewTune(float sigma, float truncation, int32_t mode);

/**
 * Makes a kernel in a record that the caller owns. Its storage is released by KoKernelGaussianDelete alone, so a finite kernel
 * belongs on a record of KoMalloc. Returns KO_OK, or KO_ERR_ALLOC.
 */
KO_API int32_t KoKernelGaussianInit(KernelGaussian *kernel, float sigma, float truncation, int32_t mode);

/** Frees the kernel and its record; null is accepted. Returns KO_OK. */
KO_API int32_t KoKernelGaussianDelete(KernelGaussian *kernel);

/** Returns the standard deviation, in pixels. */
KO_API float KoKernelGaussianGetSigma(const KernelGaussian *kernel);

/** Returns the number of finite coefficients; 0 for the recursive form. */
KO_API uint32_t KoKernelGaussianGetWidth(const KernelGaussian *kernel);

/** Returns the weight of the two-dimensional kernel, about 1; 0 for the recursive form. */
KO_API float KoKernelGaussianGetWeight(const KernelGaussian *kernel);

/** Writes the finite coefficients as a text table for a person to read; stream stays the caller's. */
KO_API void KoKernelGaussianPrint(const KernelGaussian *kernel, FILE *stream);

/**
 * Blurs an image. The finite form leaves out terms beyond the edge without making up for them, so a picture darkens toward its
 * border, and one narrower or lower than the kernel comes out black; the recursive form keeps a constant picture constant.
 *   result   in/out   address of an image pointer. The finite form fills an image that is there and makes one for null; the
 *                     recursive form always stores a new image and does not free what stood there. Owned by the caller.
 * Returns KO_OK; KO_ERR_INVALID_ARGUMENT for a given image of another size (finite form); the status of work memory that cannot
 * be allocated: a given image is as it was then, and a new one is not made. A recursive result that cannot be allocated leaves
 * null there and returns KO_OK.
 */
KO_API int32_t KoKernelGaussianConvolution(const KernelGaussian *kernel, const RealImage *image, RealImage **result);

KO_END_C

#endif
