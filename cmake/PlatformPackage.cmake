# The platform, player and port libraries for the player's other software: static libraries, headers, and what tells
# CMake (find_package(strata-platform), strata::external_control) and pkg-config (strata-platform) how to use them.

include(CMakePackageConfigHelpers)

set(component strata-platform-dev)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/strata-platform)

set_target_properties(strata_platform PROPERTIES EXPORT_NAME platform)
set_target_properties(player PROPERTIES EXPORT_NAME player OUTPUT_NAME strata_player)
set_target_properties(external_control PROPERTIES EXPORT_NAME external_control OUTPUT_NAME strata_external_control)
foreach(library strata_platform player external_control)
    target_compile_features(${library} INTERFACE cxx_std_20)
    target_include_directories(${library} INTERFACE $<INSTALL_INTERFACE:${PLATFORM_HEADERS}>)
endforeach()

install(TARGETS strata_platform player external_control EXPORT strata-platform COMPONENT ${component})
install(EXPORT strata-platform NAMESPACE strata:: FILE strata-platform-targets.cmake
    DESTINATION ${package} COMPONENT ${component})
# The provider is the tracer's own; nobody includes it but the module.
install(DIRECTORY lib/platform lib/player lib/hardware DESTINATION ${PLATFORM_HEADERS}/lib COMPONENT ${component}
    FILES_MATCHING PATTERN *.h PATTERN tracepoint_provider.h EXCLUDE)

set(generated ${CMAKE_BINARY_DIR}/strata-platform)
configure_package_config_file(cmake/strata-platform-config.cmake.in ${generated}/strata-platform-config.cmake
    INSTALL_DESTINATION ${package})
write_basic_package_version_file(${generated}/strata-platform-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${generated}/strata-platform-config.cmake ${generated}/strata-platform-config-version.cmake
    DESTINATION ${package} COMPONENT ${component})
configure_file(cmake/strata-platform.pc.in ${generated}/strata-platform.pc @ONLY)
install(FILES ${generated}/strata-platform.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT ${component})
