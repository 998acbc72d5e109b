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

# storegen_product_library(<name> SOURCES ... LIBS ...)
#
# The product library libstoregen_papi_<name>.so (target storegen_papi_<name>):
# written against storedata/papi.h alone, so it links no storegen library
# (only LIBS) and leaves nothing undefined; it exports nothing but the six
# entry points, and cmake --install puts it in the library directory.
function(storegen_product_library name)
  cmake_parse_arguments(L "" "" "SOURCES;LIBS" ${ARGN})
  set(target storegen_papi_${name})
  add_library(${target} SHARED ${L_SOURCES})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${target} PRIVATE ${L_LIBS})
  target_link_options(${target} PRIVATE LINKER:--no-undefined)
  set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden
                                             VISIBILITY_INLINES_HIDDEN ON)
  install(TARGETS ${target} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endfunction()
