# Puts the page's files together and into a C++ source: dt_embed_fault_page(OUTPUT)
function(dt_embed_fault_page output)
    set(folder ${CMAKE_CURRENT_FUNCTION_LIST_DIR})
    foreach(name page.html page.css log.js timeline.js list.js values.js page.js)
        file(READ ${folder}/${name} text)
        get_filename_component(type ${name} LAST_EXT)
        string(APPEND text${type} "${text}")
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${folder}/${name})
    endforeach()
    string(REPLACE "/* style */\n" "${text.css}" html "${text.html}")
    string(REPLACE "/* script */\n" "${text.js}" html "${html}")
    set(data "/* records */\n")
    string(FIND "${html}" "${data}" at)
    string(LENGTH "${data}" size)
    math(EXPR behind "${at} + ${size}")
    string(SUBSTRING "${html}" 0 ${at} head)
    string(SUBSTRING "${html}" ${behind} -1 tail)
    file(CONFIGURE OUTPUT ${output} @ONLY CONTENT [[
#include "dtctl/faults/page_text.h"

namespace dtctl {

const std::string_view fault_page_head = R"page(@head@)page";
const std::string_view fault_page_tail = R"page(@tail@)page";

} // namespace dtctl
]])
endfunction()
