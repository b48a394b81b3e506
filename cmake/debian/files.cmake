# Run by cpack on the staged files of the packages: adds what Debian expects of each.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} name)
    set(package ${CPACK_DEBIAN_${name}_PACKAGE_NAME})
    set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr/share)
    configure_file(${CPACK_DT_SOURCE_DIR}/LICENSE ${root}/doc/${package}/copyright COPYONLY)
    configure_file(${CPACK_DT_SOURCE_DIR}/cmake/debian/changelog ${root}/doc/${package}/changelog
                   COPYONLY)
    if(package STREQUAL "dtfleet")
        file(COPY ${root}/${package}/fleet.toml
             DESTINATION ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/etc/${package})
        file(MAKE_DIRECTORY ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/etc/${package}/devices.d)
        file(READ ${CPACK_DT_SOURCE_DIR}/tools/fleet/web/vendor/LICENSE license)
        file(APPEND ${root}/doc/${package}/copyright "\nIts page has uPlot in it:\n\n${license}\n")
    endif()
    file(GLOB pages ${root}/man/man*/*.[1-9])
    execute_process(COMMAND gzip -9nf ${root}/doc/${package}/changelog ${pages}
                    COMMAND_ERROR_IS_FATAL ANY)
endforeach()
