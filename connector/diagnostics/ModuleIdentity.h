#pragma once

#include <connector/Export.h>

/// @file
/// Strings that identify the implementation library. A host that loads the library by hand looks the names up in it;
/// each is a pointer to a constant text, valid while the library is loaded.

extern "C" {

/// Four decimal numbers joined by dots.
CONNECTOR_IMPL_EXPORT extern const char* const libqzconnectorframeworkimpl_version;

/// Month, day and year: "Mmm dd yyyy", the day right-aligned in two characters.
CONNECTOR_IMPL_EXPORT extern const char* const libqzconnectorframeworkimpl_build_date;

/// The path of the library's file in an installation.
CONNECTOR_IMPL_EXPORT extern const char* const libqzconnectorframeworkimpl_relative_path;
}
