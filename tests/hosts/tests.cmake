# The LV2 bundle in real hosts (lv2ls/lv2info/lv2apply, FFmpeg, GStreamer),
# offline, against `ondrel process`. LV2_PATH points at the build tree, so
# the tests run before installation. A missing host program skips its case.
if(TARGET ondrel_lv2 AND TARGET ondrel_tool AND Python3_Interpreter_FOUND)
  foreach(case list lv2apply ffmpeg gstreamer)
    add_test(NAME lv2_${case}
      COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/hosts/lv2_hosts.py
              --tool $<TARGET_FILE:ondrel_tool>
              --bundle ${ONDREL_LV2_BUNDLE}
              --source ${PROJECT_SOURCE_DIR}
              --work ${CMAKE_CURRENT_BINARY_DIR}/hosts/${case}
              ${case})
    set_tests_properties(lv2_${case} PROPERTIES TIMEOUT 300 SKIP_RETURN_CODE 77 LABELS lv2)
  endforeach()
endif()
