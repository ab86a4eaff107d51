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
