# The steady processing path must not allocate. This binary counts every
# allocation: a replaced global operator new, and malloc/calloc/realloc
# wrapped at link time for the library's own objects.
add_executable(test_alloc ${CMAKE_CURRENT_LIST_DIR}/steady_path_test.cpp)
target_compile_options(test_alloc PRIVATE ${ONDREL_WARNINGS})
target_include_directories(test_alloc PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(test_alloc PRIVATE ondrel_objects GTest::gtest Threads::Threads)
target_link_options(test_alloc PRIVATE
  -Wl,--wrap=malloc -Wl,--wrap=calloc -Wl,--wrap=realloc)
gtest_discover_tests(test_alloc DISCOVERY_TIMEOUT 60)
