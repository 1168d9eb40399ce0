// Export control for the two shared libraries. Symbols are hidden by default;
// only what carries one of these macros is part of the binary interface.
#pragma once

#if defined(_WIN32)
#define KX_DECL_EXPORT __declspec(dllexport)
#define KX_DECL_IMPORT __declspec(dllimport)
#else
#define KX_DECL_EXPORT __attribute__((visibility("default")))
#define KX_DECL_IMPORT __attribute__((visibility("default")))
#endif

// KX_API marks the interface of libKXServerApi, KXUTILS_API that of libKXUtils.
#if defined(KXSERVERAPI_BUILDING)
#define KX_API KX_DECL_EXPORT
#else
#define KX_API KX_DECL_IMPORT
#endif

#if defined(KXUTILS_BUILDING)
#define KXUTILS_API KX_DECL_EXPORT
#else
#define KXUTILS_API KX_DECL_IMPORT
#endif

// Plain-name exports (no C++ mangling) for the KXSER_ functions.
#define KX_EXTERN_C extern "C"
