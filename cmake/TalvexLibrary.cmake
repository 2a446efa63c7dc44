# The toolkit library. Sources are picked up per subsystem folder; the exported
# interface lives in include/talvex and is the only part whose symbols are visible.
file(GLOB TALVEX_SOURCES CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/frame/*.cpp
  ${PROJECT_SOURCE_DIR}/session/*.cpp
  ${PROJECT_SOURCE_DIR}/http/*.cpp
  ${PROJECT_SOURCE_DIR}/mime/*.cpp
  ${PROJECT_SOURCE_DIR}/transport/*.cpp)

if(NOT TALVEX_SOURCES)
  return()
endif()

add_library(talvex SHARED ${TALVEX_SOURCES})
add_library(talvex::talvex ALIAS talvex)
set_target_properties(talvex PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)
target_compile_definitions(talvex PRIVATE TALVEX_BUILDING_LIBRARY)
target_include_directories(talvex
  PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
  PRIVATE
    ${PROJECT_SOURCE_DIR})
set(_talvex_public MOX::Core)
foreach(t PNX::Streams MOX::IDOM MOX::Httptools)
  if(TARGET ${t})
    list(APPEND _talvex_public ${t})
  endif()
endforeach()
target_link_libraries(talvex PUBLIC ${_talvex_public} PRIVATE talvex::platform)

# Internal objects are linked into the tests directly through this target, so
# a unit test can reach classes that are not exported.
add_library(talvex_internal INTERFACE)
target_include_directories(talvex_internal INTERFACE ${PROJECT_SOURCE_DIR})
target_link_libraries(talvex_internal INTERFACE talvex talvex::platform)
