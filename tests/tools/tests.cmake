# End-to-end tests of the ondrel command-line tool: each runs the built tool
# on generated files and checks the results against references computed in
# plain Python (float32 arithmetic emulated exactly).
if(TARGET ondrel_tool AND Python3_Interpreter_FOUND)
  set(tool_test_cases
    effects_and_params process_float process_s16 process_layout
    process_speed
    preset_round_trip
    error_exits response script reverb_preset resources headphone
    batch eq_import pipewire)
  foreach(case ${tool_test_cases})
    add_test(NAME tool_${case}
      COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/tools/tool_tests.py
              --tool $<TARGET_FILE:ondrel_tool>
              --work ${CMAKE_CURRENT_BINARY_DIR}/tools/${case}
              --source ${PROJECT_SOURCE_DIR}
              ${case})
    set_tests_properties(tool_${case} PROPERTIES TIMEOUT 120 LABELS tool)
  endforeach()
endif()
