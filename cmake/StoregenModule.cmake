# storegen_module(<name> SOURCES ... [DEPS ...] [TESTS ...] [TEST_DEPS ...])
#
# Builds the static library storegen_<name> from SOURCES and, when the tests
# are built (STOREGEN_TESTS) and TESTS are given, the GoogleTest binary <name>_test whose cases CTest
# discovers one by one (label <name>). Tests find their input files through
# TESTDATA_DIR, the module's testdata/ folder, and the program under test
# through STOREGEN_BIN.
function(storegen_module name)
  cmake_parse_arguments(M "" "" "SOURCES;DEPS;TESTS;TEST_DEPS" ${ARGN})
  add_library(storegen_${name} STATIC ${M_SOURCES})
  target_include_directories(storegen_${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(storegen_${name} PUBLIC ${M_DEPS})
  if(STOREGEN_TESTS AND M_TESTS)
    add_executable(${name}_test ${M_TESTS})
    target_link_libraries(${name}_test PRIVATE storegen_${name} ${M_TEST_DEPS}
                          storegen_testsupport GTest::gtest_main)
    target_compile_definitions(${name}_test PRIVATE
      TESTDATA_DIR="${CMAKE_CURRENT_SOURCE_DIR}/testdata")
    gtest_discover_tests(${name}_test PROPERTIES LABELS ${name} DISCOVERY_TIMEOUT 60)
  endif()
endfunction()
