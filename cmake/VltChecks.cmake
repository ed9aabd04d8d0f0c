# Tests of what was built rather than of what it does. Included last, when all targets are known.
if(WIN32)
    # The exact names of the product's files; a client loads and starts them by these.
    add_test(NAME ${VLT_PRESET}.imports
        COMMAND ${CMAKE_SOURCE_DIR}/cmake/check-programs ${CMAKE_OBJDUMP} ${CMAKE_BINARY_DIR}/bin
            ${PROJECT_VERSION} Vlntsrv.exe vlctl.exe ArdCmdCom.exe VlProxy.exe ardguide.exe ArdScan.dll Ksapi64.dll VLEVENT.dll vldbg64.dll)
    get_filename_component(import_dir ${CMAKE_FIND_ROOT_PATH}/lib ABSOLUTE)
    set(objects)
    foreach(target vlt_trace vlt_engine vlt_ardcommon vlt_realtime vlt_service vlntsrv)
        list(APPEND objects $<TARGET_OBJECTS:${target}>)
    endforeach()
    add_test(NAME ${VLT_PRESET}.api COMMAND_EXPAND_LISTS
        COMMAND ${CMAKE_SOURCE_DIR}/cmake/check-api imports ${CMAKE_SOURCE_DIR}/platform/api.txt
            ${CMAKE_NM} ${import_dir} ${objects})
else()
    add_test(NAME ${VLT_PRESET}.api
        COMMAND ${CMAKE_SOURCE_DIR}/cmake/check-api exports ${CMAKE_SOURCE_DIR}/platform/api.txt
            ${CMAKE_SOURCE_DIR} $<TARGET_FILE:vlt_platform>)
endif()
