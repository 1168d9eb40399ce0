/// @file
/// Export control for the two shared libraries. Symbols are hidden by default;
/// only what carries one of these macros is part of the binary interface.
#pragma once

#if defined(_WIN32)
/// Marks a symbol that the library being built exports.
#define KX_DECL_EXPORT __declspec(dllexport)
/// Marks a symbol that a user of the library takes from it.
#define KX_DECL_IMPORT __declspec(dllimport)
#else
/// Marks a symbol that the library being built exports.
#define KX_DECL_EXPORT __attribute__((visibility("default")))
/// Marks a symbol that a user of the library takes from it.
#define KX_DECL_IMPORT __attribute__((visibility("default")))
#endif

// KX_API marks the interface of libKXServerApi, KXUTILS_API that of libKXUtils.
#if defined(KXSERVERAPI_BUILDING)
/// Marks the interface of libKXServerApi (exported while it is built).
#define KX_API KX_DECL_EXPORT
#else
/// Marks the interface of libKXServerApi (imported by its users).
#define KX_API KX_DECL_IMPORT
#endif

#if defined(KXUTILS_BUILDING)
/// Marks the interface of libKXUtils (exported while it is built).
#define KXUTILS_API KX_DECL_EXPORT
#else
/// Marks the interface of libKXUtils (imported by its users).
#define KXUTILS_API KX_DECL_IMPORT
#endif

/// Plain-name exports (no C++ mangling) for the KXSER_ functions.
#define KX_EXTERN_C extern "C"
