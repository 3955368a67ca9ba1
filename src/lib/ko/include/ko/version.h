/*
 * The version of these headers, for the preprocessor. Releases with the same major and minor number are compatible: names,
 * record layouts, file formats and results stay as they are.
 */
#ifndef KO_VERSION_H
#define KO_VERSION_H

#define KO_VERSION_MAJOR 0 /* raised by a release that breaks what hosts rely on */
#define KO_VERSION_MINOR 1 /* raised by a release that adds something */
#define KO_VERSION_PATCH 0 /* raised by any other release */

#endif
