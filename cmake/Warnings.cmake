# Warnings apply to our own targets only (not to the test framework's code).
add_library(quorin_warnings INTERFACE)
target_compile_options(quorin_warnings INTERFACE -Wall -Wextra -Wpedantic)
if(QUORIN_WERROR)
  target_compile_options(quorin_warnings INTERFACE -Werror)
endif()
