# Debian packages from the build tree: `cpack -G DEB` in the build directory
# (or `cpack --config <build>/CPackConfig.cmake`). One package per install
# component:
#   libcapi-veranti-service0      Runtime      the shared library, its Mono mapping and the
#                                              consent library beside it
#   libcapi-veranti-service-dev   Development  headers, link, pkg-config and CMake files
#   capi-veranti-service-tools    Tools        terms-cli, terms-service-sim with its
#                                              catalogue, bus policy and systemd unit
#   veranti-host-platform         Platform     the host stand-ins of the platform
#                                              interfaces and vconftool (a device
#                                              build, -DVERANTI_HOST_PLATFORM=OFF,
#                                              has the device's instead and no such package)
# The packages install below CMAKE_INSTALL_PREFIX: configure with
# -DCMAKE_INSTALL_PREFIX=/usr for packages that install like Debian's own.
set(VERANTI_DEB_RUNTIME libcapi-veranti-service${PROJECT_VERSION_MAJOR})
set(VERANTI_DEB_DEVELOPMENT libcapi-veranti-service-dev)
set(VERANTI_DEB_TOOLS capi-veranti-service-tools)
set(VERANTI_DEB_PLATFORM veranti-host-platform)

# Every package carries the licence in Debian's place for it.
set(packaged_components Runtime Development)
if(VERANTI_BUILD_TOOLS)
  list(APPEND packaged_components Tools)
endif()
if(VERANTI_HOST_PLATFORM)
  list(APPEND packaged_components Platform)
endif()
foreach(component ${packaged_components})
  string(TOUPPER ${component} upper)
  install(FILES ${PROJECT_SOURCE_DIR}/deploy/debian/copyright
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${VERANTI_DEB_${upper}} COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME capi-veranti-service)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "capi-veranti-service developers")
set(CPACK_PACKAGE_CONTACT "capi-veranti-service developers <capi-veranti-service@users.noreply.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Client library of the television's terms-and-conditions service")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_COMPONENTS_ALL ${packaged_components})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

# Dependencies, written out: dpkg-shlibdeps cannot see the project's own
# libraries before they are packaged. Names of Debian 12.
set(exact "(= ${PROJECT_VERSION}-1)")
set(system_runtime "libc6, libstdc++6, libgcc-s1, libglib2.0-0, libjsoncpp25")
set(platform_dependency "")
if(VERANTI_HOST_PLATFORM)
  set(platform_dependency ", ${VERANTI_DEB_PLATFORM} ${exact}")
endif()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${VERANTI_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${system_runtime}${platform_dependency}")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "Client library of the terms-and-conditions service\n The shared library libcapi-veranti-service.so.0 with its C, C++ and C# interfaces and\n a small GDBus server toolkit, the Mono mapping of its plain library name, and the consent\n layer for applications, libveranti-consent.so.0.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${VERANTI_DEB_DEVELOPMENT})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(development_depends "${VERANTI_DEB_RUNTIME} ${exact}, libjsoncpp-dev, libglib2.0-dev, pkg-config")
if(VERANTI_HOST_PLATFORM)
  string(APPEND development_depends ", libsystemd-dev")
endif()
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${development_depends}")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "Client library of the terms-and-conditions service (development files)\n Headers, the link library, the pkg-config file and the CMake package of capi-veranti-service.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${VERANTI_DEB_TOOLS})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${VERANTI_DEB_RUNTIME} ${exact}, ${system_runtime}${platform_dependency}")
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/deploy/debian/tools/postinst)
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "Command-line client and simulated terms-client service\n terms-cli calls the terms client library from the shell; terms-service-sim plays the\n terms-client service on a desktop bus, with its D-Bus policy and systemd unit.")

set(CPACK_DEBIAN_PLATFORM_PACKAGE_NAME ${VERANTI_DEB_PLATFORM})
set(CPACK_DEBIAN_PLATFORM_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_DEPENDS "libc6, libstdc++6, libgcc-s1, libjsoncpp25, libsystemd0")
set(CPACK_COMPONENT_PLATFORM_DESCRIPTION
    "Host stand-ins of the platform interfaces of capi-veranti-service\n The log, configuration store (with vconftool) and bus-client framework libraries that a\n device provides itself; needed on a desktop, left out of a device build.")

include(CPack)
