/* Symbol visibility for the wsi libraries.
 *
 * Every library of this project is built with hidden visibility, so only names marked with
 * WSI_API are part of its dynamic interface. On ELF the same attribute serves for building
 * and for using a library, so one macro covers both. This header is valid C99 and C++11. */
#ifndef WSI_EXPORT_H
#define WSI_EXPORT_H

#if defined(__GNUC__) || defined(__clang__)
#define WSI_API __attribute__((visibility("default")))
/* Keeps a private helper of an exported class out of the dynamic interface: for member functions
 * that only the library itself calls and that no inline function of a public header uses. */
#define WSI_LOCAL __attribute__((visibility("hidden")))
#else
#define WSI_API
#define WSI_LOCAL
#endif

#endif /* WSI_EXPORT_H */
