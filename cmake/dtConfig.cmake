include(${CMAKE_CURRENT_LIST_DIR}/dtTargets.cmake)

# A static library needs no C++ runtime either: a program in C is linked as one.
get_target_property(dt_type dt::dt TYPE)
if(dt_type STREQUAL "STATIC_LIBRARY")
    get_target_property(dt_configurations dt::dt IMPORTED_CONFIGURATIONS)
    foreach(configuration IN LISTS dt_configurations)
        set_property(TARGET dt::dt PROPERTY IMPORTED_LINK_INTERFACE_LANGUAGES_${configuration} C)
    endforeach()
    unset(dt_configurations)
endif()
unset(dt_type)
