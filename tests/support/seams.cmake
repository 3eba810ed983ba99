# test_seams: loopback helpers and system calls that a test makes fail.  Include this file and name test_seams
# under NEEDS.  An object library, so that its wrappers are there whatever else is linked in which order.
include_guard(GLOBAL)
include(${CMAKE_CURRENT_LIST_DIR}/wrap.cmake)

add_library(test_seams OBJECT
  ${CMAKE_CURRENT_LIST_DIR}/loopback.cpp ${CMAKE_CURRENT_LIST_DIR}/syscall_seams.cpp)
target_link_libraries(test_seams PUBLIC test_support)

wrap_calls(test_seams INTERFACE socket setsockopt getsockopt ioctl bind listen accept connect send recv sendto
           recvfrom shutdown close read fork sleep fopen inet_addr inet_ntoa)
