# Counters in the code of the daemon and of korvo-web; see check.py.  Included by the root's CMakeLists.txt under
# KORVO_COVERAGE, before its first target.
#
# Nothing throws, so the compiler need not lay a branch beside each call for that.
set(KORVO_COUNTERS --coverage -fno-exceptions)

add_library(hand_over STATIC tests/coverage/hand_over.cpp)
target_compile_features(hand_over PRIVATE cxx_std_20)
target_compile_definitions(hand_over PRIVATE COUNTERS_LOG="${CMAKE_BINARY_DIR}/counters.log")
target_link_libraries(korvo_options INTERFACE hand_over)
target_link_options(korvo_options INTERFACE --coverage LINKER:--wrap=_exit,--wrap=__gcov_exit)
