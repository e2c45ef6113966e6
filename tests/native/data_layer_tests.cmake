# The kerova::data layer, once per provider. Lookups are cached per process, so each
# provider gets an executable of its own: ours through the shared library, and fakes
# in front of our implementation that answer other sets of operation numbers.
function(kerova_data_test name provider)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE kerova_data ${provider} GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  set_target_properties(${name} PROPERTIES BUILD_RPATH ${KEROVA_STAGE_DIR})
  gtest_discover_tests(${name} TEST_PREFIX "${name}.")
endfunction()

set(_dir ${CMAKE_CURRENT_SOURCE_DIR})
# Our library: every operation.
kerova_data_test(data_real_test KerovaDataArray
  ${_dir}/data_array_test.cpp ${_dir}/data_errors_test.cpp ${_dir}/data_gather_test.cpp ${_dir}/data_blocks_test.cpp)
# An older library: numbers 1 to 96 only, so every newer operation takes its fallback.
kerova_data_test(data_legacy_test kerova_provider_impl ${_dir}/data_array_test.cpp ${_dir}/fakes/legacy_provider.cpp)
# A newer library without the operations that the newer ones replace.
kerova_data_test(data_modern_test kerova_provider_impl ${_dir}/data_array_test.cpp ${_dir}/fakes/modern_provider.cpp)
# Our library behind counters, with numbers that tests can hide.
kerova_data_test(data_counting_test kerova_provider_impl
  ${_dir}/data_counting_test.cpp ${_dir}/fakes/counting_provider.cpp)
