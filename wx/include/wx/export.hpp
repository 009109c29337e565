// Symbol visibility for the utility pieces (namespace wx).
//
// The libraries that carry wx names are built with hidden visibility, so only names marked with
// WX_API are part of their dynamic interface. On ELF the same attribute serves for building and
// for using a library, so one macro covers both.
#ifndef WX_EXPORT_HPP
#define WX_EXPORT_HPP

#if defined(__GNUC__) || defined(__clang__)
#define WX_API __attribute__((visibility("default")))
#else
#define WX_API
#endif

#endif  // WX_EXPORT_HPP
