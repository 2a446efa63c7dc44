# Installation: the toolkit, its family libraries and the security library (which
# libtalvex.so loads at run time from its own folder, so both go to the same
# libdir), their headers, a CMake package and a pkg-config file.
#
#   find_package(talvex 1.0 REQUIRED)
#   target_link_libraries(app PRIVATE talvex::talvex)
#
#   c++ -std=c++17 app.cpp $(pkg-config --cflags --libs talvex)
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(_talvex_libraries)
foreach(t talvex MOXCore PNXStreams MOXIDOM MOXHttptools VLT_Crypto_Interface)
  if(TARGET ${t})
    list(APPEND _talvex_libraries ${t})
  endif()
endforeach()
if(NOT TARGET talvex)
  return()
endif()

set(TALVEX_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/talvex)

install(TARGETS ${_talvex_libraries}
  EXPORT talvexTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# Headers keep their folders: talvex/, moxcore/, pnxstreams/, moxidom/,
# moxhttptools/ and the security library's interface header.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/talvex DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
foreach(family moxcore pnxstreams moxidom moxhttptools)
  if(EXISTS ${PROJECT_SOURCE_DIR}/family/${family}/include/${family})
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/family/${family}/include/${family}
      DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  endif()
endforeach()
if(TARGET VLT_Crypto_Interface)
  install(FILES ${PROJECT_SOURCE_DIR}/vlt/include/VLT_Crypto_Interface.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endif()

foreach(tool talvex-call talvex-echo-server)
  if(TARGET ${tool})
    install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

install(EXPORT talvexTargets
  NAMESPACE talvex::
  FILE talvexTargets.cmake
  DESTINATION ${TALVEX_INSTALL_CMAKEDIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/talvexConfig.cmake.in
  ${PROJECT_BINARY_DIR}/talvexConfig.cmake
  INSTALL_DESTINATION ${TALVEX_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/talvexConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/talvexConfig.cmake ${PROJECT_BINARY_DIR}/talvexConfigVersion.cmake
  DESTINATION ${TALVEX_INSTALL_CMAKEDIR})

# The .pc file finds its prefix from its own place, so an installation may be
# moved (or made with `cmake --install --prefix`) without editing it.
set(_talvex_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
string(REGEX REPLACE "[^/]+" ".." TALVEX_PC_UP "${_talvex_pc_dir}")
configure_file(${PROJECT_SOURCE_DIR}/talvex.pc.in ${PROJECT_BINARY_DIR}/talvex.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/talvex.pc DESTINATION ${_talvex_pc_dir})
