# orv_add_test(NAME src... [LIBS lib...] [LABELS label...])
# Builds one GoogleTest executable and registers its cases with ctest. Every
# executable labelled "concurrent" (its cases start threads or processes that
# share state) is also a dependency of the target concurrent_tests, so that the
# ThreadSanitizer build compiles only what `ctest -L concurrent` runs; every
# unit test (those beside the code, not in tests/) is one of unit_tests, which
# scripts/memcheck builds.
function(orv_add_test name)
  if(NOT ORV_BUILD_TESTS)
    return()
  endif()
  cmake_parse_arguments(T "" "" "LIBS;LABELS" ${ARGN})
  add_executable(${name} ${T_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE orvutil orvtestsupport GTest::gtest_main GTest::gmock ${T_LIBS})
  set(labels)
  if(T_LABELS)
    set(labels LABELS "${T_LABELS}")
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 300 ENVIRONMENT "ORV_SOURCE_DIR=${PROJECT_SOURCE_DIR}" ${labels})
  set(groups)
  if("concurrent" IN_LIST T_LABELS)
    list(APPEND groups concurrent_tests)
  endif()
  if(NOT CMAKE_CURRENT_SOURCE_DIR STREQUAL "${PROJECT_SOURCE_DIR}/tests")
    list(APPEND groups unit_tests)
  endif()
  foreach(group ${groups})
    if(NOT TARGET ${group})
      add_custom_target(${group})
    endif()
    add_dependencies(${group} ${name})
  endforeach()
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
