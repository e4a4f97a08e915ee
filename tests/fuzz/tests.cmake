# libFuzzer targets for the parsers: the expression evaluator, the script
# interpreter, the parameter stream and wave files. They need clang:
#   cmake -S . -B build-fuzz -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang \
#         -DONDREL_BUILD_FUZZ=ON -DONDREL_BUILD_TESTS=ON
#   cmake --build build-fuzz --target fuzz_script
#   build-fuzz/tests/fuzz_script -dict=tests/fuzz/script.dict -max_total_time=60 corpus/
# The library sources are compiled once more with coverage instrumentation
# instead of linking the uninstrumented library. The GoogleTest smoke tests
# run the same entry points in every build.
if(ONDREL_BUILD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(WARNING "ONDREL_BUILD_FUZZ needs clang; the fuzz targets are not built")
  else()
    add_library(ondrel_fuzz_objects OBJECT ${ONDREL_SOURCES})
    add_dependencies(ondrel_fuzz_objects ondrel_objects)  # generated headers
    target_include_directories(ondrel_fuzz_objects PUBLIC
      ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include ${PROJECT_BINARY_DIR}/generated
      ${CMAKE_CURRENT_LIST_DIR})
    target_compile_options(ondrel_fuzz_objects PUBLIC -g
      -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined)
    target_link_libraries(ondrel_fuzz_objects PUBLIC
      PkgConfig::SOUNDTOUCH PkgConfig::FFTW3F PkgConfig::KISSFFT PkgConfig::FLATBUFFERS
      Threads::Threads)
    foreach(name expression script wave param_stream)
      add_executable(fuzz_${name} ${CMAKE_CURRENT_LIST_DIR}/fuzz_${name}.cpp)
      target_compile_options(fuzz_${name} PRIVATE ${ONDREL_WARNINGS} -g
        -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined)
      target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer,address,undefined)
      target_link_libraries(fuzz_${name} PRIVATE ondrel_fuzz_objects)
    endforeach()
  endif()
endif()
