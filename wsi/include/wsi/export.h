/* Symbol visibility for the wsi libraries.
 *
 * Every library of this project is built with hidden visibility, so only names marked with
 * WSI_API are part of its dynamic interface. On ELF the same attribute serves for building
 * and for using a library, so one macro covers both. This header is valid C99 and C++11. */
#ifndef WSI_EXPORT_H
#define WSI_EXPORT_H

#if defined(__GNUC__) || defined(__clang__)
#define WSI_API __attribute__((visibility("default")))
#else
#define WSI_API
#endif

#endif /* WSI_EXPORT_H */
