#pragma once

// Every public header comes by here first. A compiler goes on after #error, and would follow the one sentence with a
// page of others; what can't be included ends it.
#if defined(_MSVC_LANG) ? _MSVC_LANG < 201703L : __cplusplus < 201703L
#error "The connector framework needs C++17 or later: compile with -std=c++17 (/std:c++17)."
#include <connector/needs-C++17>
#endif

/// Export macros of the framework's libraries. Everything is built with hidden visibility; what a host may use carries
/// the macro of the library that defines it. The build of a library defines its own CONNECTOR_..._BUILDING.

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

#if defined(CONNECTOR_IMPL_BUILDING)
#define CONNECTOR_IMPL_EXPORT CONNECTOR_EXPORT_SYMBOL
#else
#define CONNECTOR_IMPL_EXPORT CONNECTOR_IMPORT_SYMBOL
#endif
