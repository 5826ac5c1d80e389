# Warnings and sanitizers for those who work on the tree. Never exported; on in the presets only.
add_library(connector_developer INTERFACE)
if(CONNECTOR_DEVELOPER)
    target_compile_options(
        connector_developer
        INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Woverloaded-virtual
                  -Wold-style-cast -Wcast-qual -Wundef -Werror
    )
endif()

# connector_library(NAME ALIAS name BASE dir MACRO name SOURCES … HEADERS … PUBLIC … PRIVATE …)
#
# A shared library NAME, offered as qzconnectorframework::ALIAS, whose installed HEADERS lie below BASE. Its sources are compiled once,
# as the object library NAME_objects, which the unit tests link to reach what is hidden.
function(connector_library name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "ALIAS;BASE;MACRO" "SOURCES;HEADERS;PUBLIC;PRIVATE")

    add_library(${name}_objects OBJECT ${arg_SOURCES})
    set_target_properties(
        ${name}_objects
        PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_EXTENSIONS OFF CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    )
    target_compile_features(${name}_objects PUBLIC cxx_std_17)
    # A library's calls of its own exported functions stay inside it, as they do with clang anyway.
    target_compile_options(${name}_objects PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-semantic-interposition>)
    target_compile_definitions(${name}_objects PRIVATE ${arg_MACRO})
    target_include_directories(${name}_objects PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/platform)
    # Only what is not ours: whoever links the objects links those of the other libraries too, not the libraries beside them.
    set(foreign ${arg_PUBLIC} ${arg_PRIVATE})
    list(FILTER foreign INCLUDE REGEX "^Boost::")
    target_link_libraries(${name}_objects PUBLIC ${foreign} PRIVATE $<BUILD_INTERFACE:connector_developer>)

    add_library(${name} SHARED $<TARGET_OBJECTS:${name}_objects>)
    add_library(${PROJECT_NAME}::${arg_ALIAS} ALIAS ${name})
    set_target_properties(
        ${name}
        PROPERTIES LINKER_LANGUAGE CXX EXPORT_NAME ${arg_ALIAS} VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    )
    target_sources(
        ${name} PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR}/${arg_BASE} FILES ${arg_HEADERS}
    )
    if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
        set(exports ${PROJECT_SOURCE_DIR}/cmake/exports/${name}.map)
        target_link_options(${name} PRIVATE LINKER:--version-script=${exports})
        set_target_properties(${name} PROPERTIES LINK_DEPENDS ${exports} INSTALL_RPATH $ORIGIN)
    endif()
    target_compile_features(${name} PUBLIC cxx_std_17)
    target_link_libraries(${name} PUBLIC ${arg_PUBLIC} PRIVATE ${arg_PRIVATE})
    set_property(GLOBAL APPEND PROPERTY CONNECTOR_INSTALLED ${name})
endfunction()
