# What every target of the project has in common: warnings that are errors, the sanitizers asked for, section layout.
function(kavrin_target name)
  target_compile_options(${name} PRIVATE -Wall -Wextra -Wpedantic -Werror -Wshadow -Wvla -Wundef
                         -Wcast-qual -Wformat=2 -fno-strict-aliasing
                         $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>
                         # g++ 12 sees overlapping copies in plain string concatenation when it optimises.
                         $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
  if(KAVRIN_SANITIZE)
    target_compile_options(${name} PRIVATE -fsanitize=${KAVRIN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${name} PRIVATE -fsanitize=${KAVRIN_SANITIZE})
  endif()
  if(KAVRIN_FUZZ)
    target_compile_options(${name} PRIVATE -fsanitize=fuzzer-no-link)  # what a fuzzer reaches in here guides it
  endif()
  if(KAVRIN_LOOSE_LINK)
    target_link_options(${name} PRIVATE -Wl,--unresolved-symbols=ignore-all)
  elseif(NOT KAVRIN_SANITIZE)
    target_link_options(${name} PRIVATE $<$<STREQUAL:$<TARGET_PROPERTY:${name},TYPE>,SHARED_LIBRARY>:-Wl,-z,defs>)
  endif()
endfunction()

# One object library a layer, so that a layer builds and is tested without those above it.
function(kavrin_layer name)
  file(GLOB sources CONFIGURE_DEPENDS ${ARGN})
  if(sources)
    add_library(${name} OBJECT ${sources})
    kavrin_target(${name})
  endif()
endfunction()
