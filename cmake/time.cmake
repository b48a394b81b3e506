# On a 32-bit machine a time has 32 or 64 bits by choice (_TIME_BITS). Programs must choose as the
# library did: DTTime.h compares, and learns of a library with 64 bits by DT_TIME64.
include(CheckCXXSourceCompiles)

function(dt_state_time target)
    if(NOT CMAKE_SIZEOF_VOID_P EQUAL 4)
        return()
    endif()
    check_cxx_source_compiles("
        #include <time.h>
        #if !defined(__TIMESIZE) || __TIMESIZE != 32
        #error a time has one size alone
        #endif
        char more_than_32_bits[sizeof(time_t) > 4 ? 1 : -1];
        int main() { return 0; }" dt_has_time64)
    if(dt_has_time64)
        target_compile_definitions(${target} PUBLIC DT_TIME64)
        set(DT_PC_CFLAGS " -DDT_TIME64" PARENT_SCOPE)
    endif()
endfunction()
