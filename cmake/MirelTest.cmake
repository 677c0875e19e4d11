# mirel_add_test(NAME name SOURCES a.cpp b.cpp [LIBS extra...] [LABELS concurrency])
#
# One GoogleTest binary per call, linked against the library and the shared test
# helpers. Tests are labelled "unit" unless given another label; those labelled
# "concurrency" are the ones CI also runs under ThreadSanitizer.
function(mirel_add_test)
  cmake_parse_arguments(T "" "NAME" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE mirel mirel_testing GTest::gtest GTest::gmock
                        GTest::gtest_main Threads::Threads ${T_LIBS})
  mirel_warnings(${T_NAME})
  # gtest_discover_tests flattens its PROPERTIES list, so a test gets one label only.
  set(labels unit)
  if(T_LABELS)
    list(GET T_LABELS 0 labels)
  endif()
  gtest_discover_tests(${T_NAME}
    DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS "${labels}" TIMEOUT 600
               ENVIRONMENT "QT_QPA_PLATFORM=offscreen")
endfunction()
