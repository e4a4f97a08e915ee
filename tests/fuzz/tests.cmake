# Sources of the tool that read presets, shared by the preset fuzz target and
# the corpus replay test.
set(ONDREL_FUZZ_TOOL_SOURCES
  ${PROJECT_SOURCE_DIR}/tools/ondrel/preset.cpp
  ${PROJECT_SOURCE_DIR}/tools/ondrel/effects.cpp
  ${PROJECT_SOURCE_DIR}/tools/ondrel/common.cpp
  ${PROJECT_SOURCE_DIR}/tools/ondrel/rooms.cpp)

# libFuzzer targets for the parsers and loaders: the expression evaluator,
# the script interpreter, the parameter stream, wave files, resource files
# through the effects that load them (resource), room data through a host
# stream reader (room), parameter streams of real chains (params) and the
# tool's preset files (preset). They need clang:
#   cmake -S . -B build-fuzz -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang \
#         -DONDREL_BUILD_FUZZ=ON -DONDREL_BUILD_TESTS=ON
#   cmake --build build-fuzz --target fuzz_script
#   build-fuzz/tests/fuzz_script -dict=tests/fuzz/script.dict -max_total_time=60 corpus/
# The library sources are compiled once more with coverage instrumentation
# instead of linking the uninstrumented library. The corpus replay test
# runs the same entry points in every build.
if(ONDREL_BUILD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(WARNING "ONDREL_BUILD_FUZZ needs clang; the fuzz targets are not built")
  else()
    # The signal processing (dsp/, effects/ and the frame's sample queues)
    # keeps edge coverage but not the comparison tracing: its sample loops
    # compare on every sample, which made the chain targets spend half their
    # time in the tracing hooks, and what the fuzzer needs to solve there are
    # parameter branches, not sample values. The parsers and the rest of the
    # frame keep full tracing.
    set(fuzz_dsp_sources ${ONDREL_SOURCES})
    list(FILTER fuzz_dsp_sources INCLUDE REGEX "/(dsp|effects)/|/frame/sample_fifo")
    set(fuzz_parser_sources ${ONDREL_SOURCES})
    list(FILTER fuzz_parser_sources EXCLUDE REGEX "/(dsp|effects)/|/frame/sample_fifo")
    add_library(ondrel_fuzz_objects OBJECT ${fuzz_parser_sources} ${fuzz_dsp_sources})
    set_source_files_properties(${fuzz_dsp_sources} TARGET_DIRECTORY ondrel_fuzz_objects
      PROPERTIES COMPILE_OPTIONS "-fno-sanitize-coverage=trace-cmp")
    add_dependencies(ondrel_fuzz_objects ondrel_objects)  # generated headers
    target_include_directories(ondrel_fuzz_objects PUBLIC
      ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include ${PROJECT_BINARY_DIR}/generated
      ${CMAKE_CURRENT_LIST_DIR})
    target_compile_options(ondrel_fuzz_objects PUBLIC -g
      -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined)
    target_link_libraries(ondrel_fuzz_objects PUBLIC
      PkgConfig::SOUNDTOUCH PkgConfig::FFTW3F PkgConfig::KISSFFT PkgConfig::FLATBUFFERS
      Threads::Threads)
    foreach(name expression script wave param_stream resource room params)
      add_executable(fuzz_${name} ${CMAKE_CURRENT_LIST_DIR}/fuzz_${name}.cpp)
      target_compile_options(fuzz_${name} PRIVATE ${ONDREL_WARNINGS} -g
        -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined)
      target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer,address,undefined)
      target_link_libraries(fuzz_${name} PRIVATE ondrel_fuzz_objects)
    endforeach()
    # The preset reader is the tool's own code: its three sources are built
    # into the target beside the library objects.
    find_package(nlohmann_json 3 CONFIG QUIET)
    if(nlohmann_json_FOUND)
      add_executable(fuzz_preset ${CMAKE_CURRENT_LIST_DIR}/fuzz_preset.cpp ${ONDREL_FUZZ_TOOL_SOURCES})
      target_compile_options(fuzz_preset PRIVATE -g -fsanitize=fuzzer,address,undefined
        -fno-sanitize-recover=undefined)
      target_link_options(fuzz_preset PRIVATE -fsanitize=fuzzer,address,undefined)
      target_include_directories(fuzz_preset PRIVATE ${PROJECT_SOURCE_DIR}/tools/ondrel)
      target_link_libraries(fuzz_preset PRIVATE ondrel_fuzz_objects nlohmann_json::nlohmann_json)
    endif()
  endif()
endif()

# Every corpus replayed through its entry point, in every build with tests.
find_package(nlohmann_json 3 CONFIG QUIET)
if(nlohmann_json_FOUND)
  add_executable(test_fuzz_corpus ${CMAKE_CURRENT_LIST_DIR}/corpus_replay_test.cpp
                                  ${ONDREL_FUZZ_TOOL_SOURCES})
  target_compile_options(test_fuzz_corpus PRIVATE ${ONDREL_WARNINGS})
  target_include_directories(test_fuzz_corpus PRIVATE ${CMAKE_CURRENT_LIST_DIR}/..
                                                      ${PROJECT_SOURCE_DIR}/tools/ondrel)
  target_link_libraries(test_fuzz_corpus PRIVATE ondrel_objects nlohmann_json::nlohmann_json
                                                 GTest::gtest GTest::gtest_main Threads::Threads)
  target_compile_definitions(test_fuzz_corpus PRIVATE
    ONDREL_TEST_SOURCE_DIR="${CMAKE_CURRENT_LIST_DIR}/.."
    ONDREL_TEST_BINARY_DIR="${CMAKE_CURRENT_BINARY_DIR}")
  gtest_discover_tests(test_fuzz_corpus DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 900)
endif()
