# wrap_calls(TARGET SCOPE CALL...): the linker sends every such call of the programs in that SCOPE of TARGET through
# the __wrap_CALL that TARGET defines, and __real_CALL is the call itself.
include_guard(GLOBAL)

function(wrap_calls target scope)
  # What the headers of the GNU C library make of a call in a program of 32 bits whose files and times have 64.
  set(wide ";stat=__stat64_time64;open=open64;fopen=fopen64;time=__time64;select=__select64;wait4=__wait4_time64;"
      "ioctl=__ioctl_time64;getsockopt=__getsockopt64;setsockopt=__setsockopt64;")
  foreach(call ${ARGN})
    set(symbol ${call})
    if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND "${wide}" MATCHES ";${call}=([^;]*);")
      set(symbol ${CMAKE_MATCH_1})
      target_compile_definitions(${target} PRIVATE __wrap_${call}=__wrap_${symbol} __real_${call}=__real_${symbol})
    endif()
    target_link_options(${target} ${scope} LINKER:--wrap=${symbol})
  endforeach()
endfunction()
