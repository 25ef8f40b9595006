/// @file
/// Definitions for every public header: the language level and the export attribute.

/// @namespace MD
/// All classes and functions of the library.
/// @namespace MD::FIELDS
/// The entries of the dictionary.
#ifndef MD_API_H
#define MD_API_H

#if defined(_MSVC_LANG) ? (_MSVC_LANG < 201703L) : (__cplusplus < 201703L)
#error "md_message needs C++17 or later (-std=c++17)"
#endif

/// Marks the exports of the shared library. Define `MD_STATIC` if the objects of the library are linked directly.
#if defined(_WIN32) && !defined(MD_STATIC)
#if defined(MD_BUILDING_LIBRARY)
#define MD_API __declspec(dllexport)
#else
#define MD_API __declspec(dllimport)
#endif
#elif defined(_WIN32)
#define MD_API
#else
#define MD_API __attribute__((visibility("default")))
#endif

/// @def MD_UNLIKELY
/// A condition that is rarely true.
/// @def MD_ALWAYS_INLINE
/// Marks a function that costs less than its call: an operation on one field of a well-formed message.
/// @def MD_RARE
/// Marks a rarely called function, which is not inlined and is placed separately.
#if defined(__GNUC__)
#define MD_ALWAYS_INLINE [[gnu::always_inline]]
#define MD_RARE [[gnu::noinline]]
#define MD_UNLIKELY(condition) __builtin_expect(static_cast<bool>(condition), false)
#else
#define MD_ALWAYS_INLINE
#define MD_RARE
#define MD_UNLIKELY(condition) (condition)
#endif

/// Marks an internal part of an exported class.
#if defined(_WIN32)
#define MD_LOCAL
#else
#define MD_LOCAL __attribute__((visibility("hidden")))
#endif

#endif
