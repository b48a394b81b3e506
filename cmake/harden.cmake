# What makes an attack on a mistake harder: stack and libc calls are checked, addresses are bound and
# then sealed at load. What a compiler lacks is left out.
include(CheckCXXCompilerFlag)

set(dt_protections -fstack-clash-protection)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "86|AMD64|amd64")
    list(APPEND dt_protections -fcf-protection)
endif()

# Every function with an array or an address of its own; in a build for size those with characters, where
# an overrun begins: all would make the library an eighth larger.
set(dt_protector $<IF:$<CONFIG:MinSizeRel>,-fstack-protector$<SEMICOLON>--param=ssp-buffer-size=4,-fstack-protector-strong>)

function(dt_harden target)
    if(NOT DT_HARDEN)
        return()
    endif()
    target_compile_options(${target} PRIVATE ${dt_protector})
    foreach(flag IN LISTS dt_protections)
        string(MAKE_C_IDENTIFIER "dt_has${flag}" has)
        check_cxx_compiler_flag(${flag} ${has})
        if(${has})
            target_compile_options(${target} PRIVATE ${flag})
        endif()
    endforeach()
    set(optimised "$<OR:$<CONFIG:Release>,$<CONFIG:MinSizeRel>,$<CONFIG:RelWithDebInfo>>")
    target_compile_options(${target} PRIVATE $<${optimised}:-U_FORTIFY_SOURCE>
                           $<${optimised}:-D_FORTIFY_SOURCE=2>)
    target_link_options(${target} PRIVATE LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
endfunction()

# These format by a caller's text and do what vsprintf does, a %n in writable memory included, which
# the checked calls refuse. Also when whoever builds asks for them.
set_source_files_properties(foundation/DTString.cpp platform/posix/vrk.cpp
                            PROPERTIES COMPILE_OPTIONS -U_FORTIFY_SOURCE)
