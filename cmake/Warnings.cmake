# Warnings as errors with both compilers, and the sanitizers, for every target of the tree.
add_compile_options(-Wall -Wextra -Wshadow -Werror -Wformat=2 -Werror=format-security
                    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wthread-safety>)
else()
  # The base library's headers carry clang pragmas.
  add_compile_options(-Wno-unknown-pragmas)
endif()
if(BINAURAL_SANITIZE)
  add_compile_options(-fsanitize=${BINAURAL_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${BINAURAL_SANITIZE})
  if(BINAURAL_SANITIZE MATCHES undefined)
    # Without type information in the product, no object's dynamic type can be checked.
    add_compile_options(-fno-sanitize-recover=undefined -fno-sanitize=vptr)
  endif()
endif()
if(BINAURAL_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
