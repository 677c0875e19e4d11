# One sanitizer build per build tree; the flags reach every target, tests included.
if(MIREL_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
elseif(MIREL_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT MIREL_SANITIZE STREQUAL "")
  message(FATAL_ERROR "MIREL_SANITIZE must be '', 'address' or 'thread', not '${MIREL_SANITIZE}'")
endif()
