# talvex_family_library(NAME <target> ALIAS <ns::name> SOURCES ... [LIBS ...])
# A family library: a shared library with default symbol visibility whose
# headers live in <folder>/include and are installed as they are.
function(talvex_family_library)
  cmake_parse_arguments(A "" "NAME;ALIAS" "SOURCES;LIBS;PRIVATE_LIBS" ${ARGN})
  add_library(${A_NAME} SHARED ${A_SOURCES})
  add_library(${A_ALIAS} ALIAS ${A_NAME})
  target_include_directories(${A_NAME} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${A_NAME} PUBLIC ${A_LIBS} PRIVATE ${A_PRIVATE_LIBS})
  set_target_properties(${A_NAME} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
endfunction()
