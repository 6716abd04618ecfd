# Wayland protocol glue made with wayland-scanner from the protocol files Debian ships
# (wayland-protocols, plasma-wayland-protocols), so none is kept in this tree.
find_package(PkgConfig REQUIRED)
pkg_check_modules(WaylandClient REQUIRED IMPORTED_TARGET wayland-client)
pkg_get_variable(WAYLAND_SCANNER wayland-scanner wayland_scanner)
pkg_get_variable(WAYLAND_PROTOCOLS_DIR wayland-protocols pkgdatadir)
find_package(PlasmaWaylandProtocols REQUIRED)
if(NOT WAYLAND_SCANNER OR NOT WAYLAND_PROTOCOLS_DIR)
    message(FATAL_ERROR "wayland-scanner and wayland-protocols are needed (scripts/deps)")
endif()

# quonbrix_wayland_protocols(TARGET target SIDE client|server [CODE] XML file...)
# Adds the client or server headers of each protocol to `target` (as system headers, so the
# generated code meets none of our warnings) and, with CODE, its interface tables. An
# executable takes the tables from one place only: they are global symbols.
function(quonbrix_wayland_protocols)
    cmake_parse_arguments(ARG "CODE" "TARGET;SIDE" "XML" ${ARGN})
    set(dir ${CMAKE_CURRENT_BINARY_DIR}/wayland-${ARG_SIDE})
    file(MAKE_DIRECTORY ${dir})
    foreach(xml ${ARG_XML})
        get_filename_component(base ${xml} NAME_WE)
        set(header ${dir}/${base}-${ARG_SIDE}-protocol.h)
        add_custom_command(OUTPUT ${header}
            COMMAND ${WAYLAND_SCANNER} ${ARG_SIDE}-header ${xml} ${header}
            DEPENDS ${xml} VERBATIM)
        target_sources(${ARG_TARGET} PRIVATE ${header})
        if(ARG_CODE)
            set(code ${dir}/${base}-protocol.c)
            add_custom_command(OUTPUT ${code}
                COMMAND ${WAYLAND_SCANNER} private-code ${xml} ${code}
                DEPENDS ${xml} VERBATIM)
            target_sources(${ARG_TARGET} PRIVATE ${code})
        endif()
    endforeach()
    target_include_directories(${ARG_TARGET} SYSTEM PUBLIC ${dir})
endfunction()

set(QUONBRIX_IDLE_PROTOCOLS
    ${WAYLAND_PROTOCOLS_DIR}/staging/ext-idle-notify/ext-idle-notify-v1.xml
    ${PLASMA_WAYLAND_PROTOCOLS_DIR}/idle.xml)
