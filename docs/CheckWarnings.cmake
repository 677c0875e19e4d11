# Script mode: -DLOG=<warnings.log>. A warning in the reference fails the docs target.
if(EXISTS ${LOG})
  file(READ ${LOG} warnings)
  if(NOT warnings STREQUAL "")
    message(FATAL_ERROR "Doxygen warnings (${LOG}):\n${warnings}")
  endif()
endif()
