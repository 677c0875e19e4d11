# Script mode: -DLIB=<libmirel.so> -DNM=<nm>. The library must not export operator new or
# delete (applications keep their own), and must export the arena's entry points with
# their C names.
execute_process(COMMAND ${NM} -D --defined-only ${LIB} OUTPUT_VARIABLE symbols RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIB}")
endif()
string(REGEX MATCHALL " _Z(nw|na|dl|da)[A-Za-z0-9_]*" operators "${symbols}")
if(operators)
  message(FATAL_ERROR "the library exports operator new/delete:${operators}")
endif()
foreach(name create_mspace create_mspace_with_base_ca destroy_mspace mspace_malloc mspace_free
             mspace_mallopt mspace_malloc_stats)
  if(NOT symbols MATCHES " T ${name}\n")
    message(FATAL_ERROR "the library does not export ${name} unmangled")
  endif()
endforeach()
message(STATUS "exports are as intended")
