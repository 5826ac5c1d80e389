# What a host installs: headers below include/qzconnectorframework, the libraries, the CMake package and the pkg-config files. All paths
# in them are relative to the files themselves, so the prefix can be moved.
include(CMakePackageConfigHelpers)

get_property(targets GLOBAL PROPERTY CONNECTOR_INSTALLED)
set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${PROJECT_NAME})

install(
    TARGETS ${targets}
    EXPORT ${PROJECT_NAME}-targets
    RUNTIME COMPONENT runtime
    LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE COMPONENT development
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME} COMPONENT development
)
install(
    EXPORT ${PROJECT_NAME}-targets
    NAMESPACE ${PROJECT_NAME}::
    DESTINATION ${config_dir}
    COMPONENT development
)
configure_package_config_file(
    cmake/${PROJECT_NAME}-config.cmake.in ${PROJECT_NAME}-config.cmake INSTALL_DESTINATION ${config_dir}
)
write_basic_package_version_file(${PROJECT_NAME}-config-version.cmake COMPATIBILITY SameMajorVersion)
install(
    FILES ${CMAKE_CURRENT_BINARY_DIR}/${PROJECT_NAME}-config.cmake
          ${CMAKE_CURRENT_BINARY_DIR}/${PROJECT_NAME}-config-version.cmake
    DESTINATION ${config_dir}
    COMPONENT development
)

# From the pkg-config files back to the prefix, however deep the library directory lies.
file(RELATIVE_PATH to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
foreach(package IN ITEMS qzconnectorframework qzfl qzms)
    configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
    install(
        FILES ${CMAKE_CURRENT_BINARY_DIR}/${package}.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development
    )
endforeach()

if(PROJECT_IS_TOP_LEVEL)
    include(ConnectorPackage)
endif()
