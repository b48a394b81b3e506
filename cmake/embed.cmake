# Texts of the source tree in a program.

# Reads a file into a variable; the build looks again when it changes.
function(dt_read_text file variable)
    file(READ ${file} text)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
    set(${variable} "${text}" PARENT_SCOPE)
endfunction()

# Writes a C++ source that defines the views which a header declares, each with the text in the variable of
# the same name: dt_embed_texts(OUTPUT HEADER NAMESPACE NAME...)
function(dt_embed_texts output header namespace)
    set(definitions "")
    foreach(name IN LISTS ARGN)
        string(APPEND definitions "const std::string_view ${name} = R\"page(${${name}})page\";\n")
    endforeach()
    file(CONFIGURE OUTPUT ${output} @ONLY CONTENT [[
#include "@header@"

namespace @namespace@ {

@definitions@
} // namespace @namespace@
]])
endfunction()
