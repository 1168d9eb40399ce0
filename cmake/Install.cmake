# Install rules: the two libraries, their exported headers, the simulator and
# the CLI, a CMake package and a pkg-config module.
include(CMakePackageConfigHelpers)

set(KX_PUBLIC_HEADERS_INSTALL)
file(GLOB KX_PUBLIC_HEADERS_INSTALL CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/*.h)
list(APPEND KX_PUBLIC_HEADERS_INSTALL ${PROJECT_SOURCE_DIR}/utils/KXUtils.h
  ${PROJECT_SOURCE_DIR}/utils/KXConfigKeys.h ${PROJECT_SOURCE_DIR}/utils/KXTransport.h)
install(FILES ${KX_PUBLIC_HEADERS_INSTALL} DESTINATION ${KX_INSTALL_INCLUDEDIR})

install(TARGETS KXUtils KXServerApi EXPORT KXServerApiTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_COMPONENT Development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(EXPORT KXServerApiTargets NAMESPACE KXServerApi::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KXServerApi)

# The tools find the libraries beside them in an installed tree.
set_target_properties(kxsim kxapi PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
install(TARGETS kxsim kxapi RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/KXServerApiConfig.cmake.in
  ${PROJECT_BINARY_DIR}/KXServerApiConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KXServerApi)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KXServerApiConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KXServerApiConfig.cmake
  ${PROJECT_BINARY_DIR}/KXServerApiConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KXServerApi)

# Relocatable: the prefix is found from where the .pc file lies, so that an
# install with `cmake --install --prefix` works as well as the configured one.
file(RELATIVE_PATH KX_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/kxserverapi.pc.in
  ${PROJECT_BINARY_DIR}/kxserverapi.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kxserverapi.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
