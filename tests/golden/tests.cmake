# Golden output hashes of every built effect type (see golden_check.cpp for
# how to regenerate the file).
add_executable(ondrel_golden ${CMAKE_CURRENT_LIST_DIR}/golden_check.cpp)
target_compile_options(ondrel_golden PRIVATE ${ONDREL_WARNINGS})
target_link_libraries(ondrel_golden PRIVATE ondrel_objects Threads::Threads)
add_test(NAME golden_outputs
  COMMAND ondrel_golden ${CMAKE_CURRENT_LIST_DIR}/golden.txt)
set_tests_properties(golden_outputs PROPERTIES TIMEOUT 600)
# The same hashes from the plain kernels, whatever the processor offers.
add_test(NAME golden_outputs_plain
  COMMAND ondrel_golden ${CMAKE_CURRENT_LIST_DIR}/golden.txt)
set_tests_properties(golden_outputs_plain PROPERTIES TIMEOUT 600 ENVIRONMENT "ONDREL_SIMD=0")
