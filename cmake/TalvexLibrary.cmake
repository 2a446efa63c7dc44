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

set(_talvex_public MOX::Core)
foreach(t PNX::Streams MOX::IDOM MOX::Httptools)
  if(TARGET ${t})
    list(APPEND _talvex_public ${t})
  endif()
endforeach()

# Compiled once; linked into the shared library and, for unit tests that reach
# internal classes, into a static archive.
add_library(talvex_objects OBJECT ${TALVEX_SOURCES})
set_target_properties(talvex_objects PROPERTIES
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)
target_compile_definitions(talvex_objects PRIVATE TALVEX_BUILDING_LIBRARY)
target_include_directories(talvex_objects PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
target_link_libraries(talvex_objects PUBLIC ${_talvex_public} talvex::platform)

add_library(talvex SHARED $<TARGET_OBJECTS:talvex_objects>)
add_library(talvex::talvex ALIAS talvex)
set_target_properties(talvex PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR})
target_include_directories(talvex PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(talvex PUBLIC ${_talvex_public} PRIVATE talvex::platform)
target_link_options(talvex PRIVATE -Wl,--no-undefined)

add_library(talvex_internal STATIC $<TARGET_OBJECTS:talvex_objects>)
target_include_directories(talvex_internal PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})
target_link_libraries(talvex_internal PUBLIC ${_talvex_public} talvex::platform)
