# What is installed, and where: the library, its headers, and what pkg-config and CMake find them by.
# The components become packages (see packages.cmake); dt_development takes what names none.
include(CMakePackageConfigHelpers)

# The headers stand in the build tree as they will when installed.
function(dt_header source place)
    set(link ${CMAKE_CURRENT_BINARY_DIR}/include/dt/${place})
    get_filename_component(directory ${link} DIRECTORY)
    file(MAKE_DIRECTORY ${directory})
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR}/${source} ${link} SYMBOLIC)
    get_filename_component(room ${place} DIRECTORY)
    install(FILES ${source} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/dt/${room})
endfunction()

file(REMOVE_RECURSE ${CMAKE_CURRENT_BINARY_DIR}/include)
foreach(header IN LISTS DT_MODULE_HEADERS)
    dt_header(${header} ${header})
endforeach()
foreach(header IN LISTS DT_FRONT_DOORS)
    get_filename_component(name ${header} NAME)
    dt_header(${header} ${name})
endforeach()

install(TARGETS dt EXPORT dtTargets
        LIBRARY COMPONENT dt_runtime NAMELINK_COMPONENT dt_development)

set(package ${CMAKE_INSTALL_LIBDIR}/cmake/dt)
write_basic_package_version_file(dtConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES cmake/dtConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/dtConfigVersion.cmake
        DESTINATION ${package})
install(EXPORT dtTargets NAMESPACE dt:: DESTINATION ${package})

# dt.pc finds its prefix from its own place; a directory given as an absolute path stays one.
file(RELATIVE_PATH DT_PREFIX_FROM_PC ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
foreach(directory LIBDIR INCLUDEDIR)
    set(DT_PC_${directory} ${CMAKE_INSTALL_${directory}})
    if(NOT IS_ABSOLUTE ${DT_PC_${directory}})
        set(DT_PC_${directory} "\${prefix}/${DT_PC_${directory}}")
    endif()
endforeach()
configure_file(cmake/dt.pc.in dt.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/dt.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(DIRECTORY man/man3 man/man7 DESTINATION ${CMAKE_INSTALL_MANDIR})
if(TARGET dtctl)
    install(FILES man/man1/dtctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT dt_tools)
endif()
if(TARGET dtfleet)
    install(FILES man/man1/dtfleet.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT dt_fleet)
endif()

# What was installed goes again; in a larger project that is the project's business.
if(DT_ALONE)
    add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -P ${CMAKE_CURRENT_LIST_DIR}/uninstall.cmake)
endif()
