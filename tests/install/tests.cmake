# Builds a tiny outside host against the installed package, the way a
# player would: once with find_package(ondrel), once with pkg-config.
add_test(NAME installed_package
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/check_installed.sh
          ${CMAKE_BINARY_DIR} ${CMAKE_CURRENT_BINARY_DIR}/installed ${CMAKE_CURRENT_LIST_DIR}/host)
set_tests_properties(installed_package PROPERTIES TIMEOUT 300)
