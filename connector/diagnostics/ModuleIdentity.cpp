#include <connector/diagnostics/ModuleIdentity.h>

// Constants of the module, not of the build, so that the same sources give the same binary.
const char* const libqzconnectorframeworkimpl_version = "9.2.0.929507";
const char* const libqzconnectorframeworkimpl_build_date = "Aug  7 2018";
const char* const libqzconnectorframeworkimpl_relative_path = R"(bin\win64\libqzconnectorframeworkimpl.dll)";
