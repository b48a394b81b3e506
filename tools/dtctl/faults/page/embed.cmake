# Puts the page's files together and into a C++ source: dt_embed_fault_page(OUTPUT)
function(dt_embed_fault_page output)
    set(folder ${CMAKE_CURRENT_FUNCTION_LIST_DIR})
    foreach(type html css js)
        file(READ ${folder}/page.${type} ${type})
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${folder}/page.${type})
    endforeach()
    string(REPLACE "/* style */\n" "${css}" html "${html}")
    string(REPLACE "/* script */\n" "${js}" html "${html}")
    set(data "/* entries */\n")
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
