# Instruments every target of the build (our code, tests and benchmarks).
if(QUORIN_SANITIZE)
  list(JOIN QUORIN_SANITIZE "," _quorin_san)
  add_compile_options(-fsanitize=${_quorin_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${_quorin_san})
endif()
