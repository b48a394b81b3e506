# The library exports what exports.txt lists and nothing else. Calls inside it bind to its own
# functions, except those of replaceable.txt: a program's own definition of these wins.

function(dt_read_list result file)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
    file(STRINGS ${file} lines REGEX "^[A-Za-z_]")
    list(JOIN lines ";\n        " text)
    set(${result} "${text}" PARENT_SCOPE)
endfunction()

set(dt_lists ${CMAKE_CURRENT_LIST_DIR})
function(dt_limit_exports target)
    dt_read_list(exports ${dt_lists}/exports.txt)
    dt_read_list(replaceable ${dt_lists}/replaceable.txt)
    set(map ${CMAKE_CURRENT_BINARY_DIR}/libdt.map)
    set(dynamic ${CMAKE_CURRENT_BINARY_DIR}/libdt.dynamic)
    file(GENERATE OUTPUT ${map} CONTENT
         "LIBDT_1 {\n    global:\n        ${exports};\n    local: *;\n};\n")
    file(GENERATE OUTPUT ${dynamic} CONTENT "{\n        ${replaceable};\n};\n")
    target_link_options(${target} PRIVATE
        -static-libgcc LINKER:--version-script=${map} LINKER:--dynamic-list=${dynamic})
    if(DT_PLATFORM STREQUAL "posix")
        target_link_options(${target} PRIVATE LINKER:--no-undefined)
    endif()
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map} ${dynamic})
endfunction()
