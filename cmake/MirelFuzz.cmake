# The fuzz build instruments every target, the library included, for libFuzzer's coverage
# feedback and for ASan+UBSan; only the fuzz targets themselves link libFuzzer's main().
if(MIREL_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "MIREL_FUZZ needs clang (scripts/fuzz.sh configures it)")
  endif()
  if(NOT MIREL_SANITIZE STREQUAL "")
    message(FATAL_ERROR "MIREL_FUZZ brings its own sanitizers: leave MIREL_SANITIZE empty")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined
                      -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
