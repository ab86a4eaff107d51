# orv_add_test(NAME src... [LIBS lib...] [LABELS label...])
# Builds one GoogleTest executable and registers its cases with ctest. Every
# executable labelled "concurrent" (its cases start threads or processes that
# share state) is also a dependency of the target concurrent_tests, so that the
# ThreadSanitizer build compiles only what `ctest -L concurrent` runs.
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
  if("concurrent" IN_LIST T_LABELS)
    if(NOT TARGET concurrent_tests)
      add_custom_target(concurrent_tests)
    endif()
    add_dependencies(concurrent_tests ${name})
  endif()
endfunction()
