/*
 * What every public header rests on: fixed-width integers, the import mark of exported names, C linkage.
 *
 * All records are plain and public; all functions are flat C functions. Sizes and coordinates go x before y and width
 * before height. Pixel values are floats on the scale of bytes, 0 to 255. A function that can fail returns a status
 * (int32_t, KO_OK or a code of ko/error.h) or a pointer (null for failure). Success never clears the thread's last status.
 *
 * The null rule: a pointer argument must not be null, and nothing checks it, unless the function's comment says what null does.
 * Free and Delete accept null.
 */
#ifndef KO_BASE_H
#define KO_BASE_H

#include <stdint.h>
#include <stdio.h>

#if defined(_WIN32)
#if defined(KO_BUILDING)
#define KO_API
#else
#define KO_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define KO_API __attribute__((visibility("default")))
#else
#define KO_API
#endif

#ifdef __cplusplus
#define KO_BEGIN_C extern "C" {
#define KO_END_C }
#else
#define KO_BEGIN_C
#define KO_END_C
#endif

#endif
