# Warnings apply to our own targets only (not to the test framework's code).
add_library(quorin_warnings INTERFACE)
# Structs are built with designated initializers that name only the fields a
# case sets, the rest keeping their defaults; g++ 12 would warn about every
# omitted field, so that one warning is off.
target_compile_options(quorin_warnings INTERFACE -Wall -Wextra -Wpedantic -Wno-missing-field-initializers)
if(QUORIN_WERROR)
  target_compile_options(quorin_warnings INTERFACE -Werror)
endif()
