#pragma once

// Every public header includes this one first. A compiler continues after #error and would report a page of further
// errors; an include that fails stops it.
#if defined(_MSVC_LANG) ? _MSVC_LANG < 201703L : __cplusplus < 201703L
#error "The connector framework needs C++17 or later: compile with -std=c++17 (/std:c++17)."
#include <connector/needs-C++17>
#endif

/// Export macros. The libraries are built with hidden visibility; each exported declaration has the macro of the
/// library that defines it. The build of that library defines its CONNECTOR_..._BUILDING.

#if defined(_WIN32)
#define CONNECTOR_EXPORT_SYMBOL __declspec(dllexport)
#define CONNECTOR_IMPORT_SYMBOL __declspec(dllimport)
#else
#define CONNECTOR_EXPORT_SYMBOL __attribute__((visibility("default")))
#define CONNECTOR_IMPORT_SYMBOL __attribute__((visibility("default")))
#endif

#if defined(CONNECTOR_API_BUILDING)
#define CONNECTOR_API_EXPORT CONNECTOR_EXPORT_SYMBOL
#else
#define CONNECTOR_API_EXPORT CONNECTOR_IMPORT_SYMBOL
#endif

#if defined(CONNECTOR_ASYNC_BUILDING)
#define CONNECTOR_ASYNC_EXPORT CONNECTOR_EXPORT_SYMBOL
#else
#define CONNECTOR_ASYNC_EXPORT CONNECTOR_IMPORT_SYMBOL
#endif

#if defined(CONNECTOR_IMPL_BUILDING)
#define CONNECTOR_IMPL_EXPORT CONNECTOR_EXPORT_SYMBOL
#else
#define CONNECTOR_IMPL_EXPORT CONNECTOR_IMPORT_SYMBOL
#endif
