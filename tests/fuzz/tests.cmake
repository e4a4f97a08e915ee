# libFuzzer targets for the expression evaluator and the script interpreter
# (fuzz_expression, fuzz_script); other targets of this directory are not
# built from here.
# They need clang; configure with CMAKE_CXX_COMPILER=clang++ and
# ONDREL_BUILD_FUZZ=ON, then run e.g.
#   fuzz_script -dict=tests/fuzz/script.dict -max_total_time=60 corpus/
# The few library sources they exercise are compiled in with coverage
# instrumentation instead of linking the uninstrumented library.
if(ONDREL_BUILD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(WARNING "ONDREL_BUILD_FUZZ needs clang; the fuzz targets are not built")
  else()
    set(ondrel_fuzz_library_sources
      ${PROJECT_SOURCE_DIR}/framework/expression.cpp
      ${PROJECT_SOURCE_DIR}/framework/script.cpp
      ${PROJECT_SOURCE_DIR}/frame/modulators.cpp
      ${PROJECT_SOURCE_DIR}/frame/log.cpp)
    foreach(name expression script)
      add_executable(fuzz_${name} ${CMAKE_CURRENT_LIST_DIR}/fuzz_${name}.cpp ${ondrel_fuzz_library_sources})
      target_include_directories(fuzz_${name} PRIVATE
        ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include ${CMAKE_CURRENT_LIST_DIR})
      target_compile_options(fuzz_${name} PRIVATE ${ONDREL_WARNINGS} -g
        -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined)
      target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer,address,undefined)
    endforeach()
  endif()
endif()
