# capso_windows_program(target DESCRIPTION text [ICON file])
#
# What Windows reads from a program's file: its icon, its version, and the manifest that says which Windows it knows.
# Does nothing for other systems.
function(capso_windows_program target)
    if(NOT WIN32)
        return()
    endif()
    cmake_parse_arguments(PROGRAM "" "DESCRIPTION;ICON" "" ${ARGN})
    set(folder ${PROJECT_SOURCE_DIR}/packaging/windows)
    set(icon "")
    if(PROGRAM_ICON)
        set(icon "1 ICON \"${PROGRAM_ICON}\"")
    endif()
    set(manifest ${CMAKE_CURRENT_BINARY_DIR}/${target}.manifest)
    configure_file(${folder}/program.manifest.in ${manifest} @ONLY)
    configure_file(${folder}/program.rc.in ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc @ONLY)
    target_sources(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
    # windres does not look into what it embeds.
    set_source_files_properties(${CMAKE_CURRENT_BINARY_DIR}/${target}.rc PROPERTIES
        OBJECT_DEPENDS "${manifest};${PROGRAM_ICON}")
endfunction()
