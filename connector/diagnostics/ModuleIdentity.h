#pragma once

#include <connector/Export.h>

/// @file
/// What the implementation library says of itself, for whoever loads it by hand: look the names up in the loaded
/// module, each is a pointer to a constant text. They never change while the module is loaded and are gone with it.

extern "C" {

/// Four decimal numbers joined by dots.
CONNECTOR_IMPL_EXPORT extern const char* const libqzconnectorframeworkimpl_version;

/// Month, day and year: "Mmm dd yyyy", the day right-aligned in two characters.
CONNECTOR_IMPL_EXPORT extern const char* const libqzconnectorframeworkimpl_build_date;

/// The module's file, relative to the root of the installation that it was identified for.
CONNECTOR_IMPL_EXPORT extern const char* const libqzconnectorframeworkimpl_relative_path;
}
