# The library exports what exports.txt lists and nothing else. Calls inside it bind to its own
# functions, except those of replaceable.txt: a program's own definition of these wins.

function(dt_read_list result file)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
    file(STRINGS ${file} lines REGEX "^[A-Za-z_]")
    list(JOIN lines ";\n        " text)
    set(${result} "${text}" PARENT_SCOPE)
endfunction()

function(dt_limit_exports target)
    dt_read_list(exports ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/exports.txt)
    dt_read_list(replaceable ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/replaceable.txt)
    set(map ${CMAKE_CURRENT_BINARY_DIR}/libdt.map)
    set(dynamic ${CMAKE_CURRENT_BINARY_DIR}/libdt.dynamic)
    file(CONFIGURE OUTPUT ${map} @ONLY CONTENT
        "LIBDT_1 {\n    global:\n        @exports@;\n    local: *;\n};\n")
    file(CONFIGURE OUTPUT ${dynamic} @ONLY CONTENT "{\n        @replaceable@;\n};\n")
    target_link_options(${target} PRIVATE
        -static-libgcc LINKER:--no-undefined LINKER:--version-script=${map}
        LINKER:--dynamic-list=${dynamic})
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map} ${dynamic})
endfunction()
