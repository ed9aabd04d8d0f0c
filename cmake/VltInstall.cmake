# What `cmake --install` puts where, and the packages that cpack makes of it. Included last.
#
# Windows: one program folder. Linux: the programs in <prefix>/lib/veltrano; the program folder itself, to which the
# service writes, is C:\Veltrano of the machine root in /var/lib/veltrano and holds a link to each of them.
set(product vlntsrv vlctl ArdScan Ksapi64)
foreach(optional VLEVENT ArdCmdCom VlProxy ardguide vldbg64)
    if(TARGET ${optional})
        list(APPEND product ${optional})
    endif()
endforeach()
set(patterns "${CMAKE_BINARY_DIR}/bin/ptf$qrv.001")
set(package_folder ${CMAKE_SOURCE_DIR}/package)

set(CPACK_PACKAGE_NAME veltrano)
set(CPACK_PACKAGE_VENDOR "Veltrano")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Real-time virus-scan service")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/package)
set(CPACK_STRIP_FILES ON)
set(CPACK_THREADS 0)

if(WIN32)
    install(TARGETS ${product} RUNTIME DESTINATION . LIBRARY DESTINATION .)
    install(FILES ${patterns} ${package_folder}/windows/ArdScan.ini ${package_folder}/windows/INSTALL.txt DESTINATION .)
    install(DIRECTORY DESTINATION Log)
    install(DIRECTORY DESTINATION Quarantine)
    set(CPACK_GENERATOR ZIP)
    set(CPACK_PACKAGE_FILE_NAME veltrano-${PROJECT_VERSION}-windows-x64)
    include(CPack)
    return()
endif()

set(program_folder /var/lib/veltrano/drives/c/Veltrano)
install(TARGETS ${product} vlt_platform RUNTIME DESTINATION lib/veltrano LIBRARY DESTINATION lib/veltrano)
install(FILES ${patterns} DESTINATION lib/veltrano)
install(PROGRAMS ${package_folder}/linux/vlctl DESTINATION bin)
install(FILES ${package_folder}/linux/vlntsrv.service DESTINATION lib/systemd/system)
install(FILES ${package_folder}/linux/tmpfiles.conf DESTINATION lib/tmpfiles.d RENAME veltrano.conf)
install(FILES ${package_folder}/linux/ArdScan.ini DESTINATION /etc/veltrano)
install(FILES ${CMAKE_SOURCE_DIR}/README.md ${package_folder}/linux/copyright DESTINATION share/doc/veltrano)
install(DIRECTORY DESTINATION ${program_folder})
set(links)
foreach(target ${product} vlt_platform)
    list(APPEND links "$<TARGET_FILE_NAME:${target}>")
endforeach()
string(CONFIGURE [[
    foreach(name @links@ [=[ptf$qrv.001]=])
        set(link @program_folder@/${name})
        file(CREATE_LINK ${CMAKE_INSTALL_PREFIX}/lib/veltrano/${name} $ENV{DESTDIR}${link} SYMBOLIC)
        list(APPEND CMAKE_INSTALL_MANIFEST_FILES ${link})
    endforeach()
    file(CREATE_LINK /etc/veltrano/ArdScan.ini $ENV{DESTDIR}@program_folder@/ArdScan.ini SYMBOLIC)
    list(APPEND CMAKE_INSTALL_MANIFEST_FILES @program_folder@/ArdScan.ini)
]] make_links @ONLY)
install(CODE "${make_links}")

# Manual and completion, from the tool's own parser.
if(NOT CMAKE_CROSSCOMPILING AND NOT VLT_SANITIZE)
    set(manual ${CMAKE_BINARY_DIR}/manual)
    add_custom_command(OUTPUT ${manual}/vlctl.8.gz ${manual}/vlctl.bash
        COMMAND ${CMAKE_COMMAND} -E make_directory ${manual}
        COMMAND vlctl manual page > ${manual}/vlctl.8
        COMMAND gzip -9nf ${manual}/vlctl.8
        COMMAND vlctl manual bash > ${manual}/vlctl.bash
        DEPENDS vlctl
        COMMENT "Writing the manual of vlctl" VERBATIM)
    foreach(text vlntsrv.8 changelog)
        add_custom_command(OUTPUT ${manual}/${text}.gz
            COMMAND ${CMAKE_COMMAND} -E make_directory ${manual}
            COMMAND gzip -9nc ${package_folder}/linux/${text} > ${manual}/${text}.gz
            DEPENDS ${package_folder}/linux/${text} VERBATIM)
    endforeach()
    add_custom_target(manual ALL
        DEPENDS ${manual}/vlctl.8.gz ${manual}/vlctl.bash ${manual}/vlntsrv.8.gz ${manual}/changelog.gz)
    install(FILES ${manual}/vlctl.8.gz ${manual}/vlntsrv.8.gz DESTINATION share/man/man8)
    install(FILES ${manual}/changelog.gz DESTINATION share/doc/veltrano)
    install(FILES ${manual}/vlctl.bash DESTINATION share/bash-completion/completions RENAME vlctl)
endif()

add_custom_target(uninstall
    COMMAND ${CMAKE_COMMAND} -D MANIFEST=${CMAKE_BINARY_DIR}/install_manifest.txt
        -P ${CMAKE_SOURCE_DIR}/cmake/uninstall.cmake
    VERBATIM)

set(CPACK_GENERATOR DEB)
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_CONTACT "Veltrano <support@veltrano.example>")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "Guards files as they are opened: an infected one is refused and put into
quarantine. vlctl tells whether the machine is protected and operates it.")
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "libc6 (>= 2.36), libstdc++6 (>= 12), libgcc-s1, libssl3, init-system-helpers (>= 1.54)")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${package_folder}/linux/postinst ${package_folder}/linux/prerm
    ${package_folder}/linux/postrm ${package_folder}/linux/conffiles)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
