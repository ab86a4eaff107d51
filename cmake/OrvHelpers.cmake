# orv_add_test(NAME src... [LIBS lib...])
# Builds one GoogleTest executable and registers its cases with ctest.
function(orv_add_test name)
  if(NOT ORV_BUILD_TESTS)
    return()
  endif()
  cmake_parse_arguments(T "" "" "LIBS" ${ARGN})
  add_executable(${name} ${T_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE orvutil orvtestsupport GTest::gtest_main GTest::gmock ${T_LIBS})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 300 ENVIRONMENT "ORV_SOURCE_DIR=${PROJECT_SOURCE_DIR}")
endfunction()

# orv_link_every_executable(DIR lib): links lib into every executable target
# defined in DIR and the directories below it, including ones added later by
# other families without their knowing.
function(orv_link_every_executable dir lib)
  get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target ${targets})
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "EXECUTABLE")
      target_link_libraries(${target} PRIVATE ${lib})
    endif()
  endforeach()
  get_property(subdirs DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
  foreach(subdir ${subdirs})
    orv_link_every_executable(${subdir} ${lib})
  endforeach()
endfunction()
