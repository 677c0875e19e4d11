# Warnings apply to the project's own targets only, never to third-party headers.
function(mirel_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
endfunction()
